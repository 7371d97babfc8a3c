// The wire form of an operation, made from its signature in the catalogue.
#pragma once

#include <cstdio>
#include <tuple>
#include <type_traits>
#include <utility>

#include "jm/iqorjm.h"
#include "jm/recycled_task.h"
#include "rpc/callheader.h"
#include "rpc/orpcclient.h"
#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"

namespace tlm {

// How a parameter travels, and what holds it on the server's side.
template <class Parameter>
struct WireParameter {
  using Held = std::remove_cvref_t<Parameter>;
  static constexpr bool kInRequest = true;
  static constexpr bool kInReply = std::is_lvalue_reference_v<Parameter> &&  //
                                   !std::is_const_v<std::remove_reference_t<Parameter>>;
  static Held& Pass(Held& held) { return held; }
  static void EncodeRequest(ORpcIO& io, const Held& value) { Encode(io, value); }
  static void DecodeReply(ORpcIO& io, Held& value) { tlm::DecodeReply(io, value); }
};

template <class Value>
struct WireParameter<Out<Value>> {
  using Held = Value;
  static constexpr bool kInRequest = false;
  static constexpr bool kInReply = true;
  static Out<Value> Pass(Held& held) { return {held}; }
  static void DecodeReply(ORpcIO& io, const Out<Value>& value) { tlm::DecodeReply(io, value.Ref); }
};

template <>
struct WireParameter<Task&> {
  using Held = RecycledTask;
  static constexpr bool kInRequest = true;
  static constexpr bool kInReply = true;
  static Task& Pass(const RecycledTask& held) { return held; }
  static void DecodeReply(ORpcIO& io, Task& value) { Decode(io, value); }
};

// What a server needs to answer one call.
struct ServedCall {
  IQorJM& Target;
  ORpcIO& Stream;
  const ReplyHeader& Header;      // written once the operation has returned
  const bool& Abandoned;          // the session was given up while the arguments were being read
  FileTransferWatcher& Receiver;  // of files among the arguments
};

// The one operation that both sides announce.
inline constexpr auto kRequiredLevel = static_cast<std::uint32_t>(OperationNumber::RequiredLevel);

template <std::uint32_t kNumber, bool kAwaited, class Result, class... Parameters>
struct OperationOf {
  // The stub's side.
  static Result Call(ORpcClient& client, Parameters... arguments) {
    if constexpr (kNumber == kRequiredLevel) {
      if (std::FILE* out = ORpcOutput()) {
        std::fprintf(out, "plmjm - QorJMClient::RequiredLevel - Sending %u %u %u\n",
                     static_cast<unsigned>(arguments)...);
      }
    }
    ORpcIO& request = client.BeginCall(kNumber);
    PutRequest(request, arguments...);
    request.Flush();
    if constexpr (kAwaited) {
      return TakeReply(client.EndCall(), arguments...);
    }
  }

  // What follows the headers of a call and of its reply.
  static void PutRequest(ORpcIO& request, Parameters... arguments) {
    (EncodeIfInRequest<Parameters>(request, arguments), ...);
  }
  static Result TakeReply(ORpcIO& reply, Parameters... arguments) {
    (DecodeIfInReply<Parameters>(reply, arguments), ...);
    if constexpr (!std::is_void_v<Result>) return Decoded<Result>(reply);
  }

  // The dispatcher's side: arguments, operation, header, results, in this order.
  template <Result (IQorJM::*kMethod)(Parameters...)>
  static void Serve(const ServedCall& call) {
    std::tuple<typename WireParameter<Parameters>::Held...> held{};
    std::apply([&](auto&... value) { (Watch(value, &call.Receiver), ...); }, held);
    std::apply([&](auto&... value) { (DecodeIfInRequest<Parameters>(call.Stream, value), ...); }, held);
    std::apply([&](auto&... value) { (Watch(value, nullptr), ...); }, held);
    if (call.Abandoned) throw OrpcSocketError(platform::kConnectionAborted);
    if constexpr (kNumber == kRequiredLevel) {
      std::apply(
          [](auto... value) {
            std::printf("plmjm - QorJMServer::Dispatch - Recieving %u %u %u\n", static_cast<unsigned>(value)...);
          },
          held);
    }
    const auto run = [&](auto&... value) { return (call.Target.*kMethod)(WireParameter<Parameters>::Pass(value)...); };
    const auto reply = [&](auto&... value) { (EncodeIfInReply<Parameters>(call.Stream, value), ...); };
    if constexpr (std::is_void_v<Result>) {
      std::apply(run, held);
      Encode(call.Stream, call.Header);
      std::apply(reply, held);
    } else {
      const Result result = std::apply(run, held);
      Encode(call.Stream, call.Header);
      std::apply(reply, held);
      Encode(call.Stream, result);
    }
  }

 private:
  template <class Value>
  static void Watch([[maybe_unused]] Value& value, [[maybe_unused]] FileTransferWatcher* watcher) {
    if constexpr (std::is_same_v<Value, FileTransferList>) value.Watcher = watcher;
  }
  template <class Parameter, class Value>
  static void EncodeIfInRequest(ORpcIO& io, const Value& value) {
    if constexpr (WireParameter<Parameter>::kInRequest) Encode(io, value);
  }
  template <class Parameter, class Value>
  static void DecodeIfInRequest(ORpcIO& io, Value& value) {
    if constexpr (WireParameter<Parameter>::kInRequest) Decode(io, value);
  }
  template <class Parameter, class Value>
  static void EncodeIfInReply(ORpcIO& io, const Value& value) {
    if constexpr (WireParameter<Parameter>::kInReply) Encode(io, value);
  }
  template <class Parameter, class Value>
  static void DecodeIfInReply(ORpcIO& io, Value& value) {
    if constexpr (WireParameter<Parameter>::kInReply) WireParameter<Parameter>::DecodeReply(io, value);
  }
};

template <std::uint32_t kNumber, bool kAwaited, class Interface, class Result, class... Parameters>
OperationOf<kNumber, kAwaited, Result, Parameters...> MakeOperation(Result (Interface::*)(Parameters...));

template <std::uint32_t kNumber, bool kAwaited, auto kMethod>
using Operation = decltype(MakeOperation<kNumber, kAwaited>(kMethod));

// The operation's stub, to be followed by the parenthesised list of its arguments.
template <class Operation>
auto Stub(ORpcClient& client) {
  return [&client](auto&&... arguments) {
    return Operation::Call(client, std::forward<decltype(arguments)>(arguments)...);
  };
}

}  // namespace tlm
