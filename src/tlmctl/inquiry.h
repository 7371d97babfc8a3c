// A question to a server that may not answer.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "jm/peer.h"

namespace tlm::ctl {

// Asked on a thread of its own from the start, so that several can be asked at once. What is still open when the
// program ends is given up.
template <class Answer>
class Inquiry {
 public:
  // The client is not connected yet. What `ask` throws counts as no answer. It must not refer to anything that may go
  // before it returns.
  explicit Inquiry(std::function<Answer(QorJMClient&)> ask) : peer_(std::make_shared<Peer>("")) {
    number_ = peer_->Post([answer = answer_, ask = std::move(ask)](QorJMClient& client) { *answer = ask(client); });
    peer_->Close();
  }

  // Empty if it has not come by then.
  std::optional<Answer> Await(std::chrono::steady_clock::time_point end) const {
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
    const bool ended = number_ != 0 && peer_->Await(number_, std::max(left, milliseconds(0)));
    return ended ? *answer_ : std::nullopt;
  }

 private:
  std::shared_ptr<Peer> peer_;
  std::shared_ptr<std::optional<Answer>> answer_ = std::make_shared<std::optional<Answer>>();
  std::uint64_t number_ = 0;
};

}  // namespace tlm::ctl
