// The text of the file that makes a program a service here.
#pragma once

#include <string>

namespace tlm::platform {

struct ServiceUnit {
  std::string Name;         // without the ending of its file
  std::string Description;  // one line
  std::string Program;      // full path that IsProgramPath
  std::string FirstWord;    // argv[0]
  bool ForSystem = true;    // a service of the machine, not of one user
  std::string Account;  // user and group that it runs as, and the name of its state directory; the manager's if empty
};

// False for a path that the service manager takes in no spelling, one with a quote in it for instance.
bool IsProgramPath(const std::string& path);

std::string UnitText(const ServiceUnit& unit);

}  // namespace tlm::platform
