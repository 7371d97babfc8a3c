#include "rpc/orpctrace.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "platform/environment.h"
#include "rpc/orpcerror.h"
#include "util/immortal.h"

namespace tlm {

namespace {

struct TraceSettings {
  int Level = 0;
  std::optional<std::string> File;
};

struct Output {
  std::atomic<std::FILE*> Stream = stdout;
};

Output& TheOutput() {
  static Output& output = MakeImmortal<Output>();
  return output;
}

const TraceSettings& Settings() {
  static const TraceSettings& settings = []() -> TraceSettings& {
    const std::optional<std::string> level = platform::GetVariable("ORPC_TRACE");
    const TraceSettings read{level ? std::atoi(level->c_str()) : 0, platform::GetVariable("ORPC_TRACE_FILE")};
    return MakeImmortal<TraceSettings>(read);
  }();
  return settings;
}

const char* BaseName(const char* path) {
  const char* separator = std::strrchr(path, '/');
  return separator ? separator + 1 : path;
}

std::string DescribeSet(const DescriptorSet* set) { return set ? Describe(*set) : "0"; }

unsigned LowBits(const void* pointer) { return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(pointer)); }

template <class Operation>
auto WithResultTraced(Operation operation) {
  const auto result = operation();
  const int error = platform::LastSocketError();
  ORpcTrace::Continued(2).Print("%d\n", static_cast<int>(result));
  platform::SetLastSocketError(error);
  return result;
}

}  // namespace

std::FILE* ORpcOutput() { return TheOutput().Stream; }

void SetORpcOutput(std::FILE* output) { TheOutput().Stream = output; }

bool ORpcTrace::IsOn() const { return level_ <= Settings().Level; }

void ORpcTrace::Print(const char* format, ...) const {
  if (!IsOn()) return;
  const std::optional<std::string>& name = Settings().File;
  std::FILE* file = name ? std::fopen(name->c_str(), "ae") : nullptr;
  std::FILE* out = file ? file : ORpcOutput();
  if (!out) return;
  if (sourceName_) std::fprintf(out, "%s(%d): ", BaseName(sourceName_), line_);
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(out, format, arguments);
  va_end(arguments);
  std::fflush(out);
  if (file) std::fclose(file);
}

std::string Describe(const DescriptorSet& sockets) {
  std::string text = "[";
  for (const platform::Socket socket : sockets) text += (text.size() > 1 ? "," : "") + std::to_string(socket);
  return text + ']';
}

void RaiseSocketError(const char* tag, int number, TraceSite where) {
  ORpcTrace(1, where).Print("%s ERROR: %s(%d)\n", tag, std::strerror(number), number);
  throw OrpcSocketError(number);
}

int TracedSelect(int count, DescriptorSet* readSet, DescriptorSet* writeSet,
                 const std::optional<std::chrono::microseconds>& timeOut, TraceSite where) {
  const ORpcTrace trace(2, where);
  if (trace.IsOn()) {
    trace.Print("select(%d,%s,%s,%s,%x)=", count, DescribeSet(readSet).c_str(), DescribeSet(writeSet).c_str(), "0",
                LowBits(timeOut ? &*timeOut : nullptr));
  }
  return WithResultTraced([&] { return platform::WaitForSockets(readSet, writeSet, timeOut); });
}

std::int64_t TracedSend(platform::Socket socket, const void* buffer, std::size_t length, TraceSite where) {
  ORpcTrace(2, where).Print("send(%d,%x,%d)=", socket, LowBits(buffer), static_cast<int>(length));
  return WithResultTraced([&] { return platform::Send(socket, buffer, length); });
}

std::int64_t TracedReceive(platform::Socket socket, void* buffer, std::size_t length, TraceSite where) {
  ORpcTrace(2, where).Print("recv(%d,%x,%d)=", socket, LowBits(buffer), static_cast<int>(length));
  return WithResultTraced([&] { return platform::Receive(socket, buffer, length); });
}

void TracedClose(platform::Socket socket, TraceSite where) {
  platform::CloseSocket(socket);
  ORpcTrace(2, where).Print("close(%d)\n", socket);
}

std::uint32_t ORpcResolveName(const std::string& host, std::optional<std::chrono::microseconds> limit) {
  if (const auto address = platform::ParseAddress(host)) return *address;
  const auto address = platform::LookUpHost(host, limit);
  if (!address) RaiseSocketError("ORpcResolveName::gethostbyname", platform::LastSocketError());
  return *address;
}

}  // namespace tlm
