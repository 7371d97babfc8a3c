#include "tlmctl/findings.h"

#include <algorithm>
#include <iomanip>
#include <iostream>

namespace tlm::ctl {

namespace {

constexpr int kSubjectWidth = 10;
constexpr int kIndent = 18;

struct VerdictForm {
  const char* Line;
  const char* Word;  // as programs read it
  Colour Tint;
};

const VerdictForm& FormOf(Verdict verdict) {
  static constexpr VerdictForm kForms[] = {
      {"OK  ", "ok", Colour::Good}, {"WARN", "warning", Colour::Busy}, {"FAIL", "fault", Colour::Bad}};
  return kForms[static_cast<int>(verdict)];
}

}  // namespace

void Findings::Add(Verdict verdict, const std::string& subject, const std::string& text, const std::string& hint) {
  worst_ = std::max(worst_, verdict);
  const VerdictForm& form = FormOf(verdict);
  list_.push_back({{"check", subject}, {"result", form.Word}, {"text", text}, {"hint", hint}});
  if (settings_.Json || (settings_.Quiet && verdict == Verdict::Good)) return;
  std::cout << Coloured(form.Line, form.Tint) << "  " << std::left << std::setw(kSubjectWidth) << subject << "  "
            << Printable(text) << '\n';
  if (!hint.empty()) Say(std::string(kIndent, ' ') + hint);
  std::cout.flush();
}

void Findings::PrintDocument() const { PrintJson({{"result", FormOf(worst_).Word}, {"checks", list_}}); }

}  // namespace tlm::ctl
