#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "tlmctl/client_files.h"
#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/table.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

struct FileOptions {
  std::vector<std::string> Words;
  bool OnlyMissing = false;
};

// Directories among them are left out, as * names them, too.
std::vector<ClientFile> LocateAll(const Settings& settings, const std::vector<std::string>& words) {
  std::vector<ClientFile> files;
  for (const std::string& word : words) {
    std::error_code ignored;
    if (std::filesystem::is_directory(word, ignored)) {
      Note(settings, "left out, as only files travel: the directory " + word);
    } else {
      files.push_back(Locate(word));
    }
  }
  if (files.empty()) throw Failure{kUsage, "there is no file among these", "only files travel, one by one"};
  return files;
}

void Reach(QorJMClient& client, const Settings& settings) {
  Connect(client, settings);
  SayHello(client, settings);  // files may come before the programs that read them
}

// -- check

bool Travels(const ClientFile& file, std::optional<std::uint64_t> sizeThere) {
  return file.Size && (!sizeThere || *sizeThere != *file.Size);
}

std::string SizeOrNothing(std::optional<std::uint64_t> size) { return size ? SizeText(*size) : kNothing; }

Json SizeJson(std::optional<std::uint64_t> size) { return size ? Json(*size) : Json(); }

int Check(const Settings& settings, const FileOptions& options) {
  const std::vector<ClientFile> files = LocateAll(settings, options.Words);
  QorJMClient client;
  Reach(client, settings);
  const auto sizesThere = SizesOnServer(client, files);
  Table table({"FILE", "HERE", "SERVER", "WOULD TRAVEL"});
  Json list = Json::array();
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const ClientFile& file = files[i];
    const bool travels = Travels(file, sizesThere[i]);
    if (travels) bytes += *file.Size;
    if (travels && settings.Quiet && !settings.Json) std::cout << file.Given << '\n';
    table.Add({{file.Given},
               {SizeOrNothing(file.Size)},
               {SizeOrNothing(sizesThere[i])},
               {travels ? "yes" : "no", travels ? Colour::Busy : Colour::None}});
    list.push_back({{"file", file.Given},
                    {"size", SizeJson(file.Size)},
                    {"server_size", SizeJson(sizesThere[i])},
                    {"travels", travels}});
  }
  if (settings.Json) {
    PrintJson({{"files", list}, {"bytes_to_send", bytes}});
  } else if (!settings.Quiet) {
    table.Print();
    Note(settings, SizeText(bytes) + " would travel");
  }
  return kGood;
}

// -- put

void TakeOutThoseThere(QorJMClient& client, std::vector<ClientFile>& files) {
  const auto sizesThere = SizesOnServer(client, files);
  auto size = sizesThere.begin();
  std::erase_if(files, [&](const ClientFile& file) { return !Travels(file, *size++); });
}

std::string Joined(const StringList& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

int Put(const Settings& settings, const FileOptions& options) {
  std::vector<ClientFile> files = LocateAll(settings, options.Words);
  for (const ClientFile& file : files) RequireThatItTravels(file);
  CatchInterrupts(kInterruptPatience);
  Link link(
      settings, [&](QorJMClient& client) { SayHello(client, settings); }, Connect);
  link.Open();
  if (options.OnlyMissing) link.Persist([&](QorJMClient& client) { TakeOutThoseThere(client, files); });
  std::uint64_t bytes = 0;
  Json sent = Json::array();
  for (const ClientFile& file : files) {
    bytes += *file.Size;
    sent.push_back({{"file", file.Given}, {"size", *file.Size}});
  }
  Upload(link, settings, files);
  if (settings.Json) {
    PrintJson({{"sent", sent}, {"bytes_sent", bytes}});
  } else {
    for (const ClientFile& file : files) {
      if (!settings.Quiet) std::cout << file.Given << ", " << SizeText(*file.Size) << '\n';
    }
  }
  return kGood;
}

// -- delete

int Delete(const Settings& settings, const FileOptions& options) {
  const std::vector<ClientFile> files = LocateAll(settings, options.Words);
  RequireConsent(settings, "Delete from the server: " + Joined(options.Words) + '?');
  QorJMClient client;
  Reach(client, settings);
  StringList deletions;
  StringList absent;
  for (const ClientFile& file : files) {
    std::string there;
    if (client.ClientFileExists(file.Path()) && client.MapClientDirectory(file.Directory, there)) {
      deletions.push_back(there + '/' + file.Name);
    } else {
      absent.push_back(file.Given);
    }
  }
  const bool deleted = client.UpdateClientFiles(deletions, {});
  if (!absent.empty()) Note(settings, "not there: " + Joined(absent));
  if (!deleted)
    throw Failure{kRefused, "the server could not delete all of them", "'tlmctl files check' shows what is left"};
  if (settings.Json) {
    PrintJson({{"deleted", deletions.size()}, {"absent", absent}});
  } else if (!settings.Quiet) {
    std::cout << deletions.size() << (deletions.size() == 1 ? " file" : " files") << " deleted\n";
  }
  return kGood;
}

void AddFilesOption(CLI::App& command, FileOptions& options, const char* description) {
  command.add_option("FILE", options.Words, description)->type_name(kFileValue)->required();
}

}  // namespace

void AddFiles(Program& program) {
  const auto options = std::make_shared<FileOptions>();
  program.AddGroup("files", "Look after the files that the server holds for directories here");
  AddFilesOption(
      program.AddCommand(
          {.Name = "files check",
           .Description = "Compare files here with those that the server holds",
           .Examples = {{"files check *.inp", "sizes here and there, and what would travel"},
                        {"-q files check *", "names of what would travel"}},
           .Operations = {"Hello", "CheckClientFiles", "ClientFileExists"},
           .Details =
               "Files are compared by their sizes alone. A file has to be in the directory in which it was when\n"
               "it was sent: the server keeps a directory of its own for each one here."},
          [options](const Settings& settings) { return Check(settings, *options); }),
      *options, "Files here; they need not exist");
  CLI::App& put = program.AddCommand(
      {.Name = "files put",
       .Description = "Send files to the server's directory for the one that they are in",
       .Examples = {{"files put mesh.dat plate.inp", "for a job that is submitted from here"},
                    {"files put --only-missing *.dat", "leaves out what the server has with the same size"}},
       .Operations = {"Hello", "MapClientDirectory", "UpdateClientFiles", "PutFiles", "CheckClientFiles",
                      "ClientFileExists"}},
      [options](const Settings& settings) { return Put(settings, *options); });
  AddFilesOption(put, *options, "Files to send, of no more than 4294967295 bytes each");
  put.add_flag("--only-missing", options->OnlyMissing, "Leave out what the server holds with the same size");
  AddFilesOption(
      program.AddCommand({.Name = "files delete",
                          .Description = "Delete files from the server's directory; those here stay",
                          .Examples = {{"files delete mesh.dat", "asks first"}},
                          .Operations = {"Hello", "MapClientDirectory", "ClientFileExists", "UpdateClientFiles"}},
                         [options](const Settings& settings) { return Delete(settings, *options); }),
      *options, "Files, by the names that they have or had here");
}

}  // namespace tlm::ctl
