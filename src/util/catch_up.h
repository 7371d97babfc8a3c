// How a thread makes sure that the loop has served what had come to it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

namespace tlm {

// A process may end before the loop has read what it sent. What it sent lies in the loop's sockets by then, a
// connection that it had just made in the listener's queue, and behind the last bytes of each connection stands its
// end. So a look at all sockets that begins after the end of the process tells what has to be served before it.
//
// The loop's part, on its own thread:
//   1. Open before its first look, Close after its last one.
//   2. Before each look it takes the Request, unless it is still about an earlier one. A look with one begins afresh,
//   and
//      does not sleep if it might be the one that finds nothing more: it would find what came later. That the loop was
//      only woken does not count as something found.
//   3. It gives the Request to Answer as soon as nothing is to be served or accepted and no call is half served; or,
//      some time later, nobody is to be accepted and no connection is left that its peer has ended: the others belong
//      to processes that still run, or at best to children of the one that has ended.
// While it accepts nobody for want of resources it does not answer.
class CatchUp {
 public:
  // `wake` makes a loop that sleeps look again at once, and one that is about to sleep not to. It is called from any
  // thread, under this object's lock: it neither waits nor calls back.
  void Open(std::function<void()> wake);
  // Ends all waits.
  void Close();
  // Empty while nobody waits, which costs no lock.
  std::optional<std::uint64_t> Request() const;
  void Answer(std::uint64_t request);

  // Waits until all that had come at the time of the call has been served. False if it has not been within the limit.
  // At once if no loop is open. Not for the loop's thread, nor with a lock that an operation takes.
  bool Await(std::chrono::milliseconds limit);

 private:
  std::mutex lock_;  // guards what follows, and is held for each write
  std::condition_variable answered_;
  std::function<void()> wake_;
  std::atomic<std::uint64_t> asked_ = 0;
  std::atomic<std::uint64_t> served_ = 0;
};

}  // namespace tlm
