// A stream of records as it comes, in pieces as large as the system gives them, and without a copy.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "connection.h"

namespace tlm::bench {

// What becomes of the files of a transfer.
class FileSink {
 public:
  virtual ~FileSink() = default;
  virtual void Begin(const std::string& /*destination*/) {}
  // Stays where it is until the next Settle.
  virtual void Take(std::string_view bytes) = 0;
  // Bytes that were taken are about to be written over.
  virtual void Settle() {}
  virtual void End() {}
};

class RecordReader {
 public:
  // The sink is told before its bytes go.
  RecordReader(const Connection& connection, FileSink& sink);

  // False if the other side has closed the connection before the next record.
  bool More();
  std::uint32_t Word();
  std::string Text();
  void Skip(std::size_t length);
  // A list of files, into the sink.
  void Files();

 private:
  void Refill();
  std::string_view Raw(std::size_t most);
  std::string_view Payload(std::size_t most);

  const Connection& connection_;
  FileSink& sink_;
  std::vector<char> buffer_;
  std::string_view unread_;   // in the buffer
  std::size_t inRecord_ = 0;  // bytes of the current record that have not been read
};

}  // namespace tlm::bench
