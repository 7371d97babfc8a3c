// The server's directories for those of its clients, and the table of them that survives a restart.
#include <csignal>
#include <random>
#include <thread>

#include "rpc/orpcerror.h"
#include "support/job_client.h"

namespace tlm::test {
namespace {
using std::chrono::hours;

struct Directories : ::testing::Test {
  Sandbox Root;

  Environment Settings() const { return {{"TSQOR_TMP", Root.Root()}}; }
  std::string Table() const { return Root.Read("tlm2010.sta"); }
  static std::string Map(JobClient& client, const std::string& key) {
    std::string directory = client.Map(key);
    EXPECT_TRUE(std::filesystem::is_directory(directory)) << directory;
    return directory;
  }
  static std::string Record(const std::string& host, const std::string& key, const std::string& directory) {
    return host + "\n" + key + "\n" + directory + "\n";
  }
  // A directory below the root with one file, last written so long ago.
  std::string Used(const std::string& name, hours age) const {
    const std::string file = Root.Write(name + "/file", "content");
    std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() - age);
    return Root / name;
  }
};

TEST_F(Directories, BelongToAHostAndAKeyAcrossConnectionsAndRestarts) {
  std::string first, second;
  {
    ServerProcess server(Settings());
    JobClient client(server.Port());
    first = Map(client, "c:\\work");
    EXPECT_THAT(first, StartsWith(Root / "tq"));
    EXPECT_EQ(Table(), Record("desk", "c:\\work", first));
    JobClient neighbour(server.Port());
    EXPECT_EQ(Map(neighbour, "c:\\work"), first) << "empty as it is, it is the one that is asked for";
    Root.Write(std::filesystem::path(first).filename().string() + "/kept");
    JobClient stranger(server.Port(), "elsewhere");
    second = Map(stranger, "c:\\work");
    EXPECT_NE(second, first);
    EXPECT_EQ(Table(), Record("desk", "c:\\work", first) + Record("elsewhere", "c:\\work", second));
    EXPECT_EQ(Map(client, "c:\\work"), first);
  }
  ServerProcess server(Settings());
  JobClient stranger(server.Port(), "elsewhere");
  EXPECT_EQ(Map(stranger, "c:\\work"), second);
  EXPECT_EQ(Table(), Record("desk", "c:\\work", first) + Record("elsewhere", "c:\\work", second));
}

TEST_F(Directories, ThatTheTableCannotHoldAreServedAndNotRecorded) {
  ServerProcess server(Settings());
  for (const auto& [host, key] : {std::pair<std::string, std::string>{"desk", "work\n" + Root.Root()},
                                  {"desk\n\n" + Root.Root(), "work"},
                                  {"desk", std::string(1024, 'k')}}) {
    JobClient client(server.Port(), host);
    const std::string directory = Map(client, key);
    EXPECT_EQ(Map(client, key), directory) << "for this connection it stays";
  }
  EXPECT_EQ(Table(), "");
  JobClient client(server.Port());
  Map(client, std::string(1023, 'k'));
  EXPECT_THAT(Table(), StartsWith("desk\nkkk"));
}

TEST_F(Directories, ThatCannotBeMadeHaveNamesOfTheirOwn) {
  ServerProcess server({{"TSQOR_TMP", Root.Write("file") + "/root"}});
  JobClient client(server.Port());
  std::set<std::string> names;
  for (const char* key : {"a", "b", "c"}) {
    const auto [name, isNew] = names.insert(client.Map(key));
    EXPECT_THAT(*name, StartsWith(Root / "file/root/tq"));
    EXPECT_TRUE(isNew) << *name;
  }
}

TEST_F(Directories, GoByAgeWithTheirRecordsUnlessAJobIsInThem) {
  const std::string old = Used("old", hours(24 * 8)), young = Used("young", hours(24 * 6));
  const std::string mixed = Used("mixed", hours(24 * 8)), deep = Used("deep", hours(24 * 8)), gone = Root / "gone";
  Root.Write("mixed/new");
  Root.MakeDirectory("deep/below");
  Sandbox elsewhere;
  elsewhere.Write("file");
  std::filesystem::last_write_time(elsewhere / "file", std::filesystem::file_time_type() + hours(1));
  std::filesystem::create_directory_symlink(elsewhere.Root(), Root / "link");
  std::string table;
  for (const std::string& directory : {young, mixed, deep, gone, Root / "link"}) table += Record("a", "k", directory);
  Root.Write("tlm2010.sta", Record("b", "k", old) + table);

  ServerProcess server(Settings());
  JobClient client(server.Port());
  const std::string mine = Map(client, "mine");
  EXPECT_EQ(Table(), table + Record("desk", "mine", mine));
  EXPECT_FALSE(std::filesystem::exists(old));
  EXPECT_TRUE(Root.Has("young/file") && Root.Has("mixed/new") && Root.Has("deep/below") && elsewhere.Has("file"));
  EXPECT_FALSE(Root.Has("mixed/file") || Root.Has("deep/file"));

  EXPECT_NE(client.SubmitJob(JobIn("mine", "", "", kRunQueued)), 0U);
  Map(client, "other");  // would take an empty directory that is no job's
  EXPECT_THAT(Table(), HasSubstr(mine));
  EXPECT_TRUE(std::filesystem::is_directory(mine));
}

TEST_F(Directories, OfADamagedTableAreThoseBeforeTheDamage) {
  const std::string whole = Record("desk", "a", Used("a", hours(1)));
  const std::string after = Record("desk", "b", Used("b", hours(1)));
  const std::string name(1024, 'n');
  const std::pair<std::string, std::string> cases[] = {
      {whole + "desk\nb", whole},
      {whole + "desk\n\n\n" + after, whole},
      {whole + name + "\nb\n" + Root / "b\n" + after, whole},
      {whole + "desk\nb\n" + Root.Root(), whole},  // an append that was broken off behind the root
      {whole + after.substr(0, after.size() - 1), whole + after},
  };
  for (const auto& [table, rest] : cases) {
    Root.Write("tlm2010.sta", table);
    ServerProcess server(Settings());
    JobClient client(server.Port());
    EXPECT_FALSE(client.ClientFileExists("x"));  // a look at the table
    EXPECT_EQ(Table(), rest);
    EXPECT_EQ(Map(client, "a"), Root / "a");
  }
}

TEST_F(Directories, SurviveARewriteThatWasBrokenOffOrCannotBeMade) {
  const std::string record = Record("desk", "a", Used("a", hours(1)));
  Root.Write("tlm2010.sta~", record);
  {
    ServerProcess server(Settings());
    JobClient client(server.Port());
    EXPECT_EQ(Map(client, "a"), Root / "a") << "the new table is whole once the old one has gone";
    EXPECT_EQ(Table(), record);
    EXPECT_FALSE(Root.Has("tlm2010.sta~"));
  }
  Root.MakeDirectory("tlm2010.sta~");  // stands in the way of a rewrite
  ServerProcess server(Settings());
  JobClient client(server.Port());
  EXPECT_EQ(Map(client, "a"), Root / "a");
  const std::string second = Map(client, "b");
  EXPECT_EQ(Table(), record + Record("desk", "b", second));
}

TEST_F(Directories, AreNeverForgottenWhenTheServerIsKilled) {
  std::map<std::string, std::string> answered;
  const Sandbox here;
  const FileTransferList files{{{Root / "target", here.Write("source", std::string(9000, 'x'))}}};
  Root.Write("tlm2010_dp.sta", "other\n");
  std::minstd_rand random;
  for (int round = 0; round < 15; ++round) {
    ServerProcess server(Settings());
    std::thread killer([&server, delay = std::chrono::microseconds(random() % 60000)] {
      std::this_thread::sleep_for(delay);  // a random moment, and no wait for anything
      kill(server.Pid(), SIGKILL);
    });
    try {
      JobClient client(server.Port());
      for (const auto& [key, directory] : answered) EXPECT_EQ(Map(client, key), directory);
      for (int i = 0;; ++i) {
        const std::string key = std::to_string(round) + "/" + std::to_string(i);
        const std::string directory = client.Map(key);
        std::ofstream(directory + "/kept") << key;  // an empty directory would go in the next sweep
        answered[key] = directory;
        client.SetServerPool(i % 2 == 0 ? StringList{"peer1", "peer2"} : StringList{"other"});
        EXPECT_TRUE(client.PutFiles(files)) << "locks that were left behind do no harm";
      }
    } catch (const OrpcSocketError&) {
    } catch (int) {
    }
    killer.join();
    server.Kill();
    EXPECT_THAT(Root.Read("tlm2010_dp.sta"), testing::AnyOf("peer1\npeer2\n", StartsWith("other\n")));
    EXPECT_EQ(Root.Read("target"), Root.Has("target") ? std::string(9000, 'x') : "");
  }
  EXPECT_FALSE(answered.empty());
  ServerProcess server(Settings());
  JobClient client(server.Port());
  for (const auto& [key, directory] : answered) EXPECT_EQ(Map(client, key), directory);
}

TEST_F(Directories, AreEmptiedWhenTheRootMoves) {
  ServerProcess server(Settings());
  JobClient client(server.Port());
  const std::string old = Map(client, "a");
  Used(std::filesystem::path(old).filename().string(), hours(1));
  client.SetServerPool({"peer1", "peer2"});
  EXPECT_TRUE(Eventually([&] { return Root.Read("tlm2010_dp.sta") == "peer1\npeer2\n"; }));
  Sandbox next;
  const std::string file = next.Write("file");
  for (const std::string& refused : {next / "missing", file, std::string()}) {
    EXPECT_FALSE(client.SetTempRoot(refused, 60)) << refused;
  }
  EXPECT_FALSE(client.SetTempRoot(next.Root() + std::string("\0x", 2), 60));
  EXPECT_TRUE(client.SetTempRoot(Root.Root(), 7));
  std::uint32_t expiry = 0;
  EXPECT_EQ(client.TempRoot(&expiry), Root.Root());
  EXPECT_EQ(expiry, 7U);
  EXPECT_TRUE(std::filesystem::exists(old + "/file"));

  EXPECT_TRUE(client.SetTempRoot(next.Root(), 0));
  EXPECT_EQ(client.TempRoot(&expiry), next.Root());
  EXPECT_EQ(expiry, 0U);
  EXPECT_FALSE(std::filesystem::exists(old) || Root.Has("tlm2010.sta") || Root.Has("tlm2010_dp.sta"));
  EXPECT_THAT(Map(client, "a"), StartsWith(next / "tq"));
  EXPECT_THAT(client.Pool(), ElementsAre("peer1", "peer2")) << "without a file the names in memory stay";
  next.Write("tlm2010_dp.sta", " one\ttwo\n\nthree");
  Map(client, "b");
  EXPECT_THAT(client.Pool(), ElementsAre("one", "two", "three"));
  client.SetServerPool({});
  EXPECT_TRUE(Eventually([&] { return next.Read("tlm2010_dp.sta").empty(); }));
  Map(client, "c");
  EXPECT_THAT(client.Pool(), IsEmpty());
}

TEST_F(JobTest, TheRootCannotMoveWhileAJobRuns) {
  const Sandbox next;
  const std::uint64_t job = Submit(Do(Wait("pid")));
  AwaitNumber("pid");
  EXPECT_FALSE(Client.SetTempRoot(next.Root(), 60));
  EXPECT_TRUE(Client.SetTempRoot(Client.TempRoot(), 60)) << "its expiry can be set at any time";
  Work.Write("stop");
  Client.AwaitEnd(job);
  EXPECT_TRUE(Client.SetTempRoot(next.Root(), 60));
}
}  // namespace
}  // namespace tlm::test
