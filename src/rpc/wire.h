// The primitive wire forms (XDR, RFC 4506): big-endian, each item a multiple of 4 bytes. Each is one Write or Read of
// its encoded size; a string is up to three: length, bytes, padding. Encoders give the stream back, so that calls can
// be chained. Decoders throw kMarshalError when the record ends inside an item.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <utility>

#include "rpc/orpcio.h"

namespace tlm {

inline constexpr std::uint32_t kMaxStringLength = 0x1000000;  // bytes

// Without a loop, so that each becomes one instruction.
template <class Integer>
void StoreBigEndian(Integer value, unsigned char* bytes) {
  [&]<std::size_t... At>(std::index_sequence<At...>) {
    ((bytes[At] = static_cast<unsigned char>(value >> 8 * (sizeof(Integer) - 1 - At))), ...);
  }
  (std::make_index_sequence<sizeof(Integer)>());
}

template <class Integer>
Integer LoadBigEndian(const unsigned char* bytes) {
  return [&]<std::size_t... At>(std::index_sequence<At...>) {
    return static_cast<Integer>(((Integer{bytes[At]} << 8 * (sizeof(Integer) - 1 - At)) | ...));
  }
  (std::make_index_sequence<sizeof(Integer)>());
}

ORpcIO& Encode(ORpcIO& io, std::uint32_t value);
ORpcIO& Encode(ORpcIO& io, std::uint64_t value);
ORpcIO& Encode(ORpcIO& io, bool value);
inline ORpcIO& Encode(ORpcIO& io, std::uint16_t value) { return Encode(io, std::uint32_t{value}); }
ORpcIO& Encode(ORpcIO& io, const std::string& value);

void Decode(ORpcIO& io, std::uint32_t& value);
void Decode(ORpcIO& io, std::uint64_t& value);
void Decode(ORpcIO& io, bool& value);  // any word but 0 is true
// Prints a message and throws kMarshalError for a length over kMaxStringLength. Takes no memory before bytes have come.
void Decode(ORpcIO& io, std::string& value);

inline ORpcIO& Encode(ORpcIO& io, std::int32_t value) { return Encode(io, static_cast<std::uint32_t>(value)); }
inline ORpcIO& Encode(ORpcIO& io, std::int64_t value) { return Encode(io, static_cast<std::uint64_t>(value)); }
// A text literal would else become a bool.
ORpcIO& Encode(ORpcIO& io, const char* value) = delete;

template <class Value>
Value Decoded(ORpcIO& io) {
  Value value{};
  Decode(io, value);
  return value;
}

inline void Decode(ORpcIO& io, std::int32_t& value) { value = static_cast<std::int32_t>(Decoded<std::uint32_t>(io)); }
inline void Decode(ORpcIO& io, std::int64_t& value) { value = static_cast<std::int64_t>(Decoded<std::uint64_t>(io)); }

// Integers that always come together, in one Write or, as a rule, one Read.
template <std::size_t Count>
ORpcIO& EncodeWords(ORpcIO& io, std::array<std::uint32_t, Count> words) {
  for (std::uint32_t& word : words) StoreBigEndian(word, reinterpret_cast<unsigned char*>(&word));
  io.Write(words.data(), sizeof words);
  return io;
}
// A record may end between two of them.
void ReadWords(ORpcIO& io, std::span<std::uint32_t> words);
template <std::size_t Count>
std::array<std::uint32_t, Count> DecodeWords(ORpcIO& io) {
  std::array<std::uint32_t, Count> words;
  ReadWords(io, words);
  return words;
}

// Bytes that fill an item up to a multiple of 4.
inline std::uint32_t PaddingOf(std::uint32_t length) { return -length & 3; }

// The bytes and the padding of an item whose length has been written.
void EncodeBytes(ORpcIO& io, const void* bytes, std::uint32_t length);
// The padding of an item of this length; Decode reads it and forgets it.
void EncodePadding(ORpcIO& io, std::uint32_t length);
void DecodePadding(ORpcIO& io, std::uint32_t length);

}  // namespace tlm
