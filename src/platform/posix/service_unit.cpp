#include "platform/posix/service_unit.h"

namespace tlm::platform {

namespace {

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

// One word of a command line, whatever is in it.
std::string Word(const std::string& word, const std::string& doubled) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string quoted;
  for (char c : Escaped(word, doubled)) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\'' || c == '\\' || byte < ' ') {
      quoted.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
    } else {
      quoted += c;
    }
  }
  return quoted.find_first_of(" \\;") == std::string::npos ? quoted : '"' + quoted + '"';
}

// Variables are put in for '$' in the words of a program, but not in its path.
std::string Command(const ServiceUnit& unit) {
  if (unit.FirstWord == unit.Program) return Word(unit.Program, "%");
  return '@' + Word(unit.Program, "%") + ' ' + Word(unit.FirstWord, "%$");
}

std::string EnvironmentFile(const ServiceUnit& unit) {
  return unit.ForSystem ? "/etc/default/" + unit.Name : "%E/" + unit.Name + ".env";
}

constexpr char kService[] = R"(
[Service]
Type=notify
Restart=on-failure
RestartSec=5

# The server stops its jobs itself. What is left after it goes with the control group, in which all of them stay.
KillMode=mixed
TimeoutStopSec=30

# A job that is ended for want of memory does not take the server with it.
OOMPolicy=continue
TasksMax=infinity

# The server takes all the descriptors that it may have, its jobs take the usual number.
LimitNOFILE=1024:65536
)";

// What would hinder jobs is not here: they use devices, networks, namespaces and generated code, and run in the
// directories of people.
constexpr char kHardening[] = R"(
NoNewPrivileges=yes
ProtectControlGroups=yes
ProtectHostname=yes
ProtectKernelLogs=yes
ProtectKernelModules=yes
ProtectKernelTunables=yes
)";

std::string AccountText(const std::string& account) {
  return "User=" + account + "\nGroup=" + account + "\nStateDirectory=" + account + R"(
StateDirectoryMode=0750
CapabilityBoundingSet=
ProtectSystem=full
)";
}

}  // namespace

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
