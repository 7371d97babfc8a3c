// The compound wire forms: a count, then that many elements. A count reserves nothing, so that a list takes memory only
// as its elements arrive.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "rpc/orpcerror.h"
#include "rpc/wire.h"

namespace tlm {

using StringList = std::vector<std::string>;
using HandleList = std::vector<std::uint64_t>;
using EnvList = std::vector<std::pair<std::string, std::string>>;  // name, value

template <class First, class Second>
ORpcIO& Encode(ORpcIO& io, const std::pair<First, Second>& entry) {
  return Encode(Encode(io, entry.first), entry.second);
}

template <class First, class Second>
void Decode(ORpcIO& io, std::pair<First, Second>& entry) {
  Decode(io, entry.first);
  Decode(io, entry.second);
}

template <class Element>
ORpcIO& Encode(ORpcIO& io, const std::vector<Element>& list) {
  Encode(io, static_cast<std::uint32_t>(list.size()));
  for (const Element& element : list) Encode(io, element);
  return io;
}

template <class Element>
void Decode(ORpcIO& io, std::vector<Element>& list) {
  list.clear();
  for (auto count = Decoded<std::uint32_t>(io); count > 0; --count) Decode(io, list.emplace_back());
}

// What a caller takes of a reply. Throws kMarshalError at the element after these: a server that goes on for ever would
// fill its memory.
inline constexpr std::size_t kLongestReplyList = 1'000'000;

template <class Value>
void DecodeReply(ORpcIO& io, Value& value) {
  Decode(io, value);
}

template <class Element>
void DecodeReply(ORpcIO& io, std::vector<Element>& list) {
  list.clear();
  for (auto count = Decoded<std::uint32_t>(io); count > 0; --count) {
    if (list.size() == kLongestReplyList) throw kMarshalError;
    Decode(io, list.emplace_back());
  }
}

}  // namespace tlm
