#include "platform/win32/registry.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/scoped_registry.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr LONG kOk = ERROR_SUCCESS;
constexpr LONG kNotFound = ERROR_FILE_NOT_FOUND;
constexpr LONG kMoreData = ERROR_MORE_DATA;
constexpr LONG kDenied = ERROR_ACCESS_DENIED;

const BYTE* Bytes(const void* data) { return static_cast<const BYTE*>(data); }
BYTE* Out(void* data) { return static_cast<BYTE*>(data); }

// Sets an environment variable, or clears it for null, while it lives.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

// Every test gets a registry of its own.
class RegistryTest : public testing::Test {
 protected:
  std::string HivePath(const char* hive = "HKEY_CURRENT_USER") const {
    return dir_ + "/" + hive + ".reg";
  }
  static std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }
  void WriteHive(const std::string& text) const {
    fs::create_directories(dir_);
    std::ofstream(HivePath(), std::ios::binary) << text;
  }
  std::vector<std::string> CorruptCopies() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_)) {
      const std::string name = entry.path().filename();
      if (name.rfind("HKEY_CURRENT_USER.reg.corrupt-", 0) == 0) names.push_back(entry.path());
    }
    return names;
  }

  static HKEY Create(HKEY parent, const char* path, DWORD* disposition = nullptr) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExA(parent, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                              nullptr, &key, disposition),
              kOk)
        << path;
    return key;
  }
  static LONG SetDword(HKEY key, const char* name, DWORD value) {
    return RegSetValueExA(key, name, 0, REG_DWORD, Bytes(&value), sizeof value);
  }
  static LONG SetText(HKEY key, const char* name, const std::string& text) {
    return RegSetValueExA(key, name, 0, REG_SZ, Bytes(text.c_str()),
                          static_cast<DWORD>(text.size() + 1));
  }
  static std::optional<DWORD> GetDword(HKEY key, const char* name) {
    DWORD value = 0;
    DWORD size = sizeof value;
    DWORD type = REG_NONE;
    if (RegQueryValueExA(key, name, nullptr, &type, Out(&value), &size) != kOk ||
        type != REG_DWORD || size != 4) {
      return std::nullopt;
    }
    return value;
  }
  // The names of a key's subkeys, or of its values, in enumeration order.
  static std::vector<std::string> Names(HKEY key, bool values) {
    std::vector<std::string> names;
    char name[256];
    DWORD size = sizeof name;
    for (DWORD i = 0;
         (values ? RegEnumValueA(key, i, name, &size, nullptr, nullptr, nullptr, nullptr)
                 : RegEnumKeyExA(key, i, name, &size, nullptr, nullptr, nullptr, nullptr)) == kOk;
         ++i, size = sizeof name) {
      names.emplace_back(name, size);
    }
    return names;
  }
  static std::vector<std::string> SubkeyNames(HKEY key) { return Names(key, false); }
  static std::vector<std::string> ValueNames(HKEY key) { return Names(key, true); }

  tsw::ScopedRegistry registry_;
  const std::string root_ = registry_.Path().string();
  std::string dir_ = root_;
};

TEST_F(RegistryTest, ValuesRoundTripWithThePlatformsSizeRules) {
  DWORD disposition = 0;
  HKEY key = Create(HKEY_CURRENT_USER, "Software\\Caldrovia\\Brindlet", &disposition);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  RegCloseKey(Create(HKEY_CURRENT_USER, "Software\\Caldrovia\\Brindlet", &disposition));
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);

  ASSERT_EQ(SetDword(key, "ScanPackets", 10), kOk);
  DWORD type = 0;
  DWORD size = 0;
  EXPECT_EQ(RegQueryValueExA(key, "ScanPackets", nullptr, &type, nullptr, &size), kOk);
  EXPECT_EQ(type, REG_DWORD);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(GetDword(key, "ScanPackets"), 10u);

  // Text is kept up to its first zero and always read back with one.
  const struct {
    const char* what;
    std::string bytes;
    std::string text;
  } texts[] = {
      {"with terminator", std::string("deu", 4), "deu"},
      {"without terminator", "deu", "deu"},
      {"zero inside", std::string("ab\0cd", 6), "ab"},
      {"empty", "", ""},
  };
  for (const auto& t : texts) {
    ASSERT_EQ(RegSetValueExA(key, "Language", 0, REG_SZ, Bytes(t.bytes.data()),
                             static_cast<DWORD>(t.bytes.size())),
              kOk)
        << t.what;
    const DWORD needed = static_cast<DWORD>(t.text.size() + 1);
    EXPECT_EQ(RegQueryValueExA(key, "Language", nullptr, nullptr, nullptr, &size), kOk);
    EXPECT_EQ(size, needed) << t.what;
    char buffer[16] = "xxxxxxxxxxxxxxx";
    size = needed - 1;
    EXPECT_EQ(RegQueryValueExA(key, "Language", nullptr, &type, Out(buffer), &size), kMoreData)
        << t.what;
    EXPECT_EQ(size, needed) << t.what;
    EXPECT_EQ(type, REG_SZ);
    size = sizeof buffer;
    EXPECT_EQ(RegQueryValueExA(key, "Language", nullptr, nullptr, Out(buffer), &size), kOk);
    EXPECT_EQ(size, needed) << t.what;
    EXPECT_EQ(std::string(buffer, size), t.text + '\0') << t.what;
  }

  EXPECT_EQ(RegQueryValueExA(key, "Missing", nullptr, &type, nullptr, &size), kNotFound);
  EXPECT_EQ(RegCloseKey(key), kOk);
}

TEST_F(RegistryTest, NamesIgnoreCaseKeepTheirFirstSpellingAndEnumerateInOrder) {
  HKEY key = Create(HKEY_CURRENT_USER, "Software\\Caldrovia\\Brindlet");
  ASSERT_EQ(SetDword(key, "ScanPackets", 1), kOk);
  ASSERT_EQ(SetDword(key, "SCANPACKETS", 2), kOk);
  EXPECT_EQ(GetDword(key, "scanpackets"), 2u);
  EXPECT_EQ(ValueNames(key), std::vector<std::string>{"ScanPackets"});

  HKEY other = nullptr;
  ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "SOFTWARE\\caldrovia\\BRINDLET", 0, KEY_READ, &other),
            kOk);
  EXPECT_EQ(GetDword(other, "ScanPackets"), 2u);
  DWORD disposition = 0;
  RegCloseKey(Create(HKEY_CURRENT_USER, "software\\CALDROVIA", &disposition));
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
  HKEY software = nullptr;
  ASSERT_EQ(RegOpenKeyA(HKEY_CURRENT_USER, "software", &software), kOk);
  EXPECT_EQ(SubkeyNames(software), std::vector<std::string>{"Caldrovia"});

  // Subkeys sort with case folded upwards, as on the platform, so '_' comes
  // after letters; values keep the order they were made in.
  HKEY classes = Create(HKEY_CLASSES_ROOT, "CLSID");
  for (const char* name : {"beta", "_under", "Alpha", "gamma"}) RegCloseKey(Create(classes, name));
  EXPECT_EQ(SubkeyNames(classes), (std::vector<std::string>{"Alpha", "beta", "gamma", "_under"}));
  for (const char* name : {"zeta", "", "Alpha"}) ASSERT_EQ(SetDword(classes, name, 7), kOk);
  ASSERT_EQ(SetText(classes, "zeta", "long enough text"), kOk);  // keeps its place
  EXPECT_EQ(ValueNames(classes), (std::vector<std::string>{"zeta", "", "Alpha"}));
  for (HKEY k : {key, other, software, classes}) EXPECT_EQ(RegCloseKey(k), kOk);
}

TEST_F(RegistryTest, DeleteKeyTakesItsSubkeysAndOpenHandlesFindNothing) {
  HKEY deep = Create(HKEY_CURRENT_USER, "Software\\A\\B\\C");
  ASSERT_EQ(SetDword(deep, "v", 1), kOk);
  HKEY middle = Create(HKEY_CURRENT_USER, "Software\\A\\B");
  ASSERT_EQ(SetDword(middle, "v", 1), kOk);
  RegCloseKey(Create(HKEY_CURRENT_USER, "Software\\Sibling"));

  EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "software\\a"), kOk);
  HKEY probe = reinterpret_cast<HKEY>(1);
  EXPECT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\A\\B\\C", 0, KEY_READ, &probe), kNotFound);
  EXPECT_EQ(probe, nullptr);
  EXPECT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Sibling", 0, KEY_READ, &probe), kOk);
  RegCloseKey(probe);

  DWORD size = 0;
  EXPECT_EQ(RegQueryValueExA(middle, "v", nullptr, nullptr, nullptr, &size), kNotFound);
  EXPECT_EQ(ValueNames(middle), std::vector<std::string>{});
  EXPECT_EQ(SetDword(middle, "v", 2), static_cast<LONG>(ERROR_KEY_DELETED));
  HKEY child = nullptr;
  EXPECT_EQ(RegCreateKeyA(middle, "D", &child), static_cast<LONG>(ERROR_KEY_DELETED));
  EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\A"), kNotFound);

  // A handle names a path: the key made again there is seen through it.
  RegCloseKey(Create(HKEY_CURRENT_USER, "Software\\A\\B"));
  EXPECT_EQ(SetDword(middle, "v", 3), kOk);
  EXPECT_EQ(RegDeleteKeyA(middle, ""), kOk);
  EXPECT_EQ(GetDword(middle, "v"), std::nullopt);

  EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, ""), kDenied);
  for (HKEY k : {deep, middle}) EXPECT_EQ(RegCloseKey(k), kOk);
}

TEST_F(RegistryTest, TheDirectoryIsMadeOnTheFirstWriteOnly) {
  dir_ = root_ + "/a/b/registry";
  setenv("BRINDLET_REGISTRY_DIR", dir_.c_str(), 1);
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "Software", 0, KEY_READ, &key), kNotFound);
  EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "Software"), kNotFound);
  EXPECT_EQ(RegDeleteValueA(HKEY_CURRENT_USER, "v"), kNotFound);
  EXPECT_FALSE(fs::exists(root_ + "/a"));

  EXPECT_EQ(SetDword(HKEY_CURRENT_USER, "v", 1), kOk);
  EXPECT_TRUE(fs::is_regular_file(HivePath()));

  // Without the variable the XDG default applies, then the home directory's.
  unsetenv("BRINDLET_REGISTRY_DIR");
  const ScopedEnv home("HOME", (root_ + "/home").c_str());
  {
    const ScopedEnv xdg("XDG_CONFIG_HOME", (root_ + "/xdg").c_str());
    EXPECT_EQ(SetDword(HKEY_LOCAL_MACHINE, "v", 1), kOk);
    EXPECT_TRUE(fs::is_regular_file(root_ + "/xdg/brindlet/registry/HKEY_LOCAL_MACHINE.reg"));
  }
  const ScopedEnv noXdg("XDG_CONFIG_HOME", nullptr);
  EXPECT_EQ(SetDword(HKEY_CLASSES_ROOT, "v", 1), kOk);
  EXPECT_TRUE(fs::is_regular_file(root_ + "/home/.config/brindlet/registry/HKEY_CLASSES_ROOT.reg"));
}

TEST_F(RegistryTest, HivesAreReadableTextThatIsReadBackFromDisk) {
  HKEY key = Create(HKEY_CURRENT_USER, "Software\\Caldrovia\\Brindlet");
  const BYTE binary[] = {0x00, 0x7F, 0xFF};
  const BYTE shortDword[] = {1, 2};
  const std::string expand = "%TEMP%\\x";
  ASSERT_EQ(SetDword(key, "ScanPackets", 10), kOk);
  ASSERT_EQ(SetText(key, "Language", "deu"), kOk);
  ASSERT_EQ(SetText(key, "Say \"hi\"", "a\\b\n\t\x01 \xC3\xA9"), kOk);
  ASSERT_EQ(SetText(key, nullptr, "default"), kOk);
  ASSERT_EQ(RegSetValueExA(key, "Blob", 0, REG_BINARY, binary, sizeof binary), kOk);
  ASSERT_EQ(RegSetValueExA(key, "Short", 0, REG_DWORD, shortDword, sizeof shortDword), kOk);
  ASSERT_EQ(RegSetValueExA(key, "None", 0, REG_NONE, nullptr, 0), kOk);
  ASSERT_EQ(RegSetValueExA(key, "Path", 0, REG_EXPAND_SZ, Bytes(expand.c_str()),
                           static_cast<DWORD>(expand.size() + 1)),
            kOk);

  const std::string text = ReadFile(HivePath());
  EXPECT_EQ(text.rfind("BRINDLET REGISTRY 1\n", 0), 0u);
  for (const char* line :
       {"\n[Software]\n", "\n[Software\\Caldrovia]\n", "\n[Software\\Caldrovia\\Brindlet]\n",
        "\n\"ScanPackets\"=dword:0000000a\n", "\n\"Language\"=\"deu\"\n",
        "\n\"Say \\\"hi\\\"\"=\"a\\\\b\\n\\t\\x01 \xC3\xA9\"\n", "\n@=\"default\"\n",
        "\n\"Blob\"=hex:00,7f,ff\n", "\n\"Short\"=hex(4):01,02\n", "\n\"None\"=hex(0):\n",
        "\n\"Path\"=expand:\"%TEMP%\\\\x\"\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
  }
  EXPECT_EQ(text.substr(text.size() - 5), "\nEND\n");

  // Another process's edit shows through a handle already open.
  std::string edited = text;
  edited.replace(edited.find("dword:0000000a"), 14, "dword:  A0 ");
  edited.insert(
      edited.rfind("END"),
      "# added by hand\r\n[Software\\Caldrovia\\Brindlet]\r\n\"New\" = HEX:0A, 0B\r\n\r\n");
  WriteHive(edited);
  EXPECT_EQ(GetDword(key, "ScanPackets"), 0xA0u);
  BYTE got[4];
  DWORD size = sizeof got;
  DWORD type = 0;
  EXPECT_EQ(RegQueryValueExA(key, "new", nullptr, &type, got, &size), kOk);
  EXPECT_EQ(type, REG_BINARY);
  EXPECT_EQ(std::vector<BYTE>(got, got + size), (std::vector<BYTE>{0x0A, 0x0B}));
  char textBack[32];
  size = sizeof textBack;
  EXPECT_EQ(RegQueryValueExA(key, "say \"HI\"", nullptr, &type, Out(textBack), &size), kOk);
  EXPECT_EQ(std::string(textBack, size), std::string("a\\b\n\t\x01 \xC3\xA9", 10));

  WriteHive("BRINDLET REGISTRY 1\nEND\n");
  EXPECT_EQ(GetDword(key, "ScanPackets"), std::nullopt);
  EXPECT_EQ(SetDword(key, "ScanPackets", 1), static_cast<LONG>(ERROR_KEY_DELETED));
  RegCloseKey(key);
}

TEST_F(RegistryTest, UnreadableHiveIsKeptAsideReportedOnceAndNeverOverwritten) {
  HKEY key = Create(HKEY_CURRENT_USER, "Software\\Caldrovia\\Brindlet");
  for (int i = 0; i < 20; ++i)
    ASSERT_EQ(SetDword(key, ("Value" + std::to_string(i)).c_str(), 1), kOk);
  RegCloseKey(key);
  const std::string whole = ReadFile(HivePath());
  const struct {
    const char* what;
    std::string text;
    int line;  // 0: not checked
  } cases[] = {
      {"cut in half", whole.substr(0, whole.size() / 2), 0},
      {"cut at a line's end", whole.substr(0, whole.rfind("\"Value19\"")), 0},
      {"garbage",
       std::string("\x7f"
                   "ELF\x02\x01\x01\0\0\n\xff\xfe",
                   13),
       1},
      {"bad dword", "BRINDLET REGISTRY 1\n[Software]\n\"v\"=dword:12x\nEND\n", 3},
      {"value before a key", "BRINDLET REGISTRY 1\n\n\"v\"=\"x\"\nEND\n", 3},
      {"text after END", "BRINDLET REGISTRY 1\nEND\n[Software]\n", 3},
      {"empty", "", 1},
  };
  for (const auto& c : cases) {
    fs::remove_all(dir_);
    WriteHive(c.text);
    testing::internal::CaptureStderr();
    HKEY opened = nullptr;
    EXPECT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "Software", 0, KEY_READ, &opened), kNotFound)
        << c.what;
    EXPECT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "Software", 0, KEY_READ, &opened), kNotFound);
    const std::string report = testing::internal::GetCapturedStderr();

    const std::vector<std::string> copies = CorruptCopies();
    ASSERT_EQ(copies.size(), 1u) << c.what;
    const std::string copyName = fs::path(copies[0]).filename();
    EXPECT_EQ(ReadFile(copies[0]), c.text) << c.what;
    EXPECT_EQ(report.rfind("brindlet registry: " + HivePath() + " cannot be read (line ", 0), 0u)
        << report;
    if (c.line > 0) {
      EXPECT_NE(report.find("(line " + std::to_string(c.line) + ": "), std::string::npos) << report;
    }
    EXPECT_NE(report.find("; kept as " + copyName + "; starting empty\n"), std::string::npos)
        << report;
    EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 1) << report;

    EXPECT_EQ(SetDword(HKEY_CURRENT_USER, "fresh", 1), kOk) << c.what;
    EXPECT_EQ(ReadFile(copies[0]), c.text) << c.what;
    EXPECT_EQ(GetDword(HKEY_CURRENT_USER, "fresh"), 1u);
  }

  // A second bad file, most likely within the same second, never replaces
  // the copy kept of the first.
  const std::string first = CorruptCopies()[0];
  WriteHive("junk");
  testing::internal::CaptureStderr();
  EXPECT_EQ(GetDword(HKEY_CURRENT_USER, "fresh"), std::nullopt);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(CorruptCopies().size(), 2u);
  EXPECT_EQ(ReadFile(first), std::end(cases)[-1].text);
}

TEST_F(RegistryTest, TwoProcessesWritingAtOnceLoseNothing) {
  constexpr int kEach = 200;
  std::vector<pid_t> children;
  for (const char* prefix : {"A", "B"}) {
    const std::string count = std::to_string(kEach);
    char* argv[] = {const_cast<char*>(BRINDLET_REGISTRY_WRITER), const_cast<char*>(prefix),
                    const_cast<char*>(count.c_str()), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, BRINDLET_REGISTRY_WRITER, nullptr, nullptr, argv, environ), 0);
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  HKEY key = nullptr;
  ASSERT_EQ(
      RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Caldrovia\\Brindlet\\Race", 0, KEY_READ, &key),
      kOk);
  EXPECT_EQ(ValueNames(key).size(), 2u * kEach);
  for (const char* prefix : {"A", "B"}) {
    for (DWORD i = 0; i < kEach; ++i) {
      const std::string name = prefix + std::to_string(i);
      EXPECT_EQ(GetDword(key, name.c_str()), i) << name;
    }
  }
  RegCloseKey(key);
}

}  // namespace
