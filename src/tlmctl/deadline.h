// An end of the program at a given moment, also while a call does not return.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

namespace tlm::ctl {

class Deadline {
 public:
  // Unless it is called off before, `tell` runs at the end on a thread of its own, and the program ends with the exit
  // code that it gives. Where the system has no thread to give nothing happens.
  Deadline(std::chrono::steady_clock::time_point end, std::function<int()> tell);
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;
  ~Deadline() { CallOff(); }

  // Does not return if the end has come.
  void CallOff();

 private:
  const std::shared_ptr<std::atomic<bool>> hasCome_ = std::make_shared<std::atomic<bool>>(false);
  bool isOff_ = false;
};

}  // namespace tlm::ctl
