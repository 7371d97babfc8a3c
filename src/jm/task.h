// What is known of a job on both sides of the wire.
#pragma once

#include <cstdint>
#include <string>

#include "rpc/wire.h"

namespace tlm {

// Values of Task::Status.
enum JobStatus : std::uint32_t {
  Queued = 1,        // waits for a worker or the distributor
  LaunchFailed = 2,  // could not be started, or ended with exit code 255
  Running = 3,       // a process runs, here or on a peer
  Starting = 4,      // a worker has taken it
  Finished = 5,      // ended with success
  Aborted = 6,       // ended without success, or was removed before its end
  Removed = 7,       // finished and given up; the next sweep frees it
};
// Never stored.
inline constexpr std::uint32_t kProgressNotice = 9;  // what one reader is told once after a report of progress
inline constexpr std::uint32_t kLevelNotice = 10;    // goes with RequiredLevel

// As programs read it: "launch-failed". "unknown" of 0, which no job of a server has.
std::string StatusWord(std::uint32_t status);

// Values of Task::RunClass. Any other counts as queued.
inline constexpr std::uint32_t kRunAtOnce = 0;       // however many jobs run
inline constexpr std::uint32_t kRunQueued = 1;       // when the queue runs and has room
inline constexpr std::uint32_t kRunDistributed = 2;  // the same, or on a peer that has less to do

// Bits of Task::ResultFlags.
inline constexpr std::uint32_t kResultsAvailable = 1;
inline constexpr std::uint32_t kResultsBeingSent = 2;

// Times are seconds since 1970. The fields stand in wire order.
struct Task {
  std::string AnalysisID;
  std::string WorkDir;     // the client's directory
  std::string Command;     // one or more command lines, separated by ';' outside quotes
  std::string InputFile;   // the one file of the job's stem that is no result
  std::string ResultStem;  // base name of the result files and of the output file
  std::string InputStem;   // when it differs from ResultStem, older results are deleted before the run
  std::string ClientNote;
  std::string TaskKey;  // handed to the child through its environment
  std::int64_t ProcessID = 0;
  std::string ClientHost;
  std::uint32_t ClientPort = 0;  // of the session that owns the job, 0 for none
  std::uint32_t RunClass = 0;
  std::uint64_t Predecessor = 0;  // handle of the job that must finish first, 0 for none
  std::uint32_t Status = 0;
  std::uint32_t ResultFlags = 0;
  std::uint32_t ExitCode = 0;
  std::int64_t Scheduled = 0;  // when it was submitted
  std::int64_t Started = 0;    // when its last process was started
  std::int64_t ReservedTime = 0;
  std::uint32_t Elapsed = 0;  // seconds between Started and the end of the last process
  std::int32_t Progress = 0;
  std::uint32_t Priority = 2;
  bool CompleteOnFailure = false;  // counts as complete with results even if it never reported success
  bool ReservedFlag = false;
  std::uint64_t TaskType = 0;
  std::uint64_t TaskLevel = 0;
  std::uint64_t UpdateTimestamp = 0;  // a counter of changes, not a time

  // The fields in wire order; Self is Task or const Task.
  template <class Self, class Visitor>
  static void VisitFields(Self& task, Visitor visit) {
    visit(task.AnalysisID), visit(task.WorkDir), visit(task.Command), visit(task.InputFile), visit(task.ResultStem);
    visit(task.InputStem), visit(task.ClientNote), visit(task.TaskKey), visit(task.ProcessID), visit(task.ClientHost);
    visit(task.ClientPort), visit(task.RunClass), visit(task.Predecessor), visit(task.Status), visit(task.ResultFlags);
    visit(task.ExitCode), visit(task.Scheduled), visit(task.Started), visit(task.ReservedTime), visit(task.Elapsed);
    visit(task.Progress), visit(task.Priority), visit(task.CompleteOnFailure), visit(task.ReservedFlag);
    visit(task.TaskType), visit(task.TaskLevel), visit(task.UpdateTimestamp);
  }
};

// What a client says of a job that it submits, in wire order.
struct Submission {
  std::string AnalysisID;
  std::string WorkDir;
  std::string Command;
  std::string InputFile;
  std::string ResultStem;
  std::string InputStem;
  std::string ClientNote;
  std::string TaskKey;
  std::int64_t ProcessID = 0;
  std::uint32_t RunClass = 0;
  std::uint64_t Predecessor = 0;
  bool CompleteOnFailure = false;
  bool ReservedFlag = false;

  template <class Self, class Visitor>
  static void VisitFields(Self& job, Visitor visit) {
    visit(job.AnalysisID), visit(job.WorkDir), visit(job.Command), visit(job.InputFile), visit(job.ResultStem);
    visit(job.InputStem), visit(job.ClientNote), visit(job.TaskKey), visit(job.ProcessID), visit(job.RunClass);
    visit(job.Predecessor), visit(job.CompleteOnFailure), visit(job.ReservedFlag);
  }
};

template <class Record>
concept WireRecord = requires(Record& record) {
  Record::VisitFields(record, [](auto&) {});
};

template <WireRecord Record>
ORpcIO& Encode(ORpcIO& io, const Record& record) {
  Record::VisitFields(record, [&io](const auto& field) { Encode(io, field); });
  return io;
}

template <WireRecord Record>
void Decode(ORpcIO& io, Record& record) {
  Record::VisitFields(record, [&io](auto& field) { Decode(io, field); });
}

// Time in UTC as asctime writes it, without a line end; "-1" for a number that is no time.
std::string TimeText(std::int64_t time);

// For diagnostics.
std::string DescribeTask(const Task& task);

}  // namespace tlm
