#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <optional>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/texts.h"
#include "tlmctl/transfer_progress.h"

namespace tlm::ctl {

namespace {

namespace fs = std::filesystem;

struct ClientFile {
  std::string Given;      // as it stands in the command line
  std::string Directory;  // as the server knows it: with a separator at its end
  std::string Name;
  std::optional<std::uint64_t> Size;  // bytes; empty if there is none here
  std::string Path() const { return Directory + Name; }
};

struct FileOptions {
  std::vector<std::string> Words;
  bool OnlyMissing = false;
};

ClientFile Locate(const std::string& word) {
  const fs::path path = fs::absolute(word).lexically_normal();
  if (path.filename().empty()) throw Failure{kUsage, word + " is no file", "only files travel, one by one"};
  ClientFile file{word, (path.parent_path() / "").string(), path.filename().string(), {}};
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) throw Failure{kUsage, word + " is a directory", "only files travel, one by one"};
  if (fs::is_regular_file(status)) file.Size = fs::file_size(path, error);
  return file;
}

std::vector<ClientFile> LocateAll(const std::vector<std::string>& words) {
  std::vector<ClientFile> files;
  files.reserve(words.size());
  for (const std::string& word : words) files.push_back(Locate(word));
  return files;
}

void Reach(QorJMClient& client, const Settings& settings) {
  Connect(client, settings);
  SayHello(client, settings);  // files may come before the programs that read them
}

// -- check

std::uint32_t AskedSize(const ClientFile& file) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(file.Size.value_or(1), 1, kLargest));
}

// Of each file, its size on the server; empty if it is not there.
std::vector<std::optional<std::uint32_t>> SizesOnServer(QorJMClient& client, const std::vector<ClientFile>& files) {
  StringList entries;
  for (const ClientFile& file : files) entries.push_back(std::to_string(AskedSize(file)) + ":0:" + file.Path());
  StringList different;  // in the order of the entries, each as "size there:0:path"
  client.CheckClientFiles(entries, {different});
  std::vector<std::optional<std::uint32_t>> sizes;
  auto next = different.begin();
  for (const ClientFile& file : files) {
    const std::string tail = ":0:" + file.Path();
    if (next == different.end() || !next->ends_with(tail) || next->find(tail) + tail.size() != next->size()) {
      sizes.emplace_back(AskedSize(file));
      continue;
    }
    const auto size = static_cast<std::uint32_t>(std::strtoul(next->c_str(), nullptr, 10));
    sizes.push_back(size != 0 || client.ClientFileExists(file.Path()) ? std::optional(size) : std::nullopt);
    ++next;
  }
  return sizes;
}

bool Travels(const ClientFile& file, std::optional<std::uint32_t> sizeThere) {
  return file.Size && (!sizeThere || *sizeThere != *file.Size);
}

std::string SizeOrNothing(std::optional<std::uint64_t> size) { return size ? SizeText(*size) : kNothing; }

Json SizeJson(std::optional<std::uint64_t> size) { return size ? Json(*size) : Json(); }

int Check(const Settings& settings, const FileOptions& options) {
  const std::vector<ClientFile> files = LocateAll(options.Words);
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

void CheckThatTheyCanTravel(const std::vector<ClientFile>& files) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  for (const ClientFile& file : files) {
    if (!file.Size) throw Failure{kUsage, "there is no file " + file.Given};
    if (*file.Size > kLargest) {
      throw Failure{kUsage,
                    file.Given + " has " + std::to_string(*file.Size) + " bytes, and no more than " +
                        std::to_string(kLargest) + " can travel",
                    "bring it to a directory that the server reaches itself"};
    }
  }
}

void TakeOutThoseThere(QorJMClient& client, std::vector<ClientFile>& files) {
  const auto sizesThere = SizesOnServer(client, files);
  auto size = sizesThere.begin();
  std::erase_if(files, [&](const ClientFile& file) { return !Travels(file, *size++); });
}

StringList NotThere(QorJMClient& client, const std::vector<ClientFile>& files) {
  StringList names;
  for (const ClientFile& file : files) {
    const auto size = static_cast<std::uint32_t>(*file.Size);
    if (!client.ClientFileMatches(file.Path(), size, 0)) names.push_back(file.Given);
  }
  return names;
}

std::string Joined(const StringList& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

// One directory after the other: with each that the server has not met it cleans up, and takes away what is empty.
void Send(QorJMClient& client, const Settings& settings, const std::vector<ClientFile>& files, std::uint64_t bytes) {
  TransferProgress progress(settings, "sending", bytes);
  std::map<std::string, FileTransferList> transfers;
  for (const ClientFile& file : files) transfers[file.Directory].Items.push_back({file.Name, file.Path()});
  bool stored = true;
  for (auto& [directory, transfer] : transfers) {
    std::string there;
    client.MapClientDirectory(directory, there);
    for (FileTransferItem& item : transfer.Items) item.Destination = there + '/' + item.Destination;
    transfer.Watcher = &progress;
    stored = client.PutFiles(transfer) && stored;
  }
  const StringList missing = NotThere(client, files);
  if (stored && missing.empty()) return;
  throw Failure{kRefused, "the server could not store " + (missing.empty() ? "everything" : Joined(missing)),
                "its disk may be full, or a file has changed meanwhile: 'tlmctl doctor' tells more"};
}

int Put(const Settings& settings, const FileOptions& options) {
  std::vector<ClientFile> files = LocateAll(options.Words);
  CheckThatTheyCanTravel(files);
  QorJMClient client;
  Reach(client, settings);
  if (options.OnlyMissing) TakeOutThoseThere(client, files);
  std::uint64_t bytes = 0;
  Json sent = Json::array();
  for (const ClientFile& file : files) {
    bytes += *file.Size;
    sent.push_back({{"file", file.Given}, {"size", *file.Size}});
  }
  if (!files.empty()) Send(client, settings, files, bytes);
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
  const std::vector<ClientFile> files = LocateAll(options.Words);
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
       .Operations = {"Hello", "MapClientDirectory", "PutFiles", "ClientFileMatches", "CheckClientFiles",
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
