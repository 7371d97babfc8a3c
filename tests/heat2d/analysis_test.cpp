// Whole analyses by the real program: what it works out, what it leaves, and what it says of a bad deck.
#include <gmock/gmock.h>

#include "support/eventually.h"
#include "support/server_process.h"

namespace tlm::test {
namespace {
using ::testing::HasSubstr, ::testing::StartsWith;

struct Analysis : ::testing::Test {
  ProgramEnd Run(const std::string& deck, const std::string& text) const {
    Disk.Write(deck, text);
    return Run(deck);
  }
  ProgramEnd Run(const std::string& deck) const {
    return RunProgram({"/usr/bin/env", "-C", Disk.Root(), BIN_DIRECTORY "/heat2d", "--offline", deck});
  }
  const Sandbox Disk;
};

TEST_F(Analysis, OfTwoMaterialsAndAFilmAddsTheirResistances) {
  // 480 K over 0.4 m of 2 W/(m K), 0.6 m of 40 W/(m K) and a film of 25 W/(m2 K): 1882.35 W/m2, 0.5 m high.
  Disk.Write("slab.inp",
             "size 1 0.5\ngrid 50 4\nconductivity 2\nconductivity 40 in 0.4 0 1 0.5\nleft temperature 500\n"
             "right convection 25 20\ntitle A slab\ntolerance 1e-12\npace 0.6\n");
  EXPECT_GE(TimeOf([this] { EXPECT_EQ(Run("slab.inp").ExitCode, 0); }), std::chrono::milliseconds(600));
  for (const char* line : {"A slab\n", "SOLUTION   converged\n", "    3  conductivity 2\n",
                           "  left              941.176            500   temperature 500\n",
                           "  right            -941.176        95.2941   convection 25 20\n"}) {
    EXPECT_THAT(Disk.Read("slab.dat"), HasSubstr(line));
  }
  const std::string field = Disk.Read("slab.csv");
  EXPECT_THAT(field, StartsWith("x,y,T\n0.01,0.0625,490.588235\n"));
  EXPECT_THAT(field, HasSubstr("\n0.39,0.0625,132.941176\n0.41,0.0625,123.058824\n")) << "where the materials meet";
  EXPECT_THAT(Disk.Read("slab.ppm"), StartsWith("P6"));
}

TEST_F(Analysis, CarriesAGivenFluxAndAGivenSourceOutOfThePlate) {
  Run("flux.inp",
      "size 1 2\ngrid 100 3\nconductivity 4\nsource 60\nsource 20\nleft flux 80\nright temperature 10\n"
      "tolerance 1e-12\n");
  EXPECT_THAT(Disk.Read("flux.dat"), HasSubstr("  left                  160             40   flux 80\n"
                                               "  right                -320             10   temperature 10\n"));
  EXPECT_THAT(Disk.Read("flux.dat"), HasSubstr("  source                160\n"));
}

TEST_F(Analysis, OfASquareWithOneHotSideFollowsTheFourierSeries) {
  Run("square.inp",
      "size 1 1\ngrid 81 81\nconductivity 3\ntop temperature 1\nleft temperature 0\nright temperature 0\n"
      "bottom temperature 0\ntolerance 1e-12\n");
  for (const char* line : {"\n0.5,0.5,0.25\n", "\n0.25308642,0.74691358,0.4303", "\n0.74691358,0.25308642,0.0696"}) {
    EXPECT_THAT(Disk.Read("square.csv"), HasSubstr(line));
  }
}

TEST_F(Analysis, DoesNotDependOnOrderCaseCommentsAndLineEndsOfTheDeck) {
  Run("plain.inp",
      "title Two  words\nsize 2 1\ngrid 20 10\nconductivity 50\nconductivity 2 in 0.5 0.5 1 1\nsource -3\n"
      "bottom flux -5\ntop convection 12 20\n");
  Run("odd.inp",
      "# a comment\r\nconductivity 50\r\n\r\n\tGRID 20 10\r\nsize 2 +1e0\r\ntop Convection 12 20#why\r\n"
      "conductivity 2 in 0.5 0.5 1 1\r\nsource -3\r\nright insulated\r\nbottom FLUX -5\r\nTitle   Two  words # why");
  EXPECT_NE(Disk.Read("plain.csv"), "");
  EXPECT_EQ(Disk.Read("odd.csv"), Disk.Read("plain.csv"));
  EXPECT_THAT(Disk.Read("odd.dat"), HasSubstr("Two  words\n"));
}

TEST_F(Analysis, SaysWhatWentWrong) {
  const std::string head = "size 2 1\ngrid 20 10\nconductivity 50\nleft temperature 100\n";
  Disk.MakeDirectory("blocked.ppm/in the way");
  const std::tuple<std::string, std::string, int, std::string> cases[] = {
      {"my.bad.inp",
       head + "size 2 1\ntop\nconductvity 5\nbottom convection 0 20\npace 1,5\nsource 5 on 1 2 3 4\n"
              "source 5 in 1 0 1 1",
       1,
       "my.bad.inp:5: \"size\" stands already in line 1\n"
       "my.bad.inp:6: something is missing behind \"top\"; the line reads: top insulated | temperature T | flux Q | "
       "convection H T\n"
       "my.bad.inp:7: unknown keyword \"conductvity\"; there are bottom, conductivity, grid, iterations, left, pace, "
       "right, size, source, title, tolerance, top\n"
       "my.bad.inp:8: the convection coefficient must be above 0, not 0\n"
       "my.bad.inp:9: \"1,5\" is not a number; the line reads: pace SECONDS\n"
       "my.bad.inp:10: expected \"in\" instead of \"on\"; the line reads: source Q [in X0 Y0 X1 Y1]\n"
       "my.bad.inp:11: the rectangle is empty: X1 must be above X0, and Y1 above Y0\n"},
      {"part.inp", "size 2 1\ngrid 20 10\nconductivity 50 in 0 0 1 1\ntop flux 3\nsource 5 in 0.96 0 1.04 1", 1,
       "part.inp:5: the deck ends without a \"conductivity\" of the whole plate\n"
       "part.inp:5: no side has a temperature or convection, so that any temperature level would do\n"
       "part.inp:5: the rectangle holds no cell centre: it lies outside the plate, or the grid is too coarse for it\n"},
      {"many.inp", "size 2 1\nconductivity 5\ntop temperature 1\ngrid 2000 2000", 1,
       "many.inp:4: the grid has more than 1000000 cells\n"},
      {"deck.csv", head, 1, "deck.csv: a deck may not end in .csv"},
      {"blocked.inp", head, 1, "blocked.ppm: cannot be written\n"},
      {"slow.inp", head + "top convection 1 20\niterations 3\n", 2, "did not converge in 3 iterations"},
  };
  for (const auto& [file, text, code, said] : cases) {
    EXPECT_THAT(Run(file, text), Ends(code, HasSubstr(said))) << file;
  }
  EXPECT_TRUE(Disk.Has("slow.dat")) << "can be looked at";
  EXPECT_FALSE(Disk.Has("~blocked.ppm"));
  EXPECT_EQ(Run("none.inp").Output, "none.inp: cannot be read\n");
}
}  // namespace
}  // namespace tlm::test
