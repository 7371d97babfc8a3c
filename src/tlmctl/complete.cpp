#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/inquiry.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/option_values.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::seconds kPatience{1};

using Words = std::vector<std::string>;

// Where in the line a word is to be completed.
struct Place {
  std::vector<const CLI::App*> Path;      // the program, perhaps a group, the command
  const CLI::Option* Awaiting = nullptr;  // the option whose value may stand here
  int Given = 0;                          // words of the command that are no options
  bool BehindDashes = false;
  std::string Server;  // as far as the line names it
};

struct Candidate {
  std::string Word;
  std::string Description;
};

bool IsOption(const std::string& word) { return word.size() > 1 && word.front() == '-'; }

const CLI::App* FindCommand(const CLI::App& app, const std::string& name) {
  const auto found = app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

// The option of the command, or of those around it.
const CLI::Option* FindOption(const Place& place, const std::string& name) {
  for (auto app = place.Path.rbegin(); app != place.Path.rend(); ++app) {
    const auto found = (*app)->get_options([&](const CLI::Option* option) { return option->check_name(name); });
    if (!found.empty()) return found.front();
  }
  return nullptr;
}

void NoteServer(Place& place, const CLI::Option* option, const std::string& value) {
  if (option && option->check_name("--server")) place.Server = value;
}

void PassOption(Place& place, const std::string& word) {
  const std::size_t equals = word.find('=');
  const CLI::Option* option = FindOption(place, word.substr(0, equals));
  if (equals != std::string::npos) {
    NoteServer(place, option, word.substr(equals + 1));
  } else if (option && option->get_items_expected_max() > 0) {
    place.Awaiting = option;
  }
}

void Pass(Place& place, const std::string& word) {
  if (place.BehindDashes) return;
  if (word == "--") {
    place.BehindDashes = true;
  } else if (IsOption(word)) {
    place.Awaiting = nullptr;
    PassOption(place, word);
  } else if (place.Awaiting) {
    NoteServer(place, place.Awaiting, word);
    place.Awaiting = nullptr;
  } else if (const CLI::App* command = FindCommand(*place.Path.back(), word)) {
    place.Path.push_back(command);
  } else {
    ++place.Given;
  }
}

std::vector<Candidate> Jobs(const Settings& settings, const std::string& server) {
  Settings reach = settings;
  if (!server.empty()) reach.Server = server;
  const Inquiry<std::vector<KnownJob>> inquiry([reach](QorJMClient& client) {
    Connect(client, reach, kPatience);
    client.GiveUpAt(std::chrono::steady_clock::now() + kPatience);
    return FetchAllKnownJobs(client);
  });
  std::vector<Candidate> candidates;
  const auto jobs = inquiry.Await(std::chrono::steady_clock::now() + kPatience);
  for (const KnownJob& job : jobs.value_or(std::vector<KnownJob>())) {
    candidates.push_back(
        {std::to_string(job.Handle), Printable(job.State.AnalysisID) + ", " + StatusText(job.State.Status)});
  }
  candidates.push_back({"last", "the latest that was submitted from here"});
  return candidates;
}

std::vector<Candidate> ValuesOf(const CLI::Option& option, const Settings& settings, const Place& place) {
  const std::string kind = KindOf(option);
  if (kind == kJobValue) return Jobs(settings, place.Server);
  if (kind == kDirectoryValue) return {{":directories", ""}};
  std::vector<Candidate> candidates;
  for (const std::string& choice : ChoicesOf(option)) candidates.push_back({choice, ""});
  // What has no kind, as the words of a job's command, may well be a file.
  const bool mayBeFile = kind == kFileValue || (option.get_positional() && kind == "TEXT" && candidates.empty());
  if (mayBeFile) candidates.push_back({":files", ""});
  return candidates;
}

std::vector<Candidate> OptionsOf(const Place& place) {
  std::vector<Candidate> candidates;
  for (auto app = place.Path.rbegin(); app != place.Path.rend(); ++app) {
    for (const CLI::Option* option : (*app)->get_options()) {
      if (option->get_group().empty()) continue;
      for (const std::string& name : option->get_lnames()) {
        const Candidate candidate{"--" + name, option->get_description()};
        const auto same = [&](const Candidate& known) { return known.Word == candidate.Word; };
        if (std::none_of(candidates.begin(), candidates.end(), same)) candidates.push_back(candidate);
      }
    }
  }
  return candidates;
}

std::vector<Candidate> CommandsOf(const CLI::App& app) {
  std::vector<Candidate> candidates;
  const auto isShown = [](const CLI::App* command) { return !command->get_group().empty(); };
  for (const CLI::App* command : app.get_subcommands(isShown)) {
    candidates.push_back({command->get_name(), command->get_description()});
  }
  return candidates;
}

std::vector<Candidate> NextArgument(const Place& place, const Settings& settings) {
  int before = place.Given;
  for (const CLI::Option* option : place.Path.back()->get_options()) {
    if (!option->get_positional()) continue;
    if (before < option->get_items_expected_max()) return ValuesOf(*option, settings, place);
    before -= option->get_items_expected_max();
  }
  return {};
}

// For "--name=val" the candidates are as long as the word.
std::vector<Candidate> JoinedValues(const Place& place, const std::string& word, const Settings& settings) {
  const std::string name = word.substr(0, word.find('='));
  const CLI::Option* option = FindOption(place, name);
  std::vector<Candidate> candidates;
  if (option) candidates = ValuesOf(*option, settings, place);
  for (Candidate& candidate : candidates) {
    if (candidate.Word.front() != ':') candidate.Word.insert(0, name + '=');
  }
  return candidates;
}

std::vector<Candidate> CandidatesAt(const Place& place, const std::string& word, const Settings& settings) {
  if (place.BehindDashes) return {{":files", ""}};
  if (!word.empty() && word.front() == '-') {
    return word.find('=') == std::string::npos ? OptionsOf(place) : JoinedValues(place, word, settings);
  }
  if (place.Awaiting) return ValuesOf(*place.Awaiting, settings, place);
  const std::vector<Candidate> commands = CommandsOf(*place.Path.back());
  if (commands.empty()) return NextArgument(place, settings);
  return place.Given == 0 ? commands : std::vector<Candidate>();
}

int Complete(const Program& program, const Settings& settings, Words words) {
  if (words.empty()) words.emplace_back();
  const std::string last = words.back();
  words.pop_back();
  Place place{.Path = {&program.Root()}, .Server = ""};
  for (const std::string& word : words) Pass(place, word);
  for (const Candidate& candidate : CandidatesAt(place, last, settings)) {
    const bool isKind = candidate.Word.front() == ':';
    if (isKind) std::cout << candidate.Word << '\n';
    if (!isKind && candidate.Word.starts_with(last))
      std::cout << candidate.Word << '\t' << candidate.Description << '\n';
  }
  return kGood;
}

}  // namespace

void AddComplete(Program& program) {
  const auto words = std::make_shared<Words>();
  CLI::App& command = program.AddCommand(
      {.Name = "complete",
       .Description = "Print what may stand in the place of the last word, for the completion of shells",
       .Examples = {{"complete -- queue st", "commands that begin so"}},
       .Operations = {"ListJobs", "GetJob"}},
      [&program, words](const Settings& settings) { return Complete(program, settings, *words); });
  command.group("");  // for programs
  program.AddTrailingWords(command, *words);
}

}  // namespace tlm::ctl
