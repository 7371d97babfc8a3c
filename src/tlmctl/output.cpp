#include <chrono>
#include <iostream>
#include <memory>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/jobs.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kPollInterval{250};

struct OutputOptions {
  std::uint64_t Handle = 0;
  bool Follow = false;
};

// From the offset on, until no more comes: a long output comes in several answers. False if nobody reads it any more.
bool PrintFrom(QorJMClient& client, std::uint64_t handle, std::uint32_t& offset) {
  while (true) {
    std::string text;
    client.ReadOutput(handle, offset, text);
    if (text.empty()) break;
    std::cout << text;
    offset += static_cast<std::uint32_t>(text.size());
  }
  return !!std::cout.flush();
}

bool StillRuns(QorJMClient& client, std::uint64_t handle) {
  const std::optional<Task> task = FetchJob(client, handle);
  return task && !HasEnded(*task);
}

ExitCode Output(const ServerOptions& server, const OutputOptions& options) {
  QorJMClient client;
  Connect(client, server);
  SayHello(client, server);
  BecomeOwner(client, server, options.Handle);
  std::uint32_t offset = 0;
  bool wanted = PrintFrom(client, options.Handle, offset);
  while (wanted && options.Follow) {
    const bool more = StillRuns(client, options.Handle);
    // Once more after the end: the last lines may have been written since.
    wanted = PrintFrom(client, options.Handle, offset) && more;
    if (wanted) platform::Sleep(kPollInterval);
  }
  return ExitCode::Good;
}

}  // namespace

void AddOutput(Program& program) {
  const auto options = std::make_shared<OutputOptions>();
  CLI::App& command = program.AddCommand("output", "Print what a job's programs have written so far",
                                         [options](const auto& server) { return Output(server, *options); });
  command.add_option("HANDLE", options->Handle, "What submit printed")->required();
  command.add_flag("-f,--follow", options->Follow, "Go on until the job has ended");
}

}  // namespace tlm::ctl
