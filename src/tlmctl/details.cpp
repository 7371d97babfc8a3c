#include "tlmctl/details.h"

#include <iomanip>
#include <iostream>

#include "tlmctl/console.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

// As a shell takes it.
std::string Quoted(const std::string& word) {
  if (!word.empty() && word.find_first_of(" \t\n'\"\\$&|;<>*?()[]#~`!{}") == std::string::npos) return word;
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? "'\\''" : std::string(1, c);
  return text + '\'';
}

}  // namespace

void PrintDetail(const char* label, const std::string& value) {
  constexpr int kLabelWidth = 22;
  std::cout << std::left << std::setw(kLabelWidth) << label << (value.empty() ? kNothing : Printable(value)) << '\n';
}

std::string CommandLineText(const LedgerEntry& entry) {
  std::string line = "tlmctl";
  for (const std::string& word : entry.Words) line += ' ' + Quoted(word);
  return line;
}

void PrintSubmission(const LedgerEntry& entry) {
  PrintDetail("Typed", CommandLineText(entry));
  PrintDetail("In", entry.From);
  for (const SentFile& file : entry.Sent) PrintDetail("Sent", file.Name + ", " + SizeText(file.Size));
}

}  // namespace tlm::ctl
