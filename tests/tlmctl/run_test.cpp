// tlmctl run: a command on the server as if it ran here.
#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {
constexpr int kKilled = 137;

struct Run : Tlmctl {
  static Words Do(const std::string& text, const Words& options = {}) {
    return Words{"run"} + options + Words{"--", "do", text};
  }
};

TEST_F(Run, GivesTheExitCodeOfTheProgramOrSaysWhatBecameOfTheJob) {
  const std::tuple<Words, int, std::string> cases[] = {
      {Do("echo out; echo err >&2"), 0, "out\nerr\n"},
      {Do("exit 3"), 3, "job 8 do: Finished, exit code 3"},
      {Do("kill -9 $$"), kKilled, "exit code 137"},
      {Do("exit 255"), 121, "LaunchFailed"},
      {{"run", "--", "missing"}, 121, "could not be started"},
      {Do("exit 0", {"--reports"}), 120, "had not reported success"},
      {Do("exit 7", {"--reports"}), 7, "Aborted, exit code 7"},
      {Do("echo 4 1 >qorjmmsg.$$", {"--reports"}), 0, "Finished"},
      {{"run"}, 64, "tlmctl: what is to run is missing"},
      {{"run", "--deck", "none.inp", "do"}, 64, "tlmctl: there is no deck none.inp"},
      {{"run", "-i", "none.dat", "do"}, 64, "tlmctl: there is no file none.dat in " + disk.Root()},
      {{"run", "--priority", "low", "do"}, 64, "there is no priority low"},
      {{"run", "do", "a\"b"}, 64, "cannot pass on a double quote"},
      {{"run", "--after", "400", "do"}, 77, "the server has no job 400"},
      {{"run", "--release", "none", "do"}, 77, "the server could not do it"},
      {{"run", "--server", LocalAddress(FreePort()), "do"}, 69, "cannot reach the server"},
  };
  for (const auto& [line, code, text] : cases) EXPECT_THAT(Ctl(line), Ends(code, HasSubstr(text)));
  EXPECT_EQ(Ctl({"run", "-q", "--", "do", "echo bare"}).Output, "bare\n");
}

TEST_F(Run, PassesWordsOfAnyKindToTheProgram) {
  server.AddProgram("words", "for word in \"$@\"; do printf '<%s>\\n' \"$word\"; done");
  const Words odd{"plain", "two words", "",        "x;y", "it's", "\\back\\", "'",  "a'b c;d\\'", "$HOME",
                  "*",     "tab\there", "new\nli", "{}",  "[a]",  "a,b",      "-v", "--watch",    "--"};
  std::string expected;
  for (const std::string& word : odd) expected += "<" + word + ">\n";
  EXPECT_EQ(Ctl(Words{"run", "-q", "--", "words"} + odd).Output, expected);
}

TEST_F(Run, SendsWhatTheServerLacksAndBringsBackWhatIsNew) {
  disk.Write("case 7.inp", "content");
  disk.Write("mesh.dat", "mesh");
  disk.Write("empty.dat");
  const Words line = Do("cat 'case 7.inp' mesh.dat; test -e empty.dat && cp mesh.dat 'case 7.res' && cp mesh.dat b.dat",
                        {"-i", "case 7.inp", "-i", "mesh.dat", "-i", "empty.dat", "--also", "b"});
  EXPECT_THAT(Ctl({"run", "--dry-run", "-i", "mesh.dat", "do", "x"}).Output,
              AllOf(HasSubstr("mesh.dat  4 bytes  yes   the server lacks it"), Not(HasSubstr("submitted"))));
  EXPECT_THAT(Ctl(line), Ends(0, AllOf(HasSubstr("sending case 7.inp, 7 bytes"), HasSubstr("sending mesh.dat, 4 bytes"),
                                       HasSubstr("sending empty.dat"), HasSubstr("contentmesh"))));
  EXPECT_EQ(disk.Read("case 7.res"), "mesh");
  EXPECT_EQ(disk.Read("b.dat"), "mesh");
  EXPECT_THAT(Ctl(line).Output, Not(HasSubstr("sending mesh.dat"))) << "the server has it";
  disk.Write("mesh.dat", "hsem");
  EXPECT_THAT(Ctl(line).Output, HasSubstr("sending mesh.dat")) << "the size is as it was, the file is not";
  disk.Write("mesh.dat", "longer");
  EXPECT_THAT(Ctl({"run", "-n", "-i", "mesh.dat", "do"}).Output, HasSubstr("the server has 4 bytes of that name"));
  std::filesystem::resize_file(disk.Write("huge.dat"), std::uint64_t{1} << 32);
  EXPECT_THAT(Ctl({"run", "-n", "-i", "huge.dat", "do"}).Output,
              HasSubstr("huge.dat has 4.3 GB, and a file that travels"));
}

TEST_F(Run, ShowsOutputAndFetchesResultsWhileTheJobRuns) {
  AddWaiter();
  disk.Write("early.in");
  server.AddProgram("early",
                    "printf 'a\\303'; echo partial >early.res; echo 2 1 >qorjmmsg.$$\n"
                    "while [ -e " +
                        disk.Path("wait") + " ]; do sleep 0.05; done; printf '\\251\\n'");
  std::future<ProgramEnd> run = CtlMeanwhile({"run", "--json", "early", "early.in"});
  ASSERT_TRUE(EventuallyKeeps("\"handle\":4"));
  LetWaitersGo();
  const ProgramEnd done = run.get();
  EXPECT_EQ(done.ExitCode, 0) << done.Output;
  std::istringstream lines(done.Output);
  std::string events;
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(line.starts_with("{\"schema\":1,")) << line;
    const std::size_t event = line.find("\"event\":\"");
    if (event != std::string::npos) events += line.substr(event + 9, 1);
  }
  EXPECT_THAT(events, testing::MatchesRegex("s[so]*o[so]*r+e")) << done.Output;
  EXPECT_THAT(disk.Read("early.res"), "partial\n");
  EXPECT_THAT(done.Output, Not(HasSubstr("\xEF\xBF\xBD"))) << "half a character";
}

// -- what goes wrong on the way
TEST_F(Run, GoesOnWhenTheConnectionIsLost) {
  AddWaiter();
  Proxy proxy(server.Port());
  std::future<ProgramEnd> run = CtlMeanwhile(Through(proxy, {"run", "waiter"}));
  ASSERT_TRUE(EventuallyKeeps("waiter"));
  proxy.Cut();
  ASSERT_TRUE(Eventually([&] { return proxy.Connections() > 1; }));
  LetWaitersGo();
  EXPECT_THAT(run.get(), Ends(0, AllOf(HasSubstr("connection to the server was lost"), HasSubstr("one\n"),
                                       HasSubstr("two\n"), HasSubstr("Finished"))));
}

// A job ended between the look at it and the fetch of its results, left the server with them, and passed for lost.
TEST_F(Run, SeesTheEndOfAJobThatLeavesWithItsResults) {
  Proxy proxy(server.Port());
  proxy.Forge(U32(Finished) + U32(kResultsAvailable), U32(Running) + U32(kResultsAvailable));
  server.AddProgram("quick", "echo last words; echo whole >quick.res; exit 3");
  EXPECT_THAT(Ctl(Through(proxy, {"run", "--stem", "quick", "quick"})),
              Ends(3, AllOf(HasSubstr("last words\n"), HasSubstr("Finished, exit code 3"))));
  EXPECT_EQ(disk.Read("quick.res"), "whole\n");
}

TEST_F(Run, GoesOnWithAnUploadFromWhatHasArrived) {
  constexpr std::uint64_t kSize = 24 << 20;
  std::string content(kSize, 'x');
  for (std::size_t i = 0; i < content.size(); i += 997) content[i] = static_cast<char>('a' + i % 23);
  disk.Write("big.dat", content);
  Proxy proxy(server.Port());
  proxy.CutOnceAfter(kSize / 4 * 3);
  EXPECT_THAT(Ctl(Through(proxy, Do("cp big.dat copy.res", {"-i", "big.dat", "--stem", "copy"}))), Ends(0, testing::_));
  EXPECT_TRUE(disk.Read("copy.res") == content);
  EXPECT_LT(proxy.BytesFromClient(), kSize * 3 / 2) << "not all of it once more";
}

TEST_F(Run, GoesOnWithNoUploadButItsOwn) {
  disk.Write("big.dat");
  disk.Write("late.dat");
  const Words options{"--client-host", "desk", "-i", "big.dat", "-i", "late.dat"};
  ASSERT_EQ(Ctl(Do("true", options)).ExitCode, 0);
  JobClient client(server.Port());
  const std::string directory = client.Map(disk.Root() + "/");
  ASSERT_TRUE(std::filesystem::exists(directory + "/late.dat"));
  std::ofstream(directory + "/late.dat.tmp") << "left by another";
  disk.Write("big.dat", std::string(8 << 20, 'x'));
  disk.Write("late.dat", "and now for something longer");
  Proxy proxy(server.Port());
  proxy.CutOnceAfter(1 << 20);
  EXPECT_THAT(Ctl(Through(proxy, Do("cat late.dat", options))).Output,
              AllOf(HasSubstr("connection to the server was lost"), HasSubstr("and now for something longer")));
}

TEST_F(Run, TellsThatTheServerHasForgottenTheJob) {
  AddWaiter();
  const Environment settings = server.Settings();
  std::future<ProgramEnd> run = CtlMeanwhile({"run", "waiter"});
  ASSERT_TRUE(EventuallyKeeps("waiter"));
  EXPECT_EQ(server.Stop(), 0);
  const ServerProcess another(settings);
  EXPECT_THAT(run.get(),
              Ends(75, AllOf(HasSubstr("the server has no job 4 waiter any more"), HasSubstr("tlmctl resubmit @"))));
  LetWaitersGo();
  EXPECT_EQ(Ctl({"resubmit"}).ExitCode, 0);
}

TEST_F(Run, WritesNothingThatAServerWouldLikeToHaveElsewhere) {
  disk.MakeDirectory("work");
  const std::string inside = disk.Path("work/a.res");
  for (const std::string& outside : {disk.Path("work/../rs"), disk.Path("outside.rs"), disk.Path("work/.b.rs")}) {
    ASSERT_EQ(outside.size(), inside.size());
    Proxy proxy(server.Port());
    proxy.Forge(inside, outside);
    EXPECT_THAT(Ctl(Through(proxy, Do("echo x >a.res", {"--dir", disk.Path("work"), "--stem", "a"}))),
                Ends(77, HasSubstr("the server sent a file for " + outside)));
    EXPECT_FALSE(std::filesystem::exists(outside)) << outside;
  }
}

// -- what is here, and what is another's
TEST_F(Run, ReplacesNothingThatIsNewerThanTheJobsFiles) {
  disk.Write("m.inp", "first");
  disk.Write("m.msh", "mesh");
  AddWaiter();
  auto run = CtlMeanwhile({"run", "-i", "m.inp", "-i", "m.msh", "--stem", "m", "waiter"});
  ASSERT_TRUE(EventuallyShows("4", "Running"));
  disk.Write("m.msh", "edited");
  LetWaitersGo();
  EXPECT_EQ(run.get().ExitCode, 0);
  EXPECT_EQ(disk.Read("m.msh"), "edited");
  disk.MakeDirectory("m.res");
  EXPECT_THAT(Ctl(Do("echo x >m.res; exit 5", {"--stem", "m"})),
              Ends(77, AllOf(HasSubstr("exit code 5"), HasSubstr("m.res and perhaps others did not arrive"))));
}

TEST_F(Run, SharesItsFilesWithNoOtherJob) {
  AddWaiter();
  ASSERT_EQ(Ctl({"submit", "--stem", "a", "waiter"}).ExitCode, 0);
  EXPECT_THAT(Ctl(Do("true", {"--stem", "a"})),
              Ends(77, HasSubstr("job 4 a has not ended and writes to the same files")));
  std::vector<std::future<ProgramEnd>> runs;
  for (int i = 0; i < 4; ++i) runs.push_back(CtlMeanwhile(Do("echo number " + std::to_string(i))));
  for (int i = 0; i < 4; ++i) EXPECT_THAT(runs[i].get().Output, HasSubstr("number " + std::to_string(i)));

  disk.MakeDirectory("theirs");
  JobClient stranger(server.Port());
  Submission job = JobIn(disk / "theirs/", "do echo >b.res", "b");
  job.CompleteOnFailure = true;
  stranger.Map(job.WorkDir);
  const std::string theirs = std::to_string(stranger.SubmitJob(job));
  stranger.Await(std::stoull(theirs), {Finished});
  stranger.Disconnect();
  EXPECT_THAT(Ctl({"--client-host", "desk", "results", theirs}),
              Ends(77, HasSubstr("which is not the directory from which it was submitted")));
  EXPECT_FALSE(disk.Has("theirs/b.res"));
}

TEST_F(Run, ShowsWhatIsWrittenOnAnotherServer) {
  const ServerProcess first({{"TSQOR_JMPORT_127.0.0.2", std::to_string(server.Port())}});
  first.AddProgram("long", "sleep 600");
  const auto ctl = [&](const Words& words) { return RunTlmctl(first, disk, words); };
  ASSERT_EQ(ctl({"load-limit", "1"}).ExitCode, 0);
  ASSERT_EQ(ctl({"pool", "set", "127.0.0.2"}).ExitCode, 0);
  ASSERT_EQ(ctl({"submit", "--stem", "long", "long"}).ExitCode, 0);
  disk.Write("far.inp", "");
  EXPECT_THAT(ctl({"run", "--distribute", "-i", "far.inp", "--", "do", "echo from afar; exit 3"}),
              Ends(122, HasSubstr("from afar\n")));
}
}  // namespace
}  // namespace tlm::test
