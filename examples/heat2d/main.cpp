#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "heat2d/analysis.h"
#include "heat2d/job_manager_reporter.h"

namespace {

constexpr char kUsage[] =
    "usage: heat2d [--offline] DECK\n"
    "Steady heat conduction in a rectangular plate. Reads the deck and writes STEM.dat (summary), STEM.csv (field) "
    "and\n"
    "STEM.ppm (picture) into the current directory; STEM is the deck's name without its suffix.\n"
    "\n"
    "  --offline   do not report to the job manager\n"
    "  --help      print this text\n"
    "\n"
    "exit codes: 0 good, 1 wrong deck or usage, or a file cannot be written, 2 did not converge, 3 stopped on "
    "request\n";

struct Arguments {
  bool Offline = false;
  bool Help = false;
  std::string DeckFile;
};

std::optional<Arguments> ReadArguments(const std::vector<std::string>& words) {
  Arguments arguments;
  for (const std::string& word : words) {
    if (word == "--offline") {
      arguments.Offline = true;
    } else if (word == "--help") {
      arguments.Help = true;
    } else if (word.empty() || word[0] == '-' || !arguments.DeckFile.empty()) {
      return std::nullopt;
    } else {
      arguments.DeckFile = word;
    }
  }
  if (arguments.DeckFile.empty() && !arguments.Help) return std::nullopt;
  return arguments;
}

int Run(const Arguments& arguments) {
  std::unique_ptr<heat2d::Reporter> reporter;
  if (arguments.Offline) {
    reporter = std::make_unique<heat2d::OfflineReporter>();
  } else {
    reporter = std::make_unique<heat2d::JobManagerReporter>();
  }
  return heat2d::Analyse(arguments.DeckFile, *reporter, std::cout, std::cerr);
}

}  // namespace

int main(int argc, char** argv) {
  const std::optional<Arguments> arguments = ReadArguments({argv + 1, argv + argc});
  if (!arguments) {
    std::cerr << kUsage;
    return heat2d::kBadInput;
  }
  if (arguments->Help) {
    std::cout << kUsage;
    return heat2d::kGood;
  }
  return Run(*arguments);
}
