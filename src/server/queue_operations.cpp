// The operations on the queue, its limits and the peers.
#include "dist/server_pool.h"
#include "exec/queue.h"
#include "server/qorjmserver.h"

namespace tlm {

bool QorJMServer::StartQueue(std::uint64_t delay) {
  tlm::StartQueue(state_, delay);
  return true;
}

bool QorJMServer::StopQueue() { return tlm::StopQueue(state_); }

bool QorJMServer::IsQueueRunning() {
  const MAutoLock lock(state_.StateLock);
  return state_.QueueRunning;
}

std::uint64_t QorJMServer::GetQueueStartTime() {
  const MAutoLock lock(state_.StateLock);
  return static_cast<std::uint64_t>(state_.QueueStartTime);
}

bool QorJMServer::SetQueueLimit(std::uint32_t count) {
  return MayAdminister("SetQueueLimit") && tlm::SetQueueLimit(state_, count);
}

std::uint32_t QorJMServer::GetQueueLimit() {
  const MAutoLock lock(state_.StateLock);
  return state_.QueueLimit;
}

bool QorJMServer::SetLocalLimit(std::uint32_t limit) {
  if (limit == 0 || !MayAdminister("SetLocalLimit")) return false;
  const MAutoLock lock(state_.StateLock);
  state_.LocalLimit = limit;
  return true;
}

std::uint32_t QorJMServer::GetLocalLimit() {
  const MAutoLock lock(state_.StateLock);
  return state_.LocalLimit;
}

void QorJMServer::GetServerPool(Out<StringList> pool) {
  const MAutoLock lock(state_.StateLock);
  pool.Ref = state_.ServerPool;
}

void QorJMServer::SetServerPool(const StringList& pool) {
  if (!MayAdminister("SetServerPool")) return;
  const MAutoLock lock(state_.StateLock);
  tlm::SetServerPool(state_, pool);
}

}  // namespace tlm
