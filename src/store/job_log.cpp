#include "store/job_log.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>

#include "platform/file.h"
#include "platform/file_system.h"
#include "platform/thread.h"
#include "util/json_text.h"

namespace tlm {

namespace {

using platform::File;

constexpr std::size_t kLongestText = 4096;  // a client's text may have megabytes
constexpr std::uint32_t kLargestExitCode = 255;

std::string Field(const char* name, const std::string& value) { return ",\"" + std::string(name) + "\":" + value; }

std::string TextField(const char* name, const std::string& text) {
  if (text.empty()) return "";
  return Field(name, JsonText(text.size() > kLongestText ? text.substr(0, kLongestText) + "..." : text));
}

// In UTC, as in "2010-05-31T15:04:09"; a fraction and the zone may follow.
std::string IsoText(std::chrono::sys_seconds instant) {
  using namespace std::chrono;
  const sys_days day = floor<days>(instant);
  const year_month_day date{day};
  const hh_mm_ss clock{instant - day};
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d", int{date.year()}, unsigned{date.month()},
                unsigned{date.day()}, static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
  return text;
}

std::string TimeField(const char* name, std::int64_t time) {
  if (time == 0) return "";
  return Field(name, '"' + IsoText(std::chrono::sys_seconds(std::chrono::seconds(time))) + "Z\"");
}

std::string Now() {
  using namespace std::chrono;
  const auto now = floor<milliseconds>(system_clock::now());
  const auto second = floor<seconds>(now);
  char fraction[16];
  std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>((now - second).count()));
  return IsoText(second) + fraction;
}

bool HasEnded(const Job& job) { return job.Status == LaunchFailed || job.Status == Finished || job.Status == Aborted; }

// A process that was not started here has neither a stem nor an end that the server measures: its exit code is not
// known.
bool MayBeStrangers(const Job& job) {
  return job.ResultStem.empty() && job.Started == job.Scheduled && job.Elapsed == 0 && job.ExitCode == 0;
}

std::string ExitCodeField(const Job& job) {
  const bool isKnown = job.ExitCode <= kLargestExitCode && !MayBeStrangers(job);
  return isKnown ? Field("exit_code", std::to_string(job.ExitCode)) : "";
}

// What its last process has come to; the time of one on a peer is the peer's word.
std::string EndFields(const Job& job) {
  const bool wasLaunched = job.Started != 0 && (job.Status != LaunchFailed || job.ExitCode != 0);
  if (!HasEnded(job) || (!wasLaunched && !job.RemoteServer)) return "";
  const std::int64_t seconds = wasLaunched ? platform::SecondsSince1970() - job.Started : job.Elapsed;
  return (wasLaunched ? ExitCodeField(job) : "") +
         Field("elapsed_seconds", std::to_string(std::max<std::int64_t>(seconds, 0)));
}

}  // namespace

void JobLog::Start(const std::string& path, std::uint64_t largest, std::uint16_t port) {
  path_ = path;
  largest_ = largest;
  port_ = port;
  endsWithinLine_ = platform::EndsWithinLine(path);  // a server was killed, or the disk was full
  Append(Field("event", "\"start\""));
}

void JobLog::End() {
  if (!path_.empty()) Append(Field("event", "\"end\""));
}

void JobLog::Record(const Job& job) {
  if (path_.empty()) return;
  Append(Field("handle", std::to_string(job.Handle)) + Field("status", '"' + StatusWord(job.Status) + '"') +
         EndFields(job) + TextField("peer", job.RemoteServer ? job.RemoteServer->Host() : "") +
         TimeField("submitted", job.Scheduled) + TimeField("started", job.Started) + TextField("name", job.AnalysisID) +
         TextField("command", job.Command) + TextField("client_host", job.ClientHost) +
         TextField("task_key", job.TaskKey) + TextField("note", job.ClientNote));
}

// One write to the end of the file, by the caller and under its lock. A thread that wrote later could keep a disk that
// hangs from the jobs, but their output and results are written under the same lock, mostly to the same disk; and a
// kill would take with it what it had not written yet. The file is opened each time: so it can be moved or deleted, and
// what kept it from being written mended, while the server runs.
void JobLog::Append(const std::string& fields) {
  std::string line = "{\"time\":\"" + Now() + '"' + Field("port", std::to_string(port_)) + fields;
  if (missing_ != 0) line += Field("missing_before", std::to_string(missing_));
  line += "}\n";
  Rotate(line.size());
  if (endsWithinLine_) line.insert(0, 1, '\n');
  std::optional<File> file = File::Open(path_, File::Mode::Append);
  const std::size_t written = file ? file->WriteSome(line.data(), line.size()) : 0;
  if (written == line.size()) {
    endsWithinLine_ = false;
    missing_ = 0;
    return;
  }
  if (written != 0) endsWithinLine_ = true;
  if (missing_++ == 0) {
    std::fprintf(stderr, "Couldn't write to the job log %s: lines are dropped until that works\n", path_.c_str());
  }
}

// If the file cannot be renamed it grows on.
void JobLog::Rotate(std::size_t length) {
  platform::FileStatus status;
  const bool isFull = platform::GetFileStatus(path_, status) == 0 && status.IsRegular && status.Size != 0 &&
                      status.Size + length > largest_;
  if (isFull && platform::RenameFile(path_, path_ + ".1")) endsWithinLine_ = false;
}

}  // namespace tlm
