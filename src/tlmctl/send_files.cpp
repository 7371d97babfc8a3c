#include "tlmctl/send_files.h"

#include <iostream>

#include "util/mfile.h"

namespace tlm::ctl {

namespace {

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

bool SendFiles(QorJMClient& client, const std::string& directory, const std::vector<std::string>& names) {
  std::string serverDirectory;
  client.MapClientDirectory(directory, serverDirectory);
  Tell(directory, names);
  return client.PutFiles(TransferTo(serverDirectory, directory, names));
}

std::vector<std::string> MissingFiles(QorJMClient& client, const std::string& directory,
                                      const std::vector<std::string>& names) {
  std::string serverDirectory;
  client.MapClientDirectory(directory, serverDirectory);
  std::vector<std::string> missing;
  for (const std::string& name : names) {
    const MFile file(directory + name);
    if (!client.ClientFileMatches(file.Path(), file.Size(), 0)) missing.push_back(name);
  }
  return missing;
}

}  // namespace tlm::ctl
