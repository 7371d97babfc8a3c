// The server under a service manager: what it reports, how it ends, and the commands that make it a service.
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "support/job_client.h"

namespace tlm::test {
namespace {
using std::chrono::seconds;

// Where a service manager listens.
class Manager {
 public:
  Manager() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    Address().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  ~Manager() { close(socket_); }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  std::string Address() const { return disk_.Path("notify"); }
  std::string NextReport() const {
    pollfd entry = {socket_, POLLIN, 0};
    if (poll(&entry, 1, 60'000) <= 0) return "no report";
    char text[256];
    return {text, static_cast<std::size_t>(recv(socket_, text, sizeof text, 0))};
  }
  // What has come up to the end of the process.
  std::vector<std::string> AllReports() const {
    std::vector<std::string> reports;
    for (pollfd entry = {socket_, POLLIN, 0}; poll(&entry, 1, 0) > 0;) reports.push_back(NextReport());
    return reports;
  }

 private:
  Sandbox disk_;
  int socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

struct ManagerFirst {
  Manager TheManager;
};

struct Service : ManagerFirst, JobTest {
  explicit Service(Environment more = {}) : JobTest(Settings(std::move(more)), "") {
    std::filesystem::create_symlink(BIN_DIRECTORY "/stop_event_program", Server.Home().Path("bin/polite"));
    EXPECT_EQ(TheManager.NextReport(), "STATUS=start pending");
    EXPECT_EQ(TheManager.NextReport(), "READY=1");
  }
  Environment Settings(Environment more) const {
    more["NOTIFY_SOCKET"] = TheManager.Address();
    return more;
  }
};

struct WatchedService : Service {
  WatchedService() : Service(Environment{{"WATCHDOG_USEC", "200000"}}) {}
};

TEST_F(WatchedService, ShowsThatItsLoopGoesRoundWithoutACall) {
  for (int i = 0; i < 5; ++i) EXPECT_EQ(TheManager.NextReport(), "WATCHDOG=1");
  EXPECT_EQ(Client.OutputOf("do 'echo $WATCHDOG_USEC.'", Work.Root()), ".\n");
}

TEST_F(Service, ReportsItsStatesUntilAClientStopsIt) {
  EXPECT_THAT(Server.Output(), StartsWith("Listening on 0.0.0.0:"));
  EXPECT_EQ(Client.OutputOf("do 'echo $NOTIFY_SOCKET.'", Work.Root()), ".\n");
  kill(Server.Pid(), SIGHUP);
  EXPECT_EQ(TheManager.NextReport(), "READY=1") << "what it does not know makes it report again";
  EXPECT_EQ(RunProgram({TLMJM, "stop"}, Server.Settings()).Output, "");
  EXPECT_EQ(Server.AwaitEnd(), 0);
  EXPECT_THAT(TheManager.AllReports(), ElementsAre("STOPPING=1", "STATUS=stopped"));
}

TEST_F(Service, EndsWithItsJobsWhenItIsToldToStop) {
  const std::uint64_t job = Submit("polite obey obedient");
  const std::int32_t obedient = AwaitNumber("obedient");
  const RawConnection silent(Server.Port());
  EXPECT_EQ(Client.Get(job).Status, std::uint32_t{Running});
  kill(Server.Pid(), SIGTERM);
  EXPECT_LT(TimeOf([&] { EXPECT_EQ(Server.AwaitEnd(), 0); }), seconds(5));
  EXPECT_TRUE(IsGone(obedient));
  EXPECT_TRUE(Eventually([&] { return Work.Read("job1_out").ends_with("stopped\n"); })) << Work.Read("job1_out");
  EXPECT_THAT(TheManager.AllReports(), ElementsAre("STOPPING=1", testing::_, testing::_, "STATUS=stopped"))
      << "each side tells both states";
}

TEST_F(Service, EndsAfterFiveSecondsWhateverItsThreadIsDoing) {
  std::vector<std::int32_t> processes;
  for (const char* name : {"a", "b"}) {
    Submit(std::string("polite ignore ") + name);
    processes.push_back(AwaitNumber(name));
  }
  // The call goes on for ten seconds, and holds the lock of the whole state.
  RawConnection busy(Server.Port());
  busy.Send(Record(Call(46)));
  ASSERT_TRUE(Eventually([this] {
    RawConnection other(Server.Port());
    other.Send(Record(Call(0)));
    return !other.IsReadableWithin(std::chrono::milliseconds(200));
  }));
  kill(Server.Pid(), SIGTERM);
  const auto time = TimeOf([&] { EXPECT_EQ(Server.AwaitEnd(), 0); });
  EXPECT_GE(time, seconds(4));
  EXPECT_LT(time, seconds(9));
  for (std::int32_t pid : processes) {
    EXPECT_TRUE(IsGone(pid));
    EXPECT_FALSE(std::filesystem::exists("/dev/shm/sem.tlm2010_" + std::to_string(pid)));
  }
  EXPECT_THAT(TheManager.AllReports(), ElementsAre("STOPPING=1", "STATUS=stopped"));
}

TEST_F(Service, LeavesAnotherServerAloneThatHasTakenItsPort) {
  Submit("polite ignore deaf");
  const std::int32_t deaf = AwaitNumber("deaf");
  EXPECT_EQ(RunProgram({TLMJM, "stop"}, Server.Settings()).Output, "");
  EXPECT_TRUE(Eventually([&] { return !Listens(Server.Port()); }));
  const ServerProcess another({{"TSQOR_JMPORT", std::to_string(Server.Port())}});
  kill(Server.Pid(), SIGTERM);
  EXPECT_EQ(Server.AwaitEnd(), 0);
  EXPECT_TRUE(IsGone(deaf));
  EXPECT_EQ(JobClient(another.Port()).Jobs(), HandleList());
}

TEST_F(JobTest, InTheForegroundEndsWithItsJobsByAKeyOrWithItsTerminal) {
  const std::uint64_t job = Submit(Do(Wait("pid")));
  const std::int32_t pid = AwaitNumber("pid");
  EXPECT_EQ(Client.Get(job).Status, std::uint32_t{Running});
  kill(Server.Pid(), SIGINT);
  EXPECT_EQ(Server.AwaitEnd(), 0);
  EXPECT_TRUE(IsGone(pid));
  const Manager manager;
  ServerProcess another({{"NOTIFY_SOCKET", manager.Address()}});
  kill(another.Pid(), SIGHUP);
  EXPECT_EQ(another.AwaitEnd(), 0);
  EXPECT_THAT(manager.AllReports(), ElementsAre()) << "it is no service";
}

TEST(ServiceStart, TellsThatThePortIsTakenAndNeedsAManager) {
  const ServerProcess server;
  Environment settings = server.Settings();
  EXPECT_EQ(RunProgram({TLMJM}, settings).Output, "") << "nobody asked it to serve";
  const Manager manager;
  settings["NOTIFY_SOCKET"] = manager.Address();
  EXPECT_THAT(RunProgram({TLMJM}, settings),
              Ends(0, "FATAL ERROR: check that no other Tessarine processes are running\n"));
  EXPECT_THAT(manager.AllReports(), ElementsAre("STATUS=start pending", "READY=1", "STOPPING=1", "STATUS=stopped"));
}

// -- the commands, with a stand-in for the manager's tool
struct ServiceCommands : ::testing::Test {
  Sandbox Disk;
  Environment Settings{{"PATH", Disk.Path("bin") + ":/usr/bin:/bin:/usr/sbin:/sbin"},
                       {"HOME", Disk.Root()},
                       {"XDG_RUNTIME_DIR", Disk.Root()},
                       {"TSQOR_TMP", Disk.MakeDirectory("root")}};

  ServiceCommands() {
    ScriptTool("");
    std::filesystem::permissions(Disk.Root(), std::filesystem::perms::all);
  }

  void ScriptTool(const std::string& body) const {
    Disk.WriteScript("bin/systemctl", "echo \"$@\" >>" + Disk.Path("calls") + "\n" + body);
    std::filesystem::permissions(Disk.Path("bin/systemctl"), std::filesystem::perms::all);
  }
  std::string Calls() const {
    std::string calls = Disk.Read("calls");
    std::filesystem::remove(Disk.Path("calls"));
    return calls;
  }
  // Each gives what was printed.
  std::string AsUser(const std::string& command, const std::string& program = TLMJM) const {
    const Words drop{"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    return Run((geteuid() == 0 ? drop : Words()) + Words{program, command});
  }
  // The machine's units are a directory of the test.
  std::string AsRoot(const std::string& commands) const {
    return Run({"/usr/bin/unshare", geteuid() == 0 ? "-m" : "-rm", "sh", "-c",
                "mount --bind " + Disk.MakeDirectory("units") + " /etc/systemd/system && " + commands});
  }
  std::string Verified(const std::string& unit, const std::string& scope) const {
    return Run({"/usr/bin/systemd-analyze", "verify", "--man=no", scope, Disk.Path(unit)});
  }

 private:
  std::string Run(const Words& arguments) const {
    const auto finished = RunProgram(arguments, Settings);
    EXPECT_EQ(finished.ExitCode, 0) << finished.Output;
    return finished.Output;
  }
};

TEST_F(ServiceCommands, MakeStartAndRemoveAServiceOfTheUser) {
  const std::string unit = ".config/systemd/user/tlmjm2010.service";
  EXPECT_EQ(AsUser("install"), "");
  EXPECT_EQ(Calls(), "--user daemon-reload\n--user --quiet enable tlmjm2010.service\n");
  EXPECT_THAT(Disk.Read(unit), HasSubstr("\nDescription=Corvanta Tessarine Lumora 2010 Job Manager\n"));
  EXPECT_THAT(Disk.Read(unit), HasSubstr("\nExecStart=" TLMJM "\n"));
  EXPECT_EQ(Verified(unit, "--user"), "");
  EXPECT_EQ(AsUser("install"), Disk.Path(unit) + ": File exists\n");
  EXPECT_EQ(AsUser("start"), "");
  EXPECT_EQ(Calls(), "--user start tlmjm2010.service\n") << "nothing is done about a service that is there";
  EXPECT_EQ(AsUser("uninstall"), "");
  EXPECT_EQ(Calls(), "--user --quiet disable tlmjm2010.service\n--user daemon-reload\n");
  EXPECT_FALSE(Disk.Has(unit));
  EXPECT_EQ(AsUser("uninstall"), Disk.Path(unit) + ": No such file or directory\n");
  EXPECT_EQ(Calls(), "");
}

TEST_F(ServiceCommands, MakeAServiceOfTheMachineForItsAdministrator) {
  EXPECT_EQ(AsRoot(TLMJM " install; " TLMJM " start"), "");
  EXPECT_EQ(Calls(), "daemon-reload\n--quiet enable tlmjm2010.service\nstart tlmjm2010.service\n");
  EXPECT_EQ(Verified("units/tlmjm2010.service", "--system"), "");
  EXPECT_EQ(AsRoot(TLMJM " uninstall"), "");
  EXPECT_FALSE(Disk.Has("units/tlmjm2010.service"));
}

TEST_F(ServiceCommands, KeepTheWordByWhichTheProgramWasCalled) {
  const std::string link = Disk.MakeDirectory("a \"%b\" $c") + "/ksbjm";
  std::filesystem::create_symlink(TLMJM, link);
  EXPECT_EQ(AsUser("install", link), "");
  const std::string unit = ".config/systemd/user/ksbjm2010.service";
  EXPECT_THAT(Disk.Read(unit),
              HasSubstr("\nExecStart=@" TLMJM " \"" + Disk.Path("a \\x22%%b\\x22 $$c/ksbjm") + "\"\n"));
  EXPECT_EQ(Verified(unit, "--user"), "");

  const std::string program = Disk.MakeDirectory("it's") + "/tlmjm";
  std::filesystem::copy(TLMJM, program);
  EXPECT_EQ(AsUser("install", program),
            "The path of a service's program may not have quotes, backslashes or control characters in it.\n");
  EXPECT_FALSE(Disk.Has(".config/systemd/user/tlmjm2010.service"));
}

TEST_F(ServiceCommands, TellAFailureInOneLine) {
  ScriptTool("echo Failed to do it: no bus. >&2; echo See elsewhere. >&2; exit 1");
  EXPECT_EQ(AsUser("start"), "Failed to do it: no bus.\n");
  EXPECT_EQ(AsUser("install"), "Failed to do it: no bus.\n");
  EXPECT_TRUE(Disk.Has(".config/systemd/user/tlmjm2010.service")) << "it is there for the manager's next start";
  Settings["PATH"] = Disk.MakeDirectory("nothing");
  EXPECT_THAT(AsUser("start"), HasSubstr("systemctl"));
  Settings["HOME"] = "/proc/nowhere";
  EXPECT_EQ(AsUser("install"), "/proc/nowhere/.config/systemd/user: No such file or directory\n");
}

TEST_F(ServiceCommands, ClearTheTemporaryRootBeforeTheServiceGoes) {
  const std::string directory = Disk.MakeDirectory("root/tq1");
  Disk.Write("root/tq1/old");
  Disk.Write("root/stranger");
  std::filesystem::last_write_time(Disk.Path("root/tq1/old"),
                                   std::filesystem::file_time_type::clock::now() - seconds(9));
  Disk.Write("root/tlm2010.sta", "desk\n/home/me\n" + directory + "\n");
  Disk.Write("root/tlm2010_dp.sta", "peer\n");
  EXPECT_THAT(RunProgram({TLMJM, "uninstall"}, Settings).Output, HasSubstr(": No such file or directory\n"));
  for (const char* gone : {"root/tq1", "root/tlm2010.sta", "root/tlm2010_dp.sta"}) EXPECT_FALSE(Disk.Has(gone)) << gone;
  EXPECT_TRUE(Disk.Has("root/stranger"));
}
}  // namespace
}  // namespace tlm::test
