#include "tlmctl/status_line.h"

#include <iostream>

#include "platform/terminal.h"
#include "tlmctl/console.h"
#include "tlmctl/display_width.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kRedrawInterval{100};

}  // namespace

StatusLine::StatusLine(const Settings& settings)
    : wanted_(!settings.Json && !settings.Quiet && platform::IsTerminal(platform::StandardStream::Error)) {}

void StatusLine::Show(const std::string& text) {
  const auto now = std::chrono::steady_clock::now();
  if (!wanted_ || (shown_ && now - last_ < kRedrawInterval)) return;
  const auto width = static_cast<std::size_t>(platform::TerminalWidth(platform::StandardStream::Error).value_or(2) - 1);
  std::cerr << "\r\033[K" << CutToWidth(Printable(text), width) << std::flush;
  shown_ = true;
  last_ = now;
}

void StatusLine::Clear() {
  if (shown_) std::cerr << "\r\033[K" << std::flush;
  shown_ = false;
}

}  // namespace tlm::ctl
