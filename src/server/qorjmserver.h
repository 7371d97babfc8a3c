// The server side of IQorJM: one session for each connection, made at its first call.
#pragma once

#include "jm/iqorjm.h"
#include "rpc/orpcserver.h"
#include "rpc/orpcthread.h"
#include "server/receiver.h"
#include "store/job_manager_state.h"

namespace tlm {

// All operations run on the thread of the server loop, one at a time, and take StateLock themselves, since workers
// share the data. One that cannot do its work answers false, 0 or an empty list.
class QorJMServer : public IQorJM, public ORpcServer {
 public:
  // Both outlive the session.
  QorJMServer(JobManagerState& state, ORpcThread& thread);
  ~QorJMServer() override;

  void Dispatch(std::int32_t procedure) override;
  bool HasProc(std::int32_t procedure) const override;
  // The client has gone: its jobs belong to nobody from now on. A call that is still on the stack ends at its next
  // step.
  void Abandon() override;

#define OPERATION(number, name, result, parameters, arguments) result name parameters override;
#define ONE_WAY(number, name, parameters, arguments) void name parameters override;
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY

 private:
  bool MaySubmit(const Submission& submission) REQUIRES(state_.StateLock);
  // True if the client may do what concerns all. A refusal goes to the trace.
  bool MayAdminister(const char* operation);

  JobManagerState& state_;
  ORpcThread& thread_;
  Session session_;
  Receiver receiver_{state_};
  bool abandoned_ = false;
};

// From now on each connection to the loop that calls this program gets a session.
void RegisterJobManager(JobManagerState& state, ORpcThread& thread);

}  // namespace tlm
