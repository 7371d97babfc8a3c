#include "util/mdirectorychanger.h"

#include "platform/file_system.h"

namespace tlm {

MDirectoryChanger::MDirectoryChanger(const std::string& directory) : former_(platform::CurrentDirectory()) {
  platform::ChangeDirectory(directory);
}

MDirectoryChanger::~MDirectoryChanger() { platform::ChangeDirectory(former_); }

}  // namespace tlm
