#include "tlmctl/transfer.h"

#include <algorithm>

#include "tlmctl/console.h"
#include "tlmctl/ledger.h"
#include "tlmctl/server_key.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

bool IsSame(const ClientFile& file, const SentFile& sent) {
  return file.Name == sent.Name && file.Size == sent.Size && file.ModTime == sent.ModTime;
}

// True if the file as it is now is what was sent last under its name.
bool WasSent(const std::vector<LedgerEntry>& entries, const std::string& serverKey, const std::string& directory,
             const ClientFile& file) {
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    if (!IsOn(*entry, serverKey) || entry->Directory != directory) continue;
    const auto sent = std::find_if(entry->Sent.begin(), entry->Sent.end(),
                                   [&](const SentFile& known) { return known.Name == file.Name; });
    if (sent != entry->Sent.end()) return IsSame(file, *sent);
  }
  return false;
}

}  // namespace

std::vector<Decision> DecideTransfers(QorJMClient& client, const Settings& settings, const Plan& plan, bool all) {
  const auto sizesThere = SizesOnServer(client, plan.Inputs);
  const std::vector<LedgerEntry> ledger = Ledger().Read();
  const std::string server = ServerKey(AddressOf(settings).Text());
  std::vector<Decision> decisions;
  for (std::size_t i = 0; i < plan.Inputs.size(); ++i) {
    Decision decision{plan.Inputs[i], true, ""};
    const ClientFile& file = decision.File;
    if (!sizesThere[i]) {
      decision.Reason = "the server lacks it";
    } else if (*sizesThere[i] != *file.Size) {
      decision.Reason = "the server has " + SizeText(*sizesThere[i]) + " of that name";
    } else if (all) {
      decision.Reason = "all are sent";
    } else if (!WasSent(ledger, server, plan.Directory, file)) {
      decision.Reason = "it may have changed since it was sent";
    } else {
      decision.Sends = false;
      decision.Reason = "the server has it";
    }
    decisions.push_back(std::move(decision));
  }
  return decisions;
}

void SendFiles(Link& link, const Settings& settings, const std::vector<Decision>& decisions) {
  std::vector<ClientFile> files;
  for (const Decision& decision : decisions) {
    if (!decision.Sends) continue;
    Note(settings, "sending " + decision.File.Name + ", " + SizeText(*decision.File.Size));
    files.push_back(decision.File);
  }
  Upload(link, settings, files);
}

}  // namespace tlm::ctl
