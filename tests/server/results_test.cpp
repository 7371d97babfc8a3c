// Results on their way back to the client that owns the job.
#include "jm/result_manifest.h"
#include "support/job_client.h"

namespace tlm::test {
namespace {
// Without the manifest, which stays away if it is rewritten with the same size within a second.
std::vector<std::string> Names(const FileTransferList& files) {
  std::vector<std::string> names;
  for (const FileTransferItem& item : files.Items) names.push_back(MFile(item.Destination).Name());
  if (!names.empty() && names.back().ends_with(".crc")) names.pop_back();
  return names;
}

// A finished job in a mapped directory, whose results come to a directory of the client's.
struct Results : JobTest {
  Sandbox Here;
  const std::string There = Client.Map(Here.Root() + "/");

  // The commands are shell text, run in the job's directory.
  std::uint64_t Run(const std::string& text, const std::string& input = "beam.inp") {
    Submission job = JobIn(Here.Root() + "/", Succeed(text), "beam");
    job.InputFile = input;
    const std::uint64_t handle = Client.SubmitJob(job);
    Client.Await(handle, {Finished});
    return handle;
  }
  static std::vector<std::string> Request(JobClient& client, std::uint64_t handle, bool expected = true) {
    FileTransferList files;
    EXPECT_EQ(client.RequestResults(handle, files), expected);
    return Names(files);
  }
  std::vector<std::string> Request(std::uint64_t job, bool expected = true) { return Request(Client, job, expected); }
  void SetTime(const std::string& name, int secondsSince1970) const {
    const std::chrono::sys_seconds time{std::chrono::seconds(secondsSince1970)};
    std::filesystem::last_write_time(There + "/" + name, std::chrono::file_clock::from_sys(time));
  }
};

TEST_F(Results, AreTheFilesOfTheStemsWithAManifestBehindThem) {
  const std::uint64_t job = Run(":");
  const std::pair<std::string, std::string> files[] = {
      {"beam.b", "0123456789"}, {"beam.a b:c;é'", "é"},           {"beam.inp", "input"},
      {"beam.rfn", "x"},        {"beam.exr", "more\nbeam again"}, {"beam.empty", ""},
      {"more.dat", "more"},     {"more.exr", "beam more"},        {"again.x", "x"},
      {"other.dat", "x"}};
  for (const auto& [name, content] : files) {
    std::ofstream(There + "/" + name) << content;
    SetTime(name, 5);
  }
  EXPECT_THAT(Request(job), ElementsAre("beam.a b:c;é'", "beam.b", "beam.empty", "more.dat", "again.x"));
  EXPECT_EQ(Here.Read("beam.crc"),
            "crc:1:.a_b_c_é':6265616d2e6120623a633bc3a927:2:5:0;\n"
            "crc:1:.b:6265616d2e62:10:5:0;\n"
            "crc:1:.empty:6265616d2e656d707479:0:5:0;\n"
            "crc:1:.dat:6d6f72652e646174:4:5:0;\n"
            "crc:1:.x:616761696e2e78:1:5:0;\n");
  EXPECT_EQ(Here.Read("beam.b") + Here.Read("more.dat") + Here.Read("beam.a b:c;é'"), "0123456789moreé");
  EXPECT_FALSE(Here.Has("beam.inp") || Here.Has("beam_out") || Here.Has("other.dat") || Here.Has("beam.exr"));
}

TEST_F(Results, TravelAgainOnlyIfTheyChangedOrDidNotArrive) {
  const std::uint64_t job = Run("echo 1 >beam.a; echo 2 >beam.b; echo 3 >beam.c");
  EXPECT_THAT(Request(job), ElementsAre("beam.a", "beam.b", "beam.c"));
  EXPECT_EQ(Client.Get(job).ResultFlags, std::uint32_t{kResultsBeingSent});
  EXPECT_THAT(Request(job, false), IsEmpty()) << "what was sent has to be confirmed first";

  Client.ResultsIncomplete(job, {"no such"});
  EXPECT_EQ(Client.Get(job).ResultFlags, std::uint32_t{kResultsAvailable});
  std::ofstream(There + "/beam.b") << "changed";
  SetTime("beam.c", 5);
  EXPECT_THAT(Request(job), ElementsAre("beam.b", "beam.c"));
  EXPECT_EQ(Here.Read("beam.b"), "changed");
  Client.ResultsIncomplete(job, {"/any/where/beam.c", "beam.a"});
  EXPECT_THAT(Request(job), ElementsAre("beam.a", "beam.c"));
  EXPECT_TRUE(Client.ResultsNotSent(job));
  EXPECT_THAT(Request(job), ElementsAre("beam.a", "beam.b", "beam.c"));

  JobClient other(Server.Port());
  EXPECT_THAT(Request(other, job, false), IsEmpty()) << "it is somebody else's";
  EXPECT_FALSE(other.ResultsNotSent(job));
  other.ResultsReceived(job);
  EXPECT_EQ(other.Get(job).ResultFlags, std::uint32_t{kResultsBeingSent});
  Client.Disconnect();
  EXPECT_TRUE(Eventually([&] { return other.Get(job).ClientPort == 0; }));
  EXPECT_EQ(Request(other, job).size(), 3U) << "a transfer that was cut off begins again";
  other.ResultsReceived(job);
  EXPECT_EQ(other.Get(job).Status, 0U) << "the job leaves when all its results are there";
  EXPECT_THAT(Request(other, job, false), IsEmpty());
}

TEST_F(Results, MayBeAskedForWhileTheJobRuns) {
  const std::uint64_t job = Submit(Do(Wait("pid")));
  const auto pid = static_cast<std::uint64_t>(AwaitNumber("pid"));
  JobClient process(Server.Port());
  process.AttachProcess(pid, "do", Work.Root());
  EXPECT_THAT(Request(job, false), IsEmpty());
  EXPECT_TRUE(process.ResultsAvailable(pid));
  EXPECT_THAT(Request(job), IsEmpty()) << "nothing of its stem is there, and it is said to be sent";
  EXPECT_FALSE(Work.Has("job1.crc"));
  Client.ResultsIncomplete(job, {});
  EXPECT_EQ(Client.Get(job).ResultFlags, 0U);
  Work.Write("job1.dat", "1");
  process.ResultsAvailable(pid);
  EXPECT_THAT(Request(job), ElementsAre("job1.dat"));
  process.ResultsAvailable(pid);
  EXPECT_THAT(Request(job, false), IsEmpty());
  Client.ResultsReceived(job);
  Work.Write("job1.dat", "12");
  EXPECT_THAT(Request(job), ElementsAre("job1.dat")) << "what was reported meanwhile is offered after the confirmation";
  Work.Write("stop");
}

TEST_F(Results, ThatAreNoFilesOrAlreadyOnTheListDoNoHarm) {
  const std::uint64_t job =
      Run("echo 1 >beam.a; mkfifo beam.pipe; mkdir beam.dir; ln -s nowhere beam.link; echo >beam.z");
  FileTransferList files{{{Here / "brought", "/no/such/file"}}};
  EXPECT_TRUE(Client.RequestResults(job, files));
  EXPECT_THAT(Names(files), ElementsAre("brought", "beam.a", "beam.z"));
  EXPECT_EQ(Here.Read("beam.a"), "1\n");
  EXPECT_TRUE(Here.Has("brought"));
  EXPECT_THAT(CheckReceivedResults(files, true), IsEmpty());
}

TEST_F(Results, MayShrinkOrVanishOnTheirWay) {
  const std::uint64_t job = Run("truncate -s 64M beam.a; echo 1 >beam.b");
  Client.Disconnect();
  RawConnection reader(Server.Port());
  EXPECT_EQ(reader.Ask(Call(1, Text("tlm2010") + Text("desk") + U32(0))), Reply(U32(1)));
  ASSERT_TRUE(Eventually([&] { return reader.Ask(Call(30, U64(job))) == Reply(U32(1)); })) << "the job is nobody's";
  reader.Send(Record(Call(24, U64(job) + U32(0))));
  ASSERT_TRUE(reader.IsReadableWithin(kPatience));
  std::filesystem::resize_file(There + "/beam.a", 32 << 20);
  std::filesystem::remove(There + "/beam.b");
  const auto head = [&](const std::string& name) { return Text(Here / "" + name) + Text(There + "/" + name) + U32(0); };
  const std::string vanished = head("beam.b") + U32(0) + head("beam.crc");
  std::string reply;
  while (reply.find(vanished) == std::string::npos) reply += reader.ReceiveRecord();
  EXPECT_EQ(reply.find(head("beam.b")), 24 + 4 + head("beam.a").size() + (32 << 20) / 4096 * 4100 + 4);
}
}  // namespace
}  // namespace tlm::test
