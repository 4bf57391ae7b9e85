#include "analysis/packet_file.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "analysis/packet_view.h"
#include "platform/win32/messages.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

// Packets whose bytes 4 and 5 hold the packet's own index.
tsw::TsFile NumberedPackets(std::uint32_t count) {
  tsw::TsFile file;
  for (std::uint32_t i = 0; i < count; ++i) {
    const Bytes payload = {static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i & 0xFF)};
    file.Add(tsw::MakePacket(0x100, false, payload));
  }
  return file;
}

std::uint32_t IndexAt(const std::vector<std::uint8_t>& buffer, std::size_t slot) {
  const std::size_t at = slot * kPacketSize;
  return static_cast<std::uint32_t>(buffer[at + 4] << 8 | buffer[at + 5]);
}

class PacketFileTest : public ::testing::Test {
 protected:
  // A fresh reader on `content`.
  CPacketFile& Open(const tsw::TsFile& content) {
    content.Write(Path());
    m_File.emplace();
    EXPECT_TRUE(m_File->Open(Path().string().c_str()));
    m_File->AttachPacketBlock(&m_Block);
    return *m_File;
  }
  std::filesystem::path Path() const { return m_Dir.File("t.ts"); }
  std::vector<std::uint8_t> Buffer(std::uint32_t packets, std::uint8_t fill = 0xAB) {
    return std::vector<std::uint8_t>(packets * kPacketSize, fill);
  }

  tsw::TempDir m_Dir;
  std::optional<CPacketFile> m_File;
  std::span<std::uint8_t> m_Block;
  CMessageBoxRecorder m_Messages;
};

TEST_F(PacketFileTest, ReadsTheAlignedBlockThatHoldsFirstAndFollowsOnWithoutASeek) {
  CPacketFile& file = Open(NumberedPackets(300));
  auto buffer = Buffer(100);
  std::uint32_t firstOut = 77;
  ASSERT_EQ(file.ReadPackets(buffer, 130, 100, &firstOut), S_OK);
  EXPECT_EQ(firstOut, 100u);
  EXPECT_EQ(IndexAt(buffer, 0), 100u);
  EXPECT_EQ(IndexAt(buffer, 30), 130u);
  EXPECT_EQ(m_Block.data(), buffer.data());
  ASSERT_EQ(file.ReadPackets(buffer, 200, 100, nullptr), S_OK);
  EXPECT_EQ(file.ReadPosition(), 200u);
  EXPECT_EQ(IndexAt(buffer, 0), 200u);

  // A fresh reader stands at block 0, so a read of block 1 continues from
  // the file position, which is still the start.
  CPacketFile& fresh = Open(NumberedPackets(300));
  ASSERT_EQ(fresh.ReadPackets(buffer, 100, 100, nullptr), S_OK);
  EXPECT_EQ(IndexAt(buffer, 0), 0u);
  EXPECT_TRUE(m_Messages.Calls().empty());
}

TEST_F(PacketFileTest, ReadsAtAndPastTheEndKeepOldBytes) {
  CPacketFile& file = Open(NumberedPackets(150));
  auto buffer = Buffer(100, 0xAB);
  ASSERT_EQ(file.ReadPackets(buffer, 120, 100, nullptr), S_OK);
  EXPECT_EQ(IndexAt(buffer, 49), 149u);
  EXPECT_EQ(buffer[50 * kPacketSize], 0xAB);  // nothing read there

  auto far = Buffer(kTailBlockPackets, 0xCD);
  far[0] = kSyncByte;  // what an earlier block left
  ASSERT_EQ(file.ReadPackets(far, 5000, 100, nullptr), S_OK);
  EXPECT_EQ(far[1], 0xCD);
  // A tail read of a short file asks for a block far behind the end.
  const std::uint32_t first = 150u - kTailBlockPackets;  // wraps in 32 bits
  std::uint32_t firstOut = 0;
  ASSERT_EQ(file.ReadPackets(far, first, kTailBlockPackets, &firstOut), S_OK);
  EXPECT_EQ(firstOut, first / kTailBlockPackets * kTailBlockPackets);
  EXPECT_EQ(far[1], 0xCD) << "nothing was read";
  EXPECT_TRUE(m_Messages.Calls().empty());
}

TEST_F(PacketFileTest, PartialPacketAtStartIsHuntedAndReadAgainAligned) {
  tsw::TsFile content;
  content.AddRaw(Bytes(100, 0x00));
  const auto packets = NumberedPackets(120);
  content.AddRaw(packets.Data());
  CPacketFile& file = Open(content);
  auto buffer = Buffer(50);
  ASSERT_EQ(file.ReadPackets(buffer, 0, 50, nullptr), S_OK);
  EXPECT_EQ(file.SyncOffset(), 100u);
  EXPECT_EQ(buffer[0], kSyncByte);
  EXPECT_EQ(IndexAt(buffer, 0), 0u);
  // Later blocks use the offset without testing.
  ASSERT_EQ(file.ReadPackets(buffer, 60, 50, nullptr), S_OK);
  EXPECT_EQ(IndexAt(buffer, 0), 50u);
  EXPECT_TRUE(m_Messages.Calls().empty());
}

TEST_F(PacketFileTest, SyncHuntInJunkStopsOnePacketBeforeTheEndOfTheRead) {
  struct Case {
    const char* name;
    std::size_t junk, syncAt;  // syncAt 0: no sync byte
    std::uint32_t packets;
    bool message;
    std::size_t offset;
  };
  const Case cases[] = {{"NoSyncByte", 5000, 0, 20, true, 19 * kPacketSize},
                        {"SyncExactlyAtTheLimitIsNoHit", 10 * kPacketSize, 9 * kPacketSize, 10, true,
                         9 * kPacketSize},
                        {"TinyFile", 100, 0, 10, true, 0},
                        {"StraySyncByteGivesNoMessage", 4000, 700, 10, false, 700}};
  for (const Case& c : cases) {
    Bytes junk(c.junk, 0x11);
    if (c.syncAt != 0) junk[c.syncAt] = kSyncByte;
    tsw::TsFile content;
    content.AddRaw(junk);
    CPacketFile& file = Open(content);
    auto buffer = Buffer(c.packets);
    m_Messages.Clear();
    EXPECT_EQ(file.ReadPackets(buffer, 0, c.packets, nullptr), S_OK) << c.name;
    EXPECT_EQ(file.SyncOffset(), c.offset) << c.name;
    EXPECT_EQ(m_Messages.Calls().size(), c.message ? 1u : 0u) << c.name;
  }
}

TEST_F(PacketFileTest, TailReadFindsItsOwnOffsetAndClearsIt) {
  tsw::TsFile content;
  content.AddRaw(Bytes(40, 0x00));
  content.AddRaw(NumberedPackets(45000).Data());
  CPacketFile& file = Open(content);
  auto buffer = Buffer(kTailBlockPackets);
  ASSERT_EQ(file.ReadPackets(buffer, 45000 - kTailBlockPackets, kTailBlockPackets, nullptr), S_OK);
  EXPECT_EQ(IndexAt(buffer, 0), 20000u);
  EXPECT_EQ(file.SyncOffset(), 0u) << "an offset found for the tail never applies elsewhere";
}

TEST_F(PacketFileTest, StreamSizeFollowsLimitAndGrowth) {
  CPacketFile& file = Open(NumberedPackets(10));
  EXPECT_EQ(file.GetStreamSize(), 10 * kPacketSize);
  NumberedPackets(20).Write(Path());
  EXPECT_EQ(file.GetStreamSize(), 10 * kPacketSize) << "cached until the next read";
  auto buffer = Buffer(5);
  file.ReadPackets(buffer, 0, 5, nullptr);
  EXPECT_EQ(file.GetStreamSize(), 20 * kPacketSize);
  file.SetStreamLimit(1880);
  EXPECT_EQ(file.GetStreamSize(), 1880u);
}

TEST(PacketFileClosed, ReadFailsWithTheErrorAsResultAndSizeIsZero) {
  CPacketFile file;
  std::vector<std::uint8_t> buffer(kPacketSize * 2);
  std::uint32_t firstOut = 99;
  const HRESULT hr = file.ReadPackets(buffer, 0, 2, &firstOut);
  EXPECT_EQ(hr, HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
  EXPECT_EQ(firstOut, 99u);
  EXPECT_EQ(file.GetStreamSize(), 0u);
}

}  // namespace
