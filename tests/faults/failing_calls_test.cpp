// The system refuses the server one call after the other: whatever it is and however it fails, the server stays, its
// answers are true, and no file is lost.
#include "support/failing_calls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "rpc/orpcerror.h"
#include "support/job_client.h"

namespace tlm::test {
namespace {
using Counts = std::pair<std::ptrdiff_t, std::ptrdiff_t>;

struct FailingServer : ::testing::Test {
  Sandbox Shared;
  Sandbox Here;
  FailingCalls& Calls{Map()};
  ServerProcess Server{{{kFailingCalls, Shared / "calls"},
                        {"TSQOR_CALLBACK_LIMIT", "1"},
                        {"TSQOR_CONFINE", "1"},
                        {"TSQOR_JOB_LOG", Shared / "jobs"}},
                       "debug",
                       BIN_DIRECTORY "/failing/tlmjm"};
  std::string There;  // the server's directory for what is here

  FailingServer() { There = JobClient(Server.Port()).Map(Here.Root() + "/"); }
  ~FailingServer() override { munmap(&Calls, sizeof(FailingCalls)); }

  FailingCalls& Map() const {
    Shared.Write("calls", std::string(sizeof(FailingCalls), '\0'));
    const int file = open((Shared / "calls").c_str(), O_RDWR | O_CLOEXEC);
    void* const memory = mmap(nullptr, sizeof(FailingCalls), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (memory == MAP_FAILED) throw std::runtime_error("mmap");
    return *static_cast<FailingCalls*>(memory);
  }

  // The steps while the first call fails, the second, and so on up to the last, then the check while none does; all
  // that in each way in which a call may fail.
  template <class Steps, class Check>
  void FailEachCall(Steps steps, Check check) {
    const Counts before = DescriptorsAndChildren();
    int failed = 0;
    for (std::uint32_t kind = 0; kind < 4; ++kind) {
      bool reached = true;
      for (int number = 1; reached && !HasFailure(); ++number) {
        Calls.Kind = kind;
        Calls.Left = number;
        try {
          steps();
        } catch (const OrpcSocketError&) {  // A connection may be lost
        } catch (int) {                     // or a call fail as a whole.
        }
        reached = Calls.Left.exchange(0) <= 0;
        failed += reached ? 1 : 0;
        ASSERT_TRUE(Server.IsRunning()) << Calls.Failed << ' ' << number << ' ' << kind << '\n' << Server.Output();
        check();
        EXPECT_FALSE(HasFailure()) << Calls.Failed << ' ' << number << ' ' << kind;
      }
    }
    RecordProperty("FailedCalls", failed);
    EXPECT_GT(failed, 100);
    EXPECT_TRUE(Eventually([&] { return DescriptorsAndChildren() <= before; })) << DescriptorsAndChildren().first;
    EXPECT_EQ(Server.Stop(), 0) << Server.Output();
  }

  Counts DescriptorsAndChildren() const {
    std::istringstream children;  // each is that of the thread which has started it
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(Server.Pid()) + "/task")) {
      children.str(children.str() + ReadFile(thread.path() / "children"));
    }
    return {Server.OpenDescriptors(), std::distance(std::istream_iterator<int>(children), {})};
  }
  std::string Content(const std::string& name) const { return ReadFile(There + "/" + name); }
  // Without an expectation of how it goes.
  static void Greet(QorJMClient& client, std::uint16_t port) {
    client.Connect("127.0.0.1", port);
    client.Hello("tlm2010", "desk", 0);
  }
};

TEST_F(FailingServer, KeepsTheFormerFileOrTakesTheNewOne) {
  const std::string former(5000, 'f'), fresh(9001, 'n');
  const FileTransferList files{{{There + "/deck", Here.Write("new", fresh)}, {There + "/other", Here.Write("o", "o")}}};
  bool stored = false;
  FailEachCall(
      [&] {
        std::ofstream(There + "/deck") << former;
        stored = false;
        QorJMClient client;
        Greet(client, Server.Port());
        stored = client.PutFiles(files);
      },
      [&] {
        const std::string content = Content("deck");
        EXPECT_TRUE(content == fresh || (content == former && !stored)) << content.size() << ' ' << stored;
        EXPECT_TRUE(JobClient(Server.Port()).PutFiles(files));
        EXPECT_EQ(Content("deck") + Content("other"), fresh + "o");
      });
}

TEST_F(FailingServer, RunsAJobToAnEndThatIsTold) {
  Submission job = JobIn(Here.Root() + "/", "do 'echo said; echo 4 1 >qorjmmsg.$$; echo data >beam.dat'", "beam");
  job.InputStem = "deck";
  const auto listed = [&] { return JobClient(Server.Port()).Jobs(); };
  FailEachCall(
      [&] {
        std::filesystem::remove(There + "/beam.dat");
        QorJMClient client;
        Greet(client, Server.Port());
        std::string directory;
        client.MapClientDirectory(job.WorkDir, directory);
        const std::uint64_t handle = client.SubmitJob(job);
        FileTransferList files;
        EXPECT_TRUE(Eventually([&] { return Calls.Left <= 0 || client.RequestResults(handle, files); }));
      },
      [&] {
        for (std::uint64_t handle : listed()) {
          JobClient client(Server.Port());
          const Task end = client.AwaitEnd(handle);
          ASSERT_TRUE(Eventually([&] { return client.TakeOwnership(handle); }));
          if (end.Status == Finished) {
            EXPECT_TRUE(client.ResultsNotSent(handle) && client.Fetch(handle));
            // A job whose directory was not found ran in the client's own, and its file may have been sent onto itself.
            EXPECT_EQ(Here.Read("beam.dat"), Content("beam.dat").empty() ? Here.Read("beam.dat") : "data\n");
            // A program whose output cannot be opened runs all the same.
            EXPECT_EQ(client.Output(handle), Calls.Failed == std::string("open") ? client.Output(handle) : "said\n");
          }
          client.RemoveJob(handle);
          client.ReleaseJob(handle);
        }
        EXPECT_TRUE(Eventually([&] { return listed().empty(); }));
        EXPECT_EQ(JobClient(Server.Port()).GetJobCount(), 0U);
      });
}

TEST_F(FailingServer, HoldsNobodyUpForANameThatIsSlowToLookUp) {
  JobClient desktop(Server.Port());
  desktop.Hello("tlm2010", "slow", 1);
  for (int i = 0; i < 3; ++i) EXPECT_LT(TimeOf([&] { JobClient newcomer(Server.Port()); }), std::chrono::seconds(20));
  EXPECT_EQ(desktop.GetJobCount(), 0U);
}

TEST_F(FailingServer, RunsItsJobsWhateverTheClockSays) {
  constexpr std::int64_t kYear = 365 * 24 * 3600;
  JobClient client(Server.Port());
  There = client.Map(Here.Root() + "/");
  Submission job = JobIn(Here.Root() + "/", "do 'until test -e stop; do sleep 0.01; done; echo 4 1 >qorjmmsg.$$'");
  const std::uint64_t running = client.SubmitJob(job);
  client.Await(running, {Running});
  std::ofstream(There + "/kept") << "kept";
  job.Command = "do 'echo 4 1 >qorjmmsg.$$'";
  for (const std::int64_t jump : {kYear, -kYear, std::int64_t{5}, -2 * kYear}) {
    Calls.Clock = jump;
    client.Map("c:\\" + std::to_string(jump));  // a sweep comes with it
    EXPECT_EQ(Content("kept"), "kept") << "a job runs there";
    EXPECT_EQ(client.AwaitEnd(client.SubmitJob(job)).Status, std::uint32_t{Finished}) << jump;
  }
  client.StartQueue(3600);
  job.RunClass = kRunQueued;
  const std::uint64_t queued = client.SubmitJob(job);
  Calls.Clock = kYear;
  EXPECT_EQ(client.AwaitEnd(queued).Status, std::uint32_t{Finished});
  std::ofstream(There + "/stop") << "";
  Calls.Clock = -kYear;
  EXPECT_EQ(client.AwaitEnd(running).Elapsed, 0U);
}
}  // namespace
}  // namespace tlm::test
