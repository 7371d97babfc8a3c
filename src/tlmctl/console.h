// What is said, and to whom: data goes to standard output, everything else to standard error.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tlmctl/exit_code.h"
#include "tlmctl/settings.h"

namespace tlm::ctl {

using Json = nlohmann::ordered_json;

// The version of all documents; it grows when a field changes its meaning or goes.
inline constexpr int kJsonSchema = 1;

// One document on a line of standard output.
void PrintJson(const Json& fields);

// A line of standard output for a person. Note, PrintFailure and the questions below show texts as it does: printable.
void Say(const std::string& text);

// For the person; with --json a document on standard error, with --quiet nothing.
void Note(const Settings& settings, const std::string& text);
void PrintFailure(const Settings& settings, const Failure& failure);

// True if standard output is a terminal that takes more than plain lines.
bool CanDraw();

enum class Colour { None, Good, Bad, Busy, Dim };

// The text in the colour, where standard output can show it and NO_COLOR is not set. It has to be printable.
std::string Coloured(const std::string& text, Colour colour);

// The text without line ends and escapes, which would do as they like with the terminal.
std::string Printable(std::string text);

// Whether a person at a terminal can be asked on standard error.
bool MayAsk(const Settings& settings);
// Shows a question and gives the line that is typed; where standard error goes elsewhere it is shown at the keyboard.
std::string Ask(const std::string& question);
// True for yes, and where nobody can be asked.
bool Confirm(const Settings& settings, const std::string& question);
// The same; throws Failure for no.
void RequireConsent(const Settings& settings, const std::string& question);

}  // namespace tlm::ctl
