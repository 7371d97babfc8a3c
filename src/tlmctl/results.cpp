#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "jm/result_manifest.h"
#include "tlmctl/commands.h"
#include "tlmctl/jobs.h"
#include "util/mfile.h"

namespace tlm::ctl {

namespace {

constexpr int kAttempts = 3;

constexpr char kFooter[] =
    "The results go to the directory from which the job was submitted. Each file is checked against the size that\n"
    "the server states for it, and asked for again if it is short.\n\n"
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

void FetchResults(QorJMClient& client, std::uint64_t handle) {
  StringList incomplete;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    FileTransferList received;
    if (!client.RequestResults(handle, received)) {
      std::cerr << "tlmctl: job " << handle << " has no results to fetch\n";
      return;
    }
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
  const std::string directory = FetchKnownJob(client, handle).WorkDir;
  std::error_code ignored;
  if (!std::filesystem::is_directory(directory, ignored)) {
    throw Failure{ExitCode::Refused, "the results belong in " + directory + ", and there is no such directory here"};
  }
  FetchResults(client, handle);
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
