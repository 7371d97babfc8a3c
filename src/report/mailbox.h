// What is to be said to the job manager, on its way to the thread that says it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

namespace tlm::report {

struct RequiredLevel {
  std::uint64_t Type, Level;
};

struct Message {
  std::optional<std::uint32_t> Progress = std::nullopt;
  std::optional<RequiredLevel> Level = std::nullopt;
  bool Retry = false;
  bool ResultsAvailable = false;
  bool Succeeded = false;

  bool Empty() const { return !Progress && !Level && !Retry && !ResultsAvailable && !Succeeded; }
  // What stands in both is taken from the later one.
  void Join(const Message& later);
};

// Between an analysis and the thread that talks to the job manager. Lives as long as the later of the two. Any thread
// may call.
class Mailbox {
 public:
  // Joins with what has not been fetched yet. No effect after Finish.
  void Put(const Message& message);
  // No more messages come.
  void Finish();

  // The sender's side. Its return says that the message before was delivered. Empty once all were, after Finish.
  std::optional<Message> Fetch();
  // The sender is no more.
  void Close();
  // True for the first caller: it is the one that tells people that nobody answers.
  bool MayComplain() { return !hasComplained_.exchange(true); }

  // True if everything was delivered, or nothing ever will be.
  bool WaitUntilDelivered(std::chrono::milliseconds limit);
  bool WaitUntilClosed(std::chrono::milliseconds limit);
  bool AllDelivered();
  // True if what is being sent, or the attaching, has been on its way for longer.
  bool IsStuck(std::chrono::milliseconds limit);

 private:
  bool NothingIsLeft() const { return waiting_.Empty() && !sending_; }

  std::mutex lock_;  // guards all below
  std::condition_variable changed_;
  Message waiting_;
  bool sending_ = true;  // until the first Fetch: attaching counts
  std::chrono::steady_clock::time_point sendingSince_ = std::chrono::steady_clock::now();
  bool finished_ = false;
  bool closed_ = false;
  std::atomic<bool> hasComplained_ = false;  // needs no lock
};

}  // namespace tlm::report
