#include "plain_transfer.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include "child.h"
#include "record_reader.h"

namespace tlm::bench {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMostPieces = 1024;  // that the system takes in one call

// Writes what lies in the buffer from there.
class StoringSink : public FileSink {
 public:
  void Begin(const std::string& destination) override {
    destination_ = destination;
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
    file_ = static_cast<int>(Check(open((destination + ".tmp").c_str(), flags, 0600), destination));
  }
  void Take(std::string_view bytes) override {
    pieces_.push_back({const_cast<char*>(bytes.data()), bytes.size()});
    size_ += bytes.size();
    if (pieces_.size() == kMostPieces) Settle();
  }
  void Settle() override {
    if (pieces_.empty()) return;
    const long count = Check(writev(file_, pieces_.data(), static_cast<int>(pieces_.size())), "writing a file");
    Require(static_cast<std::size_t>(count) == size_, "the disk is full");
    pieces_.clear();
    size_ = 0;
  }
  void End() override {
    Settle();
    close(file_);
    fs::rename(destination_ + ".tmp", destination_);
  }

 private:
  std::string destination_;
  int file_ = -1;
  std::vector<iovec> pieces_;
  std::size_t size_ = 0;  // of the pieces
};

std::string ReplyWith(bool result) {
  std::string payload;
  Tape tape(payload);
  Encode(Encode(tape, ReplyHeader{}), result);
  return Record(payload);
}

// Reads the file into the gaps between the chunks' lengths.
void SendFile(const Connection& connection, const fs::path& path) {
  std::string record = ChunkRecord("");
  std::vector<iovec> gaps;
  for (std::size_t i = 0; i < kChunksInRecord; ++i) {
    gaps.push_back({record.data() + kMarkSize + i * (4 + kChunk) + 4, kChunk});
  }
  const auto file = static_cast<int>(Check(open(path.c_str(), O_RDONLY | O_CLOEXEC), path));
  while (const long count = Check(readv(file, gaps.data(), kChunksInRecord), path)) {
    Require(count == kChunksInRecord * kChunk, "the file is not a whole number of records");
    connection.Send(record);
  }
  close(file);
}

void SendResults(const Connection& connection, const fs::path& source, const std::string& destination) {
  std::string payload;
  Tape head(payload);
  Encode(Encode(head, ReplyHeader{}), std::uint32_t{1});
  Encode(Encode(Encode(head, destination), source.string()), std::uint32_t{0});
  connection.Send(Record(payload));
  SendFile(connection, source);
  payload.clear();
  Tape tail(payload);
  Encode(Encode(tail, std::uint32_t{0}), true);
  connection.Send(Record(payload));
}

void Serve(const Connection& connection, const fs::path& source, const std::string& destination) {
  constexpr std::size_t kBeforeProcedure = 20;  // bytes of a call's head, and behind it
  constexpr std::size_t kBehindProcedure = 16;
  StoringSink sink;
  RecordReader reader(connection, sink);
  while (reader.More()) {
    reader.Skip(kBeforeProcedure);
    const auto operation = static_cast<OperationNumber>(reader.Word());
    reader.Skip(kBehindProcedure);
    if (operation == OperationNumber::RequestResults) {
      reader.Skip(sizeof(std::uint64_t) + sizeof(std::uint32_t));
      SendResults(connection, source, destination);
    } else {
      reader.Files();
      connection.Send(ReplyWith(true));
    }
  }
}

}  // namespace

std::string ChunkRecord(std::string_view content) {
  std::string payload;
  Tape tape(payload);
  for (std::size_t i = 0; i < kChunksInRecord; ++i) {
    Encode(tape, static_cast<std::uint32_t>(kChunk));
    payload += content.empty() ? std::string(kChunk, '\0') : std::string(content.substr(i * kChunk, kChunk));
  }
  return Record(payload);
}

void ServePlainTransfers(const Listener& listener, const fs::path& source, const std::string& destination) {
  while (true) Serve(listener.Accept(), source, destination);
}

}  // namespace tlm::bench
