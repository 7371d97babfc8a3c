#include <chrono>
#include <iostream>
#include <memory>
#include <optional>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/job_output.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/link.h"

namespace tlm::ctl {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval{250};
constexpr std::chrono::seconds kOwnershipPatience{90};

struct OutputOptions {
  std::string Job;
  bool Follow = false;
  std::optional<std::size_t> Tail;
};

class OutputPrinter {
 public:
  OutputPrinter(const Settings& settings, const OutputOptions& options)
      : settings_(settings),
        link_(
            settings, [&](QorJMClient& client) { SayHello(client, settings); }, Connect) {
    link_.Open();
    job_ = FindJob(link_.Client(), settings, options.Job);
    BecomeOwner(link_.Client(), settings, job_.Handle);
    Remember(job_);
    if (options.Tail) offset_ = OffsetOfLastLines(link_.Client(), job_.Handle, *options.Tail);
  }

  // What there is, and has not been printed. False if nobody reads it any more, or no more can be asked for.
  bool PrintMore() {
    return link_.Persist([this](QorJMClient& client) {
      while (std::cout) {
        const std::string text = ReadOutputFrom(client, job_.Handle, offset_);
        if (text.empty()) break;
        Print(text);
        offset_ += text.size();
      }
      return std::cout.good() && !IsTooLong();
    });
  }

  // True once the job has ended, and this client has a right to the last of its output, or will not get it.
  bool HasEnded() {
    return link_.Persist([this](QorJMClient& client) {
      std::optional<Task> task = FetchJob(client, job_.Handle);
      if (!task) return true;
      if (!IsSameJob(*task, job_.State)) throw Forgotten(job_);
      job_.State = *std::move(task);
      Remember(job_);
      // After a loss the server may still believe in the former connection, and gives nothing to this one.
      const bool isOwner = client.TakeOwnership(job_.Handle);
      if (isOwner) ownedAt_ = steady_clock::now();
      if (steady_clock::now() - ownedAt_ >= kOwnershipPatience) BecomeOwner(client, settings_, job_.Handle);
      return isOwner && ctl::HasEnded(job_.State);
    });
  }

 private:
  void Print(const std::string& text) const {
    if (settings_.Json) {
      PrintJson({{"handle", job_.Handle}, {"offset", offset_}, {"text", text}});
    } else {
      std::cout << text << std::flush;
    }
  }

  bool IsTooLong() const {
    if (offset_ < kLongestOutput) return false;
    Note(settings_,
         "the output goes on beyond 4 GiB, and no more of it can be asked for; all of it stands in the file " +
             job_.State.ResultStem + "_out of the job's directory on the server");
    return true;
  }

  const Settings& settings_;
  Link link_;
  KnownJob job_;
  std::uint64_t offset_ = 0;
  steady_clock::time_point ownedAt_ = steady_clock::now();
};

int Output(const Settings& settings, const OutputOptions& options) {
  OutputPrinter printer(settings, options);
  if (!options.Follow) return printer.PrintMore(), kGood;
  while (true) {
    const bool ended = printer.HasEnded();
    if (!printer.PrintMore() || ended) return kGood;  // once more after the end: that may have come since
    platform::Sleep(kPollInterval);
  }
}

}  // namespace

void AddOutput(Program& program) {
  const auto options = std::make_shared<OutputOptions>();
  CLI::App& command = program.AddCommand(
      {.Name = "output",
       .Description = "Print what a job's programs have written so far",
       .Examples = {{"output 4", "all of it"},
                    {"output -f last", "as it is written, until the job has ended"},
                    {"output --tail 20 4", "its last 20 lines"}},
       .Operations = {"Hello", "GetJob", "TakeOwnership", "ReadOutput"},
       .Details =
           "The server gives a job's output only to the host from which it was submitted, and to one client at a\n"
           "time: while 'tlmctl run' follows the job, it is for that alone."},
      [options](const Settings& settings) { return Output(settings, *options); });
  command.add_option("JOB", options->Job, "Handle, @ID or last")->required()->type_name(kJobValue);
  command.add_flag("-f,--follow", options->Follow, "Go on until the job has ended");
  command.add_option("--tail", options->Tail, "Begin with so many last lines")->type_name("LINES");
}

}  // namespace tlm::ctl
