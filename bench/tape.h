// A stream without a network.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "rpc/orpcio.h"

namespace tlm::bench {

// Appends to the bytes, and reads them from the given position on.
class Tape : public ORpcIO {
 public:
  explicit Tape(std::string& bytes, std::size_t position = 0) : bytes_(bytes), position_(position) {}
  std::uint32_t Write(const void* buffer, std::uint32_t length) override {
    bytes_.append(static_cast<const char*>(buffer), length);
    return length;
  }
  std::uint32_t Read(void* buffer, std::uint32_t length) override {
    const std::size_t count = std::min<std::size_t>(length, bytes_.size() - position_);
    std::memcpy(buffer, bytes_.data() + position_, count);
    position_ += count;
    return static_cast<std::uint32_t>(count);
  }

 private:
  std::string& bytes_;
  std::size_t position_;
};

}  // namespace tlm::bench
