// One line of the terminal that is written anew again and again, on standard error. Without a terminal nothing is
// shown.
#pragma once

#include <chrono>
#include <string>

#include "tlmctl/settings.h"

namespace tlm::ctl {

class StatusLine {
 public:
  explicit StatusLine(const Settings& settings);
  ~StatusLine() { Clear(); }
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;

  // At most some times a second; what comes between is left out.
  void Show(const std::string& text);
  // Makes room for something else.
  void Clear();

 private:
  const bool wanted_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace tlm::ctl
