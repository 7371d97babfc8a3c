#include "tlmctl/help_format.h"

#include "tlmctl/option_values.h"

namespace tlm::ctl {

namespace {

std::string Joined(const std::vector<std::string>& texts, const std::string& between) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : between) + text;
  return joined;
}

// Empty if the name of the argument says it all.
std::string ValueText(const CLI::Option& option) {
  const std::vector<std::string> choices = ChoicesOf(option);
  if (!choices.empty()) return Joined(choices, "|");
  const std::string kind = KindOf(option);
  return option.get_positional() && kind == option.get_name(true) ? "" : kind;
}

}  // namespace

std::string HelpFormat::make_option_name(const CLI::Option* option, bool isArgument) const {
  if (isArgument) return option->get_name(true);
  std::vector<std::string> names;
  for (const std::string& name : option->get_snames()) names.push_back('-' + name);
  for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return Joined(names, ", ");
}

std::string HelpFormat::make_option_opts(const CLI::Option* option) const {
  std::string text;
  if (option->get_items_expected_max() > 0) {
    const std::string value = ValueText(*option);
    if (!value.empty()) text += option->get_items_expected_min() == 0 ? " [" + value + ']' : ' ' + value;
    if (!option->get_default_str().empty()) text += " = " + option->get_default_str();
    if (option->get_items_expected_max() >= CLI::detail::expected_max_vector_size) text += " ...";
  }
  std::vector<std::string> others;
  for (const CLI::Option* other : option->get_excludes()) others.push_back(other->get_name());
  if (!others.empty()) text += " (not with " + Joined(others, ", ") + ')';
  if (!option->get_envname().empty()) text += " (else $" + option->get_envname() + ')';
  return text;
}

std::string HelpFormat::make_option_usage(const CLI::Option* argument) const {
  const std::string text = argument->get_name(true) + (argument->get_items_expected_max() > 1 ? "..." : "");
  return argument->get_required() ? text : '[' + text + ']';
}

}  // namespace tlm::ctl
