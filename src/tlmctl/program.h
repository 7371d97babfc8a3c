// The frame in which every sub-command stands, and the one table of them: help, completion and manual are made from it.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "rpc/orpcerror.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/settings.h"

namespace tlm::ctl {

// Names of kinds of values, by which completion knows what may stand there.
inline constexpr char kJobValue[] = "JOB";
inline constexpr char kFileValue[] = "FILE";
inline constexpr char kDirectoryValue[] = "DIR";

struct Example {
  std::string Line;  // behind "tlmctl "
  std::string Meaning;
};

struct CommandInfo {
  std::string Name;         // of a command in a group: "queue start"
  std::string Description;  // one line, without a full stop
  std::vector<Example> Examples;
  std::vector<std::string> Operations;  // of the server, which it uses
  std::string Details = {};             // further paragraphs, each a line
};

// The argument JOB, to be read by HandleOf or FindJob: one that has to be there, or one or more.
void AddJobArgument(CLI::App& command, std::string& job);
void AddJobArgument(CLI::App& command, std::vector<std::string>& jobs);

// What a call of a QorJMClient has thrown, in words.
Failure Describe(const OrpcSocketError& error);
Failure Describe(int marshalling);

class Program {
 public:
  // May throw Failure, and what the calls of a QorJMClient throw. Gives the exit code.
  using Action = std::function<int(const Settings& settings)>;

  Program();

  // A name in front of which sub-commands stand, as in "queue".
  void AddGroup(const std::string& name, const std::string& description);
  // Adds a sub-command, to which the caller adds its options. Of all actions the one that the command line names runs,
  // once the line has been read.
  CLI::App& AddCommand(CommandInfo info, Action action);
  // Of this sub-command the line may go on behind "--"; what stands there is appended to the words as it is.
  void AddTrailingWords(const CLI::App& command, std::vector<std::string>& words);

  // Reads the words of a command line, without the program's own name, and runs what they name. What goes wrong is told
  // on standard error. Gives the exit code.
  int Run(const std::vector<std::string>& words);

  // For those who write about the commands.
  const CLI::App& Root() const { return app_; }
  const std::vector<CommandInfo>& Commands() const { return commands_; }
  const CLI::App& AppOf(const CommandInfo& info) const;

 private:
  CLI::App* Chosen();
  void Read(std::vector<std::string> words);
  Failure DescribeUsage(const CLI::ParseError& error);
  int RunGuarded(const std::vector<std::string>& words);

  CLI::App app_;
  Settings settings_;
  Action chosen_;
  std::vector<CommandInfo> commands_;
  std::map<const CLI::App*, std::vector<std::string>*> trailingWords_;
};

}  // namespace tlm::ctl
