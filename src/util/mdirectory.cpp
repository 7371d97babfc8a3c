#include "util/mdirectory.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/file_system.h"
#include "util/multibyte.h"

namespace tlm {

namespace {

bool IsBlank(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char letter) { return std::isspace(letter) != 0; });
}

bool IsOwnOrParentName(const std::string& name) { return name == "." || name == ".."; }

// A directory that really lies here: what a link leads to belongs to others.
bool IsSubDirectory(const MFile& entry) { return entry.IsDirectory() && !platform::IsLink(entry.Path()); }

std::string WithoutEndingSeparators(std::string path) {
  while (EndsInSeparator(path)) path.pop_back();
  return path;
}

// Another thread or process may make it at the same moment, so a refusal is not the last word.
bool MakeOrFind(const std::string& path) {
  return MFile(path).Exists() || platform::MakeDirectory(path) || MFile(path).Exists();
}

}  // namespace

MDirectory& MDirectory::operator=(const MDirectory& other) { return *this = static_cast<const MFile&>(other); }

MDirectory& MDirectory::operator=(const MFile& file) {
  Close();
  MFile::operator=(file);
  return *this;
}

bool MDirectory::Open() {
  Close();
  if (IsBlank(Path())) return false;
  if (!EndsInSeparator(Path())) SetPath(Path() + platform::kPathSeparator);
  std::optional<std::vector<std::string>> names = platform::ListNames(Path());
  if (!names) return false;
  walk_ = std::make_unique<Walk>(Walk{std::move(*names)});
  return true;
}

bool MDirectory::Next(MFile& file) {
  if (!walk_) return false;
  file = MFile(Path() + walk_->Names[walk_->Next]);
  if (++walk_->Next == walk_->Names.size()) Close();
  return true;
}

void MDirectory::Close() { walk_.reset(); }

bool MDirectory::Create() {
  if (IsEmpty()) return false;
  if (EndsInSeparator(Path())) SetPath(Path().substr(0, Path().size() - 1));

  // Up to the nearest directory that can be made, noting what is missing below it, and down again.
  std::vector<std::string> missing;
  std::string path = WithoutEndingSeparators(Path());
  while (!MakeOrFind(path)) {
    const std::string parent = WithoutEndingSeparators(MFile(path).DirectoryPart());
    if (parent.empty()) return false;
    if (MFile(parent).Exists()) {
      if (!MakeOrFind(path)) return false;
      break;  // another had made the parent meanwhile
    }
    missing.push_back(std::exchange(path, parent));
  }
  return std::all_of(missing.rbegin(), missing.rend(), MakeOrFind);
}

bool MDirectory::RemoveEmpty() { return platform::RemoveEmptyDirectory(Path()); }

bool MDirectory::HasNoEntries() { return Entries().empty(); }

// All but the two that every directory has. Gathered, so that the directory may change while the list is worked off.
std::vector<MFile> MDirectory::Entries() {
  std::vector<MFile> entries;
  MFile entry;
  Open();
  while (Next(entry)) {
    if (!IsOwnOrParentName(entry.Name())) entries.push_back(entry);
  }
  return entries;
}

bool MDirectory::RemoveTree(bool recursive) {
  for (MFile& entry : Entries()) {
    if (!IsSubDirectory(entry)) {
      entry.Remove();
    } else if (recursive) {
      MDirectory(entry).RemoveTree(true);
    }
  }
  return RemoveEmpty();
}

bool MDirectory::RemoveMatching(const std::string& prefix) {
  bool removed = false;
  for (MFile& entry : Entries()) {
    if (entry.Name().starts_with(prefix) && entry.Remove()) removed = true;
  }
  return removed;
}

bool MDirectory::CopyTree(const std::string& destination, bool recursive) {
  const std::vector<MFile> entries = Entries();  // before the destination is made, which may lie in here
  MDirectory target(destination);
  target.Create();
  for (const MFile& entry : entries) {
    if (!IsSubDirectory(entry)) {
      entry.CopyTo(target.Path() + platform::kPathSeparator + entry.Name());
    } else if (recursive) {
      MDirectory(entry).CopyTree(target.Path() + platform::kPathSeparator + entry.Stem(), true);
    }
  }
  return RemoveEmpty();
}

}  // namespace tlm
