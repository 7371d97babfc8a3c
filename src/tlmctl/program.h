// The frame in which every sub-command stands.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tlmctl/connection.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

class Program {
 public:
  // May throw Failure, and what the calls of a QorJMClient throw.
  using Action = std::function<ExitCode(const ServerOptions& server)>;

  Program();

  // Adds a sub-command, to which the caller adds its options. Of all actions the one that the command line names runs,
  // once the line has been read.
  CLI::App& AddCommand(const std::string& name, const std::string& description, Action action);

  // Of this sub-command the line may go on behind "--"; what stands there is appended to the words as it is.
  void AddTrailingWords(const CLI::App& command, std::vector<std::string>& words);

  // Reads the command line and runs what it names. What goes wrong is told on standard error. Gives the exit code.
  int Run(int argc, char** argv);

 private:
  bool ReadCommandLine(int argc, char** argv, ExitCode& code);
  void PassTrailingWords(char** first, char** end);

  CLI::App app_;
  ServerOptions server_;
  Action chosen_;
  std::map<const CLI::App*, std::vector<std::string>*> trailingWords_;
};

}  // namespace tlm::ctl
