#include "analysis/packet_file.h"

#include <gtest/gtest.h>

#include <vector>

#include "analysis/packet_view.h"
#include "platform/messages.h"
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
  CPacketFile& Open(const tsw::TsFile& content) {
    const auto path = m_Dir.File("t.ts");
    content.Write(path);
    EXPECT_TRUE(m_File.Open(path.string().c_str()));
    m_File.AttachPacketBlock(&m_Block);
    return m_File;
  }
  std::vector<std::uint8_t> Buffer(std::uint32_t packets, std::uint8_t fill = 0xAB) {
    return std::vector<std::uint8_t>(packets * kPacketSize, fill);
  }

  tsw::TempDir m_Dir;
  CPacketFile m_File;
  std::span<std::uint8_t> m_Block;
  CMessageBoxRecorder m_Messages;
};

TEST_F(PacketFileTest, ReadsAlignedBlockThatHoldsFirst) {
  CPacketFile& file = Open(NumberedPackets(250));
  auto buffer = Buffer(100);
  std::uint32_t firstOut = 77;
  ASSERT_EQ(file.ReadPackets(buffer, 130, 100, &firstOut), S_OK);
  EXPECT_EQ(firstOut, 100u);
  EXPECT_EQ(IndexAt(buffer, 0), 100u);
  EXPECT_EQ(IndexAt(buffer, 30), 130u);
  EXPECT_EQ(m_Block.data(), buffer.data());
  EXPECT_TRUE(m_Messages.Calls().empty());
}

TEST_F(PacketFileTest, FirstReadAtCountIsTakenForAFollowOn) {
  // A fresh reader stands at block 0, so a read of block 1 continues from
  // the file position, which is still the start.
  CPacketFile& file = Open(NumberedPackets(300));
  auto buffer = Buffer(100);
  ASSERT_EQ(file.ReadPackets(buffer, 100, 100, nullptr), S_OK);
  EXPECT_EQ(IndexAt(buffer, 0), 0u);
}

TEST_F(PacketFileTest, FollowOnReadNeedsNoSeek) {
  CPacketFile& file = Open(NumberedPackets(300));
  auto buffer = Buffer(100);
  ASSERT_EQ(file.ReadPackets(buffer, 0, 100, nullptr), S_OK);
  ASSERT_EQ(file.ReadPackets(buffer, 100, 100, nullptr), S_OK);
  EXPECT_EQ(file.ReadPosition(), 100u);
  EXPECT_EQ(IndexAt(buffer, 0), 100u);
}

TEST_F(PacketFileTest, ReadAtAndPastTheEndKeepsOldBytes) {
  CPacketFile& file = Open(NumberedPackets(150));
  auto buffer = Buffer(100, 0xAB);
  ASSERT_EQ(file.ReadPackets(buffer, 120, 100, nullptr), S_OK);
  EXPECT_EQ(IndexAt(buffer, 49), 149u);
  EXPECT_EQ(buffer[50 * kPacketSize], 0xAB);  // nothing read there

  auto far = Buffer(100, 0xCD);
  far[0] = kSyncByte;  // what an earlier block left
  ASSERT_EQ(file.ReadPackets(far, 5000, 100, nullptr), S_OK);
  EXPECT_EQ(far[1], 0xCD);
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

TEST_F(PacketFileTest, NoSyncByteShowsTheMessageAndStillSucceeds) {
  tsw::TsFile content;
  content.AddRaw(Bytes(5000, 0x11));
  CPacketFile& file = Open(content);
  auto buffer = Buffer(20);
  EXPECT_EQ(file.ReadPackets(buffer, 0, 20, nullptr), S_OK);
  ASSERT_EQ(m_Messages.Calls().size(), 1u);
  EXPECT_EQ(m_Messages.Calls()[0].text, "Input stream does not appear to be a transport stream");
  EXPECT_EQ(m_Messages.Calls()[0].caption, "Brindlet");
  EXPECT_EQ(m_Messages.Calls()[0].type, static_cast<UINT>(MB_OK));
  // The hunt stopped at the limit: bytes read less one packet.
  EXPECT_EQ(file.SyncOffset(), 20 * kPacketSize - kPacketSize);
}

TEST_F(PacketFileTest, SyncByteExactlyAtTheLimitCountsAsNoHit) {
  Bytes junk(10 * kPacketSize, 0x11);
  junk[9 * kPacketSize] = kSyncByte;  // n - 188 for a read of ten packets
  tsw::TsFile content;
  content.AddRaw(junk);
  CPacketFile& file = Open(content);
  auto buffer = Buffer(10);
  EXPECT_EQ(file.ReadPackets(buffer, 0, 10, nullptr), S_OK);
  EXPECT_EQ(m_Messages.Calls().size(), 1u);
  EXPECT_EQ(file.SyncOffset(), 9 * kPacketSize);
}

TEST_F(PacketFileTest, TinyFileWithoutSyncEndsAfterOneMessage) {
  tsw::TsFile content;
  content.AddRaw(Bytes(100, 0x22));
  CPacketFile& file = Open(content);
  auto buffer = Buffer(10);
  EXPECT_EQ(file.ReadPackets(buffer, 0, 10, nullptr), S_OK);
  EXPECT_EQ(m_Messages.Calls().size(), 1u);
  EXPECT_EQ(file.SyncOffset(), 0u);
}

TEST_F(PacketFileTest, StrayByteOfSyncInNonTransportFileGivesNoMessage) {
  Bytes junk(4000, 0x11);
  junk[700] = kSyncByte;
  tsw::TsFile content;
  content.AddRaw(junk);
  CPacketFile& file = Open(content);
  auto buffer = Buffer(10);
  EXPECT_EQ(file.ReadPackets(buffer, 0, 10, nullptr), S_OK);
  EXPECT_TRUE(m_Messages.Calls().empty());
  EXPECT_EQ(file.SyncOffset(), 700u);
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

TEST_F(PacketFileTest, TailReadOfShortFileAsksFarBehindTheEnd) {
  CPacketFile& file = Open(NumberedPackets(500));
  auto buffer = Buffer(kTailBlockPackets, 0x00);
  buffer[0] = kSyncByte;
  const std::uint32_t first = 500u - kTailBlockPackets;  // wraps in 32 bits
  std::uint32_t firstOut = 0;
  ASSERT_EQ(file.ReadPackets(buffer, first, kTailBlockPackets, &firstOut), S_OK);
  EXPECT_EQ(firstOut, first / kTailBlockPackets * kTailBlockPackets);
  EXPECT_EQ(buffer[1], 0x00) << "nothing was read";
}

TEST_F(PacketFileTest, StreamSizeFollowsLimitAndGrowth) {
  const auto path = m_Dir.File("grow.ts");
  NumberedPackets(10).Write(path);
  ASSERT_TRUE(m_File.Open(path.string().c_str()));
  EXPECT_EQ(m_File.GetStreamSize(), 10 * kPacketSize);
  NumberedPackets(20).Write(path);
  EXPECT_EQ(m_File.GetStreamSize(), 10 * kPacketSize) << "cached until the next read";
  auto buffer = Buffer(5);
  m_File.ReadPackets(buffer, 0, 5, nullptr);
  EXPECT_EQ(m_File.GetStreamSize(), 20 * kPacketSize);
  m_File.SetStreamLimit(1880);
  EXPECT_EQ(m_File.GetStreamSize(), 1880u);
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
