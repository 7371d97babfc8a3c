#include "util/mfile.h"

#include <string_view>

#include "platform/file_system.h"
#include "util/multibyte.h"

namespace tlm {

namespace {

// Where the name begins.
std::size_t NamePosition(std::string_view path) { return FindLastSeparator(path) + 1; }  // npos + 1 is 0

bool BeginsWithSeparator(std::string_view path) { return path.starts_with('/') || path.starts_with('\\'); }

}  // namespace

std::string MFile::DirectoryPart() const { return path_.substr(0, NamePosition(path_)); }

std::string MFile::Name() const { return path_.substr(NamePosition(path_)); }

std::string MFile::Stem() const {
  const std::size_t name = NamePosition(path_);
  const std::size_t dot = FindLastCharacter(path_, ".");
  if (dot == std::string::npos || dot < name) return path_.substr(name);
  return path_.substr(name, dot - name);
}

std::string MFile::Extension() const {
  const std::size_t dot = FindLastCharacter(path_, ".");
  return dot == std::string::npos ? path_ : path_.substr(dot);
}

std::string MFile::PathWithoutExtension() const { return path_.substr(0, FindLastCharacter(path_, ".")); }

void MFile::SetDirectory(const std::string& directory) {
  const char separator = FindLastCharacter(directory, "/") != std::string::npos ? '/' : '\\';
  const bool separated = EndsInSeparator(directory) && directory.back() == separator;
  path_ = separated ? directory + Name() : directory + separator + Name();
}

void MFile::SetName(const std::string& name) { path_ = DirectoryPart() + name; }

void MFile::SetStem(const std::string& stem) { path_ = DirectoryPart() + stem + Extension(); }

void MFile::SetExtension(const std::string& suffix) { path_ = DirectoryPart() + Stem() + suffix; }

void MFile::MakeAbsolute() {
  const std::string current = platform::CurrentDirectory();
  if (!current.empty()) MakeAbsolute(current);
}

void MFile::MakeAbsolute(const std::string& base) {
  if (path_.empty() || BeginsWithSeparator(path_) || (path_.size() > 1 && path_[1] == ':')) return;
  path_ = EndsInSeparator(base) ? base + path_ : base + platform::kPathSeparator + path_;
}

}  // namespace tlm
