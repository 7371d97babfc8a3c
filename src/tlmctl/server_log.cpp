#include "tlmctl/server_log.h"

#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "tlmctl/job_json.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

struct Unreadable {};

// Of a text such as "2010-05-31T15:04:09.120Z", in seconds since 1970.
std::int64_t TimeOf(const std::string& text) {
  using namespace std::chrono;
  constexpr std::string_view kForm = "0000-00-00T00:00:00";
  if (text.size() <= kForm.size() || !text.ends_with('Z')) throw Unreadable();
  for (std::size_t i = 0; i < kForm.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (kForm[i] == '0' ? !isDigit : text[i] != kForm[i]) throw Unreadable();
  }
  const auto number = [&](std::size_t at, std::size_t count) { return std::stoi(text.substr(at, count)); };
  const auto part = [&](std::size_t at) { return static_cast<unsigned>(number(at, 2)); };
  const year_month_day date{year{number(0, 4)}, month{part(5)}, day{part(8)}};
  if (!date.ok()) throw Unreadable();
  const seconds clock = hours{part(11)} + minutes{part(14)} + seconds{part(17)};
  return (sys_days{date} + clock).time_since_epoch().count();
}

std::string Text(const Json& line, const char* name) { return line.value(name, ""); }

std::int64_t Time(const Json& line, const char* name) {
  const std::string text = Text(line, name);
  return text.empty() ? 0 : TimeOf(text);
}

std::optional<std::uint64_t> Number(const Json& line, const char* name) {
  const auto number = line.find(name);
  if (number == line.end()) return std::nullopt;
  if (!number->is_number_unsigned()) throw Unreadable();
  return number->get<std::uint64_t>();
}

std::uint64_t NumberThere(const Json& line, const char* name) {
  const std::optional<std::uint64_t> number = Number(line, name);
  if (!number) throw Unreadable();
  return *number;
}

bool IsEnd(const std::string& status) {
  static const std::set<std::string> kEnds{StatusWord(Finished), StatusWord(Aborted), StatusWord(LaunchFailed)};
  return kEnds.contains(status);
}

std::string StatusOf(const Json& line) {
  const std::string word = Text(line, "status");
  for (std::uint32_t status = Queued; status <= Removed; ++status) {
    if (word == StatusWord(status)) return word;
  }
  throw Unreadable();
}

LoggedJob JobOf(const Json& line) {
  LoggedJob job;
  job.Entry.Handle = NumberThere(line, "handle");
  job.Port = NumberThere(line, "port");
  job.Outcome = StatusOf(line);
  job.Entry.Submitted = Time(line, "submitted");
  job.Started = Time(line, "started");
  job.Entry.Name = Text(line, "name");
  job.Entry.Command = Text(line, "command");
  job.Client = Text(line, "client_host");
  job.TaskKey = Text(line, "task_key");
  job.Peer = Text(line, "peer");
  const std::string note = Text(line, "note");
  job.Entry.Id = IdOfNote(note);
  job.Note = PlainNote(note);
  constexpr std::uint64_t kLargestExitCode = 255;
  if (const auto code = Number(line, "exit_code")) {
    if (*code > kLargestExitCode) throw Unreadable();
    job.Entry.ExitCode = static_cast<int>(*code);
  }
  job.Elapsed = Number(line, "elapsed_seconds");
  if (IsEnd(job.Outcome) || job.Outcome == StatusWord(Removed)) job.Entry.Ended = Time(line, "time");
  return job;
}

bool IsOver(const LoggedJob& job) { return job.Entry.Ended != 0 || job.Outcome == "lost"; }

// Makes one job of all its lines.
class Folder {
 public:
  explicit Folder(ServerLog& log) : log_(log) {}

  void TakeText(const std::string& text) {
    if (text.empty()) return;
    try {
      const Json line = Json::parse(text, nullptr, false);
      if (!line.is_object()) throw Unreadable();
      Take(line);
      log_.Missing += Number(line, "missing_before").value_or(0);
    } catch (const Json::exception&) {
      ++log_.Unreadable;
    } catch (const Unreadable&) {
      ++log_.Unreadable;
    }
  }

 private:
  using Key = std::pair<std::uint64_t, std::uint64_t>;  // port and handle

  void Take(const Json& line) {
    const std::int64_t time = TimeOf(Text(line, "time"));
    const std::string event = Text(line, "event");
    if (event.empty()) return TakeState(JobOf(line));
    if (event != "start" && event != "end") throw Unreadable();
    LoseAll(NumberThere(line, "port"), time, event == "start");
  }

  // A handle means another job after a restart, which another time of submission tells as well as the line of the
  // start.
  void TakeState(LoggedJob job) {
    const auto [place, isNew] = current_.try_emplace({job.Port, job.Entry.Handle}, log_.Jobs.size());
    if (!isNew && log_.Jobs[place->second].Entry.Submitted != job.Entry.Submitted) {
      Lose(log_.Jobs[place->second], 0);
      place->second = log_.Jobs.size();
    }
    if (place->second == log_.Jobs.size()) {
      log_.Jobs.push_back(std::move(job));
      return;
    }
    LoggedJob& known = log_.Jobs[place->second];
    const bool isTakenAway = job.Outcome == StatusWord(Removed) && IsEnd(known.Outcome);
    if (!isTakenAway) known = std::move(job);
  }

  static void Lose(LoggedJob& job, std::int64_t time) {
    if (IsOver(job)) return;
    job.Outcome = "lost";
    job.Entry.Ended = time;
  }

  void LoseAll(std::uint64_t port, std::int64_t time, bool forGood) {
    const auto first = current_.lower_bound({port, 0});
    auto last = first;
    for (; last != current_.end() && last->first.first == port; ++last) Lose(log_.Jobs[last->second], time);
    if (forGood) current_.erase(first, last);
  }

  ServerLog& log_;
  std::map<Key, std::size_t> current_;  // which of the jobs a line means
};

bool TakeFile(Folder& folder, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  for (std::string text; std::getline(file, text);) folder.TakeText(text);
  return file.eof();
}

}  // namespace

ServerLog ReadServerLog(const std::string& path) {
  ServerLog log;
  Folder folder(log);
  const bool hasFormer = TakeFile(folder, path + ".1");
  if (!TakeFile(folder, path) && !hasFormer) {
    throw Failure{kRefused, "the job log " + path + " cannot be read",
                  "it lies on the server's machine, where its user and root may read it"};
  }
  return log;
}

Json ToJson(const LoggedJob& job) {
  const auto orNull = [](bool known, const auto& value) { return known ? Json(value) : Json(); };
  return {{"id", orNull(!job.Entry.Id.empty(), job.Entry.Id)},
          {"handle", job.Entry.Handle},
          {"port", job.Port},
          {"name", job.Entry.Name},
          {"command", job.Entry.Command},
          {"client_host", job.Client},
          {"task_key", job.TaskKey},
          {"note", job.Note},
          {"submitted", TimeJson(job.Entry.Submitted)},
          {"started", TimeJson(job.Started)},
          {"outcome", job.Outcome},
          {"exit_code", orNull(job.Entry.ExitCode.has_value(), job.Entry.ExitCode.value_or(0))},
          {"elapsed_seconds", orNull(job.Elapsed.has_value(), job.Elapsed.value_or(0))},
          {"ended", TimeJson(job.Entry.Ended)},
          {"peer", orNull(!job.Peer.empty(), job.Peer)}};
}

}  // namespace tlm::ctl
