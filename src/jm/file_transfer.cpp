#include "jm/file_transfer.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <span>

#include "platform/file.h"
#include "platform/file_system.h"
#include "rpc/orpcerror.h"
#include "rpc/wire.h"
#include "util/mlockfile.h"

namespace tlm {

namespace {

using platform::File;

constexpr std::uint32_t kPiece = 4096;  // bytes of a chunk that is sent, and of a step in receiving one
constexpr std::size_t kLengthSize = 4;
constexpr std::size_t kChunk = kLengthSize + kPiece;
constexpr std::size_t kMostChunks = 64;  // that are moved at once

// Not on the stack, where hundreds of calls may wait for their clients, one above the other.
using Buffer = std::vector<char>;

std::string TemporaryName(const FileTransferItem& item) { return item.Path + ".tmp"; }

struct Source {
  File Content;
  std::uint64_t Left;  // bytes that are there to be read, as far as is known
};

// Only what is a file can be read to an end.
std::optional<Source> OpenSource(const FileTransferItem& item) {
  platform::FileStatus status;
  if (platform::GetFileStatus(item.Source, status) != 0 || !status.IsRegular) return std::nullopt;
  std::optional<File> content = File::Open(item.Source, File::Mode::Read);
  if (!content || !content->Seek(item.Offset)) return std::nullopt;
  return Source{*std::move(content), status.Size - std::min<std::uint64_t>(item.Offset, status.Size)};
}

// How many whole chunks go into the record.
std::size_t ChunksInRecord(const ORpcIO& io) {
  const std::size_t room = io.RoomInRecord();
  return room > kLengthSize ? (room - kLengthSize + kChunk - 1) / kChunk : 0;
}

// Reads whole chunks into the place where they are sent from. Gives the bytes of the file, less than the chunks hold
// only at its end.
std::size_t SendChunks(ORpcIO& io, Source& source, std::size_t count) {
  std::array<std::span<unsigned char>, kMostChunks> pieces;
  unsigned char* const begin = io.Extend(count * kChunk);
  for (std::size_t i = 0; i < count; ++i) pieces[i] = {begin + i * kChunk + kLengthSize, kPiece};
  const std::size_t length = source.Content.ReadPieces(std::span(pieces).first(count));
  const std::size_t whole = length / kPiece;
  for (std::size_t i = 0; i < whole; ++i) StoreBigEndian(kPiece, begin + i * kChunk);
  std::size_t used = whole * kChunk;
  if (const auto rest = static_cast<std::uint32_t>(length % kPiece)) {
    StoreBigEndian(rest, begin + used);
    used += kLengthSize + rest;
  }
  io.TakeBack(count * kChunk - used);
  EncodePadding(io, static_cast<std::uint32_t>(length));
  return length;
}

std::size_t SendChunk(ORpcIO& io, Source& source) {
  Buffer piece(kPiece);
  const auto length = static_cast<std::uint32_t>(source.Content.Read(piece.data(), piece.size()).value_or(0));
  if (length == 0) return 0;
  Encode(io, length);
  EncodeBytes(io, piece.data(), length);
  return length;
}

void SendData(ORpcIO& io, const FileTransferItem& item, FileTransferWatcher* watcher) {
  if (std::optional<Source> source = OpenSource(item)) {
    bool mayHaveMore = true;
    while (mayHaveMore) {
      const std::uint64_t expected = source->Left / kPiece + 1;
      const auto count = static_cast<std::size_t>(std::min<std::uint64_t>({ChunksInRecord(io), expected, kMostChunks}));
      const std::size_t length = count != 0 ? SendChunks(io, *source, count) : SendChunk(io, *source);
      source->Left -= std::min<std::uint64_t>(length, source->Left);
      mayHaveMore = length != 0;
      if (watcher && length != 0) watcher->Moved(item, static_cast<std::uint32_t>(length));
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

// Moves those chunks into the file that have come whole already. False if the file did not take them. Gives the number
// of their bytes.
bool ReceiveChunks(ORpcIO& io, std::optional<File>& file, std::uint32_t& length) {
  std::array<std::span<const unsigned char>, kMostChunks> pieces;
  const std::span<const unsigned char> bytes = io.Peek();
  std::size_t used = 0, count = 0;
  length = 0;
  while (count < pieces.size() && bytes.size() - used >= kLengthSize) {
    const auto size = LoadBigEndian<std::uint32_t>(bytes.data() + used);
    const std::size_t padded = std::size_t{size} + PaddingOf(size);
    if (size == 0 || bytes.size() - used - kLengthSize < padded) break;
    pieces[count++] = bytes.subspan(used + kLengthSize, size);
    used += kLengthSize + padded;
    length += size;
  }
  const bool written = file && file->WritePieces(std::span(pieces).first(count));
  io.Skip(used);
  return written;
}

bool ReceiveData(ORpcIO& io, std::optional<File>& file, std::uint32_t& length) {
  const bool written = ReceiveChunks(io, file, length);
  if (length != 0) return written;
  Buffer piece(kPiece);
  length = Decoded<std::uint32_t>(io);
  return length == 0 || ReceiveChunk(io, file, length, piece);
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
  std::uint32_t length = 0;
  do {
    if (ReceiveData(io, file, length)) {
      if (watcher && length != 0) watcher->Moved(item, length);
      continue;
    }
    item.Stored = false;
    file.reset();  // what was written is the beginning of the data, from which a later transfer can go on
  } while (length != 0);
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
    if (list.Items.size() == kMostItems) throw kMarshalError;
    ReceiveItem(io, list.Items.emplace_back(), list.Watcher);
  }
  MarkSpoiltItems(list);
  for (FileTransferItem& item : list.Items) PutInPlace(list, item);
}

}  // namespace tlm
