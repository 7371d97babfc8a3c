#include "jm/file_transfer.h"

#include <algorithm>
#include <map>
#include <optional>

#include "platform/file.h"
#include "platform/file_system.h"
#include "rpc/orpcerror.h"
#include "rpc/wire.h"
#include "util/mlockfile.h"

namespace tlm {

namespace {

using platform::File;

constexpr std::uint32_t kPiece = 4096;  // bytes of a chunk that is sent, and of a step in receiving one

// Not on the stack, where hundreds of calls may wait for their clients, one above the other.
using Buffer = std::vector<char>;

std::string TemporaryName(const FileTransferItem& item) { return item.Path + ".tmp"; }

// Only what is a file can be read to an end.
std::optional<File> OpenSource(const FileTransferItem& item) {
  platform::FileStatus status;
  if (platform::GetFileStatus(item.Source, status) != 0 || !status.IsRegular) return std::nullopt;
  std::optional<File> source = File::Open(item.Source, File::Mode::Read);
  if (source && !source->Seek(item.Offset)) source.reset();
  return source;
}

void SendData(ORpcIO& io, const FileTransferItem& item, FileTransferWatcher* watcher) {
  if (std::optional<File> source = OpenSource(item)) {
    Buffer piece(kPiece);
    while (true) {
      const std::size_t length = source->Read(piece.data(), piece.size()).value_or(0);
      if (length == 0) break;
      Encode(io, static_cast<std::uint32_t>(length));
      EncodeBytes(io, piece.data(), static_cast<std::uint32_t>(length));
      if (watcher) watcher->Moved(item, static_cast<std::uint32_t>(length));
    }
  }
  Encode(io, std::uint32_t{0});
}

// Only a file is ever replaced: where a device or a directory stands, nothing is touched.
bool MayStandAt(const std::string& destination) {
  platform::FileStatus status;
  return !destination.empty() && (platform::GetFileStatus(destination, status) != 0 || status.IsRegular);
}

// Where a link stands, a new file takes its place: what it leads to may be anybody's.
std::optional<File> OpenTemporary(const FileTransferItem& item) {
  const std::string temporary = TemporaryName(item);
  if (platform::IsLink(temporary)) platform::RemoveFile(temporary);
  const File::Mode mode = item.Offset == 0 ? File::Mode::Truncate : File::Mode::Update;
  std::optional<File> file = File::Open(temporary, mode, File::Links::Refuse);
  if (file && !file->Seek(item.Offset)) file.reset();
  return file;
}

// Moves one chunk from the stream into the file; without a file, past it. False if the file did not take it.
bool ReceiveChunk(ORpcIO& io, std::optional<File>& file, std::uint32_t length, Buffer& piece) {
  bool written = true;
  for (std::uint32_t remaining = length; remaining > 0;) {
    const std::uint32_t wanted = std::min(remaining, kPiece);
    const std::uint32_t count = io.Read(piece.data(), wanted);
    written = written && file && file->Write(piece.data(), count);
    if (count < wanted) throw kMarshalError;
    remaining -= count;
  }
  DecodePadding(io, length);
  return written;
}

void ReceiveItem(ORpcIO& io, FileTransferItem& item, FileTransferWatcher* watcher) {
  Decode(io, item.Destination);
  Decode(io, item.Source);
  Decode(io, item.Offset);
  MLockFile lock;
  std::optional<File> file;
  item.Path = watcher ? watcher->PathFor(item).value_or("") : item.Destination;
  if (MayStandAt(item.Path)) {
    static_cast<void>(lock.Lock(TemporaryName(item), false));  // the file is written whatever the answer
    file = OpenTemporary(item);
  }
  item.Stored = file.has_value();
  Buffer piece(kPiece);
  while (const auto length = Decoded<std::uint32_t>(io)) {
    if (ReceiveChunk(io, file, length, piece)) {
      if (watcher) watcher->Moved(item, length);
      continue;
    }
    item.Stored = false;
    file.reset();  // what was written is the beginning of the data, from which a later transfer can go on
  }
  if (file && !file->Close()) item.Stored = false;
}

// Items of one destination fill the same file, so that it is whole only if the last of them, and all that it continues,
// came whole.
void MarkSpoiltItems(FileTransferList& list) {
  std::map<std::string, bool> isWhole;
  for (const FileTransferItem& item : list.Items) {
    bool& whole = isWhole.try_emplace(item.Destination, true).first->second;
    whole = item.Stored && (whole || item.Offset == 0);
  }
  for (FileTransferItem& item : list.Items) item.Stored = isWhole[item.Destination];
}

void PutInPlace(const FileTransferList& list, FileTransferItem& item) {
  const std::string temporary = TemporaryName(item);
  MLockFile lock;
  if (!item.Stored || !lock.Lock(temporary, false)) {
    item.Stored = false;
    return;
  }
  platform::FileStatus status;
  // An earlier item for the same file, or another call, may have taken it along.
  if (platform::GetFileStatus(temporary, status) == platform::kNoSuchFile) return;
  if (list.Watcher && !list.Watcher->Replaces(list, item)) {
    platform::RemoveFile(temporary);
    item.Stored = false;
    return;
  }
  item.Stored = platform::RenameFile(temporary, item.Path);
}

}  // namespace

ORpcIO& Encode(ORpcIO& io, const FileTransferList& list) {
  Encode(io, static_cast<std::uint32_t>(list.Items.size()));
  for (const FileTransferItem& item : list.Items) {
    Encode(io, item.Destination);
    Encode(io, item.Source);
    Encode(io, item.Offset);
    SendData(io, item, list.Watcher);
  }
  return io;
}

void Decode(ORpcIO& io, FileTransferList& list) {
  list.Items.clear();
  for (auto count = Decoded<std::uint32_t>(io); count > 0; --count) {
    ReceiveItem(io, list.Items.emplace_back(), list.Watcher);
  }
  MarkSpoiltItems(list);
  for (FileTransferItem& item : list.Items) PutInPlace(list, item);
}

}  // namespace tlm
