// The module's registration as an installer runs it: the exports loaded from
// Brindlet.ax, the file types, and what the registry holds afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "control/brindlet_ids.h"
#include "control/settings_store.h"
#include "platform/com/com_ptr.h"
#include "platform/com/objbase.h"
#include "platform/graph/filter_mapper.h"
#include "platform/graph/filter_registry.h"
#include "platform/win32/registry.h"
#include "platform/win32/resources.h"
#include "registration/file_types.h"
#include "tests/support/scoped_registry.h"

namespace {

namespace fs = std::filesystem;

const std::string kOwnClsid = "{8F923A8B-F96C-420C-8458-0D6406E82E4C}";
const std::string kOtherClsid = "{11111111-2222-3333-4444-555555555555}";
constexpr char kMlsKey[] = "SOFTWARE\\Microsoft\\MediaPlayer\\MLS\\Extensions";
constexpr char kPlayerKey[] = "SOFTWARE\\Microsoft\\MediaPlayer\\Player\\Extensions";

std::optional<std::string> Text(HKEY root, const std::string& key, const char* name) {
  HKEY handle = nullptr;
  if (RegOpenKeyExA(root, key.c_str(), 0, KEY_QUERY_VALUE, &handle) != ERROR_SUCCESS) return std::nullopt;
  char buffer[1024] = {};
  DWORD size = sizeof buffer - 1;
  const LONG error = RegQueryValueExA(handle, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size);
  RegCloseKey(handle);
  if (error != ERROR_SUCCESS) return std::nullopt;
  return std::string(buffer);
}

bool KeyExists(HKEY root, const std::string& key) {
  HKEY handle = nullptr;
  if (RegOpenKeyExA(root, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return false;
  RegCloseKey(handle);
  return true;
}

void SetText(HKEY root, const std::string& key, const char* name, const std::string& value) {
  HKEY handle = nullptr;
  ASSERT_EQ(RegCreateKeyA(root, key.c_str(), &handle), ERROR_SUCCESS);
  ASSERT_EQ(RegSetValueExA(handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                           static_cast<DWORD>(value.size() + 1)),
            ERROR_SUCCESS);
  RegCloseKey(handle);
}

void MakeKey(HKEY root, const std::string& key) {
  HKEY handle = nullptr;
  ASSERT_EQ(RegCreateKeyA(root, key.c_str(), &handle), ERROR_SUCCESS);
  RegCloseKey(handle);
}

std::string SourceKey(const std::string& extension) { return "Media Type\\Extensions\\" + extension; }

// Every hive file of a registry folder, by name.
std::map<std::string, std::string> Hives(const fs::path& dir) {
  std::map<std::string, std::string> hives;
  for (const auto& entry : fs::directory_iterator(dir)) {
    if (entry.path().extension() != ".reg") continue;
    std::ifstream in(entry.path(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    hives[entry.path().filename().string()] = text.str();
  }
  return hives;
}

// ---- Extension lists ------------------------------------------------------

TEST(ExtensionWords, CountOnlyPointedWordsOfThreeCharactersOrMore) {
  const struct {
    const char* list;
    std::vector<std::string> words;
  } cases[] = {
      {".ts; x .a .mpg", {".ts", ".mpg"}},
      {".ts;.tp;", {".ts", ".tp"}},
      {"*.ts", {}},
      {"x;.a;..", {}},
      {"", {}},
      {";;  ;", {}},
      {".m2ts\t.mts", {".m2ts", ".mts"}},
      {".TS", {".TS"}},  // not lower-cased here
  };
  for (const auto& c : cases) EXPECT_EQ(ExtensionWords(c.list), c.words) << c.list;
  EXPECT_TRUE(ExtensionWords(nullptr).empty());

  // The list is cut at 255 characters, so a word across the cut is cut too.
  const std::string longList = std::string(250, ';') + ".abcdef";
  EXPECT_EQ(ExtensionWords(longList.c_str()), std::vector<std::string>{".abcd"});
}

// ---- One extension --------------------------------------------------------

TEST(RegisterExtension, KeepsAnotherFiltersEntryAsideAndGivesItBack) {
  const struct {
    const char* name;
    std::optional<std::string> before;      // "Source Filter" before making
    std::optional<std::string> otherAfter;  // "Source Filter.other" after making twice
    bool keyLeftAfterRemoving;
    std::optional<std::string> sourceAfterRemoving;
  } cases[] = {
      {"no prior filter", std::nullopt, std::nullopt, false, std::nullopt},
      {"prior filter X", kOtherClsid, kOtherClsid, true, kOtherClsid},
      {"this filter already", kOwnClsid, std::nullopt, false, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    tsw::ScopedRegistry registry;
    if (c.before) SetText(HKEY_CLASSES_ROOT, SourceKey(".abc"), "Source Filter", *c.before);
    RegisterExtension(".abc", nullptr, true);
    RegisterExtension(".abc", nullptr, true);
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, SourceKey(".abc"), "Source Filter"), kOwnClsid);
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, SourceKey(".abc"), "Source Filter.other"), c.otherAfter);
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, ".abc", "PerceivedType"), "video");

    RegisterExtension(".abc", nullptr, false);
    EXPECT_EQ(KeyExists(HKEY_CLASSES_ROOT, SourceKey(".abc")), c.keyLeftAfterRemoving);
    EXPECT_EQ(KeyExists(HKEY_CLASSES_ROOT, ".abc"), c.keyLeftAfterRemoving);
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, SourceKey(".abc"), "Source Filter"), c.sourceAfterRemoving);
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, SourceKey(".abc"), "Source Filter.other"), c.sourceAfterRemoving);
  }
}

TEST(ApplyExtensionList, WritesTheMediaPlayersValuesOnceAndOnlyWhereItIsInstalled) {
  for (const bool playerInstalled : {false, true}) {
    SCOPED_TRACE(playerInstalled ? "media player installed" : "no media player");
    tsw::ScopedRegistry registry;
    if (playerInstalled) {
      MakeKey(HKEY_LOCAL_MACHINE, kMlsKey);
      MakeKey(HKEY_LOCAL_MACHINE, std::string(kPlayerKey) + "\\Types");
      MakeKey(HKEY_LOCAL_MACHINE, std::string(kPlayerKey) + "\\MUIDescriptions");
    }
    ApplyExtensionList(".ts; x .a .mpg", true);
    for (const char* extension : {".ts", ".mpg"}) {
      EXPECT_EQ(Text(HKEY_CLASSES_ROOT, SourceKey(extension), "Source Filter"), kOwnClsid) << extension;
    }
    EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, SourceKey(".a")));
    EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, SourceKey("x")));
    if (playerInstalled) {
      EXPECT_EQ(Text(HKEY_LOCAL_MACHINE, kMlsKey, "ts"), "video");
      EXPECT_EQ(Text(HKEY_LOCAL_MACHINE, kMlsKey, "mpg"), "video");
      EXPECT_EQ(Text(HKEY_LOCAL_MACHINE, std::string(kPlayerKey) + "\\Types", "106"), "*.ts;*.mpg;");
      const auto description = Text(HKEY_LOCAL_MACHINE, std::string(kPlayerKey) + "\\MUIDescriptions", "106");
      ASSERT_TRUE(description.has_value());
      EXPECT_EQ(description->front(), '@');
      EXPECT_TRUE(description->ends_with(",-106")) << *description;
    } else {
      EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\MediaPlayer")) << "only ever opened";
    }

    ApplyExtensionList(".ts; x .a .mpg", false);
    EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, SourceKey(".ts")));
    EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, SourceKey(".mpg")));
    if (playerInstalled) {
      EXPECT_EQ(Text(HKEY_LOCAL_MACHINE, kMlsKey, "ts"), "video") << "left as they are";
    }
  }
}

TEST(ApplyExtensionList, ListsWithoutAWordThatCountsTouchNothing) {
  for (const char* list : {"", "x .a *.ts", ";;"}) {
    for (const bool add : {true, false}) {
      tsw::ScopedRegistry registry;
      ApplyExtensionList(list, add);
      EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, "Media Type")) << list;
      EXPECT_TRUE(Hives(registry.Path()).empty()) << "nothing written for \"" << list << "\"";
    }
  }
}

// ---- The module's exports -------------------------------------------------

using Export = HRESULT (*)();

class ModuleRegistrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_Module = LoadLibraryA(BRINDLET_MODULE_PATH);
    ASSERT_NE(m_Module, nullptr) << PlatformLastLoadError();
    m_Register = reinterpret_cast<Export>(GetProcAddress(m_Module, "DllRegisterServer"));
    m_Unregister = reinterpret_cast<Export>(GetProcAddress(m_Module, "DllUnregisterServer"));
    ASSERT_NE(m_Register, nullptr);
    ASSERT_NE(m_Unregister, nullptr);
  }

  // The keys a machine has before any filter is registered.
  static void MakeMachineKeys(bool mediaPlayer) {
    MakeKey(HKEY_CLASSES_ROOT, "Media Type\\Extensions");
    MakeKey(HKEY_CLASSES_ROOT, "CLSID\\" + GuidToString(CLSID_LegacyAmFilterCategory) + "\\Instance");
    MakeKey(HKEY_CURRENT_USER, "Software");
    if (mediaPlayer) {
      MakeKey(HKEY_LOCAL_MACHINE, kMlsKey);
      MakeKey(HKEY_LOCAL_MACHINE, std::string(kPlayerKey) + "\\Types");
      MakeKey(HKEY_LOCAL_MACHINE, std::string(kPlayerKey) + "\\MUIDescriptions");
    }
  }

  static std::vector<platform_internal::RegisteredFilter> Registered(DWORD minimumMerit) {
    platform_internal::FilterQuery query;
    query.minimumMerit = minimumMerit;
    std::vector<platform_internal::RegisteredFilter> found;
    for (auto& filter : platform_internal::MatchingFilters(query)) {
      if (filter.clsid == CLSID_BrindletSource) found.push_back(std::move(filter));
    }
    return found;
  }

  HMODULE m_Module = nullptr;
  Export m_Register = nullptr;
  Export m_Unregister = nullptr;
};

TEST_F(ModuleRegistrationTest, RegistersSixClassesTheFilterAndTheFileTypes) {
  tsw::ScopedRegistry registry;
  ASSERT_EQ(m_Register(), S_OK);
  char path[MAX_PATH];
  ASSERT_GT(GetModuleFileNameA(m_Module, path, MAX_PATH), 0u);

  const struct {
    const CLSID* clsid;
    const char* name;
  } rows[] = {
      {&CLSID_BrindletSource, "Caldrovia Brindlet"}, {&CLSID_ProgramInfoPage, "Program Info Page"},
      {&CLSID_H264AnalyzerPage, "H.264 Analyzer Page"}, {&CLSID_PidInfoPage, "PID Info Page"},
      {&CLSID_ProgramsPage, "Programs"}, {&CLSID_AboutPage, "About Page"},
  };
  for (const auto& row : rows) {
    const std::string key = "CLSID\\" + GuidToString(*row.clsid);
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, key, nullptr), row.name);
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, key + "\\InprocServer32", nullptr), std::string(path));
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, key + "\\InprocServer32", "ThreadingModel"), "Both");
  }

  // Found as a filter, with its one pin, but never picked to render.
  const auto filters = Registered(0);
  ASSERT_EQ(filters.size(), 1u);
  EXPECT_EQ(filters[0].name, L"Caldrovia Brindlet");
  EXPECT_EQ(filters[0].merit, MERIT_DO_NOT_USE);
  ASSERT_EQ(filters[0].pins.size(), 1u);
  EXPECT_EQ(filters[0].pins[0].flags, REG_PINFLAG_B_OUTPUT);
  ASSERT_EQ(filters[0].pins[0].types.size(), 1u);
  EXPECT_EQ(filters[0].pins[0].types[0].major, MEDIATYPE_Stream);
  EXPECT_EQ(filters[0].pins[0].types[0].minor, MEDIASUBTYPE_MPEG2_TRANSPORT);
  EXPECT_TRUE(Registered(MERIT_DO_NOT_USE + 1).empty());

  for (const char* extension : {".ts", ".tp"}) {
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, SourceKey(extension), "Source Filter"), kOwnClsid) << extension;
  }

  // Registering again replaces; unregistering twice succeeds and leaves none.
  ASSERT_EQ(m_Register(), S_OK);
  EXPECT_EQ(Registered(0).size(), 1u);
  EXPECT_EQ(m_Unregister(), S_OK);
  EXPECT_EQ(m_Unregister(), S_OK);
  EXPECT_TRUE(Registered(0).empty());
  for (const auto& row : rows) EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, "CLSID\\" + GuidToString(*row.clsid)));
}

TEST_F(ModuleRegistrationTest, RegisterThenUnregisterLeavesTheHivesAsTheyWere) {
  for (const bool mediaPlayer : {false, true}) {
    SCOPED_TRACE(mediaPlayer ? "media player installed" : "no media player");
    tsw::ScopedRegistry registry;
    MakeMachineKeys(mediaPlayer);
    const auto before = Hives(registry.Path());
    ASSERT_EQ(m_Register(), S_OK);
    ASSERT_EQ(m_Unregister(), S_OK);
    if (!mediaPlayer) {
      EXPECT_EQ(Hives(registry.Path()), before);
      continue;
    }
    // The media player's values are the one thing removal leaves as it is.
    EXPECT_EQ(Hives(registry.Path()).at("HKEY_CLASSES_ROOT.reg"), before.at("HKEY_CLASSES_ROOT.reg"));
    EXPECT_EQ(Text(HKEY_LOCAL_MACHINE, kMlsKey, "ts"), "video");
    EXPECT_EQ(Text(HKEY_LOCAL_MACHINE, std::string(kPlayerKey) + "\\Types", "106"), "*.ts;*.tp");
  }
}

TEST_F(ModuleRegistrationTest, SettingsGoBackToDefaultsAndTheUsersExtensionsStayUntilUnregistered) {
  const struct {
    const char* name;
    bool registerInBetween;  // DllRegisterServer after the user applied a list
    bool mpgLeftAtTheEnd;
  } cases[] = {
      // Registering again forgets the list, so unregistering cannot find it.
      {"registered again", true, true},
      {"not registered again", false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    tsw::ScopedRegistry registry;
    ASSERT_EQ(m_Register(), S_OK);
    ASSERT_TRUE(WriteSettingDword("AC3", 0));
    ApplyExtensionList(".mpg;.m2t;", true);
    ASSERT_TRUE(WriteSettingString("RegisteredExtensions", ".mpg;.m2t;"));
    if (c.registerInBetween) {
      ASSERT_EQ(m_Register(), S_OK);
      EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, kSettingsKey)) << "every setting back to its default";
      EXPECT_EQ(Text(HKEY_CLASSES_ROOT, SourceKey(".mpg"), "Source Filter"), kOwnClsid);
    }
    ASSERT_EQ(m_Unregister(), S_OK);
    EXPECT_EQ(KeyExists(HKEY_CLASSES_ROOT, SourceKey(".mpg")), c.mpgLeftAtTheEnd);
    EXPECT_EQ(KeyExists(HKEY_CLASSES_ROOT, SourceKey(".m2t")), c.mpgLeftAtTheEnd);
    EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, SourceKey(".ts")));
    EXPECT_EQ(KeyExists(HKEY_CURRENT_USER, kSettingsKey), !c.registerInBetween) << "the key stays on unregistering";
  }
}

TEST_F(ModuleRegistrationTest, TheMediaPlayersDescriptionLeadsToTheModulesString106) {
  tsw::ScopedRegistry registry;
  MakeMachineKeys(true);
  ASSERT_EQ(m_Register(), S_OK);
  const auto description = Text(HKEY_LOCAL_MACHINE, std::string(kPlayerKey) + "\\MUIDescriptions", "106");
  ASSERT_TRUE(description.has_value());
  // "@<module path>,-<string id>", as the platform reads such a reference.
  const std::size_t comma = description->rfind(",-");
  ASSERT_NE(comma, std::string::npos);
  const std::string path = description->substr(1, comma - 1);
  const HMODULE module = LoadLibraryA(path.c_str());
  ASSERT_EQ(module, m_Module);
  char text[64];
  EXPECT_EQ(LoadStringA(module, static_cast<UINT>(std::stoul(description->substr(comma + 2))), text, sizeof text), 21);
  EXPECT_STREQ(text, "Transport Stream (ts)");
  // The page titles share the table; a short buffer cuts, an unknown id is empty.
  EXPECT_EQ(LoadStringA(module, 105, text, sizeof text), 5);
  EXPECT_STREQ(text, "H.264");
  EXPECT_EQ(LoadStringA(module, 101, text, 5), 4);
  EXPECT_STREQ(text, "Prog");
  EXPECT_EQ(LoadStringA(module, 107, text, sizeof text), 0);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(m_Unregister(), S_OK);
}

// A class factory that refuses to make anything, to stand for a platform
// without one of the mappers.
class CRefusingFactory final : public IClassFactory {
 public:
  explicit CRefusingFactory(HRESULT code) : m_Code(code) {}
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (riid != IID_IUnknown && riid != IID_IClassFactory) return E_NOINTERFACE;
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_Count; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG count = --m_Count;
    if (count == 0) delete this;
    return count;
  }
  STDMETHODIMP CreateInstance(IUnknown*, REFIID, void** ppv) override {
    *ppv = nullptr;
    return m_Code;
  }
  STDMETHODIMP LockServer(BOOL) override { return S_OK; }

 private:
  ~CRefusingFactory() = default;
  HRESULT m_Code;
  std::atomic<ULONG> m_Count{0};
};

TEST_F(ModuleRegistrationTest, TheOlderMapperStandsInAndWithNeitherTheClassesStay) {
  constexpr HRESULT kNoMapper2 = E_ACCESSDENIED;
  constexpr HRESULT kNoMapper = REGDB_E_CLASSNOTREG;
  const struct {
    const char* name;
    bool olderMissing;
    HRESULT result;
  } cases[] = {
      {"only IFilterMapper", false, S_OK},
      {"no mapper at all", true, kNoMapper},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    tsw::ScopedRegistry registry;
    PlatformRegisterClassObject(CLSID_FilterMapper2, new CRefusingFactory(kNoMapper2));
    if (c.olderMissing) PlatformRegisterClassObject(CLSID_FilterMapper, new CRefusingFactory(kNoMapper));
    const HRESULT hr = m_Register();
    PlatformRegisterClassObject(CLSID_FilterMapper2, nullptr);
    PlatformRegisterClassObject(CLSID_FilterMapper, nullptr);

    EXPECT_EQ(hr, c.result);
    EXPECT_EQ(Text(HKEY_CLASSES_ROOT, "CLSID\\" + GuidToString(CLSID_BrindletSource), nullptr),
              "Caldrovia Brindlet")
        << "classes go in before the filter entry, and stay";
    const auto filters = Registered(0);
    ASSERT_EQ(filters.size(), c.olderMissing ? 0u : 1u);
    if (c.olderMissing) continue;
    // The same entry, made through the older interface's own calls.
    EXPECT_EQ(filters[0].merit, MERIT_DO_NOT_USE);
    ASSERT_EQ(filters[0].pins.size(), 1u);
    EXPECT_EQ(filters[0].pins[0].flags, REG_PINFLAG_B_OUTPUT);
    ASSERT_EQ(filters[0].pins[0].types.size(), 1u);
    EXPECT_EQ(filters[0].pins[0].types[0].minor, MEDIASUBTYPE_MPEG2_TRANSPORT);
  }
}

}  // namespace
