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
  ++connections_;
  bool greeted = false;
  Persist([&](QorJMClient& client) {
    if (!std::exchange(greeted, true)) greet_(client);  // Reopen greets by itself
  });
}

void Link::NoteLoss(int losses) {
  client_.reset();
  prepare_();
  if (losses == kMostLosses) throw Failure{kLost, "the connection was lost again and again, and is given up"};
  if (losses > 0) platform::Sleep(kRetryInterval);
  if (losses == 0) Note(settings_, "the connection to the server was lost, making it again");
}

void Link::Reopen() {
  const auto patience = settings_.WaitServer.count() != 0 ? settings_.WaitServer : kUsualPatience;
  const auto end = std::chrono::steady_clock::now() + patience;
  while (true) {
    EndIfInterrupted();
    const std::optional<Failure> failure = TryToReopen();
    if (!failure) return;
    if (failure->Code != kUnreachable || std::chrono::steady_clock::now() >= end) {
      throw Failure{kLost, failure->Text, failure->Hint};
    }
    platform::Sleep(kRetryInterval);
  }
}

// Why there is no connection yet. One that is lost at once, as behind a tunnel without a server, counts as none.
std::optional<Failure> Link::TryToReopen() {
  Settings once = settings_;
  once.WaitServer = std::chrono::seconds(0);
  try {
    client_.emplace();
    connect_(*client_, once);
    ++connections_;
    greet_(*client_);
    return std::nullopt;
  } catch (const Failure& failure) {
    client_.reset();
    return failure;
  } catch (const OrpcSocketError& error) {
    client_.reset();
    if (IsRefusal(error)) throw;
  } catch (int) {
    client_.reset();
  }
  return Failure{kUnreachable, "the server at " + AddressOf(settings_).Text() + " ends each connection at once",
                 "'tlmctl doctor' tells more"};
}

}  // namespace tlm::ctl
