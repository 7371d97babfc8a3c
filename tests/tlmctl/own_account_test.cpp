// What the client tells of itself: to shells, and to readers of the manual.
#include <sstream>

#include "support/job_client.h"

namespace tlm::test {
namespace {
constexpr char kClient[] = BIN_DIRECTORY "/tlmctl";

struct Completion : JobTest {
  // What bash offers for the last of the words, which it has cut at '=' and ':'.
  Words Bash(const Words& words) const {
    const Words shell{"/usr/bin/env",
                      "-C",
                      Work.Root(),
                      "bash",
                      "-c",
                      "source <(\"$0\" completion bash); COMP_WORDS=(tlmctl \"$@\"); COMP_CWORD=$#; "
                      "_tlmctl \"$0\"; printf '%s\\n' \"${COMPREPLY[@]}\"",
                      kClient};
    std::istringstream output(RunProgram(shell + words, {{"TLM_SERVER", Server.Address()}}).Output);
    Words offers;
    for (std::string line; std::getline(output, line);) offers.push_back(line);
    std::sort(offers.begin(), offers.end());
    return offers;
  }
};

TEST_F(Completion, OffersWhatMayStandThere) {
  Client.AwaitEnd(Submit("missing"));
  SubmitQueued("missing");
  Work.Write("plate 1.inp");
  Work.MakeDirectory("runs");
  const std::string port = std::to_string(Server.Port());
  const Words nothing{""}, jobs{"4", "8", "last"};
  const std::pair<Words, Words> cases[] = {
      {{"prio"}, {"priority"}},
      {{"comp"}, {"completion"}},
      {{"nonsense", ""}, nothing},
      {{"-q", "--json", "queue", "st"}, {"start", "status", "stop"}},
      {{"queue", "start", "--a"}, {"--at"}},
      {{"queue", "start", "--wait"}, {"--wait-server"}},
      {{"release", ""}, jobs},
      {{"release", "4", "8"}, {"8"}},
      {{"submit", "--after", ""}, jobs},
      {{"--server", "127.0.0.1", ":", port, "release", ""}, jobs},
      {{"--server", "=", "127.0.0.1", ":", "1", "release", ""}, {"last"}},
      {{"priority", "4", "h"}, {"high"}},
      {{"priority", "--default", "=", "n"}, {"normal"}},
      {{"priority", "--default", "="}, {"high", "idle", "normal", "realtime"}},
      {{"completion", ""}, {"bash", "fish", "zsh"}},
      {{"run", "--deck", "p"}, {"plate 1.inp"}},
      {{"run", "--deck", "=", "p"}, {"plate 1.inp"}},
      {{"run", "--dir", ""}, {"runs"}},
      {{"run", "--", "heat2d", "pl"}, {"plate 1.inp"}},
  };
  for (const auto& [words, offers] : cases) EXPECT_EQ(Bash(words), offers) << testing::PrintToString(words);
}

TEST_F(Completion, DoesNotWaitForAServerThatDoesNotAnswer) {
  const RawListener silent;
  const auto ask = [&] {
    return RunProgram({kClient, "complete", "--", "release", ""}, {{"TLM_SERVER", LocalAddress(silent.Port())}});
  };
  EXPECT_LT(TimeOf([&] { EXPECT_THAT(ask().Output, testing::StartsWith("last\t")); }), std::chrono::seconds(10));
}

TEST(Output, IsAFailureWhereItCannotBeWrittenAndNoneWhereNobodyReadsOn) {
  const auto shell = [](const std::string& line) {
    return RunProgram({"/bin/bash", "-o", "pipefail", "-c", line, kClient});
  };
  EXPECT_THAT(shell("\"$0\" manual >/dev/full"),
              Ends(77, "tlmctl: standard output cannot be written: No space left on device\n"));
  EXPECT_EQ(shell("(\"$0\" manual; echo $? >&2) | true").Output, "0\n");
}

TEST(Output, OfFailuresIsADocumentAlsoBeforeTheLineIsUnderstood) {
  EXPECT_THAT(RunProgram({kClient, "--wait-server", "soon", "--json", "ping"}),
              Ends(64, StartsWith(R"({"schema":1,"error":{"code":"usage")")));
  EXPECT_EQ(RunProgram({kClient, "report", "stop-requested", "--json"}).Output,
            "{\"schema\":1,\"stop_requested\":false}\n");
}

TEST(Manual, TellsOfEachCommandOptionAndOperation) {
  const std::string manual = RunProgram({kClient, "manual"}).Output;
  for (const std::string text :
       {"\n## run\n", "\n## queue start\n\n*tlmctl queue start* [_options_]\n", "\n*--at* _TIME_\n\t",
        "\n*-q*, *--quiet*\n\t", "\n*--server* _HOST[:PORT]_\n\t",
        "\n*--default* [*idle*|*normal*|*high*|*realtime*]\n", "\n$ *tlmctl queue start --at 22:30*\n\t",
        "\n*69*\n\tthe server cannot be reached (*unreachable*)\n", "\n*TLM\\_SERVER*\n"}) {
    EXPECT_THAT(manual, HasSubstr(text));
  }
  EXPECT_THAT(manual, Not(HasSubstr("## complete\n")));
  for (int i = 1; i <= 49; ++i) EXPECT_THAT(manual, HasSubstr("\n|] " + std::to_string(i) + "\n:[ "));
}

TEST(Manual, IsWellFormed) {
  if (RunProgram({"/usr/bin/env", "scdoc", "-v"}).ExitCode != 0) GTEST_SKIP() << "scdoc is not installed";
  EXPECT_THAT(RunProgram({"/bin/bash", "-o", "pipefail", "-c", "\"$0\" manual | scdoc >/dev/null", kClient}),
              Ends(0, testing::_));
}
}  // namespace
}  // namespace tlm::test
