// An open file. It closes by scope, and a started program never inherits it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tlm::platform {

// Used by one thread at a time. Positions and lengths are bytes.
class File {
 public:
  enum class Mode {
    Read,      // must exist
    Truncate,  // emptied, or made
    Append,    // made if missing; every write goes to the end
    Update     // made if missing; the content stays, writing begins at the start
  };

  enum class Links { Follow, Refuse };

  // Empty if the file cannot be opened so, or is a directory, or a link if these are refused. Never waits, whatever the
  // path names.
  static std::optional<File> Open(const std::string& path, Mode mode, Links links = Links::Follow);

  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File();

  // How many bytes came, less than asked for only at the end of the file; empty after a failure.
  [[nodiscard]] std::optional<std::size_t> Read(void* buffer, std::size_t length);
  // How many bytes were written, less than given only after a failure.
  [[nodiscard]] std::size_t WriteSome(const void* data, std::size_t length);
  // True if all of it was written.
  [[nodiscard]] bool Write(const void* data, std::size_t length) { return WriteSome(data, length) == length; }
  [[nodiscard]] bool Write(std::string_view text) { return Write(text.data(), text.size()); }
  // The same for several pieces of memory, one after the other. What came before a failure counts.
  [[nodiscard]] std::size_t ReadPieces(std::span<const std::span<unsigned char>> pieces);
  [[nodiscard]] bool WritePieces(std::span<const std::span<const unsigned char>> pieces);
  bool Seek(std::uint64_t position);
  // Cuts the file off, or fills it up with zeros.
  bool Resize(std::uint64_t size);
  // False if the system reports that something written before was lost. Nothing else may be called afterwards.
  bool Close();

 private:
  explicit File(int descriptor) : descriptor_(descriptor) {}
  int descriptor_;
};

// The whole content; empty if the file cannot be read to its end.
std::optional<std::string> ReadWholeFile(const std::string& path);

// True if the last line of the file is torn: it has no line end.
bool EndsWithinLine(const std::string& path);

// Puts a file with this content in the place of the one that stands there, at once: at any moment one of them is whole.
// Until then the new one has the other path. False if it cannot be done; then the old one stays.
bool ReplaceWholeFile(const std::string& path, const std::string& until, std::string_view content);

// Opens those of the three standard streams that this process was started without: whatever it opened next would take
// their place.
void ReserveStandardStreams();

}  // namespace tlm::platform
