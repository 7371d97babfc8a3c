#include "tlmctl/program.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <system_error>

#include "platform/host.h"
#include "rpc/callheader.h"
#include "rpc/orpcerror.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/new_job.h"

namespace tlm::ctl {

namespace {

std::string RootFooter() {
  std::ostringstream text;
  text << "Exit codes:\n";
  for (const ExitCodeMeaning& meaning : kExitCodes) {
    text << "  " << static_cast<int>(meaning.Code) << '\t' << meaning.Text << '\n';
  }
  text << "  1-255\tof the job's program, from run, wait and submit --watch\n"
       << "\n'tlmctl COMMAND --help' tells about one command.";
  return text.str();
}

std::string FooterOf(const CommandInfo& info) {
  std::string text = info.Details;
  if (!text.empty()) text += "\n\n";
  std::size_t width = 0;
  for (const Example& example : info.Examples) width = std::max(width, example.Line.size());
  text += "Examples:";
  for (const auto& [line, meaning] : info.Examples) {
    text += "\n  tlmctl " + line + std::string(width + 2 - line.size(), ' ') + meaning;
  }
  return text;
}

void AddCommonOptions(CLI::App& app, Settings& settings) {
  app.add_option("--server", settings.Server, "Name or address of the server, and its port if it is not the usual one")
      ->envname("TLM_SERVER")
      ->type_name("HOST[:PORT]");
  app.add_option("--wait-server", settings.WaitServer, "Try for so long to reach the server")
      ->type_name("SECONDS")
      ->check(CLI::NonNegativeNumber);
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

Failure Describe(const OrpcSocketError& error) {
  switch (static_cast<std::uint32_t>(error.Number())) {
    case kProgramUnavailable:
    case kProcedureUnavailable:
      return {kRefused, "the server refused the call, status " + std::to_string(error.Number()),
              "something other than a job manager seems to listen there"};
    case kSystemError:
      return {kRefused, "the server could not do it, status " + std::to_string(error.Number()),
              "its trace tells more (JMTrace.on in its temporary root)"};
    default:
      return {kLost, "connection lost: " + std::system_category().message(error.Number())};
  }
}

Failure Describe(int marshalling) {
  return {kLost, marshalling == kReplyLost ? "connection lost: the server went away before it answered"
                                           : "the server sent an answer that cannot be read"};
}

}  // namespace

Program::Program() : app_("Sends jobs to a job manager and looks after them.", "tlmctl") {
  settings_.ClientHost = platform::HostName();
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

int Program::RunGuarded(const std::vector<std::string>& words) {
  try {
    Read(words);
    SetCommandLine(words);
    return chosen_(settings_);
  } catch (const CLI::Success& help) {
    return app_.exit(help);
  } catch (const CLI::ParseError& error) {
    throw Failure{kUsage, error.what(), "--help tells what is possible"};
  } catch (const OrpcSocketError& error) {
    throw Describe(error);
  } catch (int marshalling) {
    throw Describe(marshalling);
  }
}

int Program::Run(const std::vector<std::string>& words) {
  int code = kGood;
  try {
    code = RunGuarded(words);
  } catch (const Failure& failure) {
    PrintFailure(settings_, failure);
    code = failure.Code;
  }
  std::cout.flush();
  return code;
}

}  // namespace tlm::ctl
