// The program itself: its commands, its settings, and the product that its name says.
#include "support/job_client.h"

namespace tlm::test {
namespace {
TEST(Program, StopsItsServerWithoutAWordAndSaysThatItsPortIsTaken) {
  ServerProcess server({}, "serve");
  EXPECT_THAT(server.Output(), Not(HasSubstr("Runtime Vars"))) << "only the other command prints the names";
  Environment settings = server.Settings();
  settings["ORPC_TRACE"] = "1";
  EXPECT_THAT(RunProgram({TLMJM, "debug"}, settings),
              Ends(0, HasSubstr(": ORpcThread::AddListener::bind ERROR: Address already in use(98)\n"
                                "FATAL ERROR: check that no other Tessarine processes are running\n")));
  EXPECT_THAT(RunProgram({TLMJM, "stop", "ignored"}, server.Settings()), Ends(0, ""));
  EXPECT_EQ(server.AwaitEnd(), 0);
  EXPECT_THAT(RunProgram({TLMJM, "stop"}, settings),
              Ends(0, HasSubstr(": ORpcClient::Connect::connect ERROR: Connection refused(111)\n")));
}

TEST(Program, ServesTheProductOfItsName) {
  const Sandbox links;
  for (const auto& [code, prefix] : {std::pair<std::string, std::string>{"ksb", "KSB"}, {"vrk", "VRK"}}) {
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
    EXPECT_THAT(server.Output(),
                AllOf(HasSubstr("RUNTIME_JM_SHORT_NAME           = " + code + "jm2010\n"),
                      HasSubstr("= /" + code + "2010_dp.sta\n"), HasSubstr("= " + prefix + "_JMPORT\n")));
    EXPECT_EQ(JobClient(server.Port()).OutputOf("show", home.Root()), home.Root() + " " + code + " " + code + "2010\n");
  }
}

TEST(Program, TakesItsSettingsFromTheEnvironment) {
  const std::tuple<const char*, const char*, std::uint32_t> cases[] = {
      {"1.5", "0", 5400}, {"0", "1", 30}, {"-1", "", 604800}};
  for (const auto& [hours, trace, expected] : cases) {
    const ServerProcess server(Environment{{"TSQOR_TMP_EXPIRY", hours}, {"TSQOR_TRACE", trace}});
    JobClient client(server.Port());
    std::uint32_t expiry = 0;
    EXPECT_EQ(client.TempRoot(&expiry), server.Root().Root());
    EXPECT_EQ(expiry, expected) << hours;
    EXPECT_EQ(server.Output().starts_with("Full Trace ON\n"), *trace == '1');
    EXPECT_EQ(server.HasPrinted("\nHello from desk:0, ClientPort="), *trace == '1');
  }
}

TEST(Program, ChoosesItsRootAndHidesATmpThatDidNotGiveIt) {
  const Sandbox a, b, c;
  struct {
    Environment Variables;
    std::string Root, TmpOfChildren;
  } cases[] = {
      {{{"TMPDIR", a.Root()}, {"TMP", b.Root()}, {"TEMP", c.Root()}}, a.Root(), ""},
      {{{"TMP", b.Root()}, {"TEMP", c.Root()}}, b.Root(), b.Root()},
      {{{"TMPDIR", ""}, {"TMP", ""}, {"TEMP", c.Root()}}, c.Root(), ""},
      {{}, "/tmp", ""},
  };
  for (auto& one : cases) {
    one.Variables["TSQOR_TMP"] = "";
    const ServerProcess server(one.Variables);
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
  EXPECT_EQ(lines, 5);
  EXPECT_THAT(log.str(), AllOf(HasSubstr(" Version=tlm2010\n"), HasSubstr("] :Server recieving message =tlm2010\n"),
                               HasSubstr("] :Install Path " + server.Home().Root() + "\n")));
  std::filesystem::remove(server.Root().Path("JMTrace.on"));
  client.Hello("tlm2010", "desk", 0);
  EXPECT_EQ(server.Root().Read("JMTrace.log"), log.str());
}

TEST(Program, DescribesTheMachineInFiveLines) {
  EXPECT_THAT(RunProgram({TLMJM, "sysinfo"}), Ends(0, MatchesRegex("OS: .+\nProcessor: .+\nProcessors: [1-9][0-9]*\n"
                                                                   "Memory: [1-9][0-9]* MB\nGraphics: [^\n]*\n")));
}
}  // namespace
}  // namespace tlm::test
