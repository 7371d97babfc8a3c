// The file in which a job's process can leave messages for the job manager, to be read once the process has ended:
// pairs of decimal integers, a code and a value, separated by white space.
#pragma once

#include <cstdint>
#include <string>

namespace tlm {

// Used by one thread at a time.
class QorJMMsgStream {
 public:
  virtual ~QorJMMsgStream() = default;

  // Process id 0 is this process, and no directory the current one; empty if that one's name is too long.
  static std::string MessageFileName(std::uint32_t processId, const std::string& directory);

  // True if the file has a message of this code; the value of the last one goes to `value`, unless that is null.
  // Reading ends at the first word that is no integer, and what is missing of a pair there, or behind the white space
  // that ends the file, counts as 0. The first file that could be read is read again by later calls, whatever their
  // arguments, until a call has removed it.
  bool ReadMessage(int code, int* value, std::uint32_t processId, const std::string& directory, bool remove);

 private:
  std::string path_;
};

}  // namespace tlm
