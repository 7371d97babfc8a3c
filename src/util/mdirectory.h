// A directory: the walk over its entries, and actions on all of it. One walk at a time runs on an object, and it shows
// the entries that were there when it began.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "util/mfile.h"

namespace tlm {

class MDirectory : public MFile {
 public:
  MDirectory() = default;
  explicit MDirectory(std::string path) : MFile(std::move(path)) {}
  explicit MDirectory(const MFile& file) : MFile(file) {}
  // A copy has the path only, without the walk.
  MDirectory(const MDirectory& other) : MFile(other) {}
  // Ends the walk of the object that is assigned to.
  MDirectory& operator=(const MDirectory& other);
  MDirectory& operator=(const MFile& file);
  ~MDirectory() override = default;

  // Begins a walk; one that ran before ends. A separator is put at the end of the path and stays there. False if the
  // path is blank or the directory cannot be read.
  bool Open();
  // The next entry, "." and ".." among them, with its path, in byte order of the names. With the last one the walk
  // ends. False, and the file unchanged, if no walk runs.
  bool Next(MFile& file);
  void Close();

  // Makes the directory and those above it that are missing. Takes one separator off the end of the path. True if it
  // stands afterwards, or something else of that name.
  bool Create();
  bool RemoveEmpty();   // the directory itself
  bool HasNoEntries();  // also true if it cannot be opened; leaves the path as Open does

  // The rest leave the path as Open does. A link to a directory counts as a file: nothing behind it is touched.
  // Removes the files, with `recursive` also those further down, and then the directory; true if that is gone.
  bool RemoveTree(bool recursive);
  // Removes the files whose names begin with the prefix; true if at least one went.
  bool RemoveMatching(const std::string& prefix);
  // Copies the files, with `recursive` also sub-directories, each under its stem. What cannot be copied is left out.
  // Makes the destination if needed. Removes this directory if it is empty, and answers whether that was so.
  bool CopyTree(const std::string& destination, bool recursive);

 private:
  struct Walk {
    std::vector<std::string> Names;
    std::size_t Next = 0;
  };

  std::vector<MFile> Entries();

  std::unique_ptr<Walk> walk_;  // none while no walk runs
};

}  // namespace tlm
