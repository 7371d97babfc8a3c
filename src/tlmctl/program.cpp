#include "tlmctl/program.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iostream>
#include <memory>
#include <sstream>
#include <system_error>

#include "platform/host.h"
#include "platform/terminal.h"
#include "rpc/callheader.h"
#include "rpc/orpcerror.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/help_format.h"
#include "tlmctl/time_values.h"

namespace tlm::ctl {

namespace {

std::string RootFooter() {
  std::ostringstream text;
  text << "Exit codes:\n";
  for (const ExitCodeMeaning& meaning : kExitCodes) {
    text << "  " << static_cast<int>(meaning.Code) << '\t' << meaning.Text << '\n';
  }
  text << "  1-255\t" << kProgramsExitCode << '\n' << "\n'tlmctl COMMAND --help' tells about one command.";
  return text.str();
}

std::string FooterOf(const CommandInfo& info) {
  std::string text = info.Details;
  if (!text.empty()) text += "\n\n";
  std::size_t width = 0;
  for (const Example& example : info.Examples) width = std::max(width, example.Line.size());
  text += "Examples:";
  for (const auto& [line, meaning] : info.Examples) {
    text.append("\n  tlmctl ").append(line).append(width + 2 - line.size(), ' ').append(meaning);
  }
  text += "\n\n'tlmctl --help' tells about the options that all commands take, such as --server and --json.";
  return text;
}

// What leads to it on the command line, with a blank behind each word.
std::string WordsOf(const CLI::App& app) {
  return app.get_parent() == nullptr ? "" : WordsOf(*app.get_parent()) + app.get_name() + ' ';
}

void AddCommonOptions(CLI::App& app, Settings& settings) {
  app.add_option("--server", settings.Server, "Name or address of the server, and its port if it is not the usual one")
      ->envname("TLM_SERVER")
      ->type_name("HOST[:PORT]");
  app.add_option_function<std::string>(
         "--wait-server", [&settings](const std::string& text) { settings.WaitServer = DurationOf(text); },
         "Try for so long to reach the server: 90, 15m")
      ->type_name(kDurationValue);
  app.add_option("--client-host", settings.ClientHost, "Name by which the server knows this machine")
      ->type_name("NAME")
      ->capture_default_str();
  app.add_option("--release", settings.Release, "Release of the product whose programs jobs run")
      ->type_name("NAME")
      ->capture_default_str();
  app.add_flag("--json", settings.Json, "Print what programs can read, a document a line");
  app.add_flag("-q,--quiet", settings.Quiet, "Print no more than is asked for: of a new job its handle");
  app.add_flag("-y,--yes", settings.Yes, "Ask nothing, and do it");
}

constexpr char kLookCloser[] = "is a job manager listening at that port? 'tlmctl doctor' looks closer";

// A reader that has seen enough is none of our business.
void CheckOutput() {
  errno = 0;
  std::cout.flush();
  if (std::cout || platform::HasLostItsReader(platform::StandardStream::Output)) return;
  if (errno == 0) {  // it has failed before: once more, for its number
    std::cout.clear();
    std::cout << std::endl;
  }
  const std::string reason = errno == 0 ? "" : ": " + std::system_category().message(errno);
  throw Failure{kRefused, "standard output cannot be written" + reason};
}

}  // namespace

Failure Describe(const OrpcSocketError& error) {
  const std::string status = ", status " + std::to_string(error.Number());
  if (!IsRefusal(error)) {
    return {kLost, "connection lost: " + std::system_category().message(error.Number()), kLookCloser};
  }
  if (error.Number() == static_cast<std::int32_t>(kSystemError)) {
    return {kRefused, "the server could not do it" + status, "its trace tells more (JMTrace.on in its temporary root)"};
  }
  return {kRefused, "the server refused the call" + status, "something other than a job manager seems to listen there"};
}

Failure Describe(int marshalling) {
  return {kLost,
          marshalling == kReplyLost ? "connection lost: the server went away before it answered"
                                    : "the server sent an answer that cannot be read",
          kLookCloser};
}

void AddJobArgument(CLI::App& command, std::string& job) {
  command.add_option("JOB", job, "Handle, @ID or last")->required()->type_name(kJobValue);
}

void AddJobArgument(CLI::App& command, std::vector<std::string>& jobs) {
  command.add_option("JOB", jobs, "Handles, @ID or last")->required()->type_name(kJobValue);
}

Program::Program() : app_("Sends jobs to a job manager and looks after them.", "tlmctl") {
  settings_.ClientHost = platform::HostName();
  app_.formatter(std::make_shared<HelpFormat>());  // of the sub-commands, too
  AddCommonOptions(app_, settings_);
  app_.require_subcommand(1);
  app_.footer(RootFooter());
}

void Program::AddGroup(const std::string& name, const std::string& description) {
  CLI::App& group = *app_.add_subcommand(name, description);
  group.fallthrough();
  group.require_subcommand(1);
  group.footer("'tlmctl " + name + " COMMAND --help' tells about one command.");
}

CLI::App& Program::AddCommand(CommandInfo info, Action action) {
  const std::size_t blank = info.Name.find(' ');
  CLI::App& parent = blank == std::string::npos ? app_ : *app_.get_subcommand(info.Name.substr(0, blank));
  CLI::App& command = *parent.add_subcommand(info.Name.substr(blank + 1), info.Description);
  command.fallthrough();  // the common options are understood behind the sub-command, too
  command.callback([this, run = std::move(action)] { chosen_ = run; });
  command.footer(FooterOf(info));
  commands_.push_back(std::move(info));
  return command;
}

const CLI::App& Program::AppOf(const CommandInfo& info) const {
  const std::size_t blank = info.Name.find(' ');
  const CLI::App& parent = blank == std::string::npos ? app_ : *app_.get_subcommand(info.Name.substr(0, blank));
  return *parent.get_subcommand(info.Name.substr(blank + 1));
}

void Program::AddTrailingWords(const CLI::App& command, std::vector<std::string>& words) {
  trailingWords_.emplace(&command, &words);
}

CLI::App* Program::Chosen() {
  CLI::App* app = &app_;
  while (!app->get_subcommands().empty()) app = app->get_subcommands().front();
  return app;
}

void Program::Read(std::vector<std::string> words) {
  // The parser would take words in brackets for lists.
  const auto dashes = std::find(words.begin(), words.end(), "--");
  const std::vector<std::string> behind(dashes == words.end() ? dashes : dashes + 1, words.end());
  words.erase(dashes, words.end());
  std::reverse(words.begin(), words.end());  // as the parser takes them
  app_.parse(std::move(words));
  if (behind.empty()) return;
  const auto taker = trailingWords_.find(Chosen());
  if (taker == trailingWords_.end()) throw Failure{kUsage, "not expected behind --: " + behind.front()};
  taker->second->insert(taker->second->end(), behind.begin(), behind.end());
}

Failure Program::DescribeUsage(const CLI::ParseError& error) {
  const CLI::App& app = *Chosen();
  const std::string help = "'tlmctl " + WordsOf(app) + "--help' ";
  const bool isGroup = !app.get_subcommands([](const CLI::App*) { return true; }).empty();
  if (!isGroup) return {kUsage, error.what(), help + "tells what is possible"};
  const std::vector<std::string> left = app_.remaining(true);
  if (left.empty()) return {kUsage, "a command is missing", help + "lists them"};
  return {kUsage, "no such command: " + WordsOf(app) + left.front(), help + "lists them"};
}

int Program::RunGuarded(const std::vector<std::string>& words) {
  try {
    Read(words);
    settings_.CommandLine = words;
    const Action action = chosen_;  // it may run another line, and so replace the member
    return action(settings_);
  } catch (const CLI::Success& help) {
    return app_.exit(help);
  } catch (const CLI::ParseError& error) {
    throw DescribeUsage(error);
  } catch (const OrpcSocketError& error) {
    throw Describe(error);
  } catch (int marshalling) {
    throw Describe(marshalling);
  } catch (const std::exception& error) {  // a path that is none, no memory
    throw Failure{kRefused, error.what()};
  }
}

int Program::Run(const std::vector<std::string>& words) {
  // So that what is wrong with the line can be told as its caller wants it.
  const auto dashes = std::find(words.begin(), words.end(), "--");
  settings_.Json = settings_.Json || std::find(words.begin(), dashes, "--json") != dashes;
  int code = kGood;
  try {
    code = RunGuarded(words);
    if (code == kGood) CheckOutput();
  } catch (const Failure& failure) {
    PrintFailure(settings_, failure);
    code = failure.Code;
  }
  std::cout.flush();
  return code;
}

}  // namespace tlm::ctl
