#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"

namespace tlm::ctl {

namespace {

EnvList Parse(const std::vector<std::string>& words) {
  EnvList variables;
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    if (equals == 0 || equals == std::string::npos) {
      throw Failure{kUsage, '"' + word + "\" sets nothing", "it is NAME=VALUE, or NAME= to remove a variable"};
    }
    variables.emplace_back(word.substr(0, equals), word.substr(equals + 1));
  }
  return variables;
}

int Set(const Settings& settings, const std::vector<std::string>& words) {
  const EnvList variables = Parse(words);
  QorJMClient client;
  Connect(client, settings);
  client.SetEnvironment(variables);
  AwaitArrival(client);
  Json set = Json::array();
  Json removed = Json::array();
  for (const auto& [name, value] : variables) (value.empty() ? removed : set).push_back(name);
  if (settings.Json) PrintJson({{"set", set}, {"removed", removed}});
  return kGood;
}

}  // namespace

void AddEnv(Program& program) {
  const auto words = std::make_shared<std::vector<std::string>>();
  program.AddGroup("env", "Change the environment of jobs");
  CLI::App& command = program.AddCommand(
      {.Name = "env set",
       .Description = "Set and remove variables in the environment of all jobs that start from now on",
       .Examples = {{"env set LICENCE_FILE=1700@alpha", "until the server is restarted"},
                    {"env set OMP_NUM_THREADS=4 DEBUG=", "sets one and removes another"}},
       .Operations = {"SetEnvironment", "GetJobCount"},
       .Details =
           "They are the server's own variables: they hold for the jobs of all clients, and for settings that the\n"
           "server reads later. The server does not tell their values."},
      [words](const Settings& settings) { return Set(settings, *words); });
  command.add_option("NAME=VALUE", *words, "Variables; without a value they are removed")
      ->type_name("NAME=VALUE")
      ->required();
}

}  // namespace tlm::ctl
