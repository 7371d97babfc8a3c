// What machine this is, in words for a person.
#pragma once

#include <cstdint>
#include <string>

namespace tlm::platform {

// What cannot be found is empty, or 0.
struct MachineDescription {
  std::string System;     // name and release
  std::string Processor;  // maker, model, clock rate
  unsigned Processors = 0;
  std::uint64_t MemoryKilobytes = 0;
  std::string Graphics;  // adapter and driver; of several adapters the last
};

// `root` stands in front of the path of every file that is looked at.
MachineDescription DescribeMachine(const std::string& root = "");

}  // namespace tlm::platform
