#include "tlmctl/option_values.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <system_error>

#include "tlmctl/exit_code.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

CLI::Option* AddCount(CLI::App& command, const std::string& name, std::uint32_t& count,
                      const std::string& description) {
  const auto check = [](const std::string& word) -> std::string {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    const bool isCount = error == std::errc() && end == word.data() + word.size() && number != 0;
    return isCount ? "" : word + " is no number from 1 to 4294967295";
  };
  return command.add_option(name, count, description)->type_name("N")->check(check);
}

CLI::Option* AddPriorityLevel(CLI::App& command, const std::string& name, std::string& level,
                              const std::string& description) {
  const auto check = [](const std::string& word) -> std::string {
    try {
      PriorityOf(word);
      return "";
    } catch (const Failure& failure) {
      return failure.Text + "; " + failure.Hint;
    }
  };
  return command.add_option(name, level, description)->type_name(kPriorityValue)->check(check);
}

std::string KindOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  std::size_t end = type.find(':');
  if (end != std::string::npos && end > 0 && type[end - 1] == '[') end = type.find(':', end + 1);  // "HOST[:PORT]"
  return type.substr(0, end);
}

std::vector<std::string> ChoicesOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const std::size_t begin = type.find('{');
  const std::size_t end = type.find('}', std::min(begin, type.size()));
  std::vector<std::string> choices;
  if (end == std::string::npos) return choices;
  std::istringstream list(type.substr(begin + 1, end - begin - 1));
  for (std::string choice; std::getline(list, choice, ',');) choices.push_back(choice);
  return choices;
}

}  // namespace tlm::ctl
