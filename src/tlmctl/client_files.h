// Files of this machine, and what the server holds of them. It keeps a directory of its own for each one here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tlmctl/link.h"

namespace tlm::ctl {

struct ClientFile {
  std::string Given;                  // as the user has named it
  std::string Directory;              // absolute, with a separator at its end
  std::string Name;                   // in that directory
  std::string Source;                 // path of the content, most often Directory + Name
  std::optional<std::uint64_t> Size;  // bytes; empty if there is none here
  std::int64_t ModTime = 0;           // nanoseconds since some moment that stays the same

  std::string Path() const { return Directory + Name; }
};

// Looks at the file of that path. Throws Failure for a directory, and for what cannot be a file's name.
ClientFile Locate(const std::string& path);

// Throws Failure if there is no such file here, or one that a transfer cannot carry.
void RequireThatItTravels(const ClientFile& file);

// Of each file, its size on the server in bytes, and 4 GiB - 1 for a larger one; empty if it is not there.
std::vector<std::optional<std::uint64_t>> SizesOnServer(QorJMClient& client, const std::vector<ClientFile>& files);

// Sends the files, all of which travel. After a loss of the connection it goes on from what has arrived. Throws Failure
// if the server could not store them, or the user has interrupted it.
void Upload(Link& link, const Settings& settings, const std::vector<ClientFile>& files);

}  // namespace tlm::ctl
