// What a server's job log tells of jobs: history --server-log.
#include <optional>

#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {
ProgramEnd History(const std::string& log, const Words& words) {
  return RunProgram(Words{BIN_DIRECTORY "/tlmctl", "history", "--server-log", log} + words);
}

TEST(ServerLog, TellsOfJobsOverRestartsOfTheServer) {
  const Sandbox disk;
  const std::string log = disk / "log";
  std::optional<ServerProcess> server(std::in_place, Environment{{"TSQOR_JOB_LOG", log}});
  const Environment settings = server->Settings();
  {
    JobClient client(server->Port(), "desk");
    Submission job = JobIn(disk.Root(), "", "stem");
    job.AnalysisID = "\x01\xFF\"\xED\xA0\x80\\\xC3\xBC\n";
    job.ClientNote = "tlmctl:0123456789ab a note";
    for (const std::string command :
         {"do 'sleep 1; echo 4 1 > qorjmmsg.$$; exit 2'", "do 'exit 3'", "nothing", "do 'exec sleep 999'"}) {
      job.Command = command;
      client.SubmitJob(job);
    }
    for (const std::uint64_t handle : {4, 8, 12}) client.AwaitEnd(handle);
    client.Await(16, {Running});
    client.RemoveJob(16);
    client.AwaitEnd(16);
    client.Await(client.SubmitJob(job), {Running});
  }
  server->Kill();
  std::filesystem::resize_file(log, std::filesystem::file_size(log) - 7);  // it was killed in the middle of a line
  server.emplace(settings);
  JobClient(server->Port()).OutputOf("nothing", disk.Root());
  ASSERT_EQ(server->Stop(), 0);

  EXPECT_THAT(
      History(log, {"--json"}).Output,
      ContainsRegex(
          "torn, or none of a job log: 1\"}\n"
          ".*\"id\":\"0123456789ab\",\"handle\":4,.*\"\\\\u0001\uFFFD\\\\\"\uFFFD\uFFFD\uFFFD\\\\\\\\\u00FC\\\\n\""
          ".*\"client_host\":\"desk\",.*\"note\":\"a note\",.*\"started\":\"2"
          ".*\"finished\",\"exit_code\":2,\"elapsed_seconds\":[1-9],\"ended\":\"2"
          ".*\"aborted\",\"exit_code\":3,.*\"launch-failed\",\"exit_code\":null,\"elapsed_seconds\":null"
          ".*\"aborted\",\"exit_code\":0,.*\"handle\":20,.*\"lost\",\"exit_code\":null,.*\"ended\":\"2"
          ".*\"handle\":4,.*\"command\":\"nothing\""));
  EXPECT_EQ(History(log, {"-q", "-n", "2"}).Output, "20\n4\n");
}

TEST(ServerLog, IsReadWhateverStandsInIt) {
  const auto line = [](const std::string& fields) {
    return R"({"time":"2010-05-31T15:04:09.1Z","port":1,"submitted":"2010-05-31T15:04:00Z",)" + fields + "}\n";
  };
  const auto state = [&](const std::string& handle, const std::string& status, const std::string& more = "") {
    return line(R"("handle":)" + handle + R"(,"status":")" + status + '"' + more);
  };
  const Sandbox disk;
  disk.Write("log.1", "time\":\"2010\n" + state("4", "running") + state("8", "running"));
  disk.Write("log", "\n\xFF\xFE\n" + std::string(100000, '[') + "\n7\n{}\n" + line(R"("event":"other")") +
                        state("-4", "queued") + state("1e300", "queued") + state("12", "\\u001b[2J") +
                        state("12", "finished", R"(,"exit_code":256)") + state("12", "queued", R"(,"name":["x"])") +
                        state("12", "queued", R"(,"started":"2010-02-30T15:04:09Z")") +
                        state("4", "finished", R"(,"exit_code":0,"peer":"beta","missing_before":5)") +
                        state("4", "removed") + line(R"("event":"start","port":2)") +
                        state("8", "aborted", R"(,"name":"\u001b[31mred")") + state("16", "queued") +
                        state("16", "starting", R"(,"submitted":"2011-05-31T15:04:00Z")") +
                        state("20", "running").substr(0, 60));
  const ProgramEnd end = History(disk / "log", {});
  EXPECT_THAT(end.Output, AllOf(HasSubstr("torn, or none of a job log: 13\n"), HasSubstr("could not write them: 5\n")));
  EXPECT_THAT(end.Output, ContainsRegex("- +4 .* finished, exit code 0, on beta\n- +8 .* \\?\\[31mred .* aborted\n"
                                        "- +16 .*2010.* lost\n- +16 .*2011.* starting\n$"));
  EXPECT_EQ(History(disk / "none", {}).ExitCode, 77);
}
}  // namespace
}  // namespace tlm::test
