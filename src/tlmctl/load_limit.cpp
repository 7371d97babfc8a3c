#include <iostream>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/option_values.h"

namespace tlm::ctl {

namespace {

int LoadLimit(const Settings& settings, std::uint32_t limit) {
  QorJMClient client;
  Connect(client, settings);
  if (limit != 0) client.SetLocalLimit(limit);
  const std::uint32_t now = client.GetLocalLimit();
  if (limit != 0 && now != limit) throw RefusedChange();
  const std::uint32_t load = client.GetJobCount();
  if (settings.Json) {
    PrintJson({{"load_limit", now}, {"load", load}});
  } else if (settings.Quiet) {
    std::cout << now << '\n';
  } else {
    std::cout << now << ", and the load is " << load << '\n';
  }
  return kGood;
}

}  // namespace

void AddLoadLimit(Program& program) {
  const auto limit = std::make_shared<std::uint32_t>(0);
  CLI::App& command = program.AddCommand(
      {.Name = "load-limit",
       .Description = "Show or set how many jobs are enough for this server",
       .Examples = {{"load-limit", "shows it, and the load"},
                    {"load-limit 8", "sets it, until the server is restarted"}},
       .Operations = {"SetLocalLimit", "GetLocalLimit", "GetJobCount"},
       .Details =
           "From this load on the server gives distributed jobs to its peers, and takes none from them. The load\n"
           "is the number of jobs that run or could start at once."},
      [limit](const Settings& settings) { return LoadLimit(settings, *limit); });
  AddCount(command, "N", *limit, "The limit");
}

}  // namespace tlm::ctl
