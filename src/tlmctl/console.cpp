#include "tlmctl/console.h"

#include <algorithm>
#include <iostream>
#include <numeric>

#include "platform/environment.h"
#include "platform/terminal.h"

namespace tlm::ctl {

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowestColumn = 8;

bool ContinuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

const char* CodeOf(Colour colour) {
  switch (colour) {
    case Colour::Good:
      return "32";
    case Colour::Bad:
      return "31";
    case Colour::Busy:
      return "36";
    case Colour::Dim:
      return "2";
    case Colour::None:
      break;
  }
  return "0";
}

Json Document(const Json& fields) {
  Json document{{"schema", kJsonSchema}};
  document.update(fields);
  return document;
}

// Names of files and the like may hold bytes that are no text.
std::string LineOf(const Json& fields) {
  return Document(fields).dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

const char* NameOf(ExitCode code) {
  return std::find_if(std::begin(kExitCodes), std::end(kExitCodes), [&](const auto& row) { return row.Code == code; })
      ->Name;
}

}  // namespace

void PrintJson(const Json& fields) { std::cout << LineOf(fields) << std::flush; }

void Note(const Settings& settings, const std::string& text) {
  if (settings.Quiet) return;
  std::cout.flush();
  if (settings.Json) {
    std::cerr << LineOf({{"note", text}});
  } else {
    std::cerr << "tlmctl: " << text << '\n';
  }
}

void PrintFailure(const Settings& settings, const Failure& failure) {
  std::cout.flush();
  if (settings.Json) {
    std::cerr << LineOf({{"error",
                          {{"code", NameOf(failure.Code)},
                           {"exit_code", static_cast<int>(failure.Code)},
                           {"message", failure.Text},
                           {"hint", failure.Hint}}}});
    return;
  }
  std::cerr << "tlmctl: " << failure.Text << '\n';
  if (!failure.Hint.empty()) std::cerr << "  " << failure.Hint << '\n';
}

std::string Coloured(const std::string& text, Colour colour) {
  static const bool wanted = platform::IsTerminal(stdout) && platform::GetVariable("NO_COLOR").value_or("").empty() &&
                             platform::GetVariable("TERM").value_or("dumb") != "dumb";
  if (!wanted || colour == Colour::None) return text;
  return std::string("\033[") + CodeOf(colour) + 'm' + text + "\033[0m";
}

std::string Printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; }, '?');
  return text;
}

std::size_t DisplayWidth(const std::string& text) {
  return text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), ContinuesCharacter));
}

std::string CutToWidth(const std::string& text, std::size_t width) {
  if (DisplayWidth(text) <= width) return text;
  std::size_t end = 0;
  for (std::size_t shown = 0; shown + 1 < width; ++shown) {
    ++end;
    while (end < text.size() && ContinuesCharacter(text[end])) ++end;
  }
  return text.substr(0, end) + '~';
}

bool MayAsk(const Settings& settings) {
  return !settings.Yes && platform::IsTerminal(stdin) && platform::IsTerminal(stderr);
}

bool Confirm(const Settings& settings, const std::string& question) {
  if (!MayAsk(settings)) return true;
  std::cerr << question << " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

void RequireConsent(const Settings& settings, const std::string& question) {
  if (!Confirm(settings, question)) throw Failure{kRefused, "nothing was done"};
}

Table::Table(std::vector<std::string> titles) {
  std::vector<Cell> row;
  for (std::string& title : titles) row.push_back({std::move(title), Colour::Dim});
  rows_.push_back(std::move(row));
}

void Table::Add(std::vector<Cell> row) {
  for (Cell& cell : row) cell.Text = Printable(std::move(cell.Text));
  rows_.push_back(std::move(row));
}

std::vector<std::size_t> Table::Widths() const {
  std::vector<std::size_t> widths(rows_.front().size());
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(row[i].Text));
  }
  const auto room = platform::TerminalWidth(stdout);
  if (!room) return widths;
  const std::size_t gaps = kGap * (widths.size() - 1);
  while (std::accumulate(widths.begin(), widths.end(), gaps) > static_cast<std::size_t>(*room)) {
    const auto widest = std::max_element(widths.begin(), widths.end());
    if (*widest <= kNarrowestColumn) break;
    --*widest;
  }
  return widths;
}

std::vector<std::string> Table::Lines() const {
  const std::vector<std::size_t> widths = Widths();
  std::vector<std::string> lines;
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string text = CutToWidth(row[i].Text, widths[i]);
      line += Coloured(text, row[i].Tint);
      if (i + 1 < row.size()) line.append(widths[i] + kGap - DisplayWidth(text), ' ');
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

void Table::Print() const {
  for (const std::string& line : Lines()) std::cout << line << '\n';
  std::cout.flush();
}

}  // namespace tlm::ctl
