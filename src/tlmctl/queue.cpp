#include <chrono>
#include <iostream>
#include <memory>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/job_counts.h"
#include "tlmctl/job_json.h"
#include "tlmctl/link.h"
#include "tlmctl/option_values.h"
#include "tlmctl/queue_state.h"
#include "tlmctl/texts.h"
#include "tlmctl/time_values.h"

namespace tlm::ctl {

namespace {

constexpr std::uint64_t kCancelStart = ~std::uint64_t{0};
constexpr std::chrono::seconds kPollInterval{1};

struct QueueOptions {
  std::string In;
  std::string At;
  bool Cancel = false;
  bool Wait = false;
  std::uint32_t Limit = 0;
};

void PrintQueue(const Settings& settings, const QueueState& queue) {
  if (settings.Json) {
    PrintJson({{"runs", queue.Runs},
               {"starts_at", TimeJson(queue.StartsAt)},
               {"limit", queue.Limit},
               {"waiting", queue.Waiting},
               {"running", queue.Holders.size()},
               {"running_from_queue", queue.RunningFromQueue.size()}});
    return;
  }
  if (settings.Quiet) {
    std::cout << (queue.Runs ? "running\n" : "stopped\n");
    return;
  }
  std::cout << "Queue    " << (queue.Runs ? "runs" : "stands still")
            << (queue.StartsAt != 0 ? ", starts at " + LocalTimeText(queue.StartsAt) : "") << "\nWaiting  "
            << JobsText(queue.Waiting) << "\nRunning  " << JobsText(queue.Holders.size()) << ", "
            << queue.RunningFromQueue.size() << " of them from the queue\nLimit    " << queue.Limit << " at once\n";
}

int ShowStatus(const Settings& settings, QorJMClient& client) {
  PrintQueue(settings, LookAtQueue(client));
  return kGood;
}

std::uint64_t StartDelay(const QueueOptions& options) {
  if (options.Cancel) return kCancelStart;
  std::chrono::seconds delay{0};
  if (!options.In.empty()) delay = DurationOf(options.In);
  if (!options.At.empty()) delay = TimeUntil(options.At, platform::SecondsSince1970());
  return static_cast<std::uint64_t>(delay.count());
}

int Start(const Settings& settings, const QueueOptions& options) {
  const std::uint64_t delay = StartDelay(options);
  QorJMClient client;
  Connect(client, settings);
  client.StartQueue(delay);
  return ShowStatus(settings, client);
}

// A time that has come would start the queue again within seconds.
void StopForGood(QorJMClient& client) {
  client.StopQueue();
  if (PendingStart(client) == 0) client.StartQueue(kCancelStart);
}

int Stop(const Settings& settings) {
  QorJMClient client;
  Connect(client, settings);
  StopForGood(client);
  if (PendingStart(client) != 0)
    Note(settings, "it starts again at the time that is set: 'tlmctl queue start --cancel'");
  return ShowStatus(settings, client);
}

std::string HandlesText(const std::vector<std::uint64_t>& handles) {
  std::string text;
  for (const std::uint64_t handle : handles) text += (text.empty() ? "" : ", ") + std::to_string(handle);
  return text;
}

int Drain(const Settings& settings, const QueueOptions& options) {
  Link link(
      settings, [](QorJMClient&) {}, Connect);
  link.Open();
  QueueState queue = link.Persist([](QorJMClient& client) {
    client.StopQueue();
    client.StartQueue(kCancelStart);
    return LookAtQueue(client);
  });
  if (options.Wait && !queue.RunningFromQueue.empty()) {
    Note(settings, "waiting for the end of " + JobsText(queue.RunningFromQueue.size()) + ": " +
                       HandlesText(queue.RunningFromQueue));
  }
  while (options.Wait && !queue.RunningFromQueue.empty()) {
    platform::Sleep(kPollInterval);
    queue = link.Persist(LookAtQueue);
  }
  PrintQueue(settings, queue);
  return kGood;
}

int Status(const Settings& settings) {
  QorJMClient client;
  Connect(client, settings);
  return ShowStatus(settings, client);
}

int Limit(const Settings& settings, std::uint32_t limit) {
  QorJMClient client;
  Connect(client, settings);
  if (limit != 0) client.SetQueueLimit(limit);
  const std::uint32_t now = client.GetQueueLimit();
  if (limit != 0 && now != limit) throw RefusedChange();
  if (settings.Json) {
    PrintJson({{"limit", now}});
  } else {
    std::cout << now << '\n';
  }
  return kGood;
}

void AddStart(Program& program, const std::shared_ptr<QueueOptions>& options) {
  CLI::App& command = program.AddCommand(
      {.Name = "queue start",
       .Description = "Let the jobs of the queue run, now or at a time",
       .Examples = {{"queue start", "now"},
                    {"queue start --in 2h", "in two hours"},
                    {"queue start --at 22:30", "when a clock here shows that time next"},
                    {"queue start --cancel", "not at the time that was set"}},
       .Operations = {"StartQueue", "IsQueueRunning", "GetQueueStartTime", "GetQueueLimit", "ListJobs", "GetJob"},
       .Details = "The queue stops by itself when no job of it waits or runs. One time can be set, and a start now\n"
                  "takes it back. A start at a time may come up to 15 seconds later."},
      [options](const Settings& settings) { return Start(settings, *options); });
  CLI::Option* in =
      command.add_option("--in", options->In, "After this time: 90, 15m, 2h, 7d")->type_name(kDurationValue);
  CLI::Option* at =
      command.add_option("--at", options->At, "At this time of day, as 22:30")->type_name("TIME")->excludes(in);
  command.add_flag("--cancel", options->Cancel, "Take back the time that was set")->excludes(in)->excludes(at);
}

void AddDrain(Program& program, const std::shared_ptr<QueueOptions>& options) {
  CLI::App& command = program.AddCommand(
      {.Name = "queue drain",
       .Description = "Start nothing more from the queue, also not later; --wait waits for what runs",
       .Examples = {{"queue drain", "before the server is restarted, say"},
                    {"queue drain --wait", "returns when nothing of the queue runs any more"}},
       .Operations = {"StopQueue", "StartQueue", "IsQueueRunning", "GetQueueStartTime", "GetQueueLimit", "ListJobs",
                      "GetJob"},
       .Details =
           "To the server this is a stop. Beyond 'queue stop' it takes back a start that was set for later, and\n"
           "can wait. Whoever starts the queue meanwhile undoes it. Jobs that do not go through the queue are\n"
           "neither held back nor waited for."},
      [options](const Settings& settings) { return Drain(settings, *options); });
  command.add_flag("--wait", options->Wait, "Return when nothing of the queue runs any more");
}

void AddLimit(Program& program, const std::shared_ptr<QueueOptions>& options) {
  CLI::App& command = program.AddCommand(
      {.Name = "queue limit",
       .Description = "Show or set how many jobs may run at once from the queue",
       .Examples = {{"queue limit", "shows it"}, {"queue limit 4", "sets it, until the server is restarted"}},
       .Operations = {"SetQueueLimit", "GetQueueLimit"},
       .Details = "A job of the queue starts while fewer jobs run, counting all, also those that run at once."},
      [options](const Settings& settings) { return Limit(settings, options->Limit); });
  AddCount(command, "N", options->Limit, "The limit");
}

}  // namespace

void AddQueue(Program& program) {
  const auto options = std::make_shared<QueueOptions>();
  program.AddGroup("queue", "Start and stop the queue of waiting jobs");
  program.AddCommand(
      {.Name = "queue status",
       .Description = "Show whether the queue runs, and what waits in it",
       .Examples = {{"queue status", "for a person"}, {"--quiet queue status", "prints running or stopped"}},
       .Operations = {"IsQueueRunning", "GetQueueStartTime", "GetQueueLimit", "ListJobs", "GetJob"}},
      Status);
  AddStart(program, options);
  program.AddCommand({.Name = "queue stop",
                      .Description = "Start nothing more from the queue; what runs goes on",
                      .Examples = {{"queue stop", "a start that is set for later stays set"}},
                      .Operations = {"StopQueue", "StartQueue", "IsQueueRunning", "GetQueueStartTime", "GetQueueLimit",
                                     "ListJobs", "GetJob"}},
                     Stop);
  AddDrain(program, options);
  AddLimit(program, options);
}

}  // namespace tlm::ctl
