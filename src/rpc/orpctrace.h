// The trace of the remote-call layer: level 1 shows failures, 2 all socket traffic, 3 a little more. ORPC_TRACE sets
// the level, ORPC_TRACE_FILE a file to append to in place of the layer's output; both are read at the first print.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "rpc/tracesite.h"

namespace tlm {

// Where the lines go that this layer and those above it print by themselves: standard output until it is set. Null if
// they go nowhere, for a library in somebody else's program. Any thread may call.
std::FILE* ORpcOutput();
void SetORpcOutput(std::FILE* output);

// One trace site. Prints nothing while its level is above the trace level.
class ORpcTrace {
 public:
  explicit ORpcTrace(int level, TraceSite where = TraceSite::Here())
      : level_(level), sourceName_(where.File), line_(where.Line) {}
  // Without the prefix of source and line: the second half of a line.
  static ORpcTrace Continued(int level) { return ORpcTrace(level, nullptr); }

  [[gnu::format(printf, 2, 3)]] void Print(const char* format, ...) const;
  bool IsOn() const;

 private:
  ORpcTrace(int level, const char* sourceName) : level_(level), sourceName_(sourceName), line_(0) {}
  int level_;
  const char* sourceName_;
  int line_;
};

// Descriptors in the order in which they were added.
using DescriptorSet = std::vector<platform::Socket>;
std::string Describe(const DescriptorSet& sockets);

// The system's operations, each traced at level 2 with its result. The last socket error is as the operation left it.
int TracedSelect(int count, DescriptorSet* readSet, DescriptorSet* writeSet,
                 const std::optional<std::chrono::microseconds>& timeOut, TraceSite where = TraceSite::Here());
std::int64_t TracedSend(platform::Socket socket, const void* buffer, std::size_t length,
                        TraceSite where = TraceSite::Here());
std::int64_t TracedReceive(platform::Socket socket, void* buffer, std::size_t length,
                           TraceSite where = TraceSite::Here());
void TracedClose(platform::Socket socket, TraceSite where = TraceSite::Here());

// IPv4 address, network order, of a host name or a dotted address. Raises OrpcSocketError, also if it takes longer.
std::uint32_t ORpcResolveName(const std::string& host, std::optional<std::chrono::microseconds> limit = std::nullopt);

}  // namespace tlm
