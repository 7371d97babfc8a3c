// A job's program: tells a FIFO when it has started, stays a moment, and tells when it ends. Linked statically, so that
// its own start takes next to no time.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

namespace {

bool Tell(int fifo) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return write(fifo, &now, sizeof now) == sizeof now;
}

}  // namespace

int main(int argc, char** argv) {
  constexpr useconds_t kStay = 5000;  // microseconds, in which whoever waits for the end begins to do so
  const int fifo = argc == 2 ? open(argv[1], O_WRONLY) : -1;
  if (!Tell(fifo)) return 1;
  usleep(kStay);
  return Tell(fifo) ? 0 : 1;
}
