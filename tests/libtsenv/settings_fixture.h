// A process without settings: hives of its own in a fresh directory, and variables that are put back at the end.
#pragma once

#include <gtest/gtest.h>
#include <map>
#include <string>

#include "platform/environment.h"
#include "platform/host.h"
#include "support/sandbox.h"

namespace tlm {
class SettingsTest : public ::testing::Test {
 public:
  SettingsTest() {
    for (const std::string& entry : platform::EnvironmentEntries()) {
      const std::string name = entry.substr(0, entry.find('='));
      if (name.starts_with("TS") || name.starts_with("HOME")) Set(name, "");
    }
    Set("TS_MACHINE_REGISTRY", Disk / "machine.ini");
    Set("TS_USER_REGISTRY", Disk / "user.ini");
  }
  ~SettingsTest() override {
    for (const auto& [name, value] : former_) platform::SetVariable(name, value);
  }

  void Set(const std::string& name, const std::string& value) {
    former_.emplace(name, platform::GetVariable(name).value_or(""));
    platform::SetVariable(name, value);
  }
  void WriteUserHive(const std::string& text) const { Disk.Write("user.ini", text); }
  void WriteMachineHive(const std::string& text) const { Disk.Write("machine.ini", text); }

  test::Sandbox Disk;

 private:
  std::map<std::string, std::string> former_;
};
}  // namespace tlm
