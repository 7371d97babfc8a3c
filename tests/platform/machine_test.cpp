// What a machine tells of itself, made-up ones under a root of the test's own, and what is reached of this one.
#include "platform/machine.h"

#include <gmock/gmock.h>

#include "platform/host.h"
#include "platform/socket.h"
#include "support/raw_connection.h"
#include "support/sandbox.h"

namespace tlm {
namespace {
struct Machine : ::testing::Test {
  test::Sandbox Disk;

  void AddAdapter(const std::string& slot, const std::string& ids, const std::string& driver) const {
    const std::string device = "sys/bus/pci/devices/" + slot + "/";
    Disk.Write(device + "class", "0x030000\n");
    Disk.Write(device + "vendor", "0x" + ids.substr(0, 4) + "\n");
    Disk.Write(device + "device", "0x" + ids.substr(5) + "\n");
    if (driver.empty()) return;
    Disk.Write("sys/drivers/" + driver + "/module/version", "535.183\n");
    std::filesystem::create_symlink(Disk.Path("sys/drivers/" + driver), Disk.Path(device + "driver"));
  }
  std::string Graphics() const { return platform::DescribeMachine(Disk.Root()).Graphics; }
};

TEST_F(Machine, IsDescribedByItsOwnFiles) {
  Disk.Write("etc/os-release", "ID=debian\nPRETTY_NAME=\"Debian GNU/Linux 12\"\n");
  Disk.Write("proc/sys/kernel/osrelease", "6.1.0-9\n");
  Disk.Write("proc/cpuinfo", "vendor_id\t: GenuineIntel\nmodel\t\t: 7\nmodel name\t: Xeon E5\ncpu MHz\t\t: 2399.6\n");
  Disk.Write("proc/meminfo", "MemFree: 1 kB\nMemTotal:       2097151 kB\n");
  const auto machine = platform::DescribeMachine(Disk.Root());
  EXPECT_EQ(machine.System, "Debian GNU/Linux 12 6.1.0-9");
  EXPECT_EQ(machine.Processor, "GenuineIntel Xeon E5 ~2400 MHz");
  EXPECT_EQ(machine.Processors, platform::ProcessorCount());
  EXPECT_EQ(machine.MemoryKilobytes, 2097151U);
}

TEST_F(Machine, HasNoTextsForWhatItDoesNotTell) {
  const auto silent = platform::DescribeMachine(Disk.Root());
  EXPECT_EQ(silent.System + silent.Processor + silent.Graphics, "");
  EXPECT_EQ(silent.MemoryKilobytes, 0U);
  Disk.Write("proc/sys/kernel/ostype", "Linux\n");
  Disk.Write("proc/cpuinfo", "CPU implementer\t: 0x41\nCPU part\t: 0xd08\n");
  EXPECT_EQ(platform::DescribeMachine(Disk.Root()).System, "Linux");
  EXPECT_EQ(platform::DescribeMachine(Disk.Root()).Processor, "0x41 0xd08");
}

TEST_F(Machine, NamesItsLastGraphicsAdapter) {
  Disk.Write("sys/class/graphics/fb0/name", "simple\n");
  EXPECT_EQ(Graphics(), "simple");
  AddAdapter("0000:00:02.0", "1234:1111", "");
  EXPECT_EQ(Graphics(), "PCI device 1234:1111");
  AddAdapter("0000:01:00.0", "10de:1eb8", "fast");
  EXPECT_EQ(Graphics(), "PCI device 10de:1eb8, fast 535.183");
  Disk.Write("usr/share/misc/pci.ids",
             "# list\n10dd  Other\n\t1eb8  Wrong\n10de  Maker\n\t1eb8  Model 4\n10df  Next\n");
  EXPECT_EQ(Graphics(), "Maker Model 4, fast 535.183");
}

TEST(Listening, TellsTheAddressesAtWhichAPortIsOpen) {
  auto everywhere = std::make_unique<test::RawListener>();
  const std::uint16_t port = everywhere->Port();
  EXPECT_THAT(platform::ListeningAddresses(port), testing::Optional(testing::ElementsAre(0)));
  everywhere.reset();
  EXPECT_THAT(platform::ListeningAddresses(port), testing::Optional(testing::IsEmpty()));
  EXPECT_TRUE(platform::IsOwnAddress(*platform::ParseAddress("127.0.0.1")));
  EXPECT_FALSE(platform::IsOwnAddress(*platform::ParseAddress("192.0.2.1")));
}
}  // namespace
}  // namespace tlm
