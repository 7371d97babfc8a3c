#include "rpc/wire.h"

#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"

namespace tlm {

namespace {

void ReadExactly(ORpcIO& io, void* buffer, std::uint32_t length) {
  if (io.Read(buffer, length) != length) throw kMarshalError;
}

template <class Integer>
ORpcIO& EncodeInteger(ORpcIO& io, Integer value) {
  unsigned char bytes[sizeof(Integer)];
  StoreBigEndian(value, bytes);
  io.Write(bytes, sizeof bytes);
  return io;
}

template <class Integer>
void DecodeInteger(ORpcIO& io, Integer& value) {
  unsigned char bytes[sizeof(Integer)];
  ReadExactly(io, bytes, sizeof bytes);
  value = LoadBigEndian<Integer>(bytes);
}

}  // namespace

ORpcIO& Encode(ORpcIO& io, std::uint32_t value) { return EncodeInteger(io, value); }
ORpcIO& Encode(ORpcIO& io, std::uint64_t value) { return EncodeInteger(io, value); }
ORpcIO& Encode(ORpcIO& io, bool value) { return EncodeInteger(io, std::uint32_t{value ? 1U : 0U}); }

ORpcIO& Encode(ORpcIO& io, const std::string& value) {
  const auto length = static_cast<std::uint32_t>(value.size());
  Encode(io, length);
  EncodeBytes(io, value.data(), length);
  return io;
}

void EncodeBytes(ORpcIO& io, const void* bytes, std::uint32_t length) {
  if (length > 0) io.Write(bytes, length);
  EncodePadding(io, length);
}

void EncodePadding(ORpcIO& io, std::uint32_t length) {
  static constexpr unsigned char kZeros[3] = {};
  if (PaddingOf(length) > 0) io.Write(kZeros, PaddingOf(length));
}

void ReadWords(ORpcIO& io, std::span<std::uint32_t> words) {
  for (std::size_t read = 0; read < words.size();) {
    const auto rest = words.subspan(read);
    const std::uint32_t count = io.Read(rest.data(), static_cast<std::uint32_t>(rest.size_bytes()));
    if (count == 0 || count % sizeof(std::uint32_t) != 0) throw kMarshalError;
    read += count / sizeof(std::uint32_t);
  }
  for (std::uint32_t& word : words) word = LoadBigEndian<std::uint32_t>(reinterpret_cast<const unsigned char*>(&word));
}

void Decode(ORpcIO& io, std::uint32_t& value) { DecodeInteger(io, value); }
void Decode(ORpcIO& io, std::uint64_t& value) { DecodeInteger(io, value); }
void Decode(ORpcIO& io, bool& value) { value = Decoded<std::uint32_t>(io) != 0; }

void Decode(ORpcIO& io, std::string& value) {
  const auto length = Decoded<std::uint32_t>(io);
  if (length > kMaxStringLength) {
    if (std::FILE* out = ORpcOutput()) {
      std::fprintf(out, "ERROR: string size is %d bytes\n", static_cast<int>(length));
    }
    throw kMarshalError;
  }
  if (io.Offer(length) < length) throw kMarshalError;
  value.resize(length);
  if (length > 0) ReadExactly(io, value.data(), length);
  DecodePadding(io, length);
}

void DecodePadding(ORpcIO& io, std::uint32_t length) {
  unsigned char padding[3];
  if (PaddingOf(length) > 0) ReadExactly(io, padding, PaddingOf(length));
}

}  // namespace tlm
