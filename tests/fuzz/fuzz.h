// What the targets share. Each decoder of foreign bytes has one: it is given any bytes at all, and may neither end the
// program nor break what it Requires.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "rpc/orpcio.h"
#include "support/sandbox.h"

namespace tlm::fuzz {
using Target = void (*)(const std::string& input);

// Makes a target known by its name, which is that of its folder in corpus/, too.
struct Registration {
  Registration(const char* name, Target target);
};

#define FUZZ(name)                                              \
  static void name(const std::string& input);                   \
  static const ::tlm::fuzz::Registration k_##name(#name, name); \
  static void name(const std::string& input)

inline void Require(bool holds) {
  if (!holds) std::abort();
}

// Text that was written anew is not changed by being read and written again.
void RequireSettled(auto rewritten) {
  const std::string once = rewritten();
  Require(rewritten() == once);
}

// Where all files of the targets lie.
const test::Sandbox& Disk();

// Gives the bytes, as far as they go, like one record; takes what is written.
struct MemoryStream : ORpcIO {
  explicit MemoryStream(std::string_view bytes = {}) : Rest(bytes) {}
  std::uint32_t Write(const void* buffer, std::uint32_t length) override {
    Written.append(static_cast<const char*>(buffer), length);
    return length;
  }
  std::uint32_t Read(void* buffer, std::uint32_t length) override {
    const auto count = static_cast<std::uint32_t>(Rest.copy(static_cast<char*>(buffer), length));
    Rest.remove_prefix(count);
    return count;
  }
  std::uint32_t Offer(std::uint32_t length) override {
    return static_cast<std::uint32_t>(std::min<std::size_t>(length, Rest.size()));
  }
  std::string_view Rest;
  std::string Written;
};

// Takes the first byte off; 0 if there is none.
inline unsigned char TakeByte(std::string_view& rest) {
  const char byte = rest.empty() ? '\0' : rest.front();
  rest.remove_prefix(rest.empty() ? 0 : 1);
  return static_cast<unsigned char>(byte);
}
}  // namespace tlm::fuzz
