// What a receiver makes of the files that came and of the manifest behind them.
#include "jm/result_manifest.h"

#include <gmock/gmock.h>

#include "platform/environment.h"
#include "support/sandbox.h"

namespace tlm {
namespace {
using ::testing::ElementsAre, ::testing::IsEmpty;

TEST(ReceivedResults, AreHeldAgainstTheManifest) {
  const test::Sandbox disk;
  disk.Write("a", "1234");
  disk.Write("b", "1234");
  disk.Write("b.tmp", "12");
  const auto check = [&](const std::string& manifest, bool all = true) {
    disk.Write("beam.crc", manifest);
    return CheckReceivedResults({{{disk / "a", ""}, {disk / "beam.crc", ""}, {"/other.crc", ""}}}, all);
  };
  EXPECT_THAT(check("crc:1:.x:61:4:9:0;\ncrc:1:.x:61:3:9:0;\ncrc:1:.x:63:0:9:0;\n"), IsEmpty());
  EXPECT_THAT(check("crc:1:.x:63:1:9:0;\ncrc:1:.x:61:5:9:0;"), ElementsAre(disk / "c", disk / "a"));
  EXPECT_THAT(check("crc:1:.x:63:1:9:0;\ncrc:1:.x:61:5:9:0;", false), ElementsAre(disk / "c"));
  EXPECT_THAT(check("crc:1:.x:62:4:9:0;"), ElementsAre(disk / "b")) << "what lies in the .tmp is what has come";
  EXPECT_THAT(check("crc:1:.x:6G:4:9:0;"), ElementsAre(disk / "w")) << "G counts as a digit";
  EXPECT_THAT(check("crc:1:63:1:9:0;crc:1: crx:1:.x:63:1:9:0; crc:2:.x:63:1:9:0; \f\v :;:"), IsEmpty());
  EXPECT_THAT(check("crc::1:.x;63:1:9:0:more"), ElementsAre(disk / "c"));
  EXPECT_THAT(check("crc:1:.x:61:-1:9:0;"), ElementsAre(disk / "a")) << "sizes are unsigned";
  EXPECT_THAT(check("crc:1:.x:61:4294967296:9:0;"), ElementsAre(disk / "a")) << "nor do they start over";
  EXPECT_THAT(check("crc:1:.x:2e2e2f63:1:9:0; crc:1:.x:6300:1:9:0;"), IsEmpty()) << "names with a path lie elsewhere";

  disk.Write("beam.crc.tmp", "crc:1:.x:63:1:9:0;");
  EXPECT_THAT(check(""), ElementsAre(disk / "c")) << "a manifest that was not put in place is the newer one";
  EXPECT_THAT(CheckReceivedResults({{{disk / "a", ""}}}, true), IsEmpty());
  EXPECT_THAT(CheckReceivedResults({{{disk / "none.crc", ""}}}, true), IsEmpty());
  platform::SetVariable("TSQOR_NO_RESULT_RECOVERY", "0");
  EXPECT_THAT(check(""), IsEmpty());
  platform::SetVariable("TSQOR_NO_RESULT_RECOVERY", "");
}

TEST(ReceivedResults, AreListedInLinesThatStayWhole) {
  EXPECT_EQ(ManifestLine(MFile("/dir/a.b"), 10, 5), "crc:1:.b:612e62:10:5:0;\n");
  EXPECT_EQ(ManifestLine(MFile("/dir a:b/c"), 4000000000, -1), "crc:1:/dir_a_b/c:63:4000000000:-1:0;\n");
}
}  // namespace
}  // namespace tlm
