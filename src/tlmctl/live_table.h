// Jobs in a table that a terminal shows at one place and that is drawn anew again and again.
#pragma once

#include <string>
#include <vector>

#include "tlmctl/followed_jobs.h"

namespace tlm::ctl {

class LiveTable {
 public:
  // True if standard output is a terminal that can do it.
  static bool IsPossible();

  // Draws over what was drawn before, with as many of the jobs as the terminal has lines for. Leaves the terminal as it
  // was, with the cursor below the table.
  void Draw(const std::string& heading, const std::vector<FollowedJob>& jobs);

  // Takes what was drawn off the terminal, for other words to stand there. The next table is drawn below those.
  void Clear();

 private:
  static std::vector<std::string> LinesOf(const std::string& heading, const std::vector<FollowedJob>& jobs, int width);
  std::string Return(int width) const;

  std::size_t drawn_ = 0;  // lines
  int width_ = 0;
};

}  // namespace tlm::ctl
