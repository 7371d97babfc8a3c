// Who gets a lock, who is told what about its holder, and what lies on disk meanwhile.
#include "util/mlockfile.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/host.h"
#include "support/eventually.h"
#include "support/sandbox.h"

namespace tlm {
namespace {
struct LockOnAPath : ::testing::Test {
  bool BothFilesAreThere() const { return disk.Has("data.lck") && disk.Has("data.lci"); }
  bool NothingIsLeft() const { return std::filesystem::is_empty(disk.Root()); }

  test::Sandbox disk;
  const std::string path = disk / "data";
  MLockFile first, second;
};

TEST_F(LockOnAPath, StandsInTwoCompanionsUntilItIsGivenUp) {
  ASSERT_TRUE(first.Lock(disk / "former", false) && first.Lock(path, false));
  EXPECT_TRUE(BothFilesAreThere());
  first.Unlock();
  EXPECT_TRUE(NothingIsLeft());
  EXPECT_TRUE(MLockFile().Lock(path, false));
  EXPECT_TRUE(NothingIsLeft()) << "goes by scope";

  ASSERT_TRUE(first.Lock(path, false));
  std::filesystem::remove(disk / "data.lck");
  ASSERT_TRUE(second.Lock(path, false));
  first.Unlock();
  EXPECT_TRUE(disk.Has("data.lck")) << "what took the place of its own is left alone";
  EXPECT_FALSE(MLockFile().Lock(path, false));
}

TEST_F(LockOnAPath, ShowsItsHolderToWhoeverIsRefused) {
  ASSERT_TRUE(first.Lock(path, false));
  EXPECT_FALSE(second.Lock(path, false));
  EXPECT_LE(std::abs(second.HolderTime() - std::time(nullptr)), 60);
  EXPECT_EQ(second.HolderHost() + second.HolderUser(), platform::HostName() + platform::UserName());
  second.Unlock();
  EXPECT_TRUE(BothFilesAreThere());

  const std::pair<std::string, std::string> infos[] = {
      {"-5\r\nhost\r\nuser", "-5,host,user"},
      {"4294967297\nnew", "1,new,user"},  // a missing line leaves its field alone
      {"8\n" + std::string(300, 'h') + "\nuser\n", "8," + std::string(254, 'h') + "," + std::string(46, 'h')}};
  for (const auto& [info, shown] : infos) {
    disk.Write("data.lci", info);
    EXPECT_FALSE(second.Lock(path, false));
    EXPECT_EQ(std::to_string(second.HolderTime()) + "," + second.HolderHost() + "," + second.HolderUser(), shown);
  }
}

TEST_F(LockOnAPath, EndsWithAKilledHolder) {
  const pid_t holder = fork();
  if (holder == 0) {
    if (first.Lock(path, false)) pause();
    _exit(1);
  }
  EXPECT_TRUE(test::Eventually([&] { return BothFilesAreThere(); }));
  EXPECT_FALSE(second.Lock(path, false));
  kill(holder, SIGKILL);
  ASSERT_EQ(waitpid(holder, nullptr, 0), holder);
  EXPECT_TRUE(BothFilesAreThere());
  EXPECT_TRUE(second.Lock(path, false));
}

// A holder removes the file that it held. Whoever had opened it before gets a lock on a file without a name, while a
// third makes and locks a new one: both went on.
TEST_F(LockOnAPath, HasOneHolderAtATimeThoughItsFileComesAndGoes) {
  std::atomic<int> holders = 0, faults = 0;
  const auto lockOften = [&] {
    for (int round = 0; round < 500;) {
      MLockFile lock;
      if (!lock.Lock(path, false)) continue;
      ++round;
      if (holders.fetch_add(1) != 0 || !BothFilesAreThere()) ++faults;
      holders.fetch_sub(1);
    }
  };
  { const std::jthread a(lockOften), b(lockOften), c(lockOften), d(lockOften); }
  EXPECT_EQ(faults, 0);
  EXPECT_TRUE(NothingIsLeft());
}

TEST_F(LockOnAPath, IsGrantedWhereNothingCanBeWritten) {
  disk.Write("file");
  for (const char* place : {"missing/data", "file/data"}) {
    EXPECT_TRUE(first.Lock(disk / place, true) && second.Lock(disk / place, false)) << place;
  }
}

TEST_F(LockOnAPath, IsTriedTenTimesASecondApartByAWaiter) {
  ASSERT_TRUE(first.Lock(path, false));
  EXPECT_GE(test::TimeOf([&] { EXPECT_FALSE(second.Lock(path, true)); }), std::chrono::seconds(9));
  std::jthread waiter([&] { EXPECT_TRUE(second.Lock(path, true)); });
  first.Unlock();
}
}  // namespace
}  // namespace tlm
