// A connection that is made again when it is lost, so that a job can be followed for days.
#pragma once

#include <functional>
#include <optional>

#include "jm/qorjmclient.h"
#include "rpc/callheader.h"
#include "tlmctl/connection.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

class Link {
 public:
  // `connect` makes a connection, or throws Failure; `greet` runs on each new one.
  Link(const Settings& settings, std::function<void(QorJMClient&)> greet,
       void (*connect)(QorJMClient&, const Settings&) = ConnectForJobs);

  // Runs before a word about a loss is said.
  void OnLoss(std::function<void()> prepare) { prepare_ = std::move(prepare); }

  // Throws Failure if there is no connection to be had.
  void Open();
  QorJMClient& Client() { return *client_; }
  // Ends the connection; the next step makes another.
  void Drop() { client_.reset(); }
  // How many there have been: while the number stays, so does the server.
  int Connections() const { return connections_; }

  // What the step gives. When the connection is lost in it, it runs again on a new one; so it must do no harm if it had
  // worked already. Throws Failure once the server could not be reached for the time that the settings give, or for
  // ten minutes.
  template <class Step>
  auto Persist(Step step) -> decltype(step(std::declval<QorJMClient&>())) {
    for (int losses = 0;; ++losses) {
      try {
        if (!client_) Reopen();
        return step(*client_);
      } catch (const OrpcSocketError& error) {
        if (IsRefusal(error)) throw;  // the server's answer
        NoteLoss(losses);
      } catch (int) {
        NoteLoss(losses);
      } catch (...) {
        Drop();  // an answer may be half read
        throw;
      }
    }
  }

 private:
  void NoteLoss(int losses);
  void Reopen();
  std::optional<Failure> TryToReopen();

  const Settings& settings_;
  std::function<void(QorJMClient&)> greet_;
  void (*const connect_)(QorJMClient&, const Settings&);
  std::function<void()> prepare_ = [] {};
  std::optional<QorJMClient> client_;
  int connections_ = 0;
};

}  // namespace tlm::ctl
