#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "platform/posix/service_unit.h"
#include "platform/posix/user_directories.h"
#include "platform/service.h"

namespace tlm::platform {

namespace {

constexpr char kSystemUnits[] = "/etc/systemd/system";
constexpr const char* kOtherSystemUnits[] = {"/usr/local/lib/systemd/system", "/usr/lib/systemd/system",
                                             "/lib/systemd/system"};

bool ForSystem() { return geteuid() == 0; }

std::string FileName(const std::string& name) { return name + ".service"; }

std::string UnitDirectory() { return ForSystem() ? kSystemUnits : ConfigurationDirectory() + "/systemd/user"; }

std::string UnitPath(const std::string& name) { return UnitDirectory() + '/' + FileName(name); }

std::string Failure(const std::string& what, int error = errno) { return what + ": " + std::strerror(error); }

// A file that was not there before. The answer is a failure's line.
std::string CreateFile(const std::string& path, const std::string& content) {
  std::FILE* const file = std::fopen(path.c_str(), "wxe");
  if (file == nullptr) return Failure(path);
  const bool written = std::fputs(content.c_str(), file) >= 0;
  if (std::fclose(file) == 0 && written) return {};
  std::string failure = Failure(path);
  unlink(path.c_str());
  return failure;
}

// A service that stands anywhere else would be hidden by one of its name, not made anew.
std::string FindElsewhere(const std::string& name) {
  if (!ForSystem()) return {};
  for (const char* directory : kOtherSystemUnits) {
    const std::string path = std::string(directory) + '/' + FileName(name);
    if (access(path.c_str(), F_OK) == 0) return Failure(path, EEXIST);
  }
  return {};
}

std::string CreateUnit(const ServiceDefinition& service) {
  if (std::string there = FindElsewhere(service.Name); !there.empty()) return there;
  const std::string directory = UnitDirectory();
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) return Failure(directory, error.value());
  return CreateFile(UnitPath(service.Name), UnitText({.Name = service.Name,
                                                      .Description = service.DisplayName,
                                                      .Program = service.Program,
                                                      .FirstWord = service.FirstWord,
                                                      .ForSystem = ForSystem(),
                                                      .Account = {}}));
}

// The tool's first words on a failure. What it says of a success is not passed on.
std::string Systemctl(const std::string& arguments) {
  const std::string command = std::string("systemctl ") + (ForSystem() ? "" : "--user ") + arguments;
  std::FILE* const output = popen((command + " 2>&1 </dev/null").c_str(), "re");
  if (output == nullptr) return Failure(command);
  std::string line;
  for (int c = std::getc(output); c != EOF; c = std::getc(output)) {
    if (line.empty() || line.back() != '\n') line += static_cast<char>(c);
    if (line == "\n") line.clear();
  }
  const int status = pclose(output);
  if (status == 0) return {};
  if (line.ends_with('\n')) line.pop_back();
  return line.empty() ? command + ": failed" : line;
}

void Keep(std::string& first, std::string failure) {
  if (first.empty()) first = std::move(failure);
}

}  // namespace

std::string InstallService(const ServiceDefinition& service) {
  if (!IsProgramPath(service.Program)) {
    return "The path of a service's program may not have quotes, backslashes or control characters in it.";
  }
  std::string failure = CreateUnit(service);
  if (!failure.empty()) return failure;
  Keep(failure, Systemctl("daemon-reload"));
  // This works without a running manager as well, for its next start.
  Keep(failure, Systemctl("--quiet enable " + FileName(service.Name)));
  return failure;
}

std::string UninstallService(const std::string& name) {
  const std::string path = UnitPath(name);
  if (access(path.c_str(), F_OK) != 0) return Failure(path);
  std::string failure = Systemctl("--quiet disable " + FileName(name));
  if (unlink(path.c_str()) != 0) Keep(failure, Failure(path));
  Keep(failure, Systemctl("daemon-reload"));
  return failure;
}

std::string StartService(const std::string& name) { return Systemctl("start " + FileName(name)); }

}  // namespace tlm::platform
