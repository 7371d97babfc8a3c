// Which files of a client the server has, and how those that it lacks come in.
#include <sys/resource.h>
#include <sys/stat.h>

#include "rpc/orpcerror.h"
#include "support/job_client.h"

namespace tlm::test {
namespace {
using ::testing::ElementsAreArray;

struct ClientFiles : JobTest {
  const std::string Directory = Client.Map("c:\\work\\");

  std::string Content(const std::string& name) const { return ReadFile(Directory + "/" + name); }
  FileTransferItem Item(const std::string& name, const std::string& source, std::uint32_t offset = 0) const {
    return {Directory + "/" + name, source, offset};
  }
};

TEST_F(ClientFiles, AreComparedBySizeAndNamedIfTheyAreMissing) {
  const std::string source = Work.Write("source", "12345");
  EXPECT_TRUE(Client.PutFiles({{Item("beam.inp", source), Item("odd:na me", source)}}));
  EXPECT_TRUE(Client.ClientFileExists("c:\\work\\beam.inp"));
  EXPECT_FALSE(Client.ClientFileExists("c:\\work\\other"));
  EXPECT_FALSE(Client.ClientFileExists("c:\\elsewhere\\beam.inp"));
  EXPECT_TRUE(Client.ClientFileMatches("c:\\work\\beam.inp", 5, 77));
  EXPECT_FALSE(Client.ClientFileMatches("c:\\work\\beam.inp", 6, 0));
  EXPECT_FALSE(Client.ClientFileExists(std::string("c:\\work\\beam.inp\0x", 18)));
  EXPECT_FALSE(Client.ClientFileExists("c:\\work\\" + std::string(1 << 20, 'n')));

  const std::pair<std::string, std::string> cases[] = {{"5:0:c:\\work\\beam.inp", ""},
                                                       {"5:99:c:\\work\\odd:na me", ""},
                                                       {":::5::x:c:\\work\\beam.inp", ""},
                                                       {" +6:0:c:\\work\\beam.inp", "5:0:c:\\work\\beam.inp"},
                                                       {"6:0:c:\\work\\beam.inp", "5:0:c:\\work\\beam.inp"},
                                                       {"4294967295:0:c:\\work\\new", "0:0:c:\\work\\new"},
                                                       {"5:0:c:\\none\\beam.inp", "0:0:c:\\none\\beam.inp"},
                                                       {"5:0:", "0:0:"},
                                                       {"5:0", "0:0:5:0"},
                                                       {"", ""},
                                                       {":::", ""},
                                                       {"5", ""},
                                                       {"5:", ""},
                                                       {"0:0:c:\\work\\new", ""},
                                                       {"x:0:c:\\work\\new", ""},
                                                       {"4294967296:0:c:\\work\\new", ""},
                                                       {"5:99999999999999999999:c:\\work\\new", ""}};
  StringList all, expected;
  for (const auto& [entry, answer] : cases) {
    all.push_back(entry);
    if (!answer.empty()) expected.push_back(answer);
    StringList missing;
    EXPECT_EQ(Client.CheckClientFiles({entry}, {missing}), answer.empty()) << entry;
  }
  StringList missing;
  EXPECT_FALSE(Client.CheckClientFiles(all, {missing}));
  EXPECT_THAT(missing, ElementsAreArray(expected));
  const std::string longest = "5:" + std::string((1 << 24) - 2, '0');
  EXPECT_THROW(Client.CheckClientFiles({longest}, {missing}), OrpcSocketError) << "its answer could not be read";
  EXPECT_TRUE(Client.ClientFileExists("c:\\work\\beam.inp")) << "the connection goes on";
}

TEST_F(ClientFiles, ArriveWholeWhateverTheirSizeAndNumber) {
  for (const std::uint64_t size : {0ULL, 1ULL, 4095ULL, 4096ULL, 4097ULL, 1ULL << 31}) {
    const std::string source = Work.Write("source", "begin");
    std::filesystem::resize_file(source, size);
    EXPECT_TRUE(Client.PutFiles({{Item("file", source)}})) << size;
    EXPECT_EQ(std::filesystem::file_size(Directory + "/file"), size);
    EXPECT_TRUE(size > 1 << 20 || Content("file") == Work.Read("source")) << size;
    std::filesystem::remove(Directory + "/file");
  }
  const std::string source = Work.Write("source", "content");
  FileTransferList many;
  StringList entries;
  for (int i = 0; i < 10000; ++i) {
    many.Items.push_back(Item(std::to_string(i), source));
    entries.push_back("7:0:c:\\work\\" + std::to_string(i));
  }
  EXPECT_TRUE(Client.PutFiles(many));
  StringList missing;
  EXPECT_TRUE(Client.CheckClientFiles(entries, {missing}));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Directory), {}), 10000)
      << "no lock or partial file is left";
}

TEST_F(ClientFiles, ThatCannotBeStoredAreAnsweredWithNoAndTouchNothing) {
  const std::string source = Work.Write("source", "content");
  const std::string device = Work / "device";
  ASSERT_EQ(mkfifo(device.c_str(), 0600), 0);
  Work.MakeDirectory("directory");
  const std::size_t before = std::distance(std::filesystem::directory_iterator(Work.Root()), {});
  for (const std::string& destination :
       {std::string(), Work / "directory", Work / "directory/..", device, Work / "missing/file",
        std::string("/dev/null"), Work.Root() + std::string("/cut\0off", 8), Work / std::string(1 << 20, 'n'),
        Work / std::string(254, 'n')}) {
    EXPECT_FALSE(Client.PutFiles({{{destination, source}}})) << destination.substr(0, 300);
  }
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  EXPECT_FALSE(std::filesystem::exists("/dev/null.tmp") || std::filesystem::exists(".tmp"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Work.Root()), {}), before);
  EXPECT_TRUE(Client.UpdateClientFiles({Work / "absent"}, {{Item("a", source)}}));
  EXPECT_FALSE(Client.UpdateClientFiles({Work / "directory", Directory + "/a"}, {}));
  EXPECT_FALSE(std::filesystem::exists(Directory + "/a")) << "one that cannot be deleted does not keep the others";
}

TEST_F(ClientFiles, AreNeverWrittenThroughALink) {
  const std::string elsewhere = Work.Write("elsewhere", "untouched");
  std::filesystem::create_directories(Directory);
  for (const char* end : {"", ".tmp", ".tmp.lck", ".tmp.lci"}) {
    std::filesystem::create_symlink(elsewhere, Directory + "/file" + end);
  }
  EXPECT_TRUE(Client.PutFiles({{Item("file", Work.Write("source", "content"))}}));
  EXPECT_EQ(Work.Read("elsewhere"), "untouched");
  EXPECT_EQ(Content("file"), "content");
  EXPECT_FALSE(std::filesystem::is_symlink(Directory + "/file"));
}

// A file system of a few kilobytes would need rights; a limit on the size of files is as full.
TEST_F(ClientFiles, ThatFindNoSpaceLeaveTheFormerOneAndTheServer) {
  const std::string former = Work.Write("former", "former");
  EXPECT_TRUE(Client.PutFiles({{Item("file", former)}}));
  const rlimit limit{1 << 20, RLIM_INFINITY};
  ASSERT_EQ(prlimit(Server.Pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
  const std::string large = Work.Write("large", std::string(3 << 20, 'x'));
  EXPECT_FALSE(Client.PutFiles({{Item("small", former), Item("file", large), Item("last", former)}}));
  EXPECT_EQ(Content("file"), "former");
  EXPECT_EQ(Content("small") + Content("last"), "formerformer");
  EXPECT_FALSE(Client.PutFiles({{Item("file", Work.Write("good", "good")), Item("file", large)}}));
  EXPECT_EQ(Content("file"), "former") << "both items fill the same file";
  const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(prlimit(Server.Pid(), RLIMIT_FSIZE, &none, nullptr), 0);
  const auto arrived = static_cast<std::uint32_t>(std::filesystem::file_size(Directory + "/file.tmp"));
  EXPECT_TRUE(Client.PutFiles({{Item("file", large, arrived)}})) << "it goes on where it was broken off";
  EXPECT_EQ(Content("file"), Work.Read("large"));
}
}  // namespace
}  // namespace tlm::test
