// A client of a real server, with jobs whose commands are shell texts.
#pragma once

#include <algorithm>
#include <gmock/gmock.h>
#include <initializer_list>
#include <string>
#include <vector>

#include "jm/qorjmclient.h"
#include "platform/process.h"
#include "support/eventually.h"
#include "support/server_process.h"

namespace tlm::test {
using ::testing::AllOf, ::testing::ContainsRegex, ::testing::Each, ::testing::ElementsAre, ::testing::HasSubstr;
using ::testing::IsEmpty, ::testing::MatchesRegex, ::testing::Not, ::testing::StartsWith;

// A job whose input and results have the stem.
inline Submission JobIn(const std::string& directory, const std::string& command = "", const std::string& stem = "",
                        std::uint32_t runClass = kRunAtOnce) {
  Submission job;
  job.WorkDir = directory;
  job.Command = command;
  job.AnalysisID = job.ResultStem = job.InputStem = stem;
  job.RunClass = runClass;
  return job;
}

// Connected and greeted.
class JobClient : public QorJMClient {
 public:
  explicit JobClient(std::uint16_t port, const std::string& host = "desk") {
    Connect("127.0.0.1", port);
    EXPECT_TRUE(Hello("tlm2010", host, 0));
  }

  // The job as the server describes it; a Status of 0 stands for a job that is gone.
  Task Get(std::uint64_t handle) {
    Task task;
    GetJob(handle, task);
    return task;
  }

  std::vector<std::uint32_t> Statuses(const HandleList& handles) {
    std::vector<std::uint32_t> statuses;
    for (std::uint64_t handle : handles) statuses.push_back(Get(handle).Status);
    return statuses;
  }

  // Waits until the job has come to one of the states, and gives it as it is then.
  Task Await(std::uint64_t handle, std::initializer_list<std::uint32_t> states) {
    Task task;
    EXPECT_TRUE(Eventually([&] {
      task = Get(handle);
      return std::find(states.begin(), states.end(), task.Status) != states.end();
    })) << handle
        << " has status " << task.Status;
    return task;
  }
  Task AwaitEnd(std::uint64_t handle) { return Await(handle, {LaunchFailed, Finished, Aborted}); }

  // The server's directory for the client's.
  std::string Map(const std::string& directory) {
    std::string there;
    EXPECT_TRUE(MapClientDirectory(directory, there));
    return there;
  }
  bool Fetch(std::uint64_t handle) {
    FileTransferList files;
    return RequestResults(handle, files);
  }
  StringList Pool() {
    StringList pool;
    GetServerPool({pool});
    return pool;
  }

  HandleList Jobs() {
    HandleList handles;
    ListJobs(handles);
    return handles;
  }

  std::string TempRoot(std::uint32_t* expirySeconds = nullptr) {
    std::string root;
    std::uint32_t expiry = 0;
    GetTempRoot({root}, {expiry});
    if (expirySeconds != nullptr) *expirySeconds = expiry;
    return root;
  }

  // What a program prints that is run in the directory.
  std::string OutputOf(const std::string& command, const std::string& directory) {
    const std::uint64_t handle = SubmitJob(JobIn(directory, command, command));
    AwaitEnd(handle);
    return Output(handle);
  }

  std::string Output(std::uint64_t handle) {
    std::string text;
    ReadOutput(handle, 0, text);
    return text;
  }
};

// A server, a directory in which its jobs run, and a client.
struct JobTest : ::testing::Test {
  ServerProcess Server;
  Sandbox Work;
  JobClient Client;

  explicit JobTest(const Environment& environment = {}, const std::string& command = "debug")
      : Server(environment, command), Client(Server.Port()) {}

  // A command that runs shell text. Quotes do not survive the way to the program.
  static std::string Do(const std::string& text) { return "do '" + text + "'"; }
  // The same, ending with success.
  static std::string Succeed(const std::string& text) { return Do(text + "; echo 4 1 > qorjmmsg.$$"); }
  // Shell text that writes its process id to the file of the given name and waits for another file, or until its own
  // has gone.
  static std::string Wait(const std::string& name, const std::string& end = "stop") {
    return "echo $$ >" + name + "; while test -e " + name + " -a ! -e " + end + "; do sleep 0.1; done";
  }

  // A job of its own stem that starts at once.
  Submission NewJob(const std::string& command, std::uint64_t predecessor = 0, std::uint32_t runClass = kRunAtOnce) {
    Submission job = JobIn(Work.Root(), command, "job" + std::to_string(++submitted_), runClass);
    job.InputFile = job.ResultStem + ".in";
    job.Predecessor = predecessor;
    return job;
  }
  std::uint64_t Submit(const std::string& command, std::uint64_t predecessor = 0) {
    return Client.SubmitJob(NewJob(command, predecessor));
  }
  std::uint64_t SubmitQueued(const std::string& command, std::uint64_t predecessor = 0) {
    return Client.SubmitJob(NewJob(command, predecessor, kRunQueued));
  }

  // A number that a job has written to a file of its directory.
  std::int32_t AwaitNumber(const std::string& file) const {
    EXPECT_TRUE(Eventually([&] { return Work.Read(file).ends_with('\n'); })) << file;
    return std::atoi(Work.Read(file).c_str());
  }

  // True once the process has ended.
  static testing::AssertionResult IsGone(std::int32_t pid) {
    return Eventually(
        [pid] {
          const auto process = platform::Process::Open(pid);
          return !process || process->WaitForEnd(std::chrono::milliseconds(0));
        },
        std::chrono::seconds(20));
  }

 private:
  int submitted_ = 0;
};
}  // namespace tlm::test
