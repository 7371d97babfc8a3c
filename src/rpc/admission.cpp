#include "rpc/admission.h"

#include <algorithm>
#include <charconv>

#include "platform/socket.h"

namespace tlm {

namespace {

constexpr unsigned kAddressBits = 32;

std::uint32_t MaskOf(unsigned bits) { return bits == 0 ? 0 : ~std::uint32_t{0} << (kAddressBits - bits); }

}  // namespace

std::optional<std::uint32_t> ParsePlainAddress(const std::string& text) {
  const std::optional<std::uint32_t> address = platform::ParseAddress(text);
  // The system takes 10.1 for 10.0.0.1, and 010 for 8.
  return address && platform::FormatAddress(*address) == text ? address : std::nullopt;
}

std::optional<AddressRange> AddressRange::Parse(const std::string& text) {
  const std::size_t slash = std::min(text.find('/'), text.size());
  const std::string first = text.substr(0, slash);
  const std::optional<std::uint32_t> address = ParsePlainAddress(first);
  if (!address) return std::nullopt;
  unsigned bits = kAddressBits;
  if (slash < text.size()) {
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data() + slash + 1, last, bits);
    if (error != std::errc() || end != last || bits > kAddressBits) return std::nullopt;
  }
  return AddressRange(platform::HostOrder(*address) & MaskOf(bits), MaskOf(bits));
}

bool AddressRange::Contains(std::uint32_t address) const { return (platform::HostOrder(address) & mask_) == first_; }

bool IsLoopback(std::uint32_t address) { return AddressRange::Parse("127.0.0.0/8")->Contains(address); }

}  // namespace tlm
