// A server, a directory for jobs to run in, and the real client.
#pragma once

#include <future>

#include "support/job_client.h"
#include "support/proxy.h"

namespace tlm::test {
// What tells the client of its server, and where it keeps its own files.
inline Environment ClientSettings(const ServerProcess& server, const Sandbox& disk, Environment more = {}) {
  more.insert({{"TLM_SERVER", server.Address()}, {"XDG_STATE_HOME", disk.Path("state")}});
  return more;
}

// In the directory of the jobs.
inline ProgramEnd RunTlmctl(const ServerProcess& server, const Sandbox& disk, const Words& words,
                            const Environment& more = {}) {
  return RunProgram(Words{"/usr/bin/env", "-C", disk.Root(), BIN_DIRECTORY "/tlmctl"} + words,
                    ClientSettings(server, disk, more));
}

struct Tlmctl : testing::Test {
  ProgramEnd Ctl(const Words& words) const { return RunTlmctl(server, disk, words); }
  std::future<ProgramEnd> CtlMeanwhile(const Words& words) const {
    return std::async(std::launch::async, [this, words] { return Ctl(words); });
  }
  static Words Through(const Proxy& proxy, const Words& words) {
    return Words{"--server", LocalAddress(proxy.Port())} + words;
  }
  testing::AssertionResult EventuallyKeeps(const std::string& text) const {
    return Eventually([&] { return disk.Read("state/tlmctl/ledger.jsonl").find(text) != std::string::npos; });
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
