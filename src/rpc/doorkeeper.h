// Who comes in, and which connections go again because they have not made a call, or have fallen silent in one.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>

#include "rpc/admission.h"
#include "rpc/connections.h"

namespace tlm {

// For the thread of the loop. A connection is a stranger from its acceptance to its first call.
class Doorkeeper {
 public:
  // `drop` ends a connection and has it forgotten.
  Doorkeeper(Connections& connections, std::function<void(Connection&)> drop)
      : connections_(connections), drop_(std::move(drop)) {}

  void SetAdmission(Admission admission) { admission_ = std::move(admission); }
  std::uint32_t LongestRecord() const { return admission_.LongestRecord; }

  // A stranger may have to go instead.
  bool Admits(platform::SocketAddress peer);
  // The steps of one that has been admitted: before it is waited for; then; when its next call begins; when the header
  // of that is there, or the connection goes.
  void Prepare(platform::Socket socket) const;
  void Welcome(Connection& connection);
  void LetIn(const Connection& connection) const;
  void Acquaint(Connection& connection);

  // Has to come again within the time given, if one is.
  void DropLateStrangers();
  std::optional<std::chrono::microseconds> NextLook() const;
  // Without a byte within a call; null for a socket that is none of the loop's.
  bool IsTooLong(const Connection* connection, std::chrono::steady_clock::duration silence, bool isCrowded) const;

 private:
  using Clock = std::chrono::steady_clock;

  bool WaitsForWholeHeaders() const { return admission_.FirstCall.count() != 0 || admission_.MostConnections != 0; }
  void DropStranger(Connection& connection, const char* reason);

  Connections& connections_;
  std::function<void(Connection&)> drop_;
  Admission admission_;
  std::size_t strangers_ = 0;
  Clock::time_point nextLook_;
};

}  // namespace tlm
