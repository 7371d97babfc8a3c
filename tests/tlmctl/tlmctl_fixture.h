// A server, a directory for jobs to run in, and the real client.
#pragma once

#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/eventually.h"
#include "support/sandbox.h"
#include "support/server_process.h"

namespace tlm::test {

class Tlmctl : public testing::Test {
 protected:
  using Words = std::vector<std::string>;

  // In the directory of the jobs.
  Finished Ctl(Words words) const {
    words.insert(words.begin(), {"/usr/bin/env", "-C", disk.Root(), BIN_DIRECTORY "/tlmctl"});
    return RunProgram(
        words, {{"TLM_SERVER", "127.0.0.1:" + std::to_string(server.Port())}, {"XDG_STATE_HOME", disk.Path("state")}});
  }
  std::future<Finished> CtlMeanwhile(const Words& words) const {
    return std::async(std::launch::async, [this, words] { return Ctl(words); });
  }
  testing::AssertionResult EventuallyShows(const std::string& handle, const std::string& text) const {
    return Eventually([&] { return Ctl({"show", handle}).Output.find(text) != std::string::npos; });
  }

  // A program that prints "one", waits until the file "wait" has gone, and prints "two".
  void AddWaiter() const {
    disk.Write("wait", "");
    server.AddProgram("waiter", "echo one; while [ -e " + disk.Path("wait") + " ]; do sleep 0.05; done; echo two");
  }
  void LetWaitersGo() const { std::filesystem::remove(disk.Path("wait")); }

  Sandbox disk;
  ServerProcess server;
};

}  // namespace tlm::test
