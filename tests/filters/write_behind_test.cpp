#include "filters/sinks/write_behind.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/win32/files.h"
#include "tests/support/ts_reader.h"
#include "tests/support/ts_writer.h"

namespace {


constexpr std::size_t kChunk = CWriteBehind::kChunkBytes;

class WriteBehindTest : public testing::Test {
 protected:
  static HANDLE Create(const std::string& path) {
    return CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
  }

  tsw::TempDir m_Temp;
  const std::string m_Dir = m_Temp.Path().string();
};

// Pieces around the chunk size, so that chunks fill exactly, by one byte
// too many and across several at once; each lands in order.
TEST_F(WriteBehindTest, BytesLandInOrderWhateverThePieces) {
  const std::vector<std::vector<std::size_t>> cases = {
      {},
      {0, 1, 187},
      {kChunk - 1, 1, 1},
      {kChunk, kChunk},
      {3 * kChunk + 5, 7},
      {188, 5 * kChunk + 188, 188},  // more than may wait at once
  };
  for (std::size_t c = 0; c < cases.size(); ++c) {
    const std::string path = m_Dir + "/out" + std::to_string(c);
    const HANDLE file = Create(path);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CWriteBehind behind;
    ASSERT_EQ(behind.Start(file), S_OK);
    tsw::Bytes expected;
    unsigned char next = 0;
    for (std::size_t length : cases[c]) {
      std::vector<BYTE> piece(length);
      for (BYTE& b : piece) b = next++;
      ASSERT_EQ(behind.Append(piece.data(), piece.size()), S_OK);
      expected.insert(expected.end(), piece.begin(), piece.end());
    }
    ASSERT_EQ(behind.Finish(), S_OK);
    EXPECT_TRUE(tsw::ReadAll(path) == expected) << "case " << c << ": finished means written";
    EXPECT_EQ(behind.Stop(), S_OK);
    CloseHandle(file);
  }
}

TEST_F(WriteBehindTest, FailureIsKeptAndAnsweredFromThenOn) {
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  const HANDLE file = Create("/dev/full");
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  CWriteBehind behind;
  ASSERT_EQ(behind.Start(file), S_OK);
  const std::vector<BYTE> piece(kChunk);
  const HRESULT full = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
  // Only so many chunks may wait: a long stream hears of the failure
  // before its end.
  HRESULT hr = S_OK;
  for (std::size_t n = 0; n < CWriteBehind::kMaxWaitingChunks + 3 && hr == S_OK; ++n) {
    hr = behind.Append(piece.data(), piece.size());
  }
  EXPECT_EQ(hr, full);
  EXPECT_EQ(behind.Append(piece.data(), 1), full);
  EXPECT_EQ(behind.Finish(), full);
  EXPECT_EQ(behind.Stop(), full);
  CloseHandle(file);
}

TEST_F(WriteBehindTest, StopWithoutStartAndStartAgain) {
  CWriteBehind behind;
  EXPECT_EQ(behind.Stop(), S_OK);
  const std::string path = m_Dir + "/again";
  for (int round = 0; round < 2; ++round) {
    const HANDLE file = Create(path);
    ASSERT_EQ(behind.Start(file), S_OK);
    const BYTE byte = static_cast<BYTE>('a' + round);
    ASSERT_EQ(behind.Append(&byte, 1), S_OK);
    EXPECT_EQ(behind.Stop(), S_OK);
    CloseHandle(file);
    EXPECT_EQ(tsw::ReadAll(path), tsw::Bytes{byte});
  }
}

}  // namespace
