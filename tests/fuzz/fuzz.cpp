#include "fuzz/fuzz.h"

#include <map>

#include "platform/environment.h"

using namespace tlm;

static std::map<std::string, fuzz::Target>& Targets() {
  static std::map<std::string, fuzz::Target> targets;
  return targets;
}

fuzz::Registration::Registration(const char* name, Target target) { Targets()[name] = target; }

const test::Sandbox& fuzz::Disk() {
  static const test::Sandbox disk(platform::GetVariable("FUZZ_DISK").value_or(platform::TemporaryDirectory()));
  return disk;
}

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size) {
  static const fuzz::Target target = Targets().at(platform::GetVariable("FUZZ_TARGET").value_or(""));
  // No file of this user's or of the machine's is read, none is written.
  for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "TSQOR_HOME"}) {
    platform::SetVariable(name, fuzz::Disk().Root());
  }
  platform::SetVariable("TS_MACHINE_REGISTRY", fuzz::Disk() / "machine.ini");
  platform::SetVariable("TS_USER_REGISTRY", fuzz::Disk() / "user.ini");
  target(std::string(data, size));
  return 0;
}
