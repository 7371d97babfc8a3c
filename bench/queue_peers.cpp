#include "queue_peers.h"

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tlm::bench {

namespace {

constexpr std::size_t kAtATime = 2;

void AwaitAny() {
  int status = 0;
  Check(wait(&status), "waiting for a job");
  Require(status == 0, "a job has failed");
}

// The queue of task-spooler, whose server stays in the background until it is told to end.
class Spooler {
 public:
  Spooler() { Run({"tsp", "-S", std::to_string(kAtATime)}, environment_); }
  ~Spooler() {
    try {
      Run({"tsp", "-K"}, environment_);
    } catch (const std::exception&) {  // It has gone already.
    }
  }
  Spooler(const Spooler&) = delete;
  Spooler& operator=(const Spooler&) = delete;

  void Add(Words command) {
    command.insert(command.begin(), "tsp");
    Run(command, environment_);
    ++jobs_;
  }
  // Its jobs are numbered from 0 on.
  void AwaitLast() const { Run({"tsp", "-w", std::to_string(jobs_ - 1)}, environment_); }

  const Scratch& Directory() const { return scratch_; }

 private:
  Scratch scratch_;
  Words environment_{"TS_SOCKET=" + (scratch_ / "socket").string(), "TMPDIR=" + scratch_.Root().string()};
  std::size_t jobs_ = 0;
};

// Jobs that end when they are let through.
class Gates {
 public:
  explicit Gates(Spooler& spooler) {
    for (std::size_t i = 0; i < kAtATime; ++i) {
      fifos_.push_back(spooler.Directory() / ("gate" + std::to_string(i)));
      Check(mkfifo(fifos_.back().c_str(), 0600), "mkfifo");
      spooler.Add({"cat", fifos_.back()});
    }
  }
  // Once all of them have started.
  void Open() const {
    std::vector<int> writers;
    for (const std::string& fifo : fifos_) writers.push_back(open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
    for (int writer : writers) close(writer);
  }

 private:
  Words fifos_;
};

}  // namespace

double SecondsOfSpawning(std::size_t jobs) {
  const double start = Now();
  for (std::size_t i = 0; i < jobs; ++i) {
    if (i >= kAtATime) AwaitAny();
    Spawn({"true"});
  }
  for (std::size_t i = 0; i < kAtATime; ++i) AwaitAny();
  return Now() - start;
}

double SecondsOfTaskSpooler(std::size_t jobs) {
  Spooler spooler;
  const Gates gates(spooler);
  for (std::size_t i = 0; i < jobs; ++i) spooler.Add({"true"});
  const double start = Now();
  gates.Open();
  spooler.AwaitLast();
  return Now() - start;
}

double SecondsOfParallel(std::size_t jobs) {
  const Scratch home;
  Words command{"parallel", "--will-cite", "-j" + std::to_string(kAtATime), "-N0", "true", ":::"};
  for (std::size_t i = 0; i < jobs; ++i) command.push_back(std::to_string(i));
  const double start = Now();
  Run(command, {"PARALLEL_HOME=" + home.Root().string()});
  return Now() - start;
}

}  // namespace tlm::bench
