// What a person at a terminal sees of tlmctl, and how the terminal is left behind.
#include <csignal>

#include "support/pty_session.h"
#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {
constexpr int kInterrupted = 130, kRefused = 77, kAborted = 120;
constexpr char kFrame[] = "\033[?25l\033[?7l\r";

struct Terminal : Tlmctl {
  std::unique_ptr<PtySession> At(const Words& words, int columns = 80, int lines = 24,
                                 const Environment& environment = {}) const {
    return std::make_unique<PtySession>(Words{BIN_DIRECTORY "/tlmctl"} + words,
                                        ClientSettings(server, disk, environment), columns, lines);
  }
  void SubmitWaiters(int count, const std::string& stem = "job") const {
    AddWaiter();
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(Ctl({"submit", "-q", "--stem", stem + std::to_string(i), "waiter"}).ExitCode, 0);
    }
    ASSERT_TRUE(EventuallyShows("4", "Running"));
  }
};

// The lines as they stand on the screen, without colours and the like.
std::vector<std::string> Lines(const std::string& written) {
  std::vector<std::string> lines(1);
  for (std::size_t at = 0; at < written.size(); ++at) {
    if (written[at] == '\033') {
      while (!std::isalpha(static_cast<unsigned char>(written[at]))) ++at;
    } else if (written[at] == '\n') {
      lines.emplace_back();
    } else if (written[at] != '\r') {
      lines.back() += written[at];
    }
  }
  return lines;
}

TEST_F(Terminal, ShowsHowJobsGoInPlaceAndIsLeftAsItWas) {
  SubmitWaiters(2);
  const auto interruptWhileNobodyAnswers = [this](PtySession& session) {
    kill(server.Pid(), SIGSTOP);
    session.Type("\x03");
    EXPECT_TRUE(Eventually([&] { return session.HasFormerModes(); }));
    kill(server.Pid(), SIGCONT);
  };
  const std::function<void(PtySession&)> ends[] = {
      [](PtySession& session) { session.Type("q"); }, [](PtySession& session) { session.Type("\x03"); },
      [](PtySession& session) { kill(session.Pid(), SIGTERM); }, interruptWhileNobodyAnswers};
  for (const auto& end : ends) {
    const auto watch = At({"watch"});
    ASSERT_TRUE(watch->Shows("job1"));
    ASSERT_TRUE(Eventually([&] { return Count(watch->Written(), kFrame) > 2; }));
    EXPECT_FALSE(watch->HasFormerModes());
    end(*watch);
    EXPECT_EQ(watch->AwaitEnd(), kInterrupted);
    EXPECT_TRUE(watch->HasFormerModes());
    EXPECT_EQ(Count(watch->Written(), kFrame), Count(watch->Written(), std::string(kFrame) + "\033[4A") + 1);
    EXPECT_THAT(watch->Written(), testing::EndsWith("\033[J\033[?7h\033[?25h"));
  }
  const auto watch = At({"watch", "4"});
  ASSERT_TRUE(watch->Shows("[....."));
  LetWaitersGo();
  EXPECT_EQ(watch->AwaitEnd(), kAborted);
  EXPECT_TRUE(watch->HasFormerModes());
}

TEST_F(Terminal, HasRoomForEveryLine) {
  constexpr int kJobs = 12, kColumns = 60, kLines = 9;
  SubmitWaiters(kJobs, "a-name-that-is-longer-than-anybody-would-like-to-see-");
  const auto list = At({"list"}, kColumns);
  EXPECT_EQ(list->AwaitEnd(), 0);
  EXPECT_EQ(Lines(list->Written()).size(), kJobs + 2U);  // titles, and what begins behind the last line end
  const auto watch = At({"watch"}, kColumns, kLines);
  ASSERT_TRUE(watch->Shows("and 7 more"));
  EXPECT_EQ(Count(watch->Written().substr(0, watch->Written().find("\033[J")), "\n"), kLines - 1U);
  for (const auto* session : {&list, &watch}) {
    for (const std::string& line : Lines((*session)->Written())) EXPECT_LE(line.size(), kColumns) << line;
  }
  const std::string cjk = "\xE6\x9D\xBF\xE6\x9D\xBF\xE6\x9D\xBF\xE6\x9D\xBF\xE6\x9D\xBF";  // two columns each
  ASSERT_EQ(Ctl({"submit", "-q", "--name", cjk, "--", "waiter"}).ExitCode, 0);
  for (const int columns : {20, 40}) {
    const auto narrow = At({"list"}, columns);
    EXPECT_EQ(narrow->AwaitEnd(), 0);
    const auto lines = Lines(narrow->Written());
    EXPECT_EQ(lines.front().find("PROGRESS") != std::string::npos, columns == 40) << lines.front();
    for (const std::string& line : lines) EXPECT_LE(line.size() - Count(line, "\xE6"), columns) << line;
  }
  watch->Resize(kColumns + 40, kLines + 10);
  EXPECT_TRUE(watch->Shows("\033[H\033[J"));
}

TEST_F(Terminal, IsColouredUnlessNobodyWantsThat) {
  SubmitWaiters(1);
  const std::string kBusy = "\033[36mRunning";
  const std::pair<Environment, bool> cases[] = {
      {{}, true}, {{{"NO_COLOR", "1"}}, false}, {{{"NO_COLOR", ""}}, true}, {{{"TERM", "dumb"}}, false}};
  for (const auto& [settings, coloured] : cases) {
    const auto list = At({"list"}, 80, 24, settings);
    EXPECT_EQ(list->AwaitEnd(), 0);
    EXPECT_EQ(list->Written().find('\033') != std::string::npos, coloured) << list->Written();
  }
  EXPECT_THAT(Ctl({"list"}).Output, Not(HasSubstr("\033")));
}

TEST_F(Terminal, IsAskedBeforeAJobIsCancelled) {
  SubmitWaiters(1);
  ASSERT_EQ(Ctl({"submit", "-q", "--after", "4", "waiter"}).ExitCode, 0);
  const std::tuple<std::string, int, std::string> cases[] = {
      {"n\n", kRefused, "Running"}, {"\n", kRefused, "Running"}, {"y\n", 0, "Aborted"}};
  for (const auto& [answer, code, state] : cases) {
    const auto cancel = At({"cancel", "4"});
    ASSERT_TRUE(
        cancel->Shows("End job 4 job0 (Running, 0 %), and with that what waits for it: job 8 waiter (Queued)? [y/N]"));
    cancel->Type(answer);
    EXPECT_EQ(cancel->AwaitEnd(), code) << cancel->Written();
    EXPECT_THAT(Ctl({"show", "4"}).Output, HasSubstr("State                 " + state));
  }
}

TEST_F(Terminal, IsAskedWhatBecomesOfAJobWhoseRunIsBrokenOff) {
  AddWaiter();
  const std::tuple<std::string, int, std::string> cases[] = {
      {"l\n", kInterrupted, " goes on"}, {"r\n", kAborted, " is being removed"}, {"c\n", 0, ": Finished"}};
  int handle = 4;
  for (const auto& [keys, code, text] : cases) {
    const auto run = At({"run", "--dir", disk.Root(), "waiter"});
    const std::string job = "job " + std::to_string(handle) + " waiter";
    ASSERT_TRUE(run->Shows("one\r\n"));
    ASSERT_TRUE(run->Shows(job + "  [..............................]   0 %  Running"));
    run->Type("\x03");
    ASSERT_TRUE(run->Shows(job + " has not ended. [l]eave it running, [r]emove it, or [c]ontinue here?"));
    run->Type(keys);
    if (code == 0) {
      EXPECT_THAT(Ctl({"list"}).Output, HasSubstr("\n4       waiter  Running"));
      LetWaitersGo();
    }
    EXPECT_EQ(run->AwaitEnd(), code) << run->Written();
    EXPECT_TRUE(run->HasFormerModes());
    EXPECT_TRUE(run->Shows(job + text));
    handle += 4;
  }
}
}  // namespace
}  // namespace tlm::test
