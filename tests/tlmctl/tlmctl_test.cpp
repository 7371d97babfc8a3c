// What a user sees of the sub-commands, each with a server of its own.
#include <gmock/gmock.h>

#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

enum { kGood = 0, kJobFailed = 1, kUsage = 2, kNoServer = 3, kRefused = 4 };

void ExpectEnd(const Finished& end, int code, const std::string& text) {
  EXPECT_EQ(end.ExitCode, code) << end.Output;
  EXPECT_THAT(end.Output, HasSubstr(text));
}

// -- reaching a server

TEST_F(Tlmctl, TellsByItsExitCodeWhatWentWrong) {
  const std::string closed = std::to_string(FreePort());
  const struct {
    Words Line;
    int Code;
    std::string Text;
  } cases[] = {
      {{"ping"}, kGood, "programs of release tlm2010: found"},
      {{"ping", "--release", "none"}, kRefused, "tlmctl: the server refused the call"},
      {{"--port", closed, "list"}, kNoServer, "tlmctl: cannot reach the server at 127.0.0.1:" + closed},
      {{"list", "--host", "nobody.invalid"}, kNoServer, "tlmctl: no address is known for the host nobody.invalid"},
      {{"show", "4"}, kRefused, "tlmctl: the server has no job 4"},
      {{"watch", "4"}, kRefused, "tlmctl: the server has no job 4"},
      {{"output", "4"}, kRefused, "tlmctl: the server has no job 4"},
      {{"cancel", "4"}, kRefused, "tlmctl: the server has no job 4"},
      {{"submit", "--after", "4", "waiter"}, kRefused, "tlmctl: the server has no job 4 to wait for"},
      {{"submit"}, kUsage, "tlmctl: submit takes a command"},
      {{"submit", "--deck", "missing.inp", "waiter"}, kUsage, "tlmctl: there is no deck missing.inp"},
      {{"submit", "--priority", "low", "waiter"}, kUsage, "tlmctl: there is no priority low"},
      {{"submit", "waiter", "a\"b"}, kUsage, "tlmctl: a job's command cannot pass on a double quote"},
      {{"show", "--", "4"}, kUsage, "tlmctl: "},
      {{"show"}, kUsage, "tlmctl: "},
      {{"fly"}, kUsage, "tlmctl: "},
      {{"--help"}, kGood, "Exit codes:"},
  };
  for (const auto& [line, code, text] : cases) ExpectEnd(Ctl(line), code, text);
}

// -- what a job is given

TEST_F(Tlmctl, PassesWordsOfAnyKindToTheProgram) {
  server.AddProgram("words", "for word in \"$@\"; do printf '<%s>\\n' \"$word\"; done");
  const Words odd{"plain", "two words", "",        "x;y", "it's", "\\back\\", "'",  "a'b c;d\\'", "$HOME",
                  "*",     "tab\there", "new\nli", "{}",  "[a]",  "a,b",      "-v", "--watch",    "--"};
  Words line{"submit", "--watch", "--complete-on-failure", "--", "words"};
  line.insert(line.end(), odd.begin(), odd.end());
  EXPECT_EQ(Ctl(line).ExitCode, kGood);
  std::string expected;
  for (const std::string& word : odd) expected += "<" + word + ">\n";
  EXPECT_EQ(Ctl({"output", "4"}).Output, expected);
}

TEST_F(Tlmctl, RunsADeckWhereItLies) {
  disk.Write("runs/case 7.inp", "content\n");
  server.AddProgram("solve", "pwd; cat \"$2\"");
  EXPECT_EQ(Ctl({"submit", "--watch", "--complete-on-failure", "--note", "for Ann", "--deck", "runs/case 7.inp",
                 "--priority", "normal", "solve", "fast"})
                .ExitCode,
            kGood);
  EXPECT_EQ(Ctl({"output", "4"}).Output, disk.Path("runs") + "\ncontent\n");
  EXPECT_TRUE(disk.Has("runs/case 7_out"));
  EXPECT_THAT(Ctl({"show", "4"}).Output,
              AllOf(HasSubstr("case 7.inp\n"), HasSubstr("for Ann\n"), HasSubstr("normal\n"), HasSubstr("nobody\n")));
  EXPECT_THAT(Ctl({"list"}).Output,
              AllOf(StartsWith("HANDLE  NAME    STATE"), HasSubstr("\n4       case 7  Finished")));
}

// -- following

TEST_F(Tlmctl, EndsAsTheJobThatItFollowed) {
  server.AddProgram("mute", "exit $1");
  ExpectEnd(Ctl({"submit", "--watch", "--complete-on-failure", "mute", "0"}), kGood,
            "job 4 mute: Finished, exit code 0");
  const Finished silent = Ctl({"submit", "--watch", "mute", "0"});
  ExpectEnd(silent, kJobFailed, "job 8 mute: Aborted, exit code 0");
  EXPECT_THAT(silent.Output, AllOf(StartsWith("8\n"), HasSubstr("--complete-on-failure")));
  EXPECT_EQ(Ctl({"submit", "--watch", "missing"}).ExitCode, kJobFailed);
  ExpectEnd(Ctl({"watch", "12"}), kJobFailed, "job 12 missing: LaunchFailed\n");
}

TEST_F(Tlmctl, PrintsOutputThatIsTooLongForOneAnswer) {
  constexpr std::size_t kLength = 40'000'000;
  server.AddProgram("chatter", "head -c " + std::to_string(kLength) + " /dev/zero | tr '\\0' x");
  ASSERT_EQ(Ctl({"submit", "--watch", "--complete-on-failure", "chatter"}).ExitCode, kGood);
  EXPECT_TRUE(Ctl({"output", "4"}).Output == std::string(kLength, 'x'));
}

TEST_F(Tlmctl, PrintsOutputAsItComesButOnlyForItsOwner) {
  AddWaiter();
  std::future<Finished> owner = CtlMeanwhile({"submit", "--watch", "--complete-on-failure", "waiter"});
  ASSERT_TRUE(EventuallyShows("4", "Running"));
  ExpectEnd(Ctl({"output", "4"}), kRefused, "tlmctl: job 4 belongs to another client, at port ");
  ASSERT_EQ(Ctl({"submit", "--stem", "mine", "waiter"}).Output, "8\n");
  std::future<Finished> output = CtlMeanwhile({"output", "-f", "8"});
  ASSERT_TRUE(EventuallyShows("8", "the client at port"));
  EXPECT_EQ(output.wait_for(std::chrono::seconds(0)), std::future_status::timeout);

  LetWaitersGo();
  EXPECT_EQ(output.get().Output, "one\ntwo\n");
  ASSERT_EQ(owner.get().ExitCode, kGood);
  ExpectEnd(Ctl({"output", "4", "--client-host", "elsewhere"}), kRefused, "this one is \"elsewhere\"");
  EXPECT_TRUE(Eventually([this] { return Ctl({"output", "4"}).Output == "one\ntwo\n"; }));
}

// -- ends that come from outside

TEST_F(Tlmctl, CancelsJobsWithThoseThatWaitForThemAndNoticesThatTheServerGoes) {
  AddWaiter();
  ASSERT_EQ(Ctl({"submit", "waiter"}).Output, "4\n");
  ASSERT_EQ(Ctl({"submit", "--stem", "second", "--after", "4", "waiter"}).Output, "8\n");
  ASSERT_TRUE(EventuallyShows("4", "Running"));
  std::future<Finished> watch = CtlMeanwhile({"watch", "8"});
  const Finished cancel = Ctl({"cancel", "4", "100"});
  EXPECT_EQ(cancel.ExitCode, kRefused);
  EXPECT_THAT(cancel.Output, AllOf(HasSubstr("job 4: Aborted"), HasSubstr("the server has no job 100")));
  ExpectEnd(watch.get(), kJobFailed, "job 8 second: Aborted\n");

  watch = CtlMeanwhile({"submit", "--watch", "--stem", "third", "waiter"});
  ASSERT_TRUE(EventuallyShows("12", "Running"));
  server.Kill();
  ExpectEnd(watch.get(), kNoServer, "tlmctl: connection lost");
}

}  // namespace
}  // namespace tlm::test
