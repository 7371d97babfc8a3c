#include <chrono>

#include "tlmctl/peer_load.h"
#include "tlmctl/queue_state.h"
#include "tlmctl/reason.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::seconds kPeerPatience{3};

void AddPredecessor(QorJMClient& client, const KnownJob& job, std::vector<Reason>& reasons) {
  const std::uint64_t handle = job.State.Predecessor;
  const std::optional<Task> task = handle == 0 ? std::nullopt : FetchJob(client, handle);
  if (!task || HasSucceeded(*task)) return;
  reasons.push_back({"predecessor", "it waits until " + SubjectAndState({handle, *task, {}}) + " has succeeded",
                     "'tlmctl why " + std::to_string(handle) + "' tells more about that one"});
}

void AddQueue(QorJMClient& client, std::vector<Reason>& reasons) {
  const QueueState queue = LookAtQueue(client);
  if (!queue.Runs) {
    const bool isPending = queue.StartsAt != 0;
    reasons.push_back({isPending ? "queue-starts-later" : "queue-stopped",
                       isPending ? "the queue starts on " + LocalTimeText(queue.StartsAt) : "the queue stands still",
                       std::string("'tlmctl queue start' starts it") + (isPending ? " now" : "")});
  }
  if (!queue.IsFull()) return;
  reasons.push_back(
      {"queue-limit",
       "the queue's limit, " + std::to_string(queue.Limit) + ", is reached by " + ListInWords(queue.Holders),
       "'tlmctl queue limit' raises it"});
}

// This client asks, and not the server that hands out the job: the two may not see the same.
Reason ReasonOf(const std::string& host, const ServerAddress& address, const std::optional<PeerLoad>& load,
                const std::string& release) {
  const std::string seen = ", seen from here at " + Printable(address.Text());
  if (!load) return {"peer-silent", host + " does not answer" + seen, "is its server running?"};
  const std::string numbers = "jobs " + std::to_string(load->Count) + ", limit " + std::to_string(load->Limit);
  if (!load->TakesJobs) {
    return {"peer-refuses", host + " has no programs of release " + release + ", and takes no job" + seen};
  }
  if (load->Count >= load->Limit) return {"peer-busy", host + " is busy: " + numbers + seen};
  return {"peer-free", host + " has room: " + numbers + seen + "; it may go there any moment"};
}

void AddPool(QorJMClient& client, const Settings& settings, std::vector<Reason>& reasons) {
  const std::uint32_t count = client.GetJobCount();
  const std::uint32_t limit = client.GetLocalLimit();
  if (count < limit) return;
  reasons.push_back({"local-limit",
                     "the server is busy itself: jobs " + std::to_string(count) + ", limit " + std::to_string(limit),
                     "'tlmctl load-limit' raises it"});
  const StringList pool = FetchPool(client);
  if (pool.empty()) {
    reasons.push_back({"no-pool", "it knows no other server to hand the job to", "'tlmctl pool set' names some"});
  }
  const std::vector<std::optional<PeerLoad>> loads = AskPeers(settings, pool, kPeerPatience);
  for (std::size_t i = 0; i < loads.size(); ++i) {
    reasons.push_back(ReasonOf(Printable(pool[i]), PeerAddress(settings, pool[i]), loads[i], settings.Release));
  }
  if (pool.size() > loads.size()) {
    reasons.push_back({"peers-unknown", std::to_string(pool.size() - loads.size()) + " more peers were not asked"});
  }
}

}  // namespace

std::vector<Reason> WhyItWaits(QorJMClient& client, const Settings& settings, const KnownJob& job) {
  std::vector<Reason> reasons;
  AddPredecessor(client, job, reasons);
  if (job.State.RunClass == kRunDistributed) {
    AddPool(client, settings, reasons);
  } else if (job.State.RunClass != kRunAtOnce) {
    AddQueue(client, reasons);
  }
  if (reasons.empty()) reasons.push_back({"soon", "nothing holds it up: it starts within a second or two"});
  return reasons;
}

}  // namespace tlm::ctl
