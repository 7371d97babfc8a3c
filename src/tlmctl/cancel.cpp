#include <chrono>
#include <iostream>
#include <memory>
#include <vector>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

// The server looks at a process once a second.
constexpr std::chrono::milliseconds kPollInterval{100};
constexpr std::chrono::seconds kPatience{5};

// What has become of a job whose removal was asked for.
std::string Outcome(QorJMClient& client, std::uint64_t handle) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (true) {
    const std::optional<Task> task = FetchJob(client, handle);
    if (!task) return "removed";
    if (HasEnded(*task)) return StatusText(task->Status);
    if (std::chrono::steady_clock::now() >= end) return "asked to end, still " + StatusText(task->Status);
    platform::Sleep(kPollInterval);
  }
}

ExitCode Cancel(const ServerOptions& server, const std::vector<std::uint64_t>& handles) {
  QorJMClient client;
  Connect(client, server);
  ExitCode code = ExitCode::Good;
  for (const std::uint64_t handle : handles) {
    if (client.RemoveJob(handle)) {
      std::cout << "job " << handle << ": " << Outcome(client, handle) << std::endl;
    } else {
      const Failure unknown = UnknownJob(handle);
      std::cerr << "tlmctl: " << unknown.Text << '\n';
      code = unknown.Code;
    }
  }
  return code;
}

}  // namespace

void AddCancel(Program& program) {
  const auto handles = std::make_shared<std::vector<std::uint64_t>>();
  CLI::App& command =
      program.AddCommand("cancel", "End jobs, and those that wait for them; take finished ones off the server",
                         [handles](const auto& server) { return Cancel(server, *handles); });
  command.add_option("HANDLE", *handles, "What submit printed")->required();
}

}  // namespace tlm::ctl
