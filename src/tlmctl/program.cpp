#include "tlmctl/program.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "platform/host.h"
#include "rpc/callheader.h"
#include "rpc/orpcerror.h"

namespace tlm::ctl {

namespace {

std::string Footer() {
  std::ostringstream text;
  text << "Exit codes:\n";
  for (const ExitCodeMeaning& meaning : kExitCodes) {
    text << "  " << static_cast<int>(meaning.Code) << "  " << meaning.Text << '\n';
  }
  text << "\n'tlmctl COMMAND --help' tells about one command.";
  return text.str();
}

void AddServerOptions(CLI::App& app, ServerOptions& server) {
  app.add_option("--host", server.Host, "Name or address of the server")->envname("TLMCTL_HOST")->capture_default_str();
  app.add_option("--port", server.Port, "Its port; if not given, the one that a server would take here")
      ->envname("TLMCTL_PORT")
      ->check(CLI::Range(1, 65535));
  app.add_option("--client-host", server.ClientHost, "Name by which the server knows this machine")
      ->capture_default_str();
  app.add_option("--release", server.Release, "Release of the product whose programs jobs run")->capture_default_str();
}

Failure Describe(const OrpcSocketError& error) {
  switch (static_cast<std::uint32_t>(error.Number())) {
    case kProgramUnavailable:
    case kProcedureUnavailable:
    case kSystemError:
      return {ExitCode::Refused, "the server refused the call, status " + std::to_string(error.Number())};
    default:
      return {ExitCode::NoServer, "connection lost: " + std::system_category().message(error.Number())};
  }
}

Failure Describe(int marshalling) {
  return {ExitCode::NoServer, marshalling == kReplyLost ? "connection lost: the server went away before it answered"
                                                        : "the server sent an answer that cannot be read"};
}

ExitCode Report(const Failure& failure) {
  std::cout.flush();
  std::cerr << "tlmctl: " << failure.Text << std::endl;
  return failure.Code;
}

}  // namespace

Program::Program() : app_("Sends jobs to a job manager and looks after them.", "tlmctl") {
  server_.ClientHost = platform::HostName();
  AddServerOptions(app_, server_);
  app_.require_subcommand(1);
  app_.footer(Footer());
}

CLI::App& Program::AddCommand(const std::string& name, const std::string& description, Action action) {
  CLI::App& command = *app_.add_subcommand(name, description);
  command.fallthrough();  // the server's options are understood behind the sub-command, too
  command.callback([this, run = std::move(action)] { chosen_ = run; });
  return command;
}

void Program::AddTrailingWords(const CLI::App& command, std::vector<std::string>& words) {
  trailingWords_.emplace(&command, &words);
}

void Program::PassTrailingWords(char** first, char** end) {
  if (first == end) return;
  const auto taker = trailingWords_.find(app_.get_subcommands().front());
  if (taker == trailingWords_.end()) throw Failure{ExitCode::Usage, std::string("not expected behind --: ") + *first};
  taker->second->insert(taker->second->end(), first, end);
}

bool Program::ReadCommandLine(int argc, char** argv, ExitCode& code) {
  try {
    // The parser would take words in brackets for lists.
    char** const end = argv + argc;
    char** const dashes = std::find(argv, end, std::string_view("--"));
    app_.parse(static_cast<int>(dashes - argv), argv);
    PassTrailingWords(dashes == end ? end : dashes + 1, end);
    return true;
  } catch (const CLI::Success& help) {
    app_.exit(help);
    code = ExitCode::Good;
  } catch (const CLI::ParseError& error) {
    code = Report({ExitCode::Usage, std::string(error.what()) + "\ntlmctl: --help tells what is possible"});
  }
  return false;
}

int Program::Run(int argc, char** argv) {
  ExitCode code = ExitCode::Good;
  try {
    if (ReadCommandLine(argc, argv, code)) code = chosen_(server_);
  } catch (const Failure& failure) {
    code = Report(failure);
  } catch (const OrpcSocketError& error) {
    code = Report(Describe(error));
  } catch (int marshalling) {
    code = Report(Describe(marshalling));
  }
  std::cout.flush();
  return static_cast<int>(code);
}

}  // namespace tlm::ctl
