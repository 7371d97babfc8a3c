#include "support/server_process.h"

#include <stdexcept>

#include "support/eventually.h"

namespace tlm::test {
ServerProcess::ServerProcess(const Environment& environment, const std::string& command, const std::string& executable)
    : environment_(environment) {
  const Environment usual{{"TSQOR_HOME", home_.Root()},
                          {"TSQOR_TMP", root_.Root()},
                          {"TS_MACHINE_REGISTRY", home_.Path("no-machine-registry")},
                          {"TS_USER_REGISTRY", home_.Path("no-user-registry")}};
  environment_.insert(usual.begin(), usual.end());
  AddProgram("do", "eval \"$*\"\n");
  Words words{executable};
  if (!command.empty()) words.push_back(command);
  for (int tries = environment.contains("TSQOR_JMPORT") ? 1 : 3; tries > 0; --tries) {
    if (!environment.contains("TSQOR_JMPORT")) environment_["TSQOR_JMPORT"] = std::to_string(FreePort());
    port_ = static_cast<std::uint16_t>(std::stoi(environment_["TSQOR_JMPORT"]));
    if (Listens(port_)) continue;  // somebody else
    program_.emplace(words, environment_, home_.Path("server.log"));
    if (Eventually([this] { return Listens(port_) || !IsRunning(); }) && IsRunning()) return;
  }
  throw std::runtime_error("the server does not listen: " + Output());
}

ServerProcess::~ServerProcess() { EXPECT_TRUE(!program_ || IsRunning()) << "the server had ended:\n" << Output(); }

int ServerProcess::Stop() {
  RawConnection(port_).Send(Record(Call(17)));
  return AwaitEnd();
}

int ServerProcess::AwaitEnd() {
  if (!Eventually([this] { return !IsRunning(); })) throw std::runtime_error("the server does not end: " + Output());
  const int code = program_.value().ExitCode().value();
  program_.reset();
  return code;
}

std::size_t ServerProcess::PeakMemory() const {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)  // they keep what has been given back
  return 0;
#else
  const std::string status = ReadFile("/proc/" + std::to_string(Pid()) + "/status");
  return std::stoul(status.substr(status.find("VmHWM:") + 6)) * 1024;
#endif
}

std::ptrdiff_t ServerProcess::OpenDescriptors() const {
  return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(Pid()) + "/fd"), {});
}
}  // namespace tlm::test
