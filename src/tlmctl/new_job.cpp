#include "tlmctl/new_job.h"

#include <filesystem>
#include <fstream>
#include <iostream>

#include "platform/file_system.h"
#include "platform/thread.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"
#include "tlmctl/transfer.h"

namespace tlm::ctl {

namespace {

namespace fs = std::filesystem;

std::vector<std::string>& CommandLine() {
  static std::vector<std::string> words;
  return words;
}

// A file that tells the server of further stems, for as long as it is being sent.
class StemList {
 public:
  StemList(const Request& request, Plan& plan) {
    if (request.OtherStems.empty()) return;
    path_ = platform::MakeUniqueFile(platform::TemporaryDirectory(), "tlmctl").value_or("");
    std::ofstream file(path_);
    for (const std::string& stem : request.OtherStems) {
      if (stem.find_first_of(" \t\r\n\v\f/\\") != std::string::npos) throw Failure{kUsage, "no stem: " + stem};
      file << stem << '\n';
    }
    file.close();
    InputFile list{plan.Job.ResultStem + ".exr", path_, fs::file_size(path_), 0};
    list.ModTime = fs::last_write_time(path_).time_since_epoch().count();
    plan.Inputs.push_back(std::move(list));
  }
  StemList(const StemList&) = delete;
  StemList& operator=(const StemList&) = delete;
  ~StemList() {
    if (!path_.empty()) platform::RemoveFile(path_);
  }

 private:
  std::string path_;
};

std::uint64_t PredecessorOf(QorJMClient& client, const Settings& settings, const Request& request) {
  return request.After.empty() ? 0 : FindJob(client, settings, request.After).Handle;
}

// A job that the server has taken though its answer was lost.
std::uint64_t FindById(QorJMClient& client, const std::string& id) {
  HandleList handles;
  client.ListJobs(handles);
  for (auto handle = handles.rbegin(); handle != handles.rend(); ++handle) {
    const std::optional<Task> task = FetchJob(client, *handle);
    if (task && IdOfNote(task->ClientNote) == id) return *handle;
  }
  return 0;
}

std::uint64_t Submit(Link& link, const Submission& job, const std::string& id) {
  bool tried = false;
  return link.Persist([&](QorJMClient& client) {
    const std::uint64_t known = tried ? FindById(client, id) : 0;
    tried = true;
    return known != 0 ? known : client.SubmitJob(job);
  });
}

void WarnOfPool(const Settings& settings, const Request& request, const Plan& plan) {
  if (!request.Distribute || plan.Inputs.size() < 2) return;
  Note(settings, "of the " + std::to_string(plan.Inputs.size()) + " input files only " + plan.Job.InputFile +
                     " travels on to another server of the pool");
}

void WarnOfQueue(QorJMClient& client, const Settings& settings, const Request& request) {
  if (request.Queue && !client.IsQueueRunning()) {
    Note(settings, "the server's queue stands still; the job waits until it is started (tlmctl queue start)");
  }
}

LedgerEntry EntryFor(const Settings& settings, const Plan& plan, const std::string& id) {
  LedgerEntry entry;
  entry.Id = id;
  entry.Server = AddressOf(settings).Text();
  entry.Directory = plan.Directory;
  entry.Name = plan.Job.AnalysisID;
  entry.Command = plan.Job.Command;
  entry.Words = CommandLine();
  entry.From = platform::CurrentDirectory();
  entry.Submitted = platform::SecondsSince1970();
  for (const InputFile& file : plan.Inputs) entry.Sent.push_back({file.Name, file.Size, file.ModTime});
  return entry;
}

Json ToJson(const std::vector<Decision>& decisions) {
  Json files = Json::array();
  for (const auto& [file, sends, reason] : decisions) {
    files.push_back({{"name", file.Name}, {"size", file.Size}, {"sent", sends}, {"reason", reason}});
  }
  return files;
}

}  // namespace

void SetCommandLine(const std::vector<std::string>& words) { CommandLine() = words; }

int PrintPlan(const Settings& settings, const Request& request) {
  Plan plan = MakePlan(request);
  const StemList stems(request, plan);
  QorJMClient client;
  ConnectForJobs(client, settings);
  const std::vector<Decision> decisions = DecideTransfers(client, settings, plan, request.SendAll);
  if (settings.Json) {
    PrintJson({{"command", plan.Job.Command},
               {"directory", plan.Job.WorkDir},
               {"result_stem", plan.Job.ResultStem},
               {"input_file", plan.Job.InputFile},
               {"files", ToJson(decisions)}});
    return kGood;
  }
  std::cout << "would run   " << plan.Job.Command << "\nin          " << plan.Job.WorkDir << "\nresults     "
            << plan.Job.ResultStem << ".*\n";
  Table table({"FILE", "SIZE", "SENT", "REASON"});
  for (const auto& [file, sends, reason] : decisions) {
    table.Add({{file.Name}, {SizeText(file.Size)}, {sends ? "yes" : "no"}, {reason}});
  }
  if (!decisions.empty()) table.Print();
  WarnOfPool(settings, request, plan);
  return kGood;
}

LedgerEntry SubmitNewJob(Link& link, const Settings& settings, const Request& request, const Plan& planned) {
  Plan plan = planned;
  const StemList stems(request, plan);
  const std::string id = NewId();
  plan.Job.ClientNote = NoteWithId(id, plan.Job.ClientNote);
  const auto priority = request.Priority.empty() ? 0 : PriorityOf(request.Priority);
  plan.Job.Predecessor = link.Persist([&](QorJMClient& client) { return PredecessorOf(client, settings, request); });
  WarnOfPool(settings, request, plan);
  if (!plan.Inputs.empty()) {
    const auto decisions =
        link.Persist([&](QorJMClient& client) { return DecideTransfers(client, settings, plan, request.SendAll); });
    SendFiles(link, settings, plan, decisions);
  }
  LedgerEntry entry = EntryFor(settings, plan, id);
  entry.Handle = Submit(link, plan.Job, id);
  if (entry.Handle == 0) throw Failure{kRefused, "the server did not take the job"};
  Ledger().Add(entry);
  link.Persist([&](QorJMClient& client) {
    if (priority != 0) client.SetJobPriority(entry.Handle, priority);
    WarnOfQueue(client, settings, request);
  });
  return entry;
}

void PrintNewJob(const Settings& settings, const LedgerEntry& entry) {
  if (settings.Json) {
    PrintJson({{"handle", entry.Handle}, {"id", entry.Id}, {"name", entry.Name}, {"server", entry.Server}});
  } else {
    std::cout << entry.Handle << std::endl;
  }
}

}  // namespace tlm::ctl
