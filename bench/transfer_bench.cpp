// How fast a large file comes to the server and back on one machine, what that costs the server, and beside it a plain
// copy of the same bytes from file to file over a socket.
//   transfer_bench [MEGABYTES]      the server is the tlmjm beside this program
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "jm/qorjmclient.h"
#include "platform/environment.h"
#include "platform/file.h"
#include "platform/file_system.h"
#include "platform/process.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "rpc/orpcerror.h"

namespace tlm::bench {

namespace {

namespace fs = std::filesystem;
using platform::File;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMegabyte = 1 << 20;
constexpr std::size_t kPiece = 1 << 16;

void Require(bool worked, const char* what) {
  if (!worked) throw std::runtime_error(what);
}

// A directory with the file to send, and room for all that the server writes.
class Disk {
 public:
  explicit Disk(std::size_t megabytes)
      : root_(*platform::MakeUniqueDirectory(platform::TemporaryDirectory(), "bench")) {
    std::ofstream file(Source(), std::ios::binary);
    for (const std::string piece(kMegabyte, 'x'); megabytes > 0; --megabytes) file << piece;
    fs::create_directories(root_ / "home/bin");
    fs::create_directories(root_ / "tmp");
    std::ofstream(root_ / "home/bin/nothing") << "#!/bin/sh\n";
    fs::permissions(root_ / "home/bin/nothing", fs::perms::owner_all);
  }
  ~Disk() { fs::remove_all(root_); }
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;

  fs::path Source() const { return root_ / "large.dat"; }
  fs::path Path(const std::string& name) const { return root_ / name; }

 private:
  fs::path root_;
};

std::uint16_t FreePort() {
  const platform::Socket socket = platform::OpenTcpSocket();
  platform::BindToPort(socket, {});
  const std::uint16_t port = platform::LocalAddress(socket)->Port;
  platform::CloseSocket(socket);
  return port;
}

class Server {
 public:
  explicit Server(const Disk& disk) : port_(FreePort()) {
    platform::LaunchRequest request;
    request.CommandLine = (fs::canonical("/proc/self/exe").parent_path() / "tlmjm").string() + " debug";
    request.Environment = {"PATH=" + platform::GetVariable("PATH").value_or("/bin:/usr/bin"),
                           "TSQOR_JMPORT=" + std::to_string(port_), "TSQOR_HOME=" + disk.Path("home").string(),
                           "TSQOR_TMP=" + disk.Path("tmp").string()};
    request.OutputFile = disk.Path("server.log").string();
    process_ = platform::Process::Launch(request);
    Require(process_.has_value(), "the server cannot be started");
  }
  ~Server() { process_->Terminate(); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void Connect(QorJMClient& client) const {
    for (int tries = 0; tries < 500; ++tries, platform::Sleep(std::chrono::milliseconds(10))) {
      try {
        return client.Connect("127.0.0.1", port_);
      } catch (const OrpcSocketError&) {  // It does not listen yet.
      }
    }
    throw std::runtime_error("the server does not listen");
  }

  double ProcessorSeconds() const {
    std::ifstream fields("/proc/" + std::to_string(process_->Id()) + "/stat");
    std::string skipped;
    for (int field = 1; field < 14; ++field) fields >> skipped;
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / 100;  // the kernel tells them in hundredths
  }
  std::size_t PeakMegabytes() const {
    std::ifstream status("/proc/" + std::to_string(process_->Id()) + "/status");
    std::size_t kilobytes = 0;
    for (std::string word; status >> word;) {
      if (word == "VmHWM:") status >> kilobytes;
    }
    return kilobytes / 1024;
  }

 private:
  std::uint16_t port_;
  std::optional<platform::Process> process_;
};

double SecondsOf(const std::function<void()>& action) {
  const auto start = Clock::now();
  action();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void Measure(const char* name, std::size_t megabytes, const Server& server, const std::function<void()>& action) {
  const double before = server.ProcessorSeconds();
  const double seconds = SecondsOf(action);
  std::printf("%-15s %7.0f MB/s   server: %5.2f s of processor time, peak %zu MB\n", name,
              static_cast<double>(megabytes) / seconds, server.ProcessorSeconds() - before, server.PeakMegabytes());
}

// A job that does nothing, with the large file as its result.
std::uint64_t FinishedJob(QorJMClient& client, const std::string& directory) {
  Submission job;
  job.WorkDir = directory;
  job.ResultStem = job.InputStem = "large";
  job.Command = "nothing";
  job.CompleteOnFailure = true;
  const std::uint64_t handle = client.SubmitJob(job);
  Task task;
  for (; task.Status != Finished; platform::Sleep(std::chrono::milliseconds(50))) client.GetJob(handle, task);
  return handle;
}

void MeasureServer(const Disk& disk, std::size_t megabytes) {
  const Server server(disk);
  QorJMClient client;
  server.Connect(client);
  client.Hello("tlm2010", "bench", 0);
  const std::string here = disk.Path("back").string() + '/';
  fs::create_directories(here);
  std::string there;
  client.MapClientDirectory(here, there);
  Measure("PutFiles", megabytes, server, [&] {
    Require(client.PutFiles({{{there + "/large.dat", disk.Source().string()}}}), "the file was not stored");
  });
  const std::uint64_t job = FinishedJob(client, here);
  Measure("RequestResults", megabytes, server, [&] {
    FileTransferList files;
    Require(client.RequestResults(job, files) && files.Items.front().Stored, "the file did not come back");
  });
}

void SendFile(platform::Socket socket, const fs::path& path) {
  std::optional<File> file = File::Open(path.string(), File::Mode::Read);
  std::vector<char> piece(kPiece);
  while (const std::size_t count = file->Read(piece.data(), piece.size()).value_or(0)) {
    for (std::size_t sent = 0; sent < count;) {
      const std::int64_t some = platform::Send(socket, piece.data() + sent, count - sent);
      Require(some > 0, "the copy was broken off");
      sent += static_cast<std::size_t>(some);
    }
  }
  platform::ShutdownSocket(socket);
}

void MeasureCopy(const Disk& disk, std::size_t megabytes) {
  const platform::Socket listener = platform::OpenTcpSocket();
  platform::BindToPort(listener, {});
  platform::Listen(listener, 1);
  const double seconds = SecondsOf([&] {
    std::thread receiver([&] {
      platform::SocketAddress peer;
      const platform::Socket socket = platform::AcceptSocket(listener, peer);
      std::optional<File> file = File::Open(disk.Path("copy").string(), File::Mode::Truncate);
      std::vector<char> piece(kPiece);
      while (true) {
        const std::int64_t count = platform::Receive(socket, piece.data(), piece.size());
        if (count == 0) break;
        std::vector<platform::Socket> ready{socket};
        if (count < 0) platform::WaitForSockets(&ready, nullptr, std::nullopt);
        if (count > 0) Require(file->Write(piece.data(), static_cast<std::size_t>(count)), "no space for the copy");
      }
      platform::CloseSocket(socket);
    });
    const platform::Socket socket = platform::OpenTcpSocket();
    platform::Connect(socket, {*platform::ParseAddress("127.0.0.1"), platform::LocalAddress(listener)->Port});
    SendFile(socket, disk.Source());
    receiver.join();
    platform::CloseSocket(socket);
  });
  platform::CloseSocket(listener);
  std::printf("%-15s %7.0f MB/s\n", "plain copy", static_cast<double>(megabytes) / seconds);
}

}  // namespace

}  // namespace tlm::bench

int main(int argc, char** argv) {
  try {
    const std::size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1024;
    const tlm::bench::Disk disk(megabytes);
    tlm::bench::MeasureServer(disk, megabytes);
    tlm::bench::MeasureCopy(disk, megabytes);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "transfer_bench: %s\n", error.what());
    return 1;
  }
}
