// A job's program that has a stop event: it writes its process id to the file named by its second argument, and
// "stopped" to its output once it has been asked to end.
//   stop_event_program obey|ignore <file>
#include <chrono>
#include <fstream>
#include <iostream>
#include <string_view>

#include "platform/host.h"
#include "platform/stop_event.h"
#include "platform/thread.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string id = std::to_string(tlm::platform::ProcessId());
  std::optional<tlm::platform::StopEvent> event = tlm::platform::StopEvent::Create("tlm2010_" + id);
  if (!event) return 3;
  std::ofstream(argv[2]) << id << std::endl;
  while (!event->WaitFor(std::chrono::hours(1))) {
  }
  std::cout << "stopped" << std::endl;
  if (std::string_view(argv[1]) == "obey") return 0;
  while (true) tlm::platform::Sleep(std::chrono::hours(1));
}
