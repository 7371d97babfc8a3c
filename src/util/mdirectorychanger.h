// Another current directory for the length of a scope. It is the whole process's: not for use with threads that care.
#pragma once

#include <string>

namespace tlm {

class MDirectoryChanger {
 public:
  // Failures, here and when changing back, are not told.
  explicit MDirectoryChanger(const std::string& directory);
  virtual ~MDirectoryChanger();
  MDirectoryChanger(const MDirectoryChanger&) = delete;
  MDirectoryChanger& operator=(const MDirectoryChanger&) = delete;

 private:
  std::string former_;
};

}  // namespace tlm
