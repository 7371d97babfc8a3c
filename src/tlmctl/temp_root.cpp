#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/job_counts.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/time_values.h"

namespace tlm::ctl {

namespace {

struct TempRootOptions {
  std::string Directory;
  std::string Expiry;
};

struct TempRoot {
  std::string Directory;
  std::uint32_t Expiry = 0;  // seconds
};

TempRoot Fetch(QorJMClient& client) {
  TempRoot root;
  client.GetTempRoot({root.Directory}, {root.Expiry});
  return root;
}

std::string AgeText(std::uint32_t seconds) {
  const auto text = [](std::uint32_t number, const char* unit) {
    return std::to_string(number) + ' ' + unit + (number == 1 ? "" : "s");
  };
  for (const auto& [unit, name] : {std::pair(86400U, "day"), std::pair(3600U, "hour"), std::pair(60U, "minute")}) {
    if (seconds >= 2 * unit && seconds % unit == 0) return text(seconds / unit, name);
  }
  return text(seconds, "second");
}

int Print(const Settings& settings, const TempRoot& root) {
  if (settings.Json) {
    PrintJson({{"directory", root.Directory}, {"expiry_seconds", root.Expiry}});
  } else {
    Say(root.Directory);
    if (!settings.Quiet) Say("files may be deleted after " + AgeText(root.Expiry));
  }
  return kGood;
}

std::string WithoutSeparatorAtEnd(const std::string& directory) {
  const std::size_t last = directory.find_last_not_of('/');
  return last == std::string::npos ? directory : directory.substr(0, last + 1);
}

// The server compares byte for byte, and empties the former root when they differ.
std::string WantedDirectory(const std::string& given, const TempRoot& now) {
  if (given.empty() || WithoutSeparatorAtEnd(given) == WithoutSeparatorAtEnd(now.Directory)) return now.Directory;
  return WithoutSeparatorAtEnd(given);
}

void AskIfFilesGo(QorJMClient& client, const Settings& settings, const TempRoot& now, const TempRoot& wanted) {
  if (wanted.Directory != now.Directory) {
    const std::size_t waiting = CountJobs(FetchAllKnownJobs(client)).Waiting;
    RequireConsent(settings,
                   "This deletes all files of all clients below the root that the server's settings name, results "
                   "that were not fetched too, and the stored names of the pool's peers" +
                       (waiting == 0 ? "" : "; " + JobsText(waiting) + " waiting would lose the files that were sent") +
                       ". Move from " + now.Directory + " to " + wanted.Directory + '?');
  } else if (wanted.Expiry < now.Expiry) {
    RequireConsent(settings, "Files of all clients may be deleted once they are older than " + AgeText(wanted.Expiry) +
                                 ". Shorten the time?");
  }
}

std::uint32_t ExpiryOf(const std::string& text) { return static_cast<std::uint32_t>(DurationOf(text).count()); }

void CheckUsage(const TempRootOptions& options) {
  if (!options.Directory.empty() && options.Directory.front() != '/') {
    throw Failure{kUsage, options.Directory + " is no full path",
                  "the directory lies on the server, and begins with /"};
  }
  if (!options.Expiry.empty()) ExpiryOf(options.Expiry);
}

int SetOrShow(const Settings& settings, const TempRootOptions& options) {
  CheckUsage(options);
  QorJMClient client;
  Connect(client, settings);
  const TempRoot now = Fetch(client);
  if (options.Directory.empty() && options.Expiry.empty()) return Print(settings, now);
  const TempRoot wanted{WantedDirectory(options.Directory, now),
                        options.Expiry.empty() ? now.Expiry : ExpiryOf(options.Expiry)};
  AskIfFilesGo(client, settings, now, wanted);
  if (!client.SetTempRoot(wanted.Directory, wanted.Expiry)) {
    throw Failure{
        kRefused, "the server did not take " + wanted.Directory + " as its temporary root",
        "it must be there and writable for the server's user, and no job may run: 'tlmctl queue drain --wait'"};
  }
  return Print(settings, Fetch(client));
}

}  // namespace

void AddTempRoot(Program& program) {
  const auto options = std::make_shared<TempRootOptions>();
  CLI::App& command = program.AddCommand(
      {.Name = "temp-root",
       .Description = "Show or set where the server keeps the files of its clients, and for how long",
       .Examples = {{"temp-root", "shows both"},
                    {"temp-root --expiry 14d", "keeps files for two weeks"},
                    {"temp-root /srv/jobs", "moves there, and deletes all that was sent or made before"}},
       .Operations = {"GetTempRoot", "SetTempRoot", "ListJobs", "GetJob"},
       .Details =
           "Both hold until the server is restarted; its settings name those that it starts with. Files are deleted\n"
           "when a client asks for a new directory, and never those of a job that the server still has."},
      [options](const Settings& settings) { return SetOrShow(settings, *options); });
  command.add_option("DIRECTORY", options->Directory, "The root, a directory of the server")->type_name("DIRECTORY");
  command.add_option("--expiry", options->Expiry, "Time after which a file may be deleted: 90, 15m, 2h, 7d")
      ->type_name(kDurationValue);
}

}  // namespace tlm::ctl
