#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

class FilesTest : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/brindlet-files-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

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

  std::string dir_;
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
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(CreateFileA(nullptr, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(FilesTest, DispositionsCreateTruncateAndReportExistence) {
  const std::string path = PathOf("made");
  HANDLE h = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);  // it was not there
  DWORD written = 0;
  ASSERT_TRUE(WriteFile(h, "hello", 5, &written, nullptr));
  EXPECT_EQ(written, 5u);
  ASSERT_TRUE(CloseHandle(h));

  h = CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(GetFileSize(h, nullptr), 5u);  // opening always keeps the content
  CloseHandle(h);

  h = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(GetFileSize(h, nullptr), 0u);
  CloseHandle(h);

  MakeFile("made", "again");
  h = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING, 0,
                  nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetFileSize(h, nullptr), 0u);
  CloseHandle(h);
}

TEST_F(FilesTest, AccessIsCheckedPerHandle) {
  const std::string path = MakeFile("access", "data");
  char buffer[4];
  DWORD count = 0;
  HANDLE reader = OpenForRead(path);
  ASSERT_NE(reader, INVALID_HANDLE_VALUE);
  SetLastError(ERROR_SUCCESS);
  EXPECT_FALSE(WriteFile(reader, "x", 1, &count, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  CloseHandle(reader);

  HANDLE writer = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(writer, INVALID_HANDLE_VALUE);
  SetLastError(ERROR_SUCCESS);
  EXPECT_FALSE(ReadFile(writer, buffer, sizeof buffer, &count, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  CloseHandle(writer);
}

TEST_F(FilesTest, ReadsStopAtEndOfFileWithoutFailing) {
  HANDLE h = OpenForRead(MakeFile("ten", "0123456789"));
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_EQ(ReadString(h, 4), "0123");
  EXPECT_EQ(ReadString(h, 10), "456789");  // short read at the end
  EXPECT_EQ(ReadString(h, 10), "");        // at the end
  EXPECT_EQ(ReadString(h, 0), "");

  // Positions past the end are allowed; reading there gives nothing.
  EXPECT_EQ(SetFilePointer(h, 100, nullptr, FILE_BEGIN), 100u);
  EXPECT_EQ(ReadString(h, 10), "");
  EXPECT_EQ(SetFilePointer(h, -3, nullptr, FILE_END), 7u);
  EXPECT_EQ(ReadString(h, 10), "789");

  DWORD count = 1;
  char byte = 0;
  SetLastError(ERROR_SUCCESS);
  EXPECT_FALSE(ReadFile(h, &byte, 1, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(ReadFile(h, nullptr, 1, &count, nullptr));
  EXPECT_EQ(count, 0u);
  CloseHandle(h);
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

TEST_F(FilesTest, NegativeSeeksFailAndLeaveThePositionAlone) {
  HANDLE h = OpenForRead(MakeFile("ten", "0123456789"));
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  ASSERT_EQ(SetFilePointer(h, 5, nullptr, FILE_BEGIN), 5u);
  const struct {
    LONG low;
    bool withHigh;
    LONG high;
    DWORD method;
    DWORD error;
  } cases[] = {
      {-1, false, 0, FILE_BEGIN, ERROR_NEGATIVE_SEEK},
      {-6, false, 0, FILE_CURRENT, ERROR_NEGATIVE_SEEK},
      {-11, false, 0, FILE_END, ERROR_NEGATIVE_SEEK},
      {0, true, -1, FILE_CURRENT, ERROR_NEGATIVE_SEEK},               // -2^32
      {-1, true, 0x7FFFFFFF, FILE_CURRENT, ERROR_INVALID_PARAMETER},  // overflows
      {0, false, 0, 7, ERROR_INVALID_PARAMETER},
  };
  for (const auto& c : cases) {
    LONG high = c.high;
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(SetFilePointer(h, c.low, c.withHigh ? &high : nullptr, c.method),
              INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), c.error);
    EXPECT_EQ(SetFilePointer(h, 0, nullptr, FILE_CURRENT), 5u);
  }
  CloseHandle(h);
}

TEST_F(FilesTest, SizeFollowsAnotherWriter) {
  const std::string path = MakeFile("growing", "0123456789");
  HANDLE h = OpenForRead(path);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetFileSize(h, nullptr), 10u);
  EXPECT_EQ(ReadString(h, 100), "0123456789");

  std::ofstream(path, std::ios::binary | std::ios::app) << "abcdefghij";
  DWORD high = 0xDEAD;
  EXPECT_EQ(GetFileSize(h, &high), 20u);
  EXPECT_EQ(high, 0u);
  EXPECT_EQ(ReadString(h, 100), "abcdefghij");  // the same handle reads on
  CloseHandle(h);
}

TEST_F(FilesTest, BadHandlesFailCleanly) {
  HANDLE closed = OpenForRead(MakeFile("closed", "x"));
  ASSERT_NE(closed, INVALID_HANDLE_VALUE);
  ASSERT_TRUE(CloseHandle(closed));
  int notAHandle = 0;

  for (HANDLE h : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, closed, HANDLE{&notAHandle}}) {
    char byte = 0;
    DWORD count = 7;
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(ReadFile(h, &byte, 1, &count, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(count, 0u);

    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(WriteFile(h, &byte, 1, &count, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);

    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(SetFilePointer(h, 0, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);

    DWORD high = 7;
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(GetFileSize(h, &high), INVALID_FILE_SIZE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(high, 0u);

    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(CloseHandle(h));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
}

TEST_F(FilesTest, DescriptorsAreCloseOnExec) {
  const std::string path = MakeFile("cloexec", "x");
  HANDLE h = OpenForRead(path);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  int found = 0;
  DIR* fds = opendir("/proc/self/fd");
  ASSERT_NE(fds, nullptr);
  while (dirent* entry = readdir(fds)) {
    char target[4096];
    const std::string link = std::string("/proc/self/fd/") + entry->d_name;
    const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
    if (n <= 0 || std::string(target, static_cast<std::size_t>(n)) != path) continue;
    ++found;
    EXPECT_TRUE(fcntl(std::atoi(entry->d_name), F_GETFD) & FD_CLOEXEC);
  }
  closedir(fds);
  EXPECT_EQ(found, 1);
  CloseHandle(h);
}

}  // namespace
