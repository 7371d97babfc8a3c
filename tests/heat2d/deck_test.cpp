// Reading a deck: what a good one means, and what is said about a bad one.
#include "heat2d/deck.h"

#include <fstream>
#include <gmock/gmock.h>
#include <iterator>

namespace heat2d {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kGood[] = "size 2 1\ngrid 20 10\nconductivity 50\nleft temperature 100\n";

std::vector<std::string> ErrorsOf(const std::string& text) {
  std::vector<DeckError> errors;
  ReadDeck(text, errors);
  std::vector<std::string> lines;
  for (const DeckError& error : errors) lines.push_back(std::to_string(error.Line) + ": " + error.Text);
  return lines;
}

TEST(Deck, IsReadWhateverItsOrderCaseCommentsAndLineEnds) {
  std::vector<DeckError> errors;
  const Deck deck = ReadDeck(
      "# a comment\r\nTitle   Two  words # and why\r\n\r\n\tGRID 20 10\r\nsize 2 +1e0\r\nconductivity 50\r\n"
      "conductivity 2 in 0.5 0.5 1 1\r\nsource -3\r\ntop convection 12 20\r\nbottom FLUX -5\r\nright insulated\r\n"
      "tolerance 1e-5\r\niterations 7\r\npace 0.5",
      errors);
  ASSERT_THAT(errors, IsEmpty());
  EXPECT_EQ(deck.Title, "Two  words");
  EXPECT_THAT((std::vector{deck.Width, deck.Height, deck.Tolerance, deck.Pace}), ElementsAre(2, 1, 1e-5, 0.5));
  EXPECT_THAT((std::vector{deck.Nx, deck.Ny, deck.MaxIterations}), ElementsAre(20, 10, 7));
  ASSERT_EQ(deck.Conductivities.size(), 2u);
  EXPECT_EQ(deck.Conductivities[1].Where->Right, 1);
  EXPECT_EQ(deck.Sources.at(0).Value, -3);
  EXPECT_EQ(Describe(deck.At(Side::Top)), "convection 12 20");
}

TEST(Deck, NamesTheLineAndTheMistake) {
  const std::pair<std::string, const char*> cases[] = {
      {"size 2 1", R"(5: "size" stands already in line 1)"},
      {"top", R"(5: something is missing behind "top"; the line reads: )"
              R"(top insulated | temperature T | flux Q | convection H T)"},
      {"conductvity 5", R"(5: unknown keyword "conductvity"; there are bottom, conductivity, grid, iterations, left, )"
                        "pace, right, size, source, title, tolerance, top"},
      {"top convection 0 20", "5: the convection coefficient must be above 0, not 0"},
      {"iterations 2,5", R"(5: "2,5" is not a number; the line reads: iterations COUNT)"},
      {"source 5 on 1 2 3 4", R"(5: expected "in" instead of "on"; the line reads: source Q [in X0 Y0 X1 Y1])"},
      {"source 5 in 0.96 0 1.04 1",
       "5: the rectangle holds no cell centre: it lies outside the plate, or the grid is too coarse for it"},
  };
  ASSERT_THAT(ErrorsOf(kGood), IsEmpty());
  for (const auto& [line, message] : cases) EXPECT_THAT(ErrorsOf(kGood + line), ElementsAre(message));
}

TEST(Deck, SaysWhatIsMissingInTheWhole) {
  EXPECT_THAT(ErrorsOf("size 2 1\ngrid 20 20\nconductivity 5 in 0 0 1 1\ntop flux 3\n"),
              ElementsAre(R"(4: the deck ends without a "conductivity" of the whole plate)",
                          "4: no side has a temperature or convection, so that any temperature level would do"));
  EXPECT_THAT(ErrorsOf("size 2 1\ngrid 2000 2000\n"), ElementsAre("2: the grid has more than 1000000 cells",
                                                                  R"(2: the deck ends without a line "conductivity")"));
}

TEST(Deck, ExamplesAreGoodAndTheBrokenOneIsBrokenAllOver) {
  for (const auto& [name, mistakes] : {std::pair{"plate.inp", 0u}, {"fin.inp", 0u}, {"broken.inp", 8u}}) {
    std::ifstream file(std::string(SOURCE_DIRECTORY "/examples/heat2d/") + name);
    ASSERT_TRUE(file) << name;
    EXPECT_EQ(ErrorsOf({std::istreambuf_iterator<char>(file), {}}).size(), mistakes) << name;
  }
}

}  // namespace
}  // namespace heat2d
