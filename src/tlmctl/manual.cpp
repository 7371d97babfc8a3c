#include <algorithm>
#include <iostream>

#include "tlmctl/commands.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/option_values.h"

namespace tlm::ctl {

namespace {

// In the language of scdoc: *bold*, _underlined_, a tab in front of what belongs to the line above.

constexpr char kDescription[] = R"(# DESCRIPTION

*tlmctl* is the client of *tlmjm*(8) for the command line. A job is known by its handle, a number that *submit* prints. The
handles of a server begin again at 4 when it is restarted; its jobs are gone then.

Wherever a job is named, _JOB_ is its handle, or *last* for the latest that this user has submitted to this server from here,
or *@* and the first digits of the id that *history* shows. _FILE_ is a file here. _DURATION_ is a number of seconds, or one
with *m*, *h* or *d* behind it for minutes, hours or days.

Data go to standard output, everything else to standard error. With *--json* each document is a line with the field *schema*,
which grows when a field changes its meaning or goes; failures and notes are documents on standard error.

Called by a name or path with the word *ksbjm* or *vrkjm* in it, *tlmctl* takes port, settings and release of that product.

)";

constexpr char kEnvironment[] = R"(*TSQOR\_JMPORT*
	Port of a server that is given without one: the environment's, or that of the registry files, else 20317. For other
	products *KSB\_JMPORT* and 20615, *VRK\_JMPORT* and 20700. *TSQOR\_JMPORT\_HOST* is that of a peer
	by the name HOST.

*TSQOR\_JOB\_LOG*
	The job log of the server of this machine, for *history --server-log*; looked for where the port is.

*TSQOR\_NO\_RESULT\_RECOVERY*
	Set to anything, it is not checked whether all results have come.

*XDG\_STATE\_HOME*
	Where the ledger of what was submitted from here is kept, as _tlmctl/ledger.jsonl_; _~/.local/state_ if not set.

*NO\_COLOR*, *TERM*
	Set to anything and to *dumb*: no colours.

*ORPC\_TRACE*, *ORPC\_TRACE\_FILE*
	Trace of the network, see *tlmjm*(8).

)";

struct ServerOperation {
  int Number;
  const char* Name;
};

constexpr ServerOperation kOperations[] = {
#define OPERATION(number, name, result, parameters, arguments) {number, #name},
#define ONE_WAY(number, name, parameters, arguments) {number, #name},
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY
};

std::string Plain(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '*' || c == '_' || c == '\\' || c == '~') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string Bold(const std::string& text) { return '*' + Plain(text) + '*'; }
std::string Underlined(const std::string& text) { return '_' + Plain(text) + '_'; }

std::string Joined(const std::vector<std::string>& texts, const std::string& between) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : between) + text;
  return joined;
}

bool IsShown(const CLI::Option* option) { return !option->get_group().empty() && !option->check_name("--help"); }

std::string ValueText(const CLI::Option& option) {
  std::vector<std::string> choices = ChoicesOf(option);
  std::transform(choices.begin(), choices.end(), choices.begin(), Bold);
  return choices.empty() ? Underlined(KindOf(option)) : Joined(choices, "|");
}

std::string ArgumentText(const CLI::Option& argument) {
  const std::string more = argument.get_items_expected_max() > 1 ? "..." : "";
  const std::string text = Underlined(argument.get_name(true)) + more;
  return argument.get_required() ? text : "[" + text + "]";
}

std::string OptionText(const CLI::Option& option) {
  if (option.get_positional()) {
    return Underlined(option.get_name(true)) + (ChoicesOf(option).empty() ? "" : ": " + ValueText(option));
  }
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back(Bold('-' + name));
  for (const std::string& name : option.get_lnames()) names.push_back(Bold("--" + name));
  std::string text = Joined(names, ", ");
  if (option.get_items_expected_max() == 0) return text;
  return text + ' ' + (option.get_items_expected_min() == 0 ? "[" + ValueText(option) + "]" : ValueText(option));
}

void PrintOptions(std::ostream& out, const CLI::App& app) {
  for (const CLI::Option* option : app.get_options(IsShown)) {
    out << OptionText(*option) << "\n\t" << Plain(option->get_description()) << ".";
    if (!option->get_envname().empty())
      out << " If not given, " << Bold(option->get_envname()) << " of the environment.";
    out << "\n\n";
  }
}

std::string UsageOf(const CommandInfo& info, const CLI::App& app) {
  std::string usage = Bold("tlmctl " + info.Name);
  const auto isOption = [](const CLI::Option* option) { return IsShown(option) && !option->get_positional(); };
  if (!app.get_options(isOption).empty()) usage += " [_options_]";
  for (const CLI::Option* option : app.get_options(IsShown)) {
    if (option->get_positional()) usage += ' ' + ArgumentText(*option);
  }
  return usage;
}

void PrintCommand(std::ostream& out, const CommandInfo& info, const CLI::App& app) {
  out << "## " << info.Name << "\n\n" << UsageOf(info, app) << "\n\n" << Plain(info.Description) << ".\n\n";
  if (!info.Details.empty()) out << Plain(info.Details) << "\n\n";
  PrintOptions(out, app);
  for (const Example& example : info.Examples) {
    out << "$ " << Bold("tlmctl " + example.Line) << "\n\t" << Plain(example.Meaning) << "\n\n";
  }
  if (!info.Operations.empty()) out << "Operations of the server: " << Joined(info.Operations, ", ") << ".\n\n";
}

void PrintExitCodes(std::ostream& out) {
  out << "# EXIT STATUS\n\nIn brackets what stands for it in documents.\n\n";
  for (const ExitCodeMeaning& meaning : kExitCodes) {
    out << '*' << static_cast<int>(meaning.Code) << "*\n\t" << Plain(meaning.Text) << " (*" << meaning.Name << "*)\n\n";
  }
  out << "*1* to *255*\n\t" << Plain(kProgramsExitCode) << "\n\n";
}

void PrintEnvironment(std::ostream& out, const CLI::App& root) {
  out << "# ENVIRONMENT\n\n";
  for (const CLI::Option* option : root.get_options()) {
    if (option->get_envname().empty()) continue;
    out << Bold(option->get_envname()) << "\n\tTakes the place of " << Bold(option->get_name())
        << " where that is not given.\n\n";
  }
  out << kEnvironment;
}

// Of an operation that no command uses.
std::string OtherUse(const std::string& operation) {
  return operation.starts_with("Reserved") ? "reserved" : "programs that stay connected to the server";
}

// Which command a person takes for what a program does by a call.
void PrintOperations(std::ostream& out, const std::vector<CommandInfo>& commands) {
  out << "# OPERATIONS OF THE SERVER\n\n|] *Number*\n:[ *Operation*\n:[ *Who uses it*\n";
  std::vector<ServerOperation> operations(std::begin(kOperations), std::end(kOperations));
  std::sort(operations.begin(), operations.end(), [](const auto& a, const auto& b) { return a.Number < b.Number; });
  for (const ServerOperation& operation : operations) {
    std::vector<std::string> users;
    for (const CommandInfo& info : commands) {
      const bool uses =
          std::find(info.Operations.begin(), info.Operations.end(), operation.Name) != info.Operations.end();
      if (uses) users.push_back(Bold(info.Name));
    }
    out << "|] " << operation.Number << "\n:[ " << operation.Name << "\n:[ "
        << (users.empty() ? OtherUse(operation.Name) : Joined(users, ", ")) << '\n';
  }
  out << '\n';
}

int PrintManual(const Program& program) {
  std::vector<CommandInfo> commands = program.Commands();
  std::erase_if(commands, [&](const CommandInfo& info) { return program.AppOf(info).get_group().empty(); });
  std::ostream& out = std::cout;
  out << "tlmctl(1)\n\n# NAME\n\ntlmctl - sends jobs to a job manager and looks after them\n\n# SYNOPSIS\n\n";
  std::vector<std::string> usages;
  usages.reserve(commands.size());
  for (const CommandInfo& info : commands) usages.push_back(UsageOf(info, program.AppOf(info)));
  out << Joined(usages, "++\n") << "\n\n" << kDescription;
  out << "# OPTIONS OF ALL COMMANDS\n\nThey may stand in front of the command or behind it. *-h* or *--help* prints "
         "help.\n\n";
  PrintOptions(out, program.Root());
  out << "# COMMANDS\n\n";
  for (const CommandInfo& info : commands) PrintCommand(out, info, program.AppOf(info));
  PrintExitCodes(out);
  PrintEnvironment(out, program.Root());
  PrintOperations(out, commands);
  out << "# SEE ALSO\n\n*tlmjm*(8), _/usr/share/doc/tlmjm/administration.md_\n";
  return kGood;
}

}  // namespace

void AddManual(Program& program) {
  program
      .AddCommand({.Name = "manual",
                   .Description = "Print the source of the manual page, for scdoc",
                   .Examples = {{"manual | scdoc | man -l -", "shows it"}},
                   .Operations = {}},
                  [&program](const Settings&) { return PrintManual(program); })
      .group("");  // for the package
}

}  // namespace tlm::ctl
