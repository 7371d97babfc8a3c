// A whole analysis: exit codes, files, and what whoever follows it gets to see.
#include "heat2d/analysis.h"

#include <algorithm>
#include <chrono>
#include <gmock/gmock.h>
#include <sstream>
#include <vector>

#include "support/sandbox.h"

namespace heat2d {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr char kPlate[] = "size 2 1\ngrid 40 20\nconductivity 50\nleft temperature 100\nright convection 30 20\n";

// Notes what it is told, and which files were there when results were announced.
struct NotingReporter : Reporter {
  void Progress(std::uint32_t percent) override { Percents.push_back(percent); }
  void ResultsAvailable() override {
    for (const auto& entry : std::filesystem::directory_iterator(".")) Files.push_back(entry.path().filename());
    std::ranges::sort(Files);
  }
  void Succeeded() override { Success = true; }
  bool StopRequested() override { return --PassesUntilStop == 0; }

  std::vector<std::uint32_t> Percents;
  std::vector<std::string> Files;
  bool Success = false;
  int PassesUntilStop = -1;
};

// Runs in a directory of its own.
struct Analysis : ::testing::Test {
  Analysis() { std::filesystem::current_path(Disk.Root()); }
  ~Analysis() override { std::filesystem::current_path(former_); }
  ExitCode Run(const std::string& more, const std::string& file = "plate.inp") {
    Disk.Write(file, kPlate + more);
    return Analyse(file, Follower, Log, Errors);
  }

  tlm::test::Sandbox Disk;
  NotingReporter Follower;
  std::ostringstream Log, Errors;

 private:
  const std::filesystem::path former_ = std::filesystem::current_path();
};

TEST_F(Analysis, LeavesItsResultsBesideEachOtherAndReportsThemOnceTheyAreWhole) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Run("title A plate\npace 0.6\n"), kGood);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600));
  EXPECT_THAT(Errors.str(), IsEmpty());
  EXPECT_TRUE(Follower.Success);
  EXPECT_THAT(Follower.Files, ElementsAre("plate.csv", "plate.dat", "plate.inp", "plate.ppm"));
  EXPECT_EQ(Follower.Percents.back(), 100u);
  EXPECT_TRUE(std::ranges::is_sorted(Follower.Percents));

  // 80 K through 2 m of 50 W/(m K) and a film of 30 W/(m2 K), 1 m high.
  for (const char* line : {"A plate\n", "SOLUTION   converged\n", "    3  conductivity 50\n",
                           "  left              1090.91            100   temperature 100\n",
                           "  right            -1090.91        56.3636   convection 30 20\n"}) {
    EXPECT_THAT(Disk.Read("plate.dat"), HasSubstr(line));
  }
  EXPECT_THAT(Disk.Read("plate.csv"), StartsWith("x,y,T\n0.025,0.025,99.45454"));
}

TEST_F(Analysis, ThatDoesNotConvergeShowsItsResultsButDoesNotSucceed) {
  EXPECT_EQ(Run("iterations 5\n"), kNotConverged);
  EXPECT_FALSE(Follower.Success);
  EXPECT_EQ(Follower.Files.size(), 4u);
  EXPECT_THAT(Errors.str(), HasSubstr("did not converge in 5 iterations"));
}

TEST_F(Analysis, ThatIsStoppedLeavesFormerResultsAlone) {
  Disk.Write("plate.dat", "former");
  // In the midst of the iterations, and in the midst of being held back.
  for (const std::string pace : {"", "pace 3600\n"}) {
    Follower.PassesUntilStop = 10;
    EXPECT_EQ(Run("source 7\n" + pace), kStopped);
    EXPECT_FALSE(Follower.Success);
    EXPECT_THAT(Follower.Files, IsEmpty());
    EXPECT_EQ(Disk.Read("plate.dat"), "former");
  }
}

TEST_F(Analysis, RefusesWhatItCannotReadOrWrite) {
  EXPECT_EQ(Run("top warm\n", "my.plate.inp"), kBadInput);
  EXPECT_THAT(Errors.str(), StartsWith("my.plate.inp:6: unknown boundary condition \"warm\""));
  EXPECT_EQ(Analyse("none.inp", Follower, Log, Errors), kBadInput);
  EXPECT_THAT(Errors.str(), HasSubstr("\nnone.inp: cannot be read\n"));
  EXPECT_EQ(Run("", "plate.csv"), kBadInput) << "the results would take the deck's place";
  EXPECT_EQ(Disk.Read("plate.csv"), kPlate);

  Disk.MakeDirectory("plate.ppm/in the way");
  EXPECT_EQ(Run(""), kBadInput);
  EXPECT_THAT(Errors.str(), HasSubstr("plate.ppm: cannot be written\n"));
  EXPECT_FALSE(Disk.Has("~plate.ppm"));
}

}  // namespace
}  // namespace heat2d
