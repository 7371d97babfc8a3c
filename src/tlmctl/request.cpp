#include "tlmctl/request.h"

#include <algorithm>
#include <filesystem>

#include "tlmctl/command_text.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/ledger.h"
#include "tlmctl/texts.h"
#include "util/mfile.h"

namespace tlm::ctl {

namespace {

namespace fs = std::filesystem;

std::string Absolute(const fs::path& directory) {
  std::string path = fs::absolute(directory).lexically_normal().string();
  while (path.size() > 1 && path.back() == fs::path::preferred_separator) path.pop_back();
  return path;
}

const std::string& FirstOf(const std::string& given, const std::string& byDefault) {
  return given.empty() ? byDefault : given;
}

bool IsFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

void CheckUsage(const Request& request) {
  if (request.Words.empty() == request.Command.empty()) {
    throw Failure{kUsage, "what is to run is missing, or given twice", "give a command behind --, or --command"};
  }
  if (!request.Deck.empty() && !request.Command.empty()) {
    throw Failure{kUsage, "--deck goes with a command, not with --command"};
  }
  const bool isPlain = request.Stem.find_first_of("\n/\\") == std::string::npos;
  if (!isPlain || request.Stem.starts_with('.')) throw Failure{kUsage, "no stem: " + request.Stem};
  if (request.Queue && request.Distribute) throw Failure{kUsage, "a job goes to the queue or to the pool, not to both"};
  if (!request.Deck.empty() && !IsFile(request.Deck)) throw Failure{kUsage, "there is no deck " + request.Deck};
  if (request.InPlace && (!request.Inputs.empty() || request.SendAll || !request.OtherStems.empty())) {
    throw Failure{kUsage, "a job that runs in place needs no files to be sent"};
  }
}

// Where an input has to lie: what the server has for a directory is flat.
std::string DirectoryOf(const Request& request) {
  if (!request.Directory.empty()) return Absolute(request.Directory);
  return request.Deck.empty() ? Absolute(fs::current_path()) : Absolute(fs::absolute(request.Deck).parent_path());
}

ClientFile Examine(const fs::path& path, const std::string& directory) {
  ClientFile file = Locate(path.string());
  if (Absolute(file.Directory) != directory || !file.Size) {
    throw Failure{kUsage, "there is no file " + path.filename().string() + " in " + directory,
                  "the input of a job lies in one directory, without those below it; --dir names it"};
  }
  file.Given = file.Name;
  return file;
}

// Words that name files of the directory are input, too.
std::vector<ClientFile> CollectInputs(const Request& request, const std::string& directory) {
  std::vector<fs::path> paths;
  if (!request.Deck.empty()) paths.push_back(request.Deck);
  for (std::size_t i = 1; i < request.Words.size(); ++i) {
    const fs::path inDirectory = fs::path(directory) / request.Words[i];
    const bool plain = fs::path(request.Words[i]).filename() == request.Words[i];
    if (plain && IsFile(inDirectory)) paths.push_back(inDirectory);
  }
  for (const fs::path path : request.Inputs) paths.push_back(IsFile(path) ? path : fs::path(directory) / path);
  std::vector<ClientFile> files;
  for (const fs::path& path : paths) {
    ClientFile file = Examine(path, directory);
    const auto same = [&](const ClientFile& known) { return known.Name == file.Name; };
    if (std::none_of(files.begin(), files.end(), same)) files.push_back(std::move(file));
  }
  return files;
}

std::string StemOf(const std::string& name) { return MFile(name).Stem(); }

// Jobs of one stem in one directory write to the same files: a job that no input sets apart has a stem of its own.
std::string StemFor(const Request& request, const std::string& ofInput, const std::string& program) {
  constexpr std::size_t kDigits = 6;
  if (!ofInput.empty()) return ofInput.front() == '.' ? program : ofInput;  // a hidden file is no result
  return request.InPlace ? program : program + '-' + NewId().substr(0, kDigits);
}

// A deck in the job's directory goes by its name alone.
std::string DeckWord(const Request& request, const std::string& directory) {
  const fs::path deck = fs::absolute(request.Deck).lexically_normal();
  return Absolute(deck.parent_path()) == directory ? deck.filename().string() : deck.string();
}

std::uint32_t RunClassOf(const Request& request) {
  if (request.Distribute) return kRunDistributed;
  return request.Queue ? kRunQueued : kRunAtOnce;
}

}  // namespace

Plan MakePlan(const Request& request) {
  CheckUsage(request);
  const std::string directory = DirectoryOf(request);
  Plan plan;
  plan.Directory = directory + (directory == "/" ? "" : "/");
  std::error_code ignored;
  if (!request.InPlace && !fs::is_directory(directory, ignored)) {
    throw Failure{kUsage, "there is no directory " + directory, "results are brought there; --dir names another"};
  }
  const std::vector<ClientFile> inputs = CollectInputs(request, directory);
  std::vector<std::string> words = request.Words;
  if (!request.Deck.empty()) words.push_back(DeckWord(request, directory));

  Submission& job = plan.Job;
  job.Command = FirstOf(request.Command, CommandText(words));
  if (!inputs.empty()) job.InputFile = inputs.front().Name;
  const std::string program = request.Words.empty() ? "job" : StemOf(request.Words.front());
  job.ResultStem = FirstOf(request.Stem, StemFor(request, StemOf(job.InputFile), program));
  // Where the stems differ, results of former runs go. An input must not go with them.
  job.InputStem = job.ResultStem;
  job.AnalysisID = FirstOf(request.Name, inputs.empty() ? FirstOf(request.Stem, program) : job.ResultStem);
  job.ClientNote = request.Note;
  job.TaskKey = request.TaskKey;
  job.RunClass = RunClassOf(request);
  job.CompleteOnFailure = request.CompleteOnFailure;
  job.WorkDir = request.InPlace ? directory : plan.Directory;  // the server knows directories of files by this form
  if (request.InPlace) return plan;
  for (const ClientFile& file : inputs) RequireThatItTravels(file);
  plan.Inputs = inputs;
  return plan;
}

void AddRequestOptions(Program& program, CLI::App& command, Request& request) {
  program.AddTrailingWords(command, request.Words);
  command.add_option("COMMAND", request.Words, "Program and arguments, behind -- if one begins with a - or a [");
  command.add_option("--command", request.Command, "Instead: commands as the server reads them, separated by ';'");
  command.add_option("--deck", request.Deck, "Input file: the last argument of the command; gives directory and stem")
      ->type_name(kFileValue);
  command.add_option("-i,--input", request.Inputs, "A further file that the job needs; may be repeated")
      ->type_name(kFileValue)
      ->allow_extra_args(false);
  command.add_option("--dir", request.Directory, "The job's directory; the deck's or the current one")
      ->type_name(kDirectoryValue);
  command.add_flag("--in-place", request.InPlace, "Run right in that directory, which the server has to reach itself");
  command.add_flag("--send-all", request.SendAll, "Send also the files that the server seems to have already");
  command.add_flag("-n,--dry-run", request.DryRun, "Do nothing but say what would be sent and run");
  command.add_option("--stem", request.Stem, "Name of the result files without suffix; that of the input file");
  command.add_option("--also", request.OtherStems, "Another stem whose files are results; may be repeated")
      ->type_name("STEM")
      ->allow_extra_args(false);
  command.add_option("--name", request.Name, "What the job is called; by default as its input file or program");
  command.add_option("--note", request.Note, "A remark that stays with the job");
  command.add_option("--after", request.After, "A job that must succeed first")->type_name(kJobValue);
  command.add_flag("--queue", request.Queue, "Run within the limit of the server's queue, not at once");
  command.add_flag("--distribute", request.Distribute, "Run on the least loaded server of the pool");
  command.add_option("--priority", request.Priority, "Of the job's processes")->type_name(kPriorityValue);
  command.add_option("--task-key", request.TaskKey, "Handed to the programs as TS_ENTERPRISE_ENV");
}

}  // namespace tlm::ctl
