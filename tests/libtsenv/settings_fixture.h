// A process without settings: hives of its own in a fresh directory, and variables that are put back at the end.
#pragma once

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string>

#include "platform/environment.h"
#include "platform/host.h"

namespace tlm {

class SettingsTest : public ::testing::Test {
 public:
  SettingsTest() {
    Folder = std::filesystem::path(testing::TempDir()) / ("settings" + std::to_string(platform::ProcessId()));
    std::filesystem::create_directories(Folder);
    for (const std::string& entry : platform::EnvironmentEntries()) {
      const std::string name = entry.substr(0, entry.find('='));
      if (name.starts_with("TS") || name.starts_with("HOME")) Set(name, "");
    }
    Set("TS_MACHINE_REGISTRY", Folder / "machine.ini");
    Set("TS_USER_REGISTRY", Folder / "user.ini");
  }

  ~SettingsTest() override {
    for (const auto& [name, value] : former_) platform::SetVariable(name, value);
    std::filesystem::remove_all(Folder);
  }

  void Set(const std::string& name, const std::string& value) {
    former_.emplace(name, platform::GetVariable(name).value_or(""));
    platform::SetVariable(name, value);
  }

  std::string Write(const std::string& file, const std::string& text) const {
    const std::filesystem::path path = Folder / file;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  void WriteUserHive(const std::string& text) const { Write("user.ini", text); }
  void WriteMachineHive(const std::string& text) const { Write("machine.ini", text); }

  std::filesystem::path Folder;

 private:
  std::map<std::string, std::string> former_;
};

}  // namespace tlm
