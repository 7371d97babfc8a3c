// How --help shows options and arguments.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tlm::ctl {

class HelpFormat : public CLI::Formatter {
 public:
  std::string make_option_name(const CLI::Option* option, bool isArgument) const override;
  std::string make_option_opts(const CLI::Option* option) const override;
  std::string make_option_usage(const CLI::Option* option) const override;
};

}  // namespace tlm::ctl
