// The program itself: its commands, its settings, and the product that its name says.
#include <gmock/gmock.h>

#include "support/job_client.h"

namespace tlm::test {
namespace {

using ::testing::HasSubstr;

TEST(Program, StopsItsServerWithoutAWordAndSaysThatItsPortIsTaken) {
  ServerProcess server({}, "serve");
  EXPECT_EQ(server.Output(), "") << "only the other command prints the names";
  Environment settings = server.Settings();
  settings["ORPC_TRACE"] = "1";
  const auto second = RunProgram({TLMJM, "debug"}, settings);
  EXPECT_THAT(second.Output, HasSubstr(": ORpcThread::AddListener::bind ERROR: Address already in use(98)\n"
                                       "FATAL ERROR: check that no other Tessarine processes are running\n"));
  EXPECT_EQ(second.ExitCode, 0);
  const auto stop = RunProgram({TLMJM, "stop", "ignored"}, server.Settings());
  EXPECT_EQ(stop.Output, "");
  EXPECT_EQ(stop.ExitCode, 0);
  EXPECT_EQ(server.AwaitEnd(), 0);
  const auto again = RunProgram({TLMJM, "stop"}, settings);
  EXPECT_THAT(again.Output, HasSubstr(": ORpcClient::Connect::connect ERROR: Connection refused(111)\n"));
  EXPECT_EQ(again.ExitCode, 0);
}

TEST(Program, ServesTheProductOfItsName) {
  const Sandbox links;
  for (const std::string code : {"ksb", "vrk"}) {
    std::string prefix = code;
    for (char& c : prefix) c = static_cast<char>(std::toupper(c));
    const std::string link = links.Path(code + "jm");
    std::filesystem::create_symlink(TLMJM, link);
    const std::string port = std::to_string(FreePort());
    const Sandbox home;
    home.WriteScript("bin/show", "echo $" + prefix + "_HOME $TSJM_CLIENT $TS_BUILDREL\n");
    const ServerProcess server({{prefix + "_JMPORT", port},
                                {"TSQOR_JMPORT", port},
                                {prefix + "_HOME", home.Root()},
                                {prefix + "_TMP", home.Root()}},
                               "debug", link);
    EXPECT_THAT(server.Output(), HasSubstr("RUNTIME_JM_SHORT_NAME           = " + code + "jm2010\n"));
    EXPECT_THAT(server.Output(), HasSubstr("= /" + code + "2010_dp.sta\n"));
    EXPECT_THAT(server.Output(), HasSubstr("= " + prefix + "_JMPORT\n"));
    EXPECT_EQ(JobClient(server.Port()).OutputOf("show", home.Root()), home.Root() + " " + code + " " + code + "2010\n");
  }
}

TEST(Program, TakesItsSettingsFromTheEnvironment) {
  const std::pair<const char*, std::uint32_t> expiries[] = {{"1.5", 5400}, {"0", 30}, {"-1", 604800}};
  for (const auto& [hours, expected] : expiries) {
    const ServerProcess server(Environment{{"TSQOR_TMP_EXPIRY", hours}, {"TSQOR_TRACE", "0"}});
    JobClient client(server.Port());
    std::uint32_t expiry = 0;
    EXPECT_EQ(client.TempRoot(&expiry), server.Root().Root());
    EXPECT_EQ(expiry, expected) << hours;
    EXPECT_EQ(server.Output().find("Full Trace ON"), std::string::npos);
  }
  const ServerProcess server(Environment{{"TSQOR_TRACE", "1"}});
  JobClient client(server.Port());
  EXPECT_THAT(server.Output(), ::testing::StartsWith("Full Trace ON\n"));
  EXPECT_THAT(server.Output(), HasSubstr("\nHello from desk:0, ClientPort="));
  EXPECT_THAT(server.Output(), HasSubstr(" Version=tlm2010\nServer recieving message =tlm2010\n"));
  EXPECT_THAT(server.Output(), HasSubstr("\nInstall Path " + server.Home().Root() + "\n"));
}

TEST(Program, ChoosesItsRootAndHidesATmpThatDidNotGiveIt) {
  const Sandbox a, b, c;
  struct Case {
    Environment Variables;
    std::string Root;
    std::string TmpOfChildren;
  };
  const std::vector<Case> cases{
      {{{"TMPDIR", a.Root()}, {"TMP", b.Root()}, {"TEMP", c.Root()}}, a.Root(), ""},
      {{{"TMP", b.Root()}, {"TEMP", c.Root()}}, b.Root(), b.Root()},
      {{{"TMPDIR", ""}, {"TMP", ""}, {"TEMP", c.Root()}}, c.Root(), ""},
      {{}, "/tmp", ""},
  };
  for (const Case& one : cases) {
    Environment environment = one.Variables;
    environment["TSQOR_TMP"] = "";
    const ServerProcess server(environment);
    server.AddProgram("show", "echo \"<$TMP>\"\n");
    JobClient client(server.Port());
    EXPECT_EQ(client.TempRoot(), one.Root);
    EXPECT_EQ(client.OutputOf("show", a.Root()), "<" + one.TmpOfChildren + ">\n");
  }
}

TEST(Program, LogsWhatItTracesWhileAFileAsksForIt) {
  const ServerProcess server(Environment{{"TZ", "UTC"}});
  JobClient client(server.Port());
  EXPECT_FALSE(server.Root().Has("JMTrace.log"));
  server.Root().Write("JMTrace.on");
  const std::time_t before = std::time(nullptr);
  client.Hello("tlm2010", "desk", 0);
  std::istringstream log(server.Root().Read("JMTrace.log"));
  int lines = 0;
  for (std::string line; std::getline(log, line); ++lines) {
    std::tm stamp{};
    const char* text = strptime(line.c_str(), "[%d/%m/%Y %H:%M:%S] :", &stamp);
    ASSERT_TRUE(text != nullptr && text == line.c_str() + 23) << line;
    EXPECT_NEAR(static_cast<double>(timegm(&stamp)), static_cast<double>(before), 30) << line;
  }
  EXPECT_EQ(lines, 5) << log.str();
  std::filesystem::remove(server.Root().Path("JMTrace.on"));
  client.Hello("tlm2010", "desk", 0);
  EXPECT_EQ(server.Root().Read("JMTrace.log"), log.str());
}

}  // namespace
}  // namespace tlm::test
