// Who gets a lock, who is told what about its holder, and what lies on disk meanwhile.
#include "util/mlockfile.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/host.h"
#include "support/sandbox.h"

namespace tlm {
namespace {

using test::Sandbox;

struct LockOnAPath : ::testing::Test {
  Sandbox disk;
  const std::string path = disk / "data";
};

TEST_F(LockOnAPath, StandsInTwoCompanionsUntilItIsGivenUp) {
  {
    MLockFile lock;
    ASSERT_TRUE(lock.Lock(path, false));
    EXPECT_EQ(disk.Read("data.lck"), "");
    const std::string info = disk.Read("data.lci");
    const std::size_t firstEnd = info.find('\n');
    EXPECT_LE(std::abs(std::stoll(info) - std::time(nullptr)), 60);
    EXPECT_EQ(info.substr(firstEnd), "\n" + platform::HostName() + "\n" + platform::UserName() + "\n");
    lock.Unlock();
    EXPECT_FALSE(disk.Has("data.lck") || disk.Has("data.lci"));
    ASSERT_TRUE(lock.Lock(path, false));
    ASSERT_TRUE(lock.Lock(disk / "second", false));
    EXPECT_FALSE(disk.Has("data.lck") || disk.Has("data.lci"));
  }
  EXPECT_FALSE(disk.Has("second.lck") || disk.Has("second.lci"));
  EXPECT_FALSE(disk.Has("data"));
}

TEST_F(LockOnAPath, ShowsItsHolderToWhoeverIsRefused) {
  MLockFile holder;
  ASSERT_TRUE(holder.Lock(path, false));
  MLockFile other;
  EXPECT_FALSE(other.Lock(path, false));
  EXPECT_LE(std::abs(other.HolderTime() - std::time(nullptr)), 60);
  EXPECT_EQ(other.HolderHost(), platform::HostName());
  EXPECT_EQ(other.HolderUser(), platform::UserName());
  other.Unlock();
  EXPECT_TRUE(disk.Has("data.lck") && disk.Has("data.lci"));

  const auto shown = [&](const std::string& info) {
    disk.Write("data.lci", info);
    EXPECT_FALSE(other.Lock(path, false));
    return std::to_string(other.HolderTime()) + "," + other.HolderHost() + "," + other.HolderUser();
  };
  EXPECT_EQ(shown("-5\r\nhost\r\nuser"), "-5,host,user");
  EXPECT_EQ(shown("4294967297\nnew"), "1,new,user") << "a missing line leaves its field alone";
  EXPECT_EQ(shown("no number\n\n\n"), "0,,");
  EXPECT_EQ(shown("8\n" + std::string(300, 'h') + "\nuser\n"),
            "8," + std::string(254, 'h') + "," + std::string(46, 'h'));
  std::filesystem::remove(disk / "data.lci");
  EXPECT_FALSE(other.Lock(path, false));
  EXPECT_EQ(other.HolderTime(), 8);
}

TEST_F(LockOnAPath, EndsWithAKilledHolder) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t holder = fork();
  if (holder == 0) {
    MLockFile lock;
    const char held = lock.Lock(path, false) ? 'y' : 'n';
    if (write(ready[1], &held, 1) == 1) pause();
    _exit(1);
  }
  char held = 0;
  ASSERT_EQ(read(ready[0], &held, 1), 1);
  EXPECT_EQ(held, 'y');
  MLockFile lock;
  EXPECT_FALSE(lock.Lock(path, false));
  kill(holder, SIGKILL);
  ASSERT_EQ(waitpid(holder, nullptr, 0), holder);
  EXPECT_TRUE(disk.Has("data.lck") && disk.Has("data.lci"));
  EXPECT_TRUE(lock.Lock(path, false));
  close(ready[0]);
  close(ready[1]);
}

// A holder removes the file that it held. Whoever had opened it before gets a lock on a file without a name, while a
// third makes and locks a new one: both went on.
TEST_F(LockOnAPath, HasOneHolderAtATimeThoughItsFileComesAndGoes) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 500;
  std::atomic<int> holders = 0;
  std::atomic<int> doubles = 0;
  std::atomic<int> unlisted = 0;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds;) {
        MLockFile lock;
        if (!lock.Lock(path, false)) continue;
        ++round;
        if (holders.fetch_add(1) != 0) ++doubles;
        if (!disk.Has("data.lck") || !disk.Has("data.lci")) ++unlisted;
        holders.fetch_sub(1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(doubles, 0);
  EXPECT_EQ(unlisted, 0);
  EXPECT_FALSE(disk.Has("data.lck") || disk.Has("data.lci"));
}

TEST_F(LockOnAPath, LeavesAFileAloneThatTookThePlaceOfItsOwn) {
  MLockFile first, second;
  ASSERT_TRUE(first.Lock(path, false));
  std::filesystem::remove(disk / "data.lck");
  ASSERT_TRUE(second.Lock(path, false));
  first.Unlock();
  EXPECT_TRUE(disk.Has("data.lck"));
  EXPECT_FALSE(MLockFile().Lock(path, false));
}

TEST_F(LockOnAPath, IsGrantedWhereNothingCanBeWritten) {
  disk.Write("file");
  for (const std::string place : {"missing/data", "file/data"}) {
    MLockFile first, second;
    EXPECT_TRUE(first.Lock(disk / place, true));
    EXPECT_TRUE(second.Lock(disk / place, false));
    EXPECT_FALSE(disk.Has(place + ".lck") || disk.Has(place + ".lci"));
  }
}

TEST_F(LockOnAPath, IsTriedTenTimesASecondApartByAWaiter) {
  MLockFile holder;
  ASSERT_TRUE(holder.Lock(path, false));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(MLockFile().Lock(path, true));
  const auto waited = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(waited, std::chrono::seconds(9));
  EXPECT_LT(waited, std::chrono::seconds(60));

  std::atomic<bool> started = false;
  std::thread waiter([&] {
    MLockFile lock;
    started = true;
    EXPECT_TRUE(lock.Lock(path, true));
  });
  while (!started) std::this_thread::yield();
  holder.Unlock();
  waiter.join();
}

}  // namespace
}  // namespace tlm
