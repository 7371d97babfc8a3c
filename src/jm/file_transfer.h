// Files that travel inside a call or a reply.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rpc/orpcio.h"

namespace tlm {

struct FileTransferList;

struct FileTransferItem {
  std::string Destination;   // as the receiver names the file
  std::string Source;        // as the sender reads it
  std::uint32_t Offset = 0;  // bytes; where in the file the data starts
  // Not on the wire: where the receiver writes it, and whether it could store all that came there.
  std::string Path = {};
  bool Stored = false;
};

// What its owner wants to know of a transfer, and has to say about it. What a function throws ends the transfer.
class FileTransferWatcher {
 public:
  virtual ~FileTransferWatcher() = default;
  // Asked for each item before it is received: by which path its destination is reached. Without one, the item is read
  // to its end and not Stored.
  virtual std::optional<std::string> PathFor(const FileTransferItem& item) { return item.Destination; }
  // Asked for each item once all have come, before it takes the place of its destination. One that is not to do so is
  // thrown away and not Stored.
  virtual bool Replaces(const FileTransferList&, const FileTransferItem&) { return true; }
  // So many bytes more of the item have been handed to the connection, or stored.
  virtual void Moved(const FileTransferItem&, std::uint32_t) {}
};

// The content is not held in it: the wire form reads the sources and writes the destinations, a piece at a time.
struct FileTransferList {
  std::vector<FileTransferItem> Items;
  // Not on the wire. May be null.
  FileTransferWatcher* Watcher = nullptr;
};

// Sends each source from its offset on, as it is at that moment. One that cannot be read sends no data.
ORpcIO& Encode(ORpcIO& io, const FileTransferList& list);

// Throws kMarshalError at the item after these: whoever sends empty ones for ever would fill the memory.
inline constexpr std::size_t kMostItems = 1'000'000;

// Receives all items into destination + ".tmp", then puts each of these files in the place of its destination. Whatever
// ends the transfer before that leaves the former destinations whole and what came in the ".tmp" files; a later
// transfer with an offset continues them. An item that cannot be written, for want of space say, is read to its end all
// the same, is not Stored, and leaves its destination as it was.
void Decode(ORpcIO& io, FileTransferList& list);

}  // namespace tlm
