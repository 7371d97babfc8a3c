#include "platform/stop_event.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tlm::platform {

namespace {

std::string SystemName(const std::string& name) { return "/" + name; }

// The monotonic time after the span.
timespec TimeAfter(std::chrono::milliseconds span) {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  const auto milliseconds = std::max<std::int64_t>(span.count(), 0);
  time.tv_sec += milliseconds / 1000;
  time.tv_nsec += milliseconds % 1000 * 1'000'000;
  if (time.tv_nsec >= 1'000'000'000) {
    time.tv_nsec -= 1'000'000'000;
    ++time.tv_sec;
  }
  return time;
}

bool GetStatus(const std::string& name, struct stat& status) {
  return stat(("/dev/shm/sem." + name).c_str(), &status) == 0;
}

std::chrono::nanoseconds SpanOf(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// A file that is shorter than an event, made by whoever, would end this process when it is touched.
bool IsWhole(const std::string& name) {
  struct stat status;
  return GetStatus(name, status) && S_ISREG(status.st_mode) && status.st_size >= static_cast<off_t>(sizeof(sem_t)) &&
         status.st_uid == geteuid();
}

// SEM_FAILED if there is none.
sem_t* OpenWhole(const std::string& name) { return IsWhole(name) ? sem_open(SystemName(name).c_str(), 0) : SEM_FAILED; }

}  // namespace

bool SetStopEvent(const std::string& name) {
  sem_t* const semaphore = OpenWhole(name);
  if (semaphore == SEM_FAILED) return false;
  const bool set = sem_post(semaphore) == 0;
  sem_close(semaphore);
  return set;
}

void RemoveStopEvent(const std::string& name) { sem_unlink(SystemName(name).c_str()); }

std::chrono::nanoseconds StopEventTime() {
  timespec time = {};
  clock_gettime(CLOCK_REALTIME_COARSE, &time);  // the time that a file gets, which lies behind the finer clock
  return SpanOf(time);
}

void RemoveStopEventBefore(const std::string& name, std::chrono::nanoseconds time) {
  struct stat status;
  if (GetStatus(name, status) && SpanOf(status.st_mtim) < time) RemoveStopEvent(name);
}

std::optional<StopEvent> StopEvent::Create(const std::string& name) {
  RemoveStopEvent(name);
  return Make(name);
}

std::optional<StopEvent> StopEvent::Make(const std::string& name) {
  sem_t* const semaphore = sem_open(SystemName(name).c_str(), O_CREAT | O_EXCL, 0600, 0);
  if (semaphore == SEM_FAILED) return std::nullopt;
  return StopEvent(name, semaphore, true);
}

std::optional<StopEvent> StopEvent::Open(const std::string& name) {
  sem_t* const semaphore = OpenWhole(name);
  if (semaphore == SEM_FAILED) return std::nullopt;
  return StopEvent(name, semaphore, false);
}

std::optional<StopEvent> StopEvent::OpenOrCreate(const std::string& name) {
  if (std::optional<StopEvent> made = Make(name)) return made;
  return Open(name);
}

StopEvent::StopEvent(StopEvent&& other) noexcept
    : name_(std::move(other.name_)),
      semaphore_(std::exchange(other.semaphore_, nullptr)),
      ownsName_(other.ownsName_),
      set_(other.set_) {}

StopEvent::~StopEvent() {
  if (semaphore_ == nullptr) return;
  sem_close(static_cast<sem_t*>(semaphore_));
  if (ownsName_) RemoveStopEvent(name_);
}

bool StopEvent::IsSet() {
  int value = 0;
  set_ = set_ || (sem_getvalue(static_cast<sem_t*>(semaphore_), &value) == 0 && value > 0);
  return set_;
}

bool StopEvent::WaitFor(std::chrono::milliseconds limit) {
  const timespec end = TimeAfter(limit);
  auto* const semaphore = static_cast<sem_t*>(semaphore_);
  while (!set_) {
    set_ = sem_clockwait(semaphore, CLOCK_MONOTONIC, &end) == 0;
    if (!set_ && errno != EINTR) break;
    if (set_) sem_post(semaphore);  // for the others that look
  }
  return set_;
}

}  // namespace tlm::platform
