#include "platform/machine.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <set>
#include <string_view>
#include <system_error>

#include "platform/host.h"

namespace tlm::platform {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kDisplayClass = "0x03";

std::string Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(kBlanks) + 1 - first));
}

std::string FirstLine(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return Trim(line);
}

// The value of the first line that begins with the key and the sign; empty if there is none.
std::string ValueOf(const std::string& path, std::string_view key, char sign) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const std::size_t at = line.find(sign);
    if (at != std::string::npos && Trim(line.substr(0, at)) == key) return Trim(line.substr(at + 1));
  }
  return {};
}

std::string FirstValueOf(const std::string& path, std::initializer_list<std::string_view> keys, char sign) {
  for (std::string_view key : keys) {
    if (std::string value = ValueOf(path, key, sign); !value.empty()) return value;
  }
  return {};
}

std::string Join(const std::string& left, const std::string& right, std::string_view between = " ") {
  return left.empty() || right.empty() ? left + right : left + std::string(between) + right;
}

std::string SystemText(const std::string& root) {
  std::string name;
  for (const char* file : {"/etc/os-release", "/usr/lib/os-release"}) {
    if (name.empty()) name = ValueOf(root + file, "PRETTY_NAME", '=');
  }
  if (name.size() >= 2 && name.front() == name.back() && (name.front() == '"' || name.front() == '\'')) {
    name = name.substr(1, name.size() - 2);
  }
  if (name.empty()) name = FirstLine(root + "/proc/sys/kernel/ostype");
  return Join(name, FirstLine(root + "/proc/sys/kernel/osrelease"));
}

// Each kind of processor has its own words.
std::string ProcessorText(const std::string& root) {
  const std::string file = root + "/proc/cpuinfo";
  const std::string maker = FirstValueOf(file, {"vendor_id", "CPU implementer"}, ':');
  const std::string model = FirstValueOf(file, {"model name", "cpu model", "cpu", "CPU part", "uarch"}, ':');
  const long clockRate = std::lround(std::atof(FirstValueOf(file, {"cpu MHz", "clock"}, ':').c_str()));
  return Join(Join(maker, model), clockRate > 0 ? "~" + std::to_string(clockRate) + " MHz" : "");
}

// The list has a line for each maker and, indented below it, one for each of its devices: four digits, blanks, a name.
std::string DeviceName(const std::string& list, const std::string& maker, const std::string& device) {
  std::ifstream file(list);
  std::string makerName;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] != '\t') {
      if (!makerName.empty()) break;
      if (line.starts_with(maker + "  ")) makerName = Trim(line.substr(maker.size()));
    } else if (!makerName.empty() && line.starts_with("\t" + device + "  ")) {
      return makerName + ' ' + Trim(line.substr(1 + device.size()));
    }
  }
  return makerName.empty() ? "" : makerName + " device " + device;
}

std::string HexDigits(const std::string& number) { return number.starts_with("0x") ? number.substr(2) : number; }

std::string AdapterText(const std::string& root, const fs::path& device) {
  const std::string maker = HexDigits(FirstLine(device / "vendor"));
  const std::string model = HexDigits(FirstLine(device / "device"));
  std::string text;
  for (const char* list : {"/usr/share/misc/pci.ids", "/usr/share/hwdata/pci.ids"}) {
    if (text.empty()) text = DeviceName(root + list, maker, model);
  }
  if (text.empty()) text = "PCI device " + maker + ':' + model;
  std::error_code error;
  const std::string driver = fs::read_symlink(device / "driver", error).filename().string();
  return Join(text, Join(driver, FirstLine(device / "driver/module/version")), ", ");
}

std::string GraphicsText(const std::string& root) {
  std::set<fs::path> devices;
  std::error_code error;
  for (fs::directory_iterator entry(root + "/sys/bus/pci/devices", error), end; !error && entry != end;
       entry.increment(error)) {
    devices.insert(entry->path());
  }
  std::string text;
  for (const fs::path& device : devices) {
    if (FirstLine(device / "class").starts_with(kDisplayClass)) text = AdapterText(root, device);
  }
  return text.empty() ? FirstLine(root + "/sys/class/graphics/fb0/name") : text;
}

}  // namespace

MachineDescription DescribeMachine(const std::string& root) {
  MachineDescription machine;
  machine.System = SystemText(root);
  machine.Processor = ProcessorText(root);
  machine.Processors = ProcessorCount();
  machine.MemoryKilobytes = std::strtoull(ValueOf(root + "/proc/meminfo", "MemTotal", ':').c_str(), nullptr, 10);
  machine.Graphics = GraphicsText(root);
  return machine;
}

}  // namespace tlm::platform
