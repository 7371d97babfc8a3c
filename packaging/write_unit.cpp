// Prints the unit file of a packaged service.
//   write_unit PROGRAM ACCOUNT

#include <cstdio>

#include "libtsenv/runtime_identity.h"
#include "platform/posix/service_unit.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: write_unit PROGRAM ACCOUNT\n", stderr);
    return 2;
  }
  const char* program = argv[1];
  tlm::DetectClient(program);
  const std::string text = tlm::platform::UnitText({.Name = tlm::Identity().RUNTIME_JM_SHORT_NAME,
                                                    .Description = tlm::Identity().RUNTIME_JM_LONG_NAME,
                                                    .Program = program,
                                                    .FirstWord = program,
                                                    .ForSystem = true,
                                                    .Account = argv[2]});
  return std::fputs(text.c_str(), stdout) >= 0 ? 0 : 1;
}
