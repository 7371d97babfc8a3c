#include "tlmctl/new_job.h"

#include <iostream>
#include <memory>

#include "platform/file_system.h"
#include "platform/thread.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/jobs.h"
#include "tlmctl/server_key.h"
#include "tlmctl/table.h"
#include "tlmctl/temporary_file.h"
#include "tlmctl/texts.h"
#include "tlmctl/transfer.h"

namespace tlm::ctl {

namespace {

// Tells the server of further stems. Adds the file, if there has to be one, to the input; it has to live until that is
// sent.
std::unique_ptr<TemporaryFile> AddStemList(const Request& request, Plan& plan) {
  if (request.OtherStems.empty()) return nullptr;
  std::string text;
  for (const std::string& stem : request.OtherStems) {
    if (stem.find_first_of(" \t\r\n\v\f/\\") != std::string::npos) throw Failure{kUsage, "no stem: " + stem};
    text += stem + '\n';
  }
  auto content = std::make_unique<TemporaryFile>(text);
  ClientFile list = Locate(content->Path());
  list.Directory = plan.Directory;
  list.Name = list.Given = plan.Job.ResultStem + ".exr";
  plan.Inputs.push_back(std::move(list));
  return content;
}

std::uint64_t PredecessorOf(QorJMClient& client, const Settings& settings, const Request& request) {
  if (request.After.empty()) return 0;
  const KnownJob job = FindJobOrEntry(client, settings, request.After);
  if (job.IsThere()) return job.Handle;
  if (!job.Entry || job.Entry->Outcome != StatusWord(Finished)) return FindJob(client, settings, request.After).Handle;
  Note(settings, "job " + std::to_string(job.Handle) + ' ' + job.Entry->Name + " has succeeded, and is not waited for");
  return 0;
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
    EndIfInterrupted();
    return known != 0 ? known : client.SubmitJob(job);
  });
}

void WarnOfPool(const Settings& settings, const Request& request, const Plan& plan) {
  if (!request.Distribute || plan.Inputs.size() < 2) return;
  Note(settings, "of the " + std::to_string(plan.Inputs.size()) + " input files only " + plan.Job.InputFile +
                     " travels on to another server of the pool");
}

// The one of this ledger's jobs that writes to the same files, if there is one that has not ended.
std::optional<KnownJob> FindRival(QorJMClient& client, const Settings& settings, const Plan& plan) {
  const std::string key = ServerKey(AddressOf(settings).Text());
  for (const LedgerEntry& entry : Ledger().Read()) {
    if (!IsOn(entry, key) || entry.Directory != plan.Directory || !entry.Outcome.empty()) continue;
    const std::optional<Task> task = FetchJob(client, entry.Handle);
    if (!task || IdOfNote(task->ClientNote) != entry.Id || HasEnded(*task)) continue;
    if (task->ResultStem == plan.Job.ResultStem) return KnownJob{entry.Handle, *task, entry};
  }
  return std::nullopt;
}

void RequireOwnFiles(QorJMClient& client, const Settings& settings, const Request& request, const Plan& plan) {
  const std::optional<KnownJob> rival = FindRival(client, settings, plan);
  if (!rival) return;
  const std::string text = Subject(rival->Handle, rival->State) + " has not ended and writes to the same files, " +
                           plan.Job.ResultStem + ".* and its output";
  const std::string hint = "--stem gives this one others";
  if (request.After.empty()) throw Failure{kRefused, text, hint};
  Note(settings, text + "; " + hint);  // one that comes after it may go on with them
}

// A list of further stems stays in the directory, and would count for a job that has none.
void RemoveStemList(QorJMClient& client, const Request& request, const Plan& plan) {
  if (!request.OtherStems.empty() || request.InPlace) return;
  std::string serverDirectory;
  client.MapClientDirectory(plan.Directory, serverDirectory);
  client.UpdateClientFiles({serverDirectory + '/' + plan.Job.ResultStem + ".exr"}, {});
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
  entry.Words = settings.CommandLine;
  entry.From = platform::CurrentDirectory();
  entry.Submitted = platform::SecondsSince1970();
  for (const ClientFile& file : plan.Inputs) entry.Sent.push_back({file.Name, *file.Size, file.ModTime});
  return entry;
}

Json ToJson(const std::vector<Decision>& decisions) {
  Json files = Json::array();
  for (const auto& [file, sends, reason] : decisions) {
    files.push_back({{"name", file.Name}, {"size", *file.Size}, {"sent", sends}, {"reason", reason}});
  }
  return files;
}

}  // namespace

int PrintPlan(const Settings& settings, const Request& request) {
  Plan plan = MakePlan(request);
  const auto stems = AddStemList(request, plan);
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
            << plan.Job.ResultStem << ".*";
  for (const std::string& stem : request.OtherStems) std::cout << ' ' << stem << ".*";
  std::cout << '\n';
  Table table({"FILE", "SIZE", "SENT", "REASON"});
  for (const auto& [file, sends, reason] : decisions) {
    table.Add({{file.Name}, {SizeText(*file.Size)}, {sends ? "yes" : "no"}, {reason}});
  }
  if (!decisions.empty()) table.Print();
  WarnOfPool(settings, request, plan);
  return kGood;
}

LedgerEntry SubmitNewJob(Link& link, const Settings& settings, const Request& request, const Plan& planned) {
  Plan plan = planned;
  const auto stems = AddStemList(request, plan);
  const std::string id = NewId();
  plan.Job.ClientNote = NoteWithId(id, plan.Job.ClientNote);
  const auto priority = request.Priority.empty() ? 0 : PriorityOf(request.Priority);
  plan.Job.Predecessor = link.Persist([&](QorJMClient& client) { return PredecessorOf(client, settings, request); });
  WarnOfPool(settings, request, plan);
  link.Persist([&](QorJMClient& client) {
    RequireOwnFiles(client, settings, request, plan);
    RemoveStemList(client, request, plan);
  });
  if (!plan.Inputs.empty()) {
    const auto decisions =
        link.Persist([&](QorJMClient& client) { return DecideTransfers(client, settings, plan, request.SendAll); });
    SendFiles(link, settings, decisions);
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
