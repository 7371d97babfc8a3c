// What an examination has shown, line by line.
#pragma once

#include <string>

#include "tlmctl/console.h"
#include "tlmctl/settings.h"

namespace tlm::ctl {

enum class Verdict { Good, Warning, Fault };

// Prints each finding at once, as a line of a person's or, in the end, as one document. With --quiet those that are
// good are left out.
class Findings {
 public:
  explicit Findings(const Settings& settings) : settings_(settings) {}

  void Good(const std::string& subject, const std::string& text) { Add(Verdict::Good, subject, text, ""); }
  // The hint says what to do.
  void Warning(const std::string& subject, const std::string& text, const std::string& hint) {
    Add(Verdict::Warning, subject, text, hint);
  }
  void Fault(const std::string& subject, const std::string& text, const std::string& hint) {
    Add(Verdict::Fault, subject, text, hint);
  }
  bool HasFaults() const { return worst_ == Verdict::Fault; }
  void PrintDocument() const;  // with --json

 private:
  void Add(Verdict verdict, const std::string& subject, const std::string& text, const std::string& hint);

  const Settings& settings_;
  Verdict worst_ = Verdict::Good;
  Json list_ = Json::array();
};

}  // namespace tlm::ctl
