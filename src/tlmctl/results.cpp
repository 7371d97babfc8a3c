#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "jm/result_manifest.h"
#include "tlmctl/commands.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"
#include "util/mfile.h"

namespace tlm::ctl {

namespace {

constexpr int kAttempts = 3;

constexpr char kFooter[] =
    "The results go to the directory from which the job was submitted with --send. STEM.crc, the\n"
    "last of them, lists them: each is checked against the size stated there, and asked for again\n"
    "if it is short. A finished job leaves the server once all its results are here, and its\n"
    "output with it: read that before.\n\n"
    "  tlmctl results 4";

// Files that could not be written here, and those that came short.
StringList Incomplete(const FileTransferList& received) {
  StringList names = CheckReceivedResults(received, true);
  for (const FileTransferItem& item : received.Items) {
    if (!item.Stored) names.push_back(item.Destination);
  }
  return names;
}

void Tell(const FileTransferList& received) {
  for (const FileTransferItem& item : received.Items) {
    const MFile file(item.Destination);
    if (item.Stored) std::cout << file.Size() << '\t' << file.Path() << '\n';
  }
  std::cout.flush();
}

// A one-way call that is still on its way when the connection ends might not arrive.
void AwaitArrival(QorJMClient& client) { client.GetJobCount(); }

void TellNone(const Task& task, std::uint64_t handle) {
  std::cerr << "tlmctl: job " << handle << " is " << StatusText(task.Status) << " and has no new results\n";
}

void FetchResults(QorJMClient& client, std::uint64_t handle, const Task& task) {
  StringList incomplete;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    FileTransferList received;
    if (!client.RequestResults(handle, received)) return TellNone(task, handle);
    if (received.Items.empty()) TellNone(task, handle);
    Tell(received);
    incomplete = Incomplete(received);
    if (incomplete.empty()) {
      client.ResultsReceived(handle);
      return AwaitArrival(client);
    }
    client.ResultsIncomplete(handle, incomplete);
  }
  AwaitArrival(client);
  throw Failure{ExitCode::Refused, incomplete.front() + " and perhaps others did not arrive whole; the server keeps " +
                                       "them for another try"};
}

ExitCode Results(const ServerOptions& server, std::uint64_t handle) {
  QorJMClient client;
  Connect(client, server);
  SayHello(client, server);
  BecomeOwner(client, server, handle);
  const Task task = FetchKnownJob(client, handle);
  const std::filesystem::path directory = task.WorkDir;
  if (directory.has_filename()) {  // submit --send puts a separator at its end
    std::cerr << "tlmctl: job " << handle << " runs in " << task.WorkDir << " itself, and its results are there\n";
    return ExitCode::Good;
  }
  std::error_code ignored;
  if (!std::filesystem::is_directory(directory, ignored)) {
    throw Failure{ExitCode::Refused, "the results belong in " + task.WorkDir + ", and there is no such directory here"};
  }
  FetchResults(client, handle, task);
  return ExitCode::Good;
}

}  // namespace

void AddResults(Program& program) {
  const auto handle = std::make_shared<std::uint64_t>();
  CLI::App& command = program.AddCommand("results", "Fetch a job's new and changed result files",
                                         [handle](const auto& server) { return Results(server, *handle); });
  command.add_option("HANDLE", *handle, "What submit printed")->required();
  command.footer(kFooter);
}

}  // namespace tlm::ctl
