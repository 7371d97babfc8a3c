// The example analysis as a job, from its deck to its results.
#include <gmock/gmock.h>

#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class Heat2dJob : public Tlmctl {
 protected:
  Heat2dJob() { std::filesystem::create_symlink(BIN_DIRECTORY "/heat2d", server.Home().Path("bin/heat2d")); }
  void WriteDeck(const std::string& pace) const {
    disk.Write("plate.inp",
               "size 1 1\ngrid 20 20\nconductivity 50\nleft temperature 0\nright temperature 9\npace " + pace + "\n");
  }
};

TEST_F(Heat2dJob, ReportsItsProgressAndLeavesItsResults) {
  WriteDeck("3");
  const Finished watch = Ctl({"submit", "--watch", "--deck", "plate.inp", "heat2d"});
  EXPECT_EQ(watch.ExitCode, 0);
  EXPECT_THAT(watch.Output, testing::ContainsRegex("Running, [1-9][0-9]? %"));
  EXPECT_THAT(watch.Output, HasSubstr("job 4 plate: Finished, exit code 0"));
  for (const char* result : {"plate.dat", "plate.csv", "plate.ppm"}) EXPECT_TRUE(disk.Has(result)) << result;
  EXPECT_THAT(Ctl({"show", "4"}).Output, AllOf(HasSubstr("100 %"), HasSubstr("available")));
}

TEST_F(Heat2dJob, RunsInADirectoryOfTheServerAndItsResultsComeBack) {
  WriteDeck("0");
  disk.Write("notes.txt", "empty files travel, too");
  disk.Write("empty.txt");
  const Words submit{"submit", "--send",    "--only-missing", "--deck",   "plate.inp",
                     "--file", "notes.txt", "--file",         "empty.txt"};
  const auto with = [&submit](Words more) {
    more.insert(more.begin(), submit.begin(), submit.end());
    return more;
  };
  const Finished first = Ctl(with({"--watch", "heat2d"}));
  EXPECT_THAT(first.Output,
              AllOf(HasSubstr("sending plate.inp"), HasSubstr("sending notes.txt"), HasSubstr("Finished")));
  EXPECT_FALSE(disk.Has("plate.dat"));
  const Finished results = Ctl({"results", "4"});
  EXPECT_EQ(results.ExitCode, 0) << results.Output;
  EXPECT_THAT(results.Output, HasSubstr("\t" + disk / "plate.dat\n"));
  EXPECT_TRUE(disk.Has("plate.csv") && disk.Has("plate.ppm"));
  EXPECT_EQ(Ctl({"results", "4"}).ExitCode, 4) << "a finished job whose results are here is gone";
  EXPECT_THAT(Ctl(with({"heat2d"})).Output, testing::Not(HasSubstr("sending notes.txt"))) << "the server has it";
  EXPECT_EQ(Ctl(with({"--file", "absent", "heat2d"})).ExitCode, 2);
  EXPECT_EQ(Ctl({"submit", "--file", "notes.txt", "heat2d"}).ExitCode, 2);
}

TEST_F(Heat2dJob, EndsByItselfWhenItIsCancelled) {
  WriteDeck("3000");
  disk.Write("plate.dat", "former");
  ASSERT_EQ(Ctl({"submit", "--deck", "plate.inp", "heat2d"}).Output, "4\n");
  ASSERT_TRUE(Eventually([this] { return disk.Read("plate_out").find("cells") != std::string::npos; }));
  EXPECT_EQ(Ctl({"cancel", "4"}).Output, "job 4: Aborted\n");
  EXPECT_THAT(disk.Read("plate_out"), HasSubstr("stopped on request"));
  EXPECT_EQ(disk.Read("plate.dat"), "former");
  EXPECT_THAT(Ctl({"show", "4"}).Output, testing::ContainsRegex("Exit code +3\n"));
}

}  // namespace
}  // namespace tlm::test
