#include "platform/win32/files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "tests/support/ts_writer.h"

namespace {

class FilesTest : public testing::Test {
 protected:
  std::string PathOf(const std::string& name) const { return dir_ + "/" + name; }

  std::string MakeFile(const std::string& name, const std::string& content) const {
    const std::string path = PathOf(name);
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  static HANDLE OpenForRead(const std::string& path) {
    return CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  }

  static std::string ReadString(HANDLE file, DWORD count) {
    std::string buffer(count, '\0');
    DWORD got = 0xDEAD;
    EXPECT_TRUE(ReadFile(file, buffer.data(), count, &got, nullptr));
    buffer.resize(got);
    return buffer;
  }

  tsw::TempDir temp_;
  const std::string dir_ = temp_.Path().string();
};

TEST_F(FilesTest, OpenFailuresMapToPlatformErrors) {
  const std::string file = MakeFile("plain", "x");
  const struct {
    const char* what;
    std::string name;
    DWORD disposition;
    DWORD error;
  } cases[] = {
      {"missing file", PathOf("missing"), OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
      {"file used as a directory", file + "/child", OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
      {"directory", dir_, OPEN_EXISTING, ERROR_ACCESS_DENIED},
      {"directory, opening always", dir_, OPEN_ALWAYS, ERROR_ACCESS_DENIED},
      {"name too long", PathOf(std::string(300, 'n')), OPEN_EXISTING, ERROR_FILENAME_EXCED_RANGE},
      {"existing file with CREATE_NEW", file, CREATE_NEW, ERROR_FILE_EXISTS},
      {"CREATE_NEW in a missing folder", PathOf("missing/new"), CREATE_NEW, ERROR_PATH_NOT_FOUND},
      {"CREATE_ALWAYS in a missing folder", PathOf("missing/new"), CREATE_ALWAYS, ERROR_PATH_NOT_FOUND},
      {"unknown disposition", file, 9, ERROR_INVALID_PARAMETER},
      {"truncate without write access", file, TRUNCATE_EXISTING, ERROR_INVALID_PARAMETER},
  };
  for (const auto& c : cases) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(CreateFileA(c.name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, c.disposition,
                          FILE_ATTRIBUTE_NORMAL, nullptr),
              INVALID_HANDLE_VALUE)
        << c.what;
    EXPECT_EQ(GetLastError(), c.error) << c.what;
  }
}

// A link is reported as itself, even one that leads nowhere, as an
// exclusive create would find the name taken.
TEST_F(FilesTest, AttributesTellWhatStandsAtAName) {
  const std::string file = MakeFile("plain", "x");
  ASSERT_EQ(::symlink(PathOf("nowhere").c_str(), PathOf("dangling").c_str()), 0);
  const struct {
    std::string name;
    DWORD attributes;
    DWORD error;
  } cases[] = {
      {file, FILE_ATTRIBUTE_NORMAL, ERROR_SUCCESS},
      {dir_, FILE_ATTRIBUTE_DIRECTORY, ERROR_SUCCESS},
      {PathOf("dangling"), FILE_ATTRIBUTE_REPARSE_POINT, ERROR_SUCCESS},
      {PathOf("missing"), INVALID_FILE_ATTRIBUTES, ERROR_FILE_NOT_FOUND},
  };
  for (const auto& c : cases) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(GetFileAttributesA(c.name.c_str()), c.attributes) << c.name;
    EXPECT_EQ(GetLastError(), c.error) << c.name;
  }
}

// Reads stop at the end without failing, and the end moves on as another
// writer appends. A handle used after its close must be refused, not reach
// another file.
TEST_F(FilesTest, ReadsStopAtTheEndThatFollowsAnotherWriterAndEndAtTheClose) {
  const std::string path = MakeFile("ten", "0123456789");
  HANDLE h = OpenForRead(path);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetFileSize(h, nullptr), 10u);
  EXPECT_EQ(ReadString(h, 4), "0123");
  EXPECT_EQ(ReadString(h, 10), "456789");  // short read at the end
  EXPECT_EQ(ReadString(h, 10), "");        // at the end
  EXPECT_EQ(ReadString(h, 0), "");

  // Positions past the end are allowed; reading there gives nothing.
  EXPECT_EQ(SetFilePointer(h, 100, nullptr, FILE_BEGIN), 100u);
  EXPECT_EQ(ReadString(h, 10), "");
  EXPECT_EQ(SetFilePointer(h, -3, nullptr, FILE_END), 7u);
  EXPECT_EQ(ReadString(h, 10), "789");

  std::ofstream(path, std::ios::binary | std::ios::app) << "abcdefghij";
  DWORD high = 0xDEAD;
  EXPECT_EQ(GetFileSize(h, &high), 20u);
  EXPECT_EQ(high, 0u);
  EXPECT_EQ(ReadString(h, 100), "abcdefghij");  // the same handle reads on

  ASSERT_TRUE(CloseHandle(h));
  char byte = 0;
  DWORD count = 7;
  SetLastError(ERROR_SUCCESS);
  EXPECT_FALSE(ReadFile(h, &byte, 1, &count, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(count, 0u);
  EXPECT_FALSE(CloseHandle(h));
}

TEST_F(FilesTest, SixtyFourBitPositionsOnASparseFile) {
  const std::string path = MakeFile("sparse", "");
  constexpr std::int64_t kSize = (std::int64_t{5} << 30) + 3;  // 5 GiB + 3, no disk used
  ASSERT_EQ(truncate(path.c_str(), kSize), 0);

  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                         OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  DWORD high = 0xDEAD;
  EXPECT_EQ(GetFileSize(h, &high), 0x40000003u);
  EXPECT_EQ(high, 1u);

  // Write a marker beyond 4 GiB and read it back.
  LONG moveHigh = 1;
  EXPECT_EQ(SetFilePointer(h, 0x10, &moveHigh, FILE_BEGIN), 0x10u);
  EXPECT_EQ(moveHigh, 1);
  DWORD count = 0;
  ASSERT_TRUE(WriteFile(h, "MARK", 4, &count, nullptr));
  moveHigh = -1;  // -4 as a 64-bit distance: back over the marker
  EXPECT_EQ(SetFilePointer(h, -4, &moveHigh, FILE_CURRENT), 0x10u);
  EXPECT_EQ(moveHigh, 1);
  EXPECT_EQ(ReadString(h, 4), "MARK");

  // The low half 0xFFFFFFFF is a valid position, told apart by the last error.
  moveHigh = 1;
  SetLastError(ERROR_GEN_FAILURE);
  EXPECT_EQ(SetFilePointer(h, -1, &moveHigh, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  EXPECT_EQ(moveHigh, 1);

  moveHigh = -1;
  EXPECT_EQ(SetFilePointer(h, -1, &moveHigh, FILE_END), 0x40000002u);
  EXPECT_EQ(moveHigh, 1);
  EXPECT_EQ(ReadString(h, 8), std::string(1, '\0'));

  // Without the high half a position beyond 32 bits cannot be reported.
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(SetFilePointer(h, 0, nullptr, FILE_END), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  CloseHandle(h);
}

}  // namespace
