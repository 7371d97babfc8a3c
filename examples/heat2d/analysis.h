// One analysis from its deck to its results.
#pragma once

#include <ostream>
#include <string>

#include "heat2d/reporter.h"

namespace heat2d {

enum ExitCode { kGood = 0, kBadInput = 1, kNotConverged = 2, kStopped = 3 };

// The deck's name without its suffix: what the results are called, in the current directory.
std::string StemOf(const std::string& deckFile);

// Writes STEM.csv, STEM.ppm and then STEM.dat; the summary last, so that the others are as new as it is. A solution
// that does not converge is written too, but does not succeed. A stop, a bad deck and a file that cannot be written
// leave former results as they are, the last as far as they were not replaced yet. `log` gets the course of things,
// `errors` what went wrong, as "FILE:LINE: TEXT" where it is the deck.
ExitCode Analyse(const std::string& deckFile, Reporter& reporter, std::ostream& log, std::ostream& errors);

}  // namespace heat2d
