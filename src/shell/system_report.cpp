#include "shell/system_report.h"

namespace tlm {

namespace {

constexpr int kLongestText = 128;
constexpr std::uint64_t kKilobytesInMegabyte = 1024;

void PrintText(std::FILE* output, const char* title, const std::string& text) {
  std::fprintf(output, "%s: %.*s\n", title, kLongestText, text.c_str());
}

}  // namespace

void PrintSystemReport(std::FILE* output, const platform::MachineDescription& machine) {
  PrintText(output, "OS", machine.System);
  PrintText(output, "Processor", machine.Processor);
  std::fprintf(output, "Processors: %u\n", machine.Processors);
  std::fprintf(output, "Memory: %ld MB\n", static_cast<long>(machine.MemoryKilobytes / kKilobytesInMegabyte));
  PrintText(output, "Graphics", machine.Graphics);
}

}  // namespace tlm
