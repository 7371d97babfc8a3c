// A path, and the questions one can ask of it. Nothing is held open between calls and nothing here throws. Paths are
// byte strings in the locale's multi-byte encoding; both '/' and '\' separate components, and a dot counts anywhere in
// the path, also in a directory's name.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace tlm {

class MFile {
 public:
  MFile() = default;
  explicit MFile(std::string path) : path_(std::move(path)) {}
  MFile(const MFile&) = default;
  MFile(MFile&&) = default;
  MFile& operator=(const MFile&) = default;
  MFile& operator=(MFile&&) = default;
  virtual ~MFile() = default;

  // -- the path alone; the file system is not looked at
  const std::string& Path() const { return path_; }
  bool IsEmpty() const { return path_.empty(); }
  std::string DirectoryPart() const;         // with the last separator; empty if there is none
  std::string Name() const;                  // behind the last separator
  std::string Stem() const;                  // Name without the last dot and what follows it
  std::string Extension() const;             // from the last dot on; all of a path without a dot
  std::string PathWithoutExtension() const;  // up to the last dot; all of a path without a dot

  // Puts the name into another directory. The separator is '/' if the directory has one anywhere, else '\'; it is added
  // unless the directory ends in it.
  void SetDirectory(const std::string& directory);
  void SetName(const std::string& name);
  void SetStem(const std::string& stem);         // Extension stays, which is all of a path without a dot
  void SetExtension(const std::string& suffix);  // with its dot
  // An empty path stays, and so does one that begins with a separator or has ':' as its second byte. Without an
  // argument the base is the current directory; if that cannot be told, the path stays.
  void MakeAbsolute();
  void MakeAbsolute(const std::string& base);

  // -- questions to the file system; links are followed
  // A file or directory. False for a path with a separator at its end.
  bool Exists() const;
  // 0 and the size in bytes, 0xFFFFFFFF for a file of 4 GiB or more; else size 0 and the system's error number.
  [[nodiscard]] int GetSize(std::uint32_t& size) const;
  std::uint32_t Size() const;    // as above; 0 if the file cannot be examined
  std::int64_t ModTime() const;  // seconds since 1970; 0 if the file cannot be examined
  bool IsDirectory() const;
  bool IsReadOnly() const;  // exists, and this process may not write to it
  // Looks at the first 1024 bytes, at most. Strict takes any byte of 128 or more as a sign, otherwise it is one below
  // 32 that is no white space; without a newline the file looks binary in any case. False for a file that cannot be
  // read.
  bool LooksBinary(bool strict) const;

  // -- actions; true on success, and the object stays as it is on failure
  bool SetReadOnly(bool readOnly);     // by the owner's write permission
  bool Remove();                       // a file, never a directory; empties the path
  bool Rename(const std::string& to);  // takes the place of a file that stands there; the path becomes `to`
  // Copies the content. Nothing happens if the paths are equal. A source that cannot be read to its end is told on
  // standard output.
  bool CopyTo(const std::string& destination) const;
  bool CopyFrom(const std::string& source) const;
  // The same with one read and one write. True also if not all could be written, which is told on standard output.
  bool CopyToAtOnce(const std::string& destination) const;
  // The path becomes that of a new, empty file among the temporary files.
  bool MakeTempName();

  // The path becomes a name that does not exist, made of the base, or of the path if the base is empty, without its
  // suffix. With a new suffix that is base + suffix, else base~1 + suffix and so on; without one it is base~N, one
  // above the highest number in the directory. A number that the base has already is counted on from. No file is made.
  void MakeUniqueName(const std::string& base, const std::string& suffix);

 protected:
  void SetPath(std::string path) { path_ = std::move(path); }

 private:
  void NumberAfter(std::uint64_t number);

  std::string path_;
};

}  // namespace tlm
