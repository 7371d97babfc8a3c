#include "tlmctl/option_values.h"

#include <algorithm>
#include <sstream>

namespace tlm::ctl {

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
