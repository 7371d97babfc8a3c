// Whoever follows an analysis and may ask it to end.
#pragma once

#include <cstdint>

namespace heat2d {

class Reporter {
 public:
  virtual ~Reporter() = default;
  virtual void Progress(std::uint32_t percent) = 0;
  virtual void ResultsAvailable() = 0;  // the files are there, whole
  virtual void Succeeded() = 0;
  virtual bool StopRequested() = 0;  // cheap: asked after every iteration
};

// Nobody follows.
class OfflineReporter : public Reporter {
 public:
  void Progress(std::uint32_t) override {}
  void ResultsAvailable() override {}
  void Succeeded() override {}
  bool StopRequested() override { return false; }
};

}  // namespace heat2d
