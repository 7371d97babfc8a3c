// A named event by which one process asks another to end.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tlm::platform {

// Sets the event of this name. False if there is none, or it may not be set.
bool SetStopEvent(const std::string& name);

// Takes the name away, so that nothing is left of an event whose owner has ended.
void RemoveStopEvent(const std::string& name);

// Now, by the clock that dates events.
std::chrono::nanoseconds StopEventTime();
// Takes the name away from an event that is older than that, which its owner may have left behind in a crash.
void RemoveStopEventBefore(const std::string& name, std::chrono::nanoseconds time);

// The other side: the event that a process makes and looks at. Several may look at one, and each of them sees it set.
// Used by one thread at a time.
class StopEvent {
 public:
  // Empty if it cannot be made. An event that a former owner of the name left behind is replaced. The name goes with
  // the object.
  static std::optional<StopEvent> Create(const std::string& name);
  // The event of this name that another process has made; its name stays. Empty if there is none.
  static std::optional<StopEvent> Open(const std::string& name);
  // As Open, or as Create if there is none.
  static std::optional<StopEvent> OpenOrCreate(const std::string& name);

  StopEvent(StopEvent&& other) noexcept;
  StopEvent& operator=(StopEvent&&) = delete;
  StopEvent(const StopEvent&) = delete;
  StopEvent& operator=(const StopEvent&) = delete;
  ~StopEvent();

  // From now on the name stays when the object goes.
  void LeaveName() { ownsName_ = false; }

  // True as soon as the event has been set, and from then on.
  bool WaitFor(std::chrono::milliseconds limit);
  // The same at once, without a pause of the scheduler.
  bool IsSet();

 private:
  StopEvent(std::string name, void* semaphore, bool ownsName)
      : name_(std::move(name)), semaphore_(semaphore), ownsName_(ownsName) {}
  static std::optional<StopEvent> Make(const std::string& name);

  std::string name_;
  void* semaphore_;
  bool ownsName_;
  bool set_ = false;
};

}  // namespace tlm::platform
