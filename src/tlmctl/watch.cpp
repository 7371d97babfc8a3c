#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/follow.h"

namespace tlm::ctl {

void AddWatch(Program& program) {
  const auto handle = std::make_shared<std::uint64_t>();
  CLI::App& command = program.AddCommand("watch", "Follow a job to its end; its success is the exit code",
                                         [handle](const auto& server) {
                                           QorJMClient client;
                                           Connect(client, server);
                                           SayHello(client, server);
                                           return FollowJob(client, *handle);
                                         });
  command.add_option("HANDLE", *handle, "What submit printed")->required();
}

}  // namespace tlm::ctl
