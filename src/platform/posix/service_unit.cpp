#include "platform/posix/service_unit.h"

#include <algorithm>

namespace tlm::platform {

namespace {

bool IsRefusedInPaths(char c) {
  return c == '"' || c == '\'' || c == '\\' || c == '\x7f' || static_cast<unsigned char>(c) < ' ';
}

// The line ends of a unit file are its only structure.
std::string OneLine(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ') c = ' ';
  }
  return text;
}

// A '%' begins a specifier in any value.
std::string Escaped(const std::string& text, const std::string& doubled = "%") {
  std::string escaped;
  for (char c : text) {
    if (doubled.find(c) != std::string::npos) escaped += c;
    escaped += c;
  }
  return escaped;
}

// One word of a command line.
std::string Word(const std::string& text) {
  return text.find_first_of(" \\;") == std::string::npos ? text : '"' + text + '"';
}

// For text that may hold anything.
std::string HexEscaped(const std::string& text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string escaped;
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (IsRefusedInPaths(c)) {
      escaped.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
    } else {
      escaped += c;
    }
  }
  return escaped;
}

// Variables are put in for '$' in the words of a program, but not in its path.
std::string Command(const ServiceUnit& unit) {
  std::string program = Word(Escaped(unit.Program));
  if (unit.FirstWord == unit.Program) return program;
  return '@' + program + ' ' + Word(HexEscaped(Escaped(unit.FirstWord, "%$")));
}

std::string EnvironmentFile(const ServiceUnit& unit) {
  return unit.ForSystem ? "/etc/default/" + unit.Name : "%E/" + unit.Name + ".env";
}

constexpr char kService[] = R"(
[Service]
Type=notify
Restart=on-failure
RestartPreventExitStatus=1
RestartSec=5

# For a server that answers nobody any more. It may well be busy for a minute.
WatchdogSec=180

# The server stops its jobs itself. What is left after it goes with the control group, in which all of them stay.
KillMode=mixed
TimeoutStopSec=30

# A job that is ended for want of memory does not take the server with it.
OOMPolicy=continue
TasksMax=infinity

# The server takes all the descriptors that it may have, its jobs take the usual number.
LimitNOFILE=1024:65536
)";

// What would hinder jobs is not here: they use devices, networks and generated code, run in the directories of people,
// and make namespaces, in which they mount /proc and /sys anew and set a host name.
constexpr char kHardening[] = R"(
NoNewPrivileges=yes
ProtectKernelModules=yes
)";

std::string AccountText(const std::string& account) {
  return "User=" + account + "\nGroup=" + account + "\nStateDirectory=" + account + "\nLogsDirectory=" + account + R"(
StateDirectoryMode=0750
LogsDirectoryMode=0750
CapabilityBoundingSet=
ProtectSystem=full
)";
}

}  // namespace

bool IsProgramPath(const std::string& path) { return std::none_of(path.begin(), path.end(), IsRefusedInPaths); }

std::string UnitText(const ServiceUnit& unit) {
  std::string text = "# For changes: systemctl " + std::string(unit.ForSystem ? "" : "--user ") + "edit " + unit.Name +
                     "\n[Unit]\nDescription=" + Escaped(OneLine(unit.Description)) + "\nDocumentation=man:tlmjm(8)\n";
  if (unit.ForSystem) {
    text += "Wants=network-online.target\nAfter=network-online.target remote-fs.target nss-user-lookup.target\n";
  }
  text += kService;
  text += "\nExecStart=" + Command(unit) + "\nEnvironmentFile=-" + EnvironmentFile(unit) + '\n';
  if (unit.ForSystem) text += kHardening;
  if (!unit.Account.empty()) text += AccountText(unit.Account);
  return text + "\n[Install]\nWantedBy=" + (unit.ForSystem ? "multi-user.target" : "default.target") + '\n';
}

}  // namespace tlm::platform
