// A whole analysis: exit codes, files, and what whoever follows it gets to see.
#include "heat2d/analysis.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <sstream>
#include <vector>

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
  Analysis() {
    std::filesystem::remove_all(directory_);
    std::filesystem::create_directory(directory_);
    std::filesystem::current_path(directory_);
  }
  ~Analysis() override {
    std::filesystem::current_path(former_);
    std::filesystem::remove_all(directory_);
  }
  ExitCode Run(const std::string& deck, const std::string& file = "plate.inp") {
    std::ofstream(file) << deck;
    return Analyse(file, Follower, Log, Errors);
  }
  static std::string Content(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  NotingReporter Follower;
  std::ostringstream Log, Errors;

 private:
  const std::filesystem::path former_ = std::filesystem::current_path();
  const std::filesystem::path directory_ =
      std::filesystem::path(::testing::TempDir()) /
      ("heat2d_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
};

TEST_F(Analysis, LeavesItsResultsBesideEachOtherAndReportsThemOnceTheyAreWhole) {
  EXPECT_EQ(Run(kPlate + std::string("title A plate\n")), kGood);
  EXPECT_THAT(Errors.str(), IsEmpty());
  EXPECT_TRUE(Follower.Success);
  EXPECT_THAT(Follower.Files, ElementsAre("plate.csv", "plate.dat", "plate.inp", "plate.ppm"));
  EXPECT_EQ(Follower.Percents.front(), 0u);
  EXPECT_EQ(Follower.Percents.back(), 100u);
  EXPECT_TRUE(std::ranges::is_sorted(Follower.Percents));

  // 80 K through 2 m of 50 W/(m K) and a film of 30 W/(m2 K), 1 m high.
  const std::string summary = Content("plate.dat");
  EXPECT_THAT(summary, HasSubstr("A plate\n"));
  EXPECT_THAT(summary, HasSubstr("SOLUTION   converged\n"));
  EXPECT_THAT(summary, HasSubstr("  left              1090.91            100   temperature 100\n"));
  EXPECT_THAT(summary, HasSubstr("  right            -1090.91        56.3636   convection 30 20\n"));
  EXPECT_THAT(summary, HasSubstr("    3  conductivity 50\n"));
  const std::string field = Content("plate.csv");
  EXPECT_THAT(field, StartsWith("x,y,T\n0.025,0.025,99.45454"));
  EXPECT_EQ(std::ranges::count(field, '\n'), 1 + 40 * 20);
}

TEST_F(Analysis, ThatDoesNotConvergeShowsItsResultsButDoesNotSucceed) {
  EXPECT_EQ(Run(kPlate + std::string("iterations 5\n")), kNotConverged);
  EXPECT_FALSE(Follower.Success);
  EXPECT_EQ(Follower.Files.size(), 4u);
  EXPECT_LT(Follower.Percents.back(), 100u);
  EXPECT_THAT(Errors.str(), HasSubstr("did not converge in 5 iterations"));
  EXPECT_THAT(Content("plate.dat"), HasSubstr("DID NOT CONVERGE"));
}

TEST_F(Analysis, ThatIsStoppedLeavesFormerResultsAlone) {
  ASSERT_EQ(Run(kPlate), kGood);
  const std::string former = Content("plate.dat");
  // In the midst of the iterations, and in the midst of being held back.
  for (const char* pace : {"", "pace 3600\n"}) {
    Follower = NotingReporter();
    Follower.PassesUntilStop = 10;
    EXPECT_EQ(Run(kPlate + std::string("source 7\n") + pace), kStopped);
    EXPECT_FALSE(Follower.Success);
    EXPECT_THAT(Follower.Files, IsEmpty());
    EXPECT_EQ(Content("plate.dat"), former);
  }
}

TEST_F(Analysis, KeepsToThePaceOfItsDeck) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Run(kPlate + std::string("pace 0.6\n")), kGood);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600));
  EXPECT_GE(Follower.Percents.size(), 3u);
}

TEST_F(Analysis, OfABadDeckNamesFileAndLine) {
  EXPECT_EQ(Run(kPlate + std::string("top warm\nbottom 7\n"), "my.plate.inp"), kBadInput);
  EXPECT_THAT(Errors.str(), StartsWith("my.plate.inp:6: unknown boundary condition \"warm\""));
  EXPECT_THAT(Errors.str(), HasSubstr("\nmy.plate.inp:7: unknown boundary condition \"7\""));
  EXPECT_FALSE(Follower.Success);
  EXPECT_FALSE(std::filesystem::exists("my.plate.dat"));
}

TEST_F(Analysis, RefusesWhatItCannotReadOrWrite) {
  EXPECT_EQ(Analyse("none.inp", Follower, Log, Errors), kBadInput);
  EXPECT_EQ(Errors.str(), "none.inp: cannot be read\n");

  EXPECT_EQ(Run(kPlate, "plate.csv"), kBadInput);
  EXPECT_EQ(Content("plate.csv"), kPlate);
  std::filesystem::remove("plate.csv");

  std::filesystem::create_directories("plate.ppm/in the way");
  EXPECT_EQ(Run(kPlate), kBadInput);
  EXPECT_THAT(Errors.str(), HasSubstr("plate.ppm: cannot be written\n"));
  EXPECT_FALSE(std::filesystem::exists("~plate.ppm"));
  EXPECT_THAT(Follower.Files, IsEmpty());
}

}  // namespace
}  // namespace heat2d
