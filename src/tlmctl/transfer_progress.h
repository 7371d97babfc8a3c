// How far a transfer is, for a person who waits for it; and the place where Ctrl-C ends it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "jm/file_transfer.h"
#include "tlmctl/status_line.h"

namespace tlm::ctl {

class TransferProgress : public FileTransferWatcher {
 public:
  // A total of 0 stands for an unknown one. `verb` is "sending" or the like.
  TransferProgress(const Settings& settings, std::string verb, std::uint64_t total);
  void Moved(const FileTransferItem& item, std::uint32_t bytes) override;

 private:
  StatusLine line_;
  const std::string verb_;
  const std::uint64_t total_;
  std::uint64_t moved_ = 0;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace tlm::ctl
