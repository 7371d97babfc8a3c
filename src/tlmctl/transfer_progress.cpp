#include "tlmctl/transfer_progress.h"

#include <utility>

#include "tlmctl/interrupt.h"
#include "tlmctl/texts.h"
#include "util/mfile.h"

namespace tlm::ctl {

namespace {

constexpr int kBarWidth = 30;
constexpr double kShortTransfer = 0.5;  // seconds that need no bar

}  // namespace

TransferProgress::TransferProgress(const Settings& settings, std::string verb, std::uint64_t total)
    : line_(settings), verb_(std::move(verb)), total_(total) {}

void TransferProgress::Moved(const FileTransferItem& item, std::uint32_t bytes) {
  EndIfInterrupted();
  moved_ += bytes;
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start_;
  if (time.count() < kShortTransfer) return;
  const auto rate = static_cast<std::uint64_t>(static_cast<double>(moved_) / time.count());
  std::string text = verb_ + ' ' + MFile(item.Destination).Name() + "  ";
  if (total_ != 0) text += ProgressBar(static_cast<std::int32_t>(moved_ * 100 / total_), kBarWidth) + "  ";
  line_.Show(text + SizeText(moved_) + ", " + SizeText(rate) + "/s");
}

}  // namespace tlm::ctl
