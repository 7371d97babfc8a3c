#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tlmctl/command_text.h"
#include "tlmctl/commands.h"
#include "tlmctl/follow.h"
#include "tlmctl/send_files.h"

namespace tlm::ctl {

namespace {

namespace fs = std::filesystem;

constexpr char kFooter[] =
    "A command's program lies in the bin directory of the server's installation.\n"
    "A job counts as successful if its program reports so to the server. For a program that\n"
    "knows nothing of job managers, give --complete-on-failure, else its job ends as Aborted.\n"
    "The output of the programs goes to STEM_out in the job's directory.\n\n"
    "With --send the job runs in a directory on the server, which may be another machine, that\n"
    "stands for the job's directory here. The deck and what --file names are sent there, and\n"
    "'tlmctl results' brings back what the job makes. Without, it runs in the directory itself,\n"
    "which the server has to reach.\n\n"
    "  tlmctl submit --deck runs/plate.inp heat2d    runs 'heat2d plate.inp' in runs\n"
    "  tlmctl submit --watch -- solve -v plate.inp   runs here, and waits for the end\n"
    "  tlmctl submit --send --deck plate.inp heat2d  sends the deck to the server and runs there\n"
    "  tlmctl submit --command 'mesh a; solve a'     runs two programs, one after the other";

struct SubmitOptions {
  std::vector<std::string> Words;
  std::string Command;
  std::string Deck;
  std::string Directory;
  std::string Stem;
  std::string Input;
  std::string Name;
  std::string Note;
  std::string TaskKey;
  std::uint64_t After = 0;
  std::string Priority;
  bool Queue = false;
  bool CompleteOnFailure = false;
  bool Watch = false;
  bool Send = false;
  std::vector<std::string> Files;
  bool OnlyMissing = false;
};

std::string Absolute(const fs::path& directory) {
  std::string path = fs::absolute(directory).lexically_normal().string();
  while (path.size() > 1 && path.back() == fs::path::preferred_separator) path.pop_back();
  return path;
}

std::string StemOf(const std::string& path) { return fs::path(path).stem().string(); }

const std::string& FirstOf(const std::string& given, const std::string& byDefault) {
  return given.empty() ? byDefault : given;
}

std::optional<std::uint32_t> PriorityOf(const std::string& name) {
  static const std::map<std::string, std::uint32_t> kLevels{{"idle", 1}, {"normal", 2}, {"high", 3}, {"realtime", 4}};
  if (name.empty()) return std::nullopt;
  const auto level = kLevels.find(name);
  if (level == kLevels.end()) throw Failure{ExitCode::Usage, "there is no priority " + name};
  return level->second;
}

void CheckUsage(const SubmitOptions& options) {
  if (options.Words.empty() == options.Command.empty()) {
    throw Failure{ExitCode::Usage, "submit takes a command or --command, and not both"};
  }
  if (!options.Deck.empty() && !options.Command.empty()) {
    throw Failure{ExitCode::Usage, "--deck goes with a command, not with --command"};
  }
  if (!options.Send && (!options.Files.empty() || options.OnlyMissing)) {
    throw Failure{ExitCode::Usage, "--file and --only-missing go with --send"};
  }
  std::error_code ignored;
  if (!options.Deck.empty() && !fs::is_regular_file(options.Deck, ignored)) {
    throw Failure{ExitCode::Usage, "there is no deck " + options.Deck};
  }
}

// A deck in the job's directory goes by its name alone.
std::string DeckWord(const SubmitOptions& options, const std::string& directory) {
  const fs::path deck = fs::absolute(options.Deck).lexically_normal();
  return Absolute(deck.parent_path()) == directory ? deck.filename().string() : deck.string();
}

Submission Describe(const SubmitOptions& options) {
  Submission job;
  std::vector<std::string> words = options.Words;
  std::string stem = words.empty() ? "job" : StemOf(words.front());
  std::string directory = Absolute(fs::current_path());
  if (!options.Deck.empty()) {
    stem = StemOf(options.Deck);
    directory = Absolute(fs::absolute(options.Deck).parent_path());
    job.InputFile = fs::path(options.Deck).filename().string();
  }
  job.WorkDir = options.Directory.empty() ? directory : Absolute(options.Directory);
  if (!options.Deck.empty()) words.push_back(DeckWord(options, job.WorkDir));
  job.Command = FirstOf(options.Command, CommandText(words));
  job.InputFile = FirstOf(options.Input, job.InputFile);
  job.ResultStem = FirstOf(options.Stem, stem);
  job.InputStem = job.InputFile.empty() ? job.ResultStem : StemOf(job.InputFile);
  job.AnalysisID = FirstOf(options.Name, job.ResultStem);
  job.ClientNote = options.Note;
  job.TaskKey = options.TaskKey;
  job.RunClass = options.Queue ? kRunQueued : kRunAtOnce;
  job.Predecessor = options.After;
  job.CompleteOnFailure = options.CompleteOnFailure;
  return job;
}

// What is sent has to lie in the job's directory.
void CheckInput(const SubmitOptions& options, const std::string& directory) {
  std::vector<std::string> paths = options.Files;
  if (!options.Deck.empty()) paths.push_back(options.Deck);
  for (const fs::path path : paths) {
    std::error_code ignored;
    const bool liesThere = Absolute(fs::absolute(path).parent_path()) == directory;
    if (liesThere && fs::is_regular_file(path, ignored)) continue;
    throw Failure{ExitCode::Usage, "there is no file " + path.filename().string() + " in " + directory};
  }
}

void Reach(QorJMClient& client, const ServerOptions& server) {
  Connect(client, server);
  if (!SayHello(client, server)) {
    throw Failure{ExitCode::Refused, "the server has no programs of release " + server.Release + " and takes no job"};
  }
}

// The deck always travels: an edit may have left its size as it was.
bool SendInput(QorJMClient& client, const SubmitOptions& options, const std::string& directory) {
  std::vector<std::string> names;
  for (const fs::path path : options.Files) names.push_back(path.filename().string());
  if (options.OnlyMissing) names = MissingFiles(client, directory, names);
  if (!options.Deck.empty()) names.push_back(fs::path(options.Deck).filename().string());
  return SendFiles(client, directory, names);
}

void SendInputSurely(QorJMClient& client, const ServerOptions& server, const SubmitOptions& options,
                     const std::string& directory) {
  if (SendInput(client, options, directory)) return;
  // Another client may have made the server clean up a directory that was still empty. A new connection gets another.
  client.Disconnect();
  Reach(client, server);
  if (!SendInput(client, options, directory)) {
    throw Failure{ExitCode::Refused, "the server could not store all the files; its disk may be full"};
  }
}

ExitCode Submit(const ServerOptions& server, const SubmitOptions& options) {
  CheckUsage(options);
  const std::optional<std::uint32_t> priority = PriorityOf(options.Priority);
  Submission job = Describe(options);
  if (options.Send) {
    CheckInput(options, job.WorkDir);
    job.WorkDir += fs::path::preferred_separator;  // the server knows directories of files by this form
  }
  QorJMClient client;
  Reach(client, server);
  if (options.Send) SendInputSurely(client, server, options, job.WorkDir);
  const std::uint64_t handle = client.SubmitJob(job);
  if (handle == 0) {
    throw Failure{ExitCode::Refused, "the server has no job " + std::to_string(job.Predecessor) + " to wait for"};
  }
  if (priority) client.SetJobPriority(handle, *priority);
  std::cout << handle << std::endl;
  if (options.Queue && !client.IsQueueRunning()) {
    std::cerr << "tlmctl: the server's queue stands still; the job waits until it is started\n";
  }
  return options.Watch ? FollowJob(client, handle) : ExitCode::Good;
}

void AddCommandOptions(CLI::App& command, SubmitOptions& options) {
  command.add_option("COMMAND", options.Words, "Program and arguments, behind -- if one begins with a - or a [");
  command.add_option("--command", options.Command,
                     "Instead: one or more commands as the server reads them, separated by ';'");
  command.add_option("--deck", options.Deck, "Input file: the command's last argument; gives directory, stem and name");
  command.add_option("--dir", options.Directory, "The job's directory; the deck's or the current one");
  command.add_flag("--send", options.Send, "Send deck and files to the server and run in a directory of its own there");
  command.add_option("--file", options.Files, "With --send: a further file of the directory; may be repeated")
      ->allow_extra_args(false);
  command.add_flag("--only-missing", options.OnlyMissing,
                   "With --send: leave out further files that the server holds with the same size");
}

void AddJobOptions(CLI::App& command, SubmitOptions& options) {
  command.add_option("--stem", options.Stem, "Name of the result files without suffix; the deck's or the program's");
  command.add_option("--input", options.Input,
                     "Name of the input file. If its stem is not that of the results, former results are deleted");
  command.add_option("--name", options.Name, "What the job is called; the stem");
  command.add_option("--after", options.After, "Handle of a job that must succeed first");
  command.add_flag("--queue", options.Queue, "Run within the limit of the server's queue, not at once");
  command.add_flag("--complete-on-failure", options.CompleteOnFailure, "Count as success whatever the program reports");
  command.add_option("--priority", options.Priority, "Of the job's processes: idle, normal, high or realtime");
  command.add_option("--note", options.Note, "A remark that stays with the job");
  command.add_option("--task-key", options.TaskKey, "Handed to the programs as TS_ENTERPRISE_ENV");
  command.add_flag("--watch", options.Watch, "Follow the job to its end, as watch does");
}

}  // namespace

void AddSubmit(Program& program) {
  const auto options = std::make_shared<SubmitOptions>();
  CLI::App& command = program.AddCommand("submit", "Send a job and print its handle",
                                         [options](const auto& server) { return Submit(server, *options); });
  program.AddTrailingWords(command, options->Words);
  AddCommandOptions(command, *options);
  AddJobOptions(command, *options);
  command.footer(kFooter);
}

}  // namespace tlm::ctl
