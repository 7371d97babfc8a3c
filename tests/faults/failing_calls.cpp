// Stands between the server's objects and the C library: the linker gives them each __wrap_ function in place of the
// one of the plain name, which is here __real_.
#include "support/failing_calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <initializer_list>
#include <netdb.h>
#include <poll.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <system_error>
#include <thread>
#include <unistd.h>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __real_close(int file);

namespace {
constexpr int kShort = -1;        // in place of an error number: half of what was asked for
constexpr long kTimeLapse = 100;  // pauses are shorter by this factor

tlm::test::FailingCalls& Calls() {
  static tlm::test::FailingCalls& calls = []() -> tlm::test::FailingCalls& {
    const int file = __real_open(getenv(tlm::test::kFailingCalls), O_RDWR | O_CLOEXEC);
    void* const memory = mmap(nullptr, sizeof(tlm::test::FailingCalls), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED) std::abort();
    __real_close(file);
    return *static_cast<tlm::test::FailingCalls*>(memory);
  }();
  return calls;
}

// The failure that this call has to show: an error number, which errno then is, or kShort. 0 if it is to work.
int Failure(const char* name, std::initializer_list<int> failures) {
  tlm::test::FailingCalls& calls = Calls();
  if (calls.Left.load() <= 0 || calls.Left.fetch_sub(1) != 1) return 0;
  std::strncpy(calls.Failed, name, sizeof calls.Failed - 1);
  const int failure = failures.begin()[calls.Kind % failures.size()];
  if (failure > 0) errno = failure;
  return failure;
}

std::size_t LengthAfter(int failure, std::size_t length) { return failure == kShort ? (length + 1) / 2 : length; }
}  // namespace

extern "C" {

#define CALL(type, name, parameters, arguments, failed, ...) \
  type __real_##name parameters;                             \
  type __wrap_##name parameters {                            \
    if (Failure(#name, {__VA_ARGS__}) != 0) return failed;   \
    return __real_##name arguments;                          \
  }
#define TRANSFER(name, parameters, arguments, ...)     \
  ssize_t __real_##name parameters;                    \
  ssize_t __wrap_##name parameters {                   \
    const int failure = Failure(#name, {__VA_ARGS__}); \
    if (failure > 0) return -1;                        \
    length = LengthAfter(failure, length);             \
    return __real_##name arguments;                    \
  }

TRANSFER(read, (int file, void* buffer, std::size_t length), (file, buffer, length), kShort, EIO, EINTR)
TRANSFER(write, (int file, const void* data, std::size_t length), (file, data, length), kShort, ENOSPC, EIO, EINTR)
TRANSFER(send, (int socket, const void* data, std::size_t length, int flags), (socket, data, length, flags), kShort,
         EAGAIN, EINTR, ECONNRESET)
TRANSFER(recv, (int socket, void* buffer, std::size_t length, int flags), (socket, buffer, length, flags), kShort,
         EAGAIN, EINTR, ECONNRESET)

CALL(int, rename, (const char* from, const char* to), (from, to), -1, EIO, ENOSPC)
CALL(int, unlink, (const char* path), (path), -1, EIO)
CALL(int, rmdir, (const char* path), (path), -1, EIO)
CALL(int, mkdir, (const char* path, mode_t mode), (path, mode), -1, ENOSPC, EIO)
CALL(char*, mkdtemp, (char* pattern), (pattern), nullptr, ENOSPC, EIO)
CALL(int, mkostemp, (char* pattern, int flags), (pattern, flags), -1, ENOSPC, EMFILE, EINTR)
CALL(int, stat, (const char* path, struct stat* status), (path, status), -1, EIO)
CALL(int, fstat, (int file, struct stat* status), (file, status), -1, EIO)
CALL(DIR*, opendir, (const char* path), (path), nullptr, EMFILE, EIO)
CALL(dirent*, readdir, (DIR * stream), (stream), nullptr, EIO)
CALL(off_t, lseek, (int file, off_t offset, int whence), (file, offset, whence), -1, EIO)
CALL(int, ftruncate, (int file, off_t size), (file, size), -1, ENOSPC, EIO, EINTR)
CALL(int, chmod, (const char* path, mode_t mode), (path, mode), -1, EPERM)
CALL(int, poll, (pollfd * entries, nfds_t count, int limit), (entries, count, limit), -1, EINTR)
CALL(int, ppoll, (pollfd * entries, nfds_t count, const timespec* limit, const sigset_t* mask),
     (entries, count, limit, mask), -1, EINTR, ENOMEM)
CALL(int, epoll_ctl, (int poller, int what, int file, epoll_event* event), (poller, what, file, event), -1, ENOSPC)
CALL(int, epoll_wait, (int poller, epoll_event* events, int count, int limit), (poller, events, count, limit), -1,
     EINTR)
CALL(ssize_t, readv, (int file, const iovec* pieces, int count), (file, pieces, count), -1, EIO, EINTR)
CALL(ssize_t, writev, (int file, const iovec* pieces, int count), (file, pieces, count), -1, ENOSPC, EIO, EINTR)
CALL(int, accept4, (int listener, sockaddr* address, socklen_t* length, int flags), (listener, address, length, flags),
     -1, EMFILE, ECONNABORTED, EINTR)
CALL(int, getsockname, (int socket, sockaddr* address, socklen_t* length), (socket, address, length), -1, ENOBUFS)
CALL(int, getpeername, (int socket, sockaddr* address, socklen_t* length), (socket, address, length), -1, ENOTCONN)
CALL(int, setsockopt, (int socket, int level, int option, const void* value, socklen_t length),
     (socket, level, option, value, length), -1, ENOBUFS)
CALL(int, pidfd_open, (pid_t id, unsigned flags), (id, flags), -1, EMFILE)
CALL(int, posix_spawn,
     (pid_t * id, const char* path, const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes,
      char* const* words, char* const* environment),
     (id, path, actions, attributes, words, environment), errno, EAGAIN, ENOMEM)

int __wrap_open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return Failure("open", {EMFILE, (flags & O_CREAT) != 0 ? ENOSPC : EIO, EINTR}) != 0 ? -1
                                                                                      : __real_open(path, flags, mode);
}

// Locks; with other commands it does not fail.
int __real_fcntl(int file, int command, ...);
int __wrap_fcntl(int file, int command, ...) {
  va_list rest;
  va_start(rest, command);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  if (command == F_OFD_SETLK && Failure("fcntl", {EAGAIN, ENOLCK, EINTR}) != 0) return -1;
  return __real_fcntl(file, command, argument);
}

// What a file system says at the end of writing.
int __wrap_close(int file) {
  const int result = __real_close(file);
  return Failure("close", {EIO, EINTR, ENOSPC}) != 0 ? -1 : result;
}

int __real_getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found);
int __wrap_getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found) {
  if (std::strcmp(name, "slow") == 0) sleep(100);
  return __real_getaddrinfo(name, service, hints, found);
}

// Of std::thread, at which it is the library that fails.
#define START _ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE
#define NAME_(prefix, name) prefix##name
#define NAME(prefix, name) NAME_(prefix, name)
void NAME(__real_, START)(std::thread* thread, void* state, void (*depend)());
void NAME(__wrap_, START)(std::thread* thread, void* state, void (*depend)()) {
  if (Failure("thread", {EAGAIN}) != 0) throw std::system_error(EAGAIN, std::generic_category());
  NAME(__real_, START)(thread, state, depend);
}

int __real_nanosleep(const timespec* time, timespec* left);
int __wrap_nanosleep(const timespec* time, timespec*) {
  const long nanoseconds = (time->tv_sec * 1'000'000'000 + time->tv_nsec) / kTimeLapse;
  const timespec shorter{nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
  return __real_nanosleep(&shorter, nullptr);
}

std::time_t __real_time(std::time_t* result);
std::time_t __wrap_time(std::time_t* result) {
  const std::time_t now = __real_time(nullptr) + Calls().Clock;
  if (result != nullptr) *result = now;
  return now;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
