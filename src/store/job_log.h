// What became of each job, in a file that outlives the server: a line of JSON for each change of a Status, and for each
// start and end of the server. Fields have the names that they have in documents of tlmctl.
#pragma once

#include <cstdint>
#include <string>

#include "store/job.h"

namespace tlm {

// Guarded by StateLock. A line is in the file when the call returns, so that a server that is killed afterwards has
// told it. A line that cannot be written is dropped, and no caller learns of it: the first of them is told on standard
// error, and the next that can be written has their number. What has been torn off is ended by the next line.
class JobLog {
 public:
  // Begins with a line of the start, from which readers conclude that the jobs of the port's former server are gone: so
  // the port has to be this server's. A line that would make the file larger than so many bytes goes into a new one,
  // and the former one has ".1" behind its name from then on, in place of an earlier one.
  void Start(const std::string& path, std::uint64_t largest, std::uint16_t port);
  // These write nothing unless it was started.
  void Record(const Job& job);
  void End();

 private:
  void Append(const std::string& fields);
  void Rotate(std::size_t length);

  std::string path_;  // empty until the start
  std::uint64_t largest_ = 0;
  std::uint16_t port_ = 0;
  bool endsWithinLine_ = false;
  std::uint64_t missing_ = 0;  // lines that could not be written since the last one that could
};

}  // namespace tlm
