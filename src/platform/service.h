// The system's service manager: what passes between it and a service that it started, and how it comes to know of one.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

namespace tlm::platform {

enum class ServiceState { Stopped = 1, StartPending = 2, StopPending = 3, Running = 4 };

// The manager that started this process.
class ServiceManager {
 public:
  // Empty if this process was not started by one. What tells so is taken out of the environment, lest a program that is
  // started here takes itself for the service: of several claims in one process the first has it.
  static std::optional<ServiceManager> Claim();

  // Lost if the manager does not listen. Any thread.
  void Report(ServiceState state) const;

  // Within this time the manager wants to hear ReportAlive again and again, or it ends the process. Empty if it does
  // not.
  std::optional<std::chrono::microseconds> Watchdog() const { return watchdog_; }
  void ReportAlive() const;

 private:
  ServiceManager(std::string address, std::optional<std::chrono::microseconds> watchdog)
      : address_(std::move(address)), watchdog_(watchdog) {}
  void Send(const char* message) const;
  std::string address_;
  std::optional<std::chrono::microseconds> watchdog_;
};

struct ServiceDefinition {
  std::string Name;         // letters, digits
  std::string DisplayName;  // one line, for people
  std::string Program;      // full path
  std::string FirstWord;    // what the program is to take for its own name
};

// The services of the machine if this user administers it, else those of the user. Each gives an empty text, or one
// line on what went wrong first. A service starts with the machine, or with the user's first login, from its
// installation on; one that is there already is left as it is. Uninstalling leaves it running.
std::string InstallService(const ServiceDefinition& service);
std::string UninstallService(const std::string& name);
std::string StartService(const std::string& name);

}  // namespace tlm::platform
