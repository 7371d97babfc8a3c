// The headers of a call and of a reply (RFC 5531). There is no authentication: flavour and length are always 0, and no
// body may follow them.
#pragma once

#include <cstdint>

#include "rpc/orpcerror.h"
#include "rpc/wire.h"

namespace tlm {

struct CallHeader {
  std::uint32_t Xid = 0;
  std::uint32_t MsgType = 0;
  std::uint32_t RpcVersion = 2;
  std::uint32_t Program = 0;
  std::uint32_t Version = 0;
  std::uint32_t Procedure = 0;
  std::uint32_t AuthFlavor = 0;  // sent twice with the length, as credential and as verifier
  std::uint32_t AuthLength = 0;
};

struct ReplyHeader {
  std::uint32_t Xid = 0;
  std::uint32_t MsgType = 1;
  std::uint32_t ReplyStat = 0;
  std::uint32_t VerfFlavor = 0;
  std::uint32_t VerfLength = 0;
  std::uint32_t AcceptedStat = 0;
};

inline constexpr std::uint32_t kReplyHeaderSize = 24;  // bytes on the wire

// Values of AcceptedStat.
inline constexpr std::uint32_t kSuccess = 0;
inline constexpr std::uint32_t kProgramUnavailable = 1;
inline constexpr std::uint32_t kProcedureUnavailable = 3;
inline constexpr std::uint32_t kSystemError = 5;

// True if the other side has answered no, with one of the values that there are; false if the connection has failed.
inline bool IsRefusal(const OrpcSocketError& error) {
  return error.Number() >= static_cast<std::int32_t>(kProgramUnavailable) &&
         error.Number() <= static_cast<std::int32_t>(kSystemError);
}

inline ORpcIO& Encode(ORpcIO& io, const CallHeader& header) {
  return EncodeWords<10>(
      io, {header.Xid, header.MsgType, header.RpcVersion, header.Program, header.Version, header.Procedure,
           header.AuthFlavor, header.AuthLength, header.AuthFlavor, header.AuthLength});
}

inline void Decode(ORpcIO& io, CallHeader& header) {
  const auto [xid, type, rpcVersion, program, version, procedure, credFlavor, credLength, verfFlavor, verfLength] =
      DecodeWords<10>(io);
  header = {xid, type, rpcVersion, program, version, procedure, verfFlavor, verfLength};
}

inline ORpcIO& Encode(ORpcIO& io, const ReplyHeader& header) {
  return EncodeWords<6>(
      io, {header.Xid, header.MsgType, header.ReplyStat, header.VerfFlavor, header.VerfLength, header.AcceptedStat});
}

inline void Decode(ORpcIO& io, ReplyHeader& header) {
  const auto [xid, type, replyStat, verfFlavor, verfLength, acceptedStat] = DecodeWords<6>(io);
  header = {xid, type, replyStat, verfFlavor, verfLength, acceptedStat};
}

}  // namespace tlm
