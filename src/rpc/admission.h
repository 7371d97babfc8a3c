// Who may connect, and how long a connection may keep silent.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tlm {

// Reads four decimal numbers with dots between them, in network order. Empty for anything else.
std::optional<std::uint32_t> ParsePlainAddress(const std::string& text);

// Addresses with the same first bits (RFC 4632).
class AddressRange {
 public:
  // Reads "10.1.0.0/16", or an address alone. Empty if it is neither.
  static std::optional<AddressRange> Parse(const std::string& text);
  // The address is in network order.
  bool Contains(std::uint32_t address) const;

 private:
  AddressRange(std::uint32_t first, std::uint32_t mask) : first_(first), mask_(mask) {}
  std::uint32_t first_;  // host order, as is the mask
  std::uint32_t mask_;
};

// 127.0.0.0/8, for an address in network order.
bool IsLoopback(std::uint32_t address);

// Everything is allowed that is not set. Connections from this machine, by which jobs report, have some room of their
// own beyond the number of connections.
struct Admission {
  std::vector<AddressRange> Ranges;                    // of peers; none for all
  std::size_t MostConnections = 0;                     // at a time; 0 for any number
  std::chrono::seconds FirstCall{0};                   // by when a connection has to have made a call; 0 for never
  std::chrono::seconds Silence{0};                     // without a byte within a call; 0 for any time
  std::uint32_t LongestRecord = 0;                     // bytes; 0 for more than any sender makes
  std::function<void(const std::string& line)> Trace;  // is told, with a line end, of each connection that is not kept
};

}  // namespace tlm
