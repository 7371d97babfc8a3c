// The texts that an analysis leaves behind.
#pragma once

#include <string>

#include "heat2d/deck.h"
#include "heat2d/solver.h"

namespace heat2d {

// For a reader: the deck, how the solution went, temperatures, heat flows and their balance.
std::string SummaryText(const Deck& deck, const Solution& solution);

// For a program: "x,y,T", one line per cell, along x first.
std::string FieldTable(const Deck& deck, const Solution& solution);

// Writes "~NAME" beside the file and renames it, so that a reader sees the former file or the new one and never a
// part. False if that fails; then the former file stands as it did.
[[nodiscard]] bool ReplaceFile(const std::string& path, const std::string& content);

}  // namespace heat2d
