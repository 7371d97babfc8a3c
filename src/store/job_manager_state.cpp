#include "store/job_manager_state.h"

namespace tlm {

void RequestStop(JobManagerState& state) {
  state.StopRequested = true;
  state.WorkComes.RaiseForAll();
  state.QueueTimeSet.RaiseForAll();
  state.PlaceComes.RaiseForAll();
  state.Stopping.Raise();
  state.Served.Close();
}

void RecordRemovedHandle(JobManagerState& state, std::uint64_t handle) {
  constexpr std::size_t kMostRemovedHandles = 100;
  const MAutoLock lock(state.PoolLock);
  state.RemovedHandles.push_back(handle);
  if (state.RemovedHandles.size() > kMostRemovedHandles) state.RemovedHandles.pop_front();
}

void NotifyJobChange(JobManagerState& state, Job& job, std::uint32_t status) {
  job.UpdateTimestamp += state.SessionList.size();
  if (status != Removed) return;
  for (Session* session : state.SessionList) session->WatchOffsets.erase(job.Handle);
}

}  // namespace tlm
