// A whole analysis by the real program: exit codes, files, and what it says.
#include <chrono>
#include <gmock/gmock.h>

#include "support/server_process.h"

namespace tlm::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kPlate[] = "size 2 1\ngrid 40 20\nconductivity 50\nleft temperature 100\nright convection 30 20\n";

struct Analysis : ::testing::Test {
  Finished Run(const std::string& deck) const {
    return RunProgram({"/usr/bin/env", "-C", Disk.Root(), BIN_DIRECTORY "/heat2d", "--offline", deck});
  }
  const Sandbox Disk;
};

TEST_F(Analysis, LeavesItsResultsBesideEachOther) {
  Disk.Write("plate.inp", kPlate + std::string("title A plate\npace 0.6\n"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Run("plate.inp").ExitCode, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600));

  // 80 K through 2 m of 50 W/(m K) and a film of 30 W/(m2 K), 1 m high.
  for (const char* line : {"A plate\n", "SOLUTION   converged\n", "    3  conductivity 50\n",
                           "  left              1090.91            100   temperature 100\n",
                           "  right            -1090.91        56.3636   convection 30 20\n"}) {
    EXPECT_THAT(Disk.Read("plate.dat"), HasSubstr(line));
  }
  EXPECT_THAT(Disk.Read("plate.csv"), StartsWith("x,y,T\n0.025,0.025,99.45454"));
  EXPECT_THAT(Disk.Read("plate.ppm"), StartsWith("P6"));
}

TEST_F(Analysis, SaysWhatWentWrong) {
  Disk.MakeDirectory("blocked.ppm/in the way");
  const struct {
    const char *File, *More;
    int Code;
    const char* Said;
  } cases[] = {
      {"slow.inp", "iterations 5\n", 2, "did not converge in 5 iterations"},
      {"my.plate.inp", "top warm\n", 1, "my.plate.inp:6: unknown boundary condition \"warm\""},
      {"blocked.inp", "", 1, "blocked.ppm: cannot be written\n"},
      {"deck.csv", "", 1, "deck.csv: a deck may not end in .csv"},
  };
  for (const auto& [file, more, code, said] : cases) {
    Disk.Write(file, kPlate + std::string(more));
    const Finished end = Run(file);
    EXPECT_EQ(end.ExitCode, code) << file;
    EXPECT_THAT(end.Output, HasSubstr(said));
  }
  EXPECT_TRUE(Disk.Has("slow.dat")) << "can be looked at";
  EXPECT_FALSE(Disk.Has("~blocked.ppm"));
  EXPECT_EQ(Run("none.inp").Output, "none.inp: cannot be read\n");
}

}  // namespace
}  // namespace tlm::test
