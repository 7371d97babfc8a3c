// ngspice as a job: what comes back, and what its exit code says.
#include <cmath>
#include <cstring>
#include <signal.h>

#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {
struct Spice : Tlmctl {
  void SetUp() override {
    if (RunProgram({"/usr/bin/env", "ngspice", "--version"}).ExitCode != 0) GTEST_SKIP() << "ngspice is not installed";
    std::filesystem::create_symlink(SOURCE_DIRECTORY "/examples/ngspice/spice.py", server.Home().Path("bin/spice"));
    server.AddProgram("tlmctl", "echo $PPID \"$@\" >>" + disk.Path("reports"));
  }
  void CopyDeck(const std::string& name) const {
    std::filesystem::copy_file(SOURCE_DIRECTORY "/examples/ngspice/" + name, disk.Path(name));
  }
  // The numbers of a raw file, point by point.
  std::vector<double> Values(const std::string& name) const {
    const std::string raw = disk.Read(name), mark = "Binary:\n";
    const std::size_t start = raw.find(mark);
    if (start == std::string::npos) return {};
    std::vector<double> values((raw.size() - start - mark.size()) / sizeof(double));
    std::memcpy(values.data(), raw.data() + start + mark.size(), values.size() * sizeof(double));
    return values;
  }
};

TEST_F(Spice, BringsBackWaveformsOfTheRightTimeConstant) {
  CopyDeck("rc-step.cir");
  CopyDeck("rc-sweep.cir");
  ASSERT_THAT(Ctl({"run", "spice", "rc-step.cir"}), Ends(0, testing::_));
  EXPECT_THAT(disk.Read("rc-step.log"), HasSubstr("No. of Data Rows"));
  const std::vector<double> points = Values("rc-step.raw");  // time, v(in), v(out), i(v1)
  std::size_t i = 0;
  while (i + 4 < points.size() && points[i + 2] < 1 - std::exp(-1)) i += 4;
  ASSERT_LT(i + 4, points.size());
  EXPECT_NEAR(points[i], 1e-3, 2e-5);

  EXPECT_EQ(Ctl({"run", "spice", "rc-sweep.cir"}).ExitCode, 0);
  const std::vector<double> sweep = Values("rc-sweep.raw");  // the same, complex, with a frequency for the time
  for (i = 0; i + 8 < sweep.size() && std::hypot(sweep[i + 4], sweep[i + 5]) > std::sqrt(0.5);) i += 8;
  ASSERT_LT(i + 8, sweep.size());
  EXPECT_NEAR(sweep[i], 159.2, 4);
}

TEST_F(Spice, FailsWhereNgspiceDoesAndWhereItOughtTo) {
  const std::string source = "title\nV1 in 0 DC 1 AC 1\nR1 in 0 1k\n";
  const struct {
    std::string Cards, Text;
    int Code = 1;
  } cases[] = {{"X1 in 0 nosub\n.op\n", "unknown subckt"},
               {"", "there is no deck.raw"},
               {".op\n.ac dec 10 1meg 1\n", "Operating Point: 1 points"},
               {".tran 1u 1m\n.meas tran late when v(in)=5\n", "No .measure possible"},
               {".control\nop\nprint v(out)\nquit\n.endc\n", "vector out is not available"},
               {".control\nop\nshell cp deck.cir deck.raw\nquit\n.endc\n", "a plot without numbers"},
               {".control\nop\nquit 3\n.endc\n", "", 3}};
  for (const auto& [cards, text, code] : cases) {
    disk.Write("deck.cir", source + cards + ".end\n");
    EXPECT_THAT(Ctl({"run", "spice", "deck.cir"}), Ends(code, HasSubstr(text))) << cards;
  }
  EXPECT_EQ(disk.Read("reports").find("succeeded"), std::string::npos);
  disk.Write("deck.cir", source + ".control\nset filetype=ascii\nop\nwrite deck.raw\nquit\n.endc\n.end\n");
  EXPECT_THAT(Ctl({"run", "spice", "deck.cir"}).Output, HasSubstr("Operating Point: 1 points"));
}

TEST_F(Spice, ReportsHowFarItIsAndStopsWithItsJob) {
  disk.Write("long.cir", "long\nV1 in 0 SIN(0 1 1k)\nR1 in 0 1k\n.tran 1u 20\n.end\n");
  std::future<ProgramEnd> run = CtlMeanwhile({"run", "spice", "long.cir"});
  ASSERT_TRUE(Eventually([&] { return disk.Read("reports").find(" progress ") != std::string::npos; }));
  JobClient client(server.Port());
  client.TakeOwnership(4);
  EXPECT_TRUE(client.RemoveJob(4));
  EXPECT_EQ(run.get().ExitCode, 120);
  const int group = std::stoi(disk.Read("reports"));  // the first word is the wrapper's id
  EXPECT_TRUE(Eventually([&] { return kill(-group, 0) != 0; })) << "ngspice is still there";
}
}  // namespace
}  // namespace tlm::test
