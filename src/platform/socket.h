// TCP over IPv4. A socket is a plain number, as the traces show it; who opened it closes it. Each operation that fails
// leaves its error number for LastSocketError on the calling thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tlm::platform {

using Socket = int;

struct SocketAddress {
  std::uint32_t Address = 0;  // IPv4, network order
  std::uint16_t Port = 0;     // host order
};

// Error numbers that callers tell apart.
extern const int kWouldBlock;
extern const int kConnectionReset;
extern const int kConnectionAborted;
extern const int kNotConnected;
extern const int kTimedOut;

int LastSocketError();
void SetLastSocketError(int number);
bool IsWouldBlock(int number);
// True for a failed AcceptSocket that may work again later, once the process or the machine has resources again.
bool IsOutOfResources(int number);

// Negative on failure. A started program does not inherit the socket.
Socket OpenTcpSocket();
// A connection to a machine that has gone, or that can no longer be reached, fails within a minute, idle or not.
void NoticeLoss(Socket socket);
// True on success, each of these.
bool AllowAddressReuse(Socket socket);
bool BindToPort(Socket socket, SocketAddress local);  // address 0 stands for all local ones
bool Listen(Socket socket, int backlog);
bool MakeNonBlocking(Socket socket);
bool SetLinger(Socket socket, bool on, int seconds);
void SendWithoutDelay(Socket socket);
// Waits as long as the system does, or for no longer than the limit; then the socket is non-blocking.
bool Connect(Socket socket, SocketAddress peer, std::optional<std::chrono::milliseconds> limit = {});
// A new non-blocking socket, or a negative number.
Socket AcceptSocket(Socket listener, SocketAddress& peer);
bool ShutdownSocket(Socket socket);
void CloseSocket(Socket socket);

// Bytes moved, 0 when the peer has closed its side, -1 on failure. A peer that has gone raises no signal.
std::int64_t Send(Socket socket, const void* data, std::size_t length);
std::int64_t Receive(Socket socket, void* buffer, std::size_t length);
// Bytes that can be read at once; 0 if that cannot be told.
std::uint32_t BytesReadable(Socket socket);
// Bytes sent that the peer's system has not taken yet; 0 if that cannot be told.
std::uint32_t BytesQueued(Socket socket);
// Waits for the socket end only when so many bytes, or the end, have come.
void WakeFor(Socket socket, int bytes);

std::optional<SocketAddress> LocalAddress(Socket socket);
std::optional<SocketAddress> RemoteAddress(Socket socket);

// Dotted form. An address of all bits set is not taken as one.
std::optional<std::uint32_t> ParseAddress(const std::string& text);
std::string FormatAddress(std::uint32_t address);
// Of an address in network order.
std::uint32_t HostOrder(std::uint32_t address);
// First IPv4 address of the name. With a limit a thread of its own does the asking, which ends when it has an answer.
std::optional<std::uint32_t> LookUpHost(const std::string& name,
                                        std::optional<std::chrono::microseconds> limit = std::nullopt);

// The addresses of this machine, in network order, at which it takes connections on the port; 0 stands for all of them.
// Empty if that cannot be told.
std::optional<std::vector<std::uint32_t>> ListeningAddresses(std::uint16_t port);
// True if the address, in network order, is one of this machine's.
bool IsOwnAddress(std::uint32_t address);

// Waits until one of the sockets can be read or written, or has failed. On return the lists hold just those, in the
// order that they had. A null list is an empty one; without a limit there is no time-out. Gives the number of entries
// that are ready, 0 after the limit, -1 on failure, when the lists are empty. Any number of sockets will do.
int WaitForSockets(std::vector<Socket>* readable, std::vector<Socket>* writable,
                   std::optional<std::chrono::microseconds> limit);

}  // namespace tlm::platform
