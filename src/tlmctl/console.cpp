#include "tlmctl/console.h"

#include <algorithm>
#include <iostream>

#include "platform/environment.h"
#include "platform/terminal.h"

namespace tlm::ctl {

namespace {

bool IsControl(char c) { return (c >= 0 && c < ' ') || c == 0x7F; }

// Those from U+0080 to U+009F, in UTF-8.
bool IsLongControl(char first, char second) {
  return first == '\xC2' && static_cast<unsigned char>(second) >= 0x80 && static_cast<unsigned char>(second) < 0xA0;
}

bool CanAnswer(const Settings& settings) {
  return !settings.Yes && platform::IsTerminal(platform::StandardStream::Input);
}

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

void Say(const std::string& text) { std::cout << Printable(text) << '\n'; }

void Note(const Settings& settings, const std::string& text) {
  if (settings.Quiet) return;
  std::cout.flush();
  if (settings.Json) {
    std::cerr << LineOf({{"note", text}});
  } else {
    std::cerr << "tlmctl: " << Printable(text) << '\n';
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
  std::cerr << "tlmctl: " << Printable(failure.Text) << '\n';
  if (!failure.Hint.empty()) std::cerr << "  " << Printable(failure.Hint) << '\n';
}

bool CanDraw() {
  return platform::IsTerminal(platform::StandardStream::Output) &&
         platform::GetVariable("TERM").value_or("dumb") != "dumb";
}

std::string Coloured(const std::string& text, Colour colour) {
  static const bool wanted = CanDraw() && platform::GetVariable("NO_COLOR").value_or("").empty();
  if (!wanted || colour == Colour::None) return text;
  return std::string("\033[") + CodeOf(colour) + 'm' + text + "\033[0m";
}

std::string Printable(std::string text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (IsControl(text[i])) text[i] = '?';
    if (i > 0 && IsLongControl(text[i - 1], text[i])) text.replace(--i, 2, "?");
  }
  return text;
}

bool MayAsk(const Settings& settings) {
  return CanAnswer(settings) && platform::IsTerminal(platform::StandardStream::Error);
}

std::string Ask(const std::string& question) {
  const std::string text = Printable(question) + ' ';
  if (platform::IsTerminal(platform::StandardStream::Error) || !platform::ShowAtKeyboard(text)) {
    std::cerr << text << std::flush;
  }
  std::string answer;
  std::getline(std::cin, answer);
  std::cin.clear();
  return answer;
}

bool Confirm(const Settings& settings, const std::string& question) {
  if (!CanAnswer(settings)) return true;
  const std::string answer = Ask(question + " [y/N]");
  return answer == "y" || answer == "Y" || answer == "yes";
}

void RequireConsent(const Settings& settings, const std::string& question) {
  if (!Confirm(settings, question)) throw Failure{kRefused, "nothing was done"};
}

}  // namespace tlm::ctl
