#include "tlmctl/send_files.h"

#include <algorithm>
#include <iostream>
#include <set>
#include <sstream>

#include "tlmctl/exit_code.h"
#include "util/mfile.h"

namespace tlm::ctl {

namespace {

constexpr int kAttempts = 2;

// The server passes an empty file over when it compares sizes, so that one is always sent.
std::set<std::string> MissingPaths(QorJMClient& client, const std::string& directory,
                                   const std::vector<std::string>& names) {
  StringList entries;
  std::set<std::string> missing;
  for (const std::string& name : names) {
    const MFile file(directory + name);
    if (file.Size() == 0) missing.insert(file.Path());
    std::ostringstream entry;
    entry << file.Size() << ':' << file.ModTime() << ':' << file.Path();
    entries.push_back(entry.str());
  }
  StringList answers;
  client.CheckClientFiles(entries, {answers});
  for (const std::string& answer : answers) {
    const std::size_t path = answer.find(':', answer.find(':') + 1) + 1;  // behind the size found and a date
    missing.insert(answer.substr(path));
  }
  return missing;
}

FileTransferList TransferTo(const std::string& serverDirectory, const std::string& directory,
                            const std::vector<std::string>& names) {
  FileTransferList files;
  for (const std::string& name : names) {
    const MFile source(directory + name);
    MFile destination = source;
    destination.SetDirectory(serverDirectory);
    files.Items.push_back({destination.Path(), source.Path()});
  }
  return files;
}

void Tell(const std::string& directory, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    std::cerr << "tlmctl: sending " << name << ", " << MFile(directory + name).Size() << " bytes\n";
  }
}

}  // namespace

void SendFiles(QorJMClient& client, const std::string& directory, const std::vector<std::string>& names,
               bool onlyMissing) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string serverDirectory;
    client.MapClientDirectory(directory, serverDirectory);
    std::vector<std::string> wanted = names;
    if (onlyMissing) {
      const std::set<std::string> missing = MissingPaths(client, directory, names);
      std::erase_if(wanted, [&](const std::string& name) { return !missing.contains(directory + name); });
    }
    Tell(directory, wanted);
    if (client.PutFiles(TransferTo(serverDirectory, directory, wanted))) return;
    // Another client may have made the server clean up a directory that was still empty; it comes back when it is asked
    // for again.
  }
  throw Failure{ExitCode::Refused, "the server could not store all the files; its disk may be full"};
}

}  // namespace tlm::ctl
