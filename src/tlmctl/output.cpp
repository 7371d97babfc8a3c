#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/job_output.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/link.h"
#include "tlmctl/ownership.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kPollInterval{250};

struct OutputOptions {
  std::string Job;
  bool Follow = false;
  std::optional<std::size_t> Tail;
};

class OutputPrinter {
 public:
  OutputPrinter(const Settings& settings, const OutputOptions& options)
      : settings_(settings), link_(settings, Greeting(settings), Connect) {
    link_.Open();
    link_.Persist([&](QorJMClient& client) {
      job_ = FindJob(client, settings, options.Job);
      BecomeOwner(client, settings, job_.Handle);
      reader_.emplace(settings, job_.Handle, options.Tail ? OffsetOfLastLines(client, job_.Handle, *options.Tail) : 0);
    });
  }

  // What there is, and has not been printed. False if nobody reads it any more, or no more can be asked for.
  bool PrintMore(bool isLast) {
    return link_.Persist([&](QorJMClient& client) {
      while (std::cout && !reader_->IsAtLimit()) {
        const std::string text = reader_->Next(client, isLast);
        if (text.empty()) break;
        Print(text);
      }
      return std::cout.good() && !reader_->IsAtLimit();
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
      const bool isOwner = ownership_.Take(client, job_.Handle);
      if (ownership_.IsRefusedForGood()) BecomeOwner(client, settings_, job_.Handle);
      return isOwner && ctl::HasEnded(job_.State);
    });
  }

 private:
  // What a job writes on another server is fetched only for clients that listen.
  static std::function<void(QorJMClient&)> Greeting(const Settings& settings) {
    return [&settings](QorJMClient& client) {
      SayHello(client, settings);
      client.SetListening(true);
    };
  }

  void Print(const std::string& text) const {
    if (settings_.Json) {
      PrintJson({{"handle", job_.Handle}, {"offset", reader_->Offset() - text.size()}, {"text", text}});
    } else {
      std::cout << text << std::flush;
    }
  }

  const Settings& settings_;
  Link link_;
  KnownJob job_;
  std::optional<OutputReader> reader_;
  Ownership ownership_;
};

int Output(const Settings& settings, const OutputOptions& options) {
  OutputPrinter printer(settings, options);
  if (!options.Follow) return printer.PrintMore(true), kGood;
  while (true) {
    const bool ended = printer.HasEnded();
    if (!printer.PrintMore(ended) || ended) return kGood;  // once more after the end: that may have come since
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
       .Operations = {"Hello", "GetJob", "TakeOwnership", "SetListening", "ReadOutput"},
       .Details =
           "The server gives a job's output only to the host from which it was submitted, and to one client at a\n"
           "time: while 'tlmctl run' follows the job, it is for that alone."},
      [options](const Settings& settings) { return Output(settings, *options); });
  command.add_option("JOB", options->Job, kJobHelp)->required()->type_name(kJobValue);
  command.add_flag("-f,--follow", options->Follow, "Go on until the job has ended");
  command.add_option("--tail", options->Tail, "Begin with so many last lines")->type_name("LINES");
}

}  // namespace tlm::ctl
