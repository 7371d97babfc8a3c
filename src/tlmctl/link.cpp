#include "tlmctl/link.h"

#include <chrono>
#include <string>
#include <utility>

#include "platform/thread.h"
#include "rpc/callheader.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/interrupt.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::seconds kUsualPatience{600};
constexpr std::chrono::milliseconds kRetryInterval{500};
constexpr int kMostLosses = 20;  // in one step, which then seems to be what the server cannot bear

}  // namespace

Link::Link(const Settings& settings, std::function<void(QorJMClient&)> greet,
           void (*connect)(QorJMClient&, const Settings&))
    : settings_(settings), greet_(std::move(greet)), connect_(connect) {}

void Link::Open() {
  client_.emplace();
  connect_(*client_, settings_);
  greet_(*client_);
}

bool Link::IsLoss(const OrpcSocketError& error) {
  switch (static_cast<std::uint32_t>(error.Number())) {
    case kProgramUnavailable:
    case kProcedureUnavailable:
    case kSystemError:
      return false;
    default:
      return true;
  }
}

void Link::NoteLoss(int losses) {
  client_.reset();
  if (losses == kMostLosses) throw Failure{kLost, "the connection was lost again and again, and is given up"};
  if (losses == 0) Note(settings_, "the connection to the server was lost, making it again");
}

void Link::Reopen() {
  const auto patience = settings_.WaitServer.count() != 0 ? settings_.WaitServer : kUsualPatience;
  const auto end = std::chrono::steady_clock::now() + patience;
  Settings once = settings_;
  once.WaitServer = std::chrono::seconds(0);
  while (true) {
    EndIfInterrupted();
    try {
      client_.emplace();
      connect_(*client_, once);
      return greet_(*client_);
    } catch (const Failure& failure) {
      client_.reset();
      if (failure.Code != kUnreachable || std::chrono::steady_clock::now() >= end) {
        throw Failure{kLost, failure.Text, failure.Hint};
      }
    }
    platform::Sleep(kRetryInterval);
  }
}

}  // namespace tlm::ctl
