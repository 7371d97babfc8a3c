#include "server.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace tlm::bench {

namespace fs = std::filesystem;

namespace {

std::string Text(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

bool Listens(std::uint16_t port) {
  try {
    const Connection connection(port);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

// In the place of the calling process. Returns if that fails.
void Execute(const fs::path& program, const Words& environment, const fs::path& log) {
  const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  dup2(file, STDOUT_FILENO);
  dup2(file, STDERR_FILENO);
  clearenv();
  for (const std::string& entry : environment) putenv(const_cast<char*>(entry.c_str()));
  execl(program.c_str(), program.c_str(), "debug", nullptr);
  Check(-1, program);
}

}  // namespace

Server::Server() {
  fs::create_directories(scratch_ / "home/bin");
  fs::create_directories(scratch_ / "root");
  fs::create_directories(Directory());
  for (int tries = 3; !Start(); --tries) {  // another program may take the port before the server does
    Require(tries > 1, "the server does not start: " + Text(scratch_ / "server.log"));
  }
  Ask(Greet(), OperationNumber::StopQueue);
}

Server::~Server() {
  if (process_->IsRunning()) return;
  std::fprintf(stderr, "tlm_bench: the server has ended by itself: %s\n", Text(scratch_ / "server.log").c_str());
}

bool Server::Start() {
  port_ = FreePort();
  const char* path = std::getenv("PATH");
  const Words environment{
      std::string("PATH=") + (path ? path : "/usr/bin:/bin"), "TSQOR_JMPORT=" + std::to_string(port_),
      "TSQOR_HOME=" + (scratch_ / "home").string(),           "TSQOR_TMP=" + (scratch_ / "root").string(),
      "TS_MACHINE_REGISTRY=" + (scratch_ / "none").string(),  "TS_USER_REGISTRY=" + (scratch_ / "none").string()};
  const fs::path program = fs::canonical("/proc/self/exe").parent_path() / "tlmjm";
  process_.emplace([&] { Execute(program, environment, scratch_ / "server.log"); });
  constexpr double kPatience = 30;
  for (const double end = Now() + kPatience; Now() < end && process_->IsRunning();) {
    if (Listens(port_)) return process_->IsRunning();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

Connection Server::Greet() const {
  Connection connection(port_);
  Require(Ask(connection, OperationNumber::Hello, std::string("tlm2010"), std::string("bench"), std::uint32_t{0})
              .Take<bool>(),
          "the server does not know this product");
  return connection;
}

Submission Server::NewJob(const std::string& name, const std::string& command) const {
  Submission job;
  job.WorkDir = Directory().string() + '/';
  job.AnalysisID = job.ResultStem = job.InputStem = name;
  job.InputFile = name + ".inp";
  job.Command = command;
  job.RunClass = kRunQueued;
  job.CompleteOnFailure = true;  // the programs report nothing
  return job;
}

void Server::AddProgram(const fs::path& path) const {
  fs::create_symlink(path, scratch_ / "home/bin" / path.filename());
}

Task LookAt(const Connection& connection, std::uint64_t job) {
  Results results = Ask(connection, OperationNumber::GetJob, job, Task{});
  Task task = results.Take<Task>();
  Require(results.Take<bool>(), "the server has lost a job");
  Require(task.Status != LaunchFailed && task.Status != Aborted && task.Status != Removed,
          "a job has ended as " + StatusWord(task.Status));
  return task;
}

void AwaitFinished(const Connection& connection, std::uint64_t job) {
  while (LookAt(connection, job).Status != Finished) continue;
}

}  // namespace tlm::bench
