#include "tlmctl/live_table.h"

#include <algorithm>
#include <iostream>

#include "platform/terminal.h"
#include "tlmctl/display_width.h"
#include "tlmctl/job_cells.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

// Nothing of this outlasts a frame: whatever ends the program finds the cursor shown, and long lines wrapped.
constexpr char kBeginFrame[] = "\033[?25l\033[?7l\r";
constexpr char kEndFrame[] = "\033[J\033[?7h\033[?25h";
constexpr char kEraseLine[] = "\033[K";  // before it is written: behind the last column it would take what stands there
constexpr std::size_t kOtherLines = 3;   // heading, titles, and the cursor's

int BarWidth(int room) {
  constexpr int kWideBar = 30;
  constexpr int kNarrowBar = 10;
  if (room >= 100) return kWideBar;
  return room >= 70 ? kNarrowBar : 0;
}

int Rank(const FollowedJob& job) {
  if (job.IsOver()) return 2;
  return job.Job.State.Status == Queued ? 1 : 0;
}

// As many as there is room for, in their order: those that run before those that wait, and these before those that have
// ended; of equal ones the latest ended, and the first that wait.
std::vector<const FollowedJob*> Choose(const std::vector<FollowedJob>& jobs, std::size_t room) {
  std::vector<const FollowedJob*> chosen;
  chosen.reserve(jobs.size());
  for (const FollowedJob& job : jobs) chosen.push_back(&job);
  if (chosen.size() <= room) return chosen;
  std::sort(chosen.begin(), chosen.end(), [](const FollowedJob* one, const FollowedJob* other) {
    if (Rank(*one) != Rank(*other)) return Rank(*one) < Rank(*other);
    return one->IsOver() ? one > other : one < other;
  });
  chosen.resize(room);
  std::sort(chosen.begin(), chosen.end());
  return chosen;
}

}  // namespace

bool LiveTable::IsPossible() { return CanDraw(); }

std::vector<std::string> LiveTable::LinesOf(const std::string& heading, const std::vector<FollowedJob>& jobs,
                                            int width) {
  constexpr std::size_t kWhole = Column::kWhole;
  const auto height = static_cast<std::size_t>(platform::TerminalHeight(platform::StandardStream::Output).value_or(0));
  std::size_t room = height > kOtherLines ? height - kOtherLines : 1;
  if (jobs.size() > room && room > 1) --room;  // for the line that tells of the others
  Table table({{"HANDLE", 5, kWhole},
               {"NAME", 2, kNarrowestName},
               {"STATE", 4, kWhole},
               {"PROGRESS", 3, kWhole},
               {"EXIT", 1, kWhole},
               {"ELAPSED", 0, kWhole}});
  const auto chosen = Choose(jobs, room);
  for (const FollowedJob* job : chosen) {
    const Task& task = job->Job.State;
    table.Add({{std::to_string(job->Job.Handle)},
               NameCell(task),
               job->IsGone ? Cell{"gone", Colour::Dim} : StateCell(task),
               ProgressCell(task, BarWidth(width)),
               {ExitCodeText(task)},
               {ElapsedText(task)}});
  }
  std::vector<std::string> lines = table.Lines();
  lines.insert(lines.begin(), heading);
  if (chosen.size() < jobs.size()) lines.push_back("and " + std::to_string(jobs.size() - chosen.size()) + " more");
  const auto cut = [width](std::string& line) { line = CutToWidth(line, static_cast<std::size_t>(width)); };
  cut(lines.front());
  if (chosen.size() < jobs.size()) cut(lines.back());
  return lines;
}

// To where the table begins. A terminal of another width has broken the lines anew: nobody knows where that is.
std::string LiveTable::Return(int width) const {
  if (width_ != 0 && width != width_) return "\033[H\033[J";
  return drawn_ == 0 ? "" : "\033[" + std::to_string(drawn_) + 'A';
}

void LiveTable::Draw(const std::string& heading, const std::vector<FollowedJob>& jobs) {
  const int width = platform::TerminalWidth(platform::StandardStream::Output).value_or(0);
  const std::vector<std::string> lines = LinesOf(heading, jobs, width);
  std::string frame = kBeginFrame + Return(width);
  for (const std::string& line : lines) frame += kEraseLine + line + '\n';
  std::cout << frame << kEndFrame << std::flush;
  drawn_ = lines.size();
  width_ = width;
}

void LiveTable::Clear() {
  const int width = platform::TerminalWidth(platform::StandardStream::Output).value_or(0);
  std::cout << kBeginFrame << Return(width) << kEndFrame << std::flush;
  drawn_ = 0;
}

}  // namespace tlm::ctl
