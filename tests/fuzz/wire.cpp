// What comes over the wire: records, and the request and the reply of each operation of the catalogue.
#include "fuzz/fuzz.h"
#include "jm/dispatch.h"
#include "rpc/orpcrecordio.h"
#include "store/job_log.h"
#include "tlmctl/job_json.h"
#include "tlmctl/server_log.h"
#include "tlmctl/texts.h"

namespace tlm::fuzz {
namespace {
// Lets files come into a folder of their own, but for what would begin far behind. They are sent on from there.
struct Files : FileTransferWatcher {
  ~Files() override { std::filesystem::remove_all(Disk() / "files"); }
  std::optional<std::string> PathFor(const FileTransferItem& item) override {
    std::string& source = const_cast<FileTransferItem&>(item).Source;
    source = Disk().MakeDirectory("files") + '/' + std::to_string(item.Destination.size() % 4);
    if (item.Offset > 0xFFFF) source.clear();
    return source;
  }
};

// A server that passes each call on.
struct Relay : IQorJM {
  explicit Relay(std::string_view reply) : Reply(reply) {}
  MemoryStream Request, Reply;
  Files Receiver;

  void Watch(auto&) {}
  void Watch(FileTransferList& list) { list.Watcher = &Receiver; }
  template <class Operation>
  auto Pass(auto&... values) {
    Operation::PutRequest(Request, values...);
    (Watch(values), ...);
    return Operation::TakeReply(Reply, values...);
  }
#define OPERATION(number, name, result, parameters, arguments) \
  result name parameters override { return Pass<Operation<number, true, &IQorJM::name>> arguments; }
#define ONE_WAY(number, name, parameters, arguments) OPERATION(number, name, void, parameters, arguments)
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY
};

// Gives the request or the reply as it is passed on.
std::string Pass(std::int32_t operation, std::string_view bytes, bool isReply) {
  static const std::string kZeros(256, '\0');
  Relay relay(isReply ? bytes : kZeros);
  MemoryStream stream(isReply ? kZeros : bytes);
  DispatchOperation(operation, {relay, stream, ReplyHeader{}, false, relay.Receiver});
  return isReply ? stream.Written.erase(0, kReplyHeaderSize) : relay.Request.Written;
}

// What was passed on once is not changed by being passed on again.
void PassTwice(std::string_view input, bool isReply) try {
  constexpr int kOperations = 50;  // one above the last number
  const std::int32_t operation = TakeByte(input) % kOperations;
  const std::string once = Pass(operation, input, isReply);
  Require(Pass(operation, once, isReply) == once);
} catch (int) {  // a broken rule of marshalling
}

// Transfers exactly what is asked for.
struct SocketLike : MemoryStream {
  using MemoryStream::MemoryStream;
  std::uint32_t Read(void* buffer, std::uint32_t length) override {
    if (Offer(length) < length) throw OrpcSocketError(platform::kConnectionReset);
    return MemoryStream::Read(buffer, length);
  }
};
}  // namespace

FUZZ(requests) { PassTwice(input, false); }

FUZZ(replies) { PassTwice(input, true); }

FUZZ(records) try {
  ORpcRecordIO stream(std::make_unique<SocketLike>(input));
  Decoded<CallHeader>(stream);
  while (true) Decoded<std::string>(stream);
} catch (const OrpcSocketError&) {
} catch (int) {
}

// A job's state, as clients show it and as the server's log keeps it.
FUZZ(tasks) try {
  MemoryStream stream(input);
  Job job;
  Decode(stream, static_cast<Task&>(job));
  job.Installed = std::make_shared<Installation>();
  DescribeJob(job);
  ctl::MomentText(job.Scheduled);
  ctl::UtcTimeText(job.Scheduled);
  ctl::DurationText(job.Scheduled);
  ctl::ElapsedText(job);
  ctl::ExitCodeText(job);
  ctl::ProgressBar(job.Progress, 20);
  ctl::JobJson(4, job);

  job.Scheduled = job.Started = 1275300000;
  job.Status = Queued + job.Status % Removed;
  const std::string path = Disk().Write("jobs.log");
  JobLog log;
  log.Start(path, 1 << 20, 4711);
  log.Record(job);
  const ctl::ServerLog read = ctl::ReadServerLog(path);
  Require(read.Unreadable == 0 && read.Jobs.size() == 1);
} catch (int) {
}
}  // namespace tlm::fuzz
