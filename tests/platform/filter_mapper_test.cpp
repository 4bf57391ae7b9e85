#include "platform/graph/filter_mapper.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/com/com_memory.h"
#include "platform/com/objbase.h"
#include "platform/graph/filter_data.h"
#include "platform/graph/filter_registry.h"
#include "platform/win32/codepage.h"
#include "platform/win32/registry.h"
#include "tests/platform/test_module.h"
#include "tests/support/scoped_registry.h"

namespace {

using platform_internal::DecodeFilterData;
using platform_internal::FilterQuery;
using platform_internal::MatchingFilters;

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
const std::string kLegacy = GuidToString(CLSID_LegacyAmFilterCategory);
const std::string kCategories = "{DA4E3DA0-D07D-11D0-BD50-00A0C911CE86}";

// Listed by the registry in this order, as their text sorts.
constexpr CLSID kFilterA = MakeGuid(0x0000000A, 0x5EED, 0x4B1D, 0x80, 0, 0, 0, 0, 0, 0, 1);
constexpr CLSID kFilterB = MakeGuid(0x0000000B, 0x5EED, 0x4B1D, 0x80, 0, 0, 0, 0, 0, 0, 1);
constexpr CLSID kFilterC = MakeGuid(0x0000000C, 0x5EED, 0x4B1D, 0x80, 0, 0, 0, 0, 0, 0, 1);
constexpr CLSID kFilterD = MakeGuid(0x0000000D, 0x5EED, 0x4B1D, 0x80, 0, 0, 0, 0, 0, 0, 1);
constexpr CLSID kCategory = MakeGuid(0xC0000001, 0x5EED, 0x4B1D, 0x80, 0, 0, 0, 0, 0, 0, 2);

const REGPINTYPES kTransportType[] = {{&MEDIATYPE_Stream, &MEDIASUBTYPE_MPEG2_TRANSPORT}};
const REGPINTYPES kVideoType[] = {{&MEDIATYPE_Video, &MEDIASUBTYPE_MPEG2_VIDEO}};
// A demultiplexer's pins: transport stream in, video out.
const REGFILTERPINS2 kDemuxPins[] = {{0, 1, 1, kTransportType, 0, nullptr, nullptr},
                                     {REG_PINFLAG_B_OUTPUT, 1, 1, kVideoType, 0, nullptr, nullptr}};

REGFILTER2 Version2(DWORD merit, const REGFILTERPINS2* pins = kDemuxPins, ULONG count = 2) {
  REGFILTER2 reg{};
  reg.dwVersion = 2;
  reg.dwMerit = merit;
  reg.cPins2 = count;
  reg.rgPins2 = pins;
  return reg;
}

std::string EntryPath(const std::string& category, const std::string& instance) {
  return "CLSID\\" + category + "\\Instance\\" + instance;
}

// The value as stored, or nothing when the key or value is missing.
std::optional<std::vector<BYTE>> Value(const std::string& path, const char* name,
                                       DWORD* type = nullptr) {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return {};
  DWORD size = 0;
  DWORD found = 0;
  std::optional<std::vector<BYTE>> data;
  if (RegQueryValueExA(key, name, nullptr, &found, nullptr, &size) == ERROR_SUCCESS) {
    data.emplace(size);
    RegQueryValueExA(key, name, nullptr, &found, data->data(), &size);
    if (type != nullptr) *type = found;
  }
  RegCloseKey(key);
  return data;
}

std::string Text(const std::optional<std::vector<BYTE>>& value) {
  return value ? std::string(value->begin(), value->end() - 1) : "(none)";
}

void SetValue(const std::string& path, const char* name, DWORD type,
              const std::vector<BYTE>& data) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyA(HKEY_CLASSES_ROOT, path.c_str(), &key), ERROR_SUCCESS);
  ASSERT_EQ(RegSetValueExA(key, name, 0, type, data.data(), static_cast<DWORD>(data.size())),
            ERROR_SUCCESS);
  RegCloseKey(key);
}

std::vector<CLSID> Found(const FilterQuery& query) {
  std::vector<CLSID> found;
  for (const auto& filter : MatchingFilters(query)) found.push_back(filter.clsid);
  return found;
}

std::vector<CLSID> Found(DWORD minimumMerit) {
  FilterQuery query;
  query.minimumMerit = minimumMerit;
  return Found(query);
}

std::wstring DisplayName(IMoniker* moniker) {
  LPOLESTR name = nullptr;
  EXPECT_EQ(moniker->GetDisplayName(nullptr, nullptr, &name), S_OK);
  std::wstring text = name != nullptr ? name : L"";
  CoTaskMemFree(name);
  return text;
}

class FilterMapper : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IFilterMapper2, m_Mapper.PutVoid()),
              S_OK);
    ASSERT_EQ(m_Mapper->QueryInterface(IID_IFilterMapper, m_Older.PutVoid()), S_OK);
  }

  HRESULT Register(REFCLSID clsid, DWORD merit, const CLSID* category = nullptr,
                   LPCOLESTR instance = nullptr, LPCWSTR name = L"Filter") {
    const REGFILTER2 reg = Version2(merit);
    return m_Mapper->RegisterFilter(clsid, name, nullptr, category, instance, &reg);
  }

  tsw::ScopedRegistry m_Registry;
  ComPtr<IFilterMapper2> m_Mapper;
  ComPtr<IFilterMapper> m_Older;
};

TEST_F(FilterMapper, OneObjectUnderBothClassIds) {
  for (const CLSID& clsid : {CLSID_FilterMapper2, CLSID_FilterMapper}) {
    ComPtr<IFilterMapper> older;
    ASSERT_EQ(
        CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper, older.PutVoid()),
        S_OK);
    ComPtr<IFilterMapper2> newer;
    ASSERT_EQ(older->QueryInterface(IID_IFilterMapper2, newer.PutVoid()), S_OK);
    ComPtr<IUnknown> a;
    ComPtr<IUnknown> b;
    ASSERT_EQ(older->QueryInterface(IID_IUnknown, a.PutVoid()), S_OK);
    ASSERT_EQ(newer->QueryInterface(IID_IUnknown, b.PutVoid()), S_OK);
    EXPECT_EQ(a.Get(), b.Get());

    void* aggregated = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(CoCreateInstance(clsid, a.Get(), CLSCTX_INPROC_SERVER, IID_IUnknown, &aggregated),
              CLASS_E_NOAGGREGATION);
    EXPECT_EQ(aggregated, nullptr);
  }
}

TEST_F(FilterMapper, EntryKeysAndValues) {
  ComPtr<IMoniker> moniker;
  const REGFILTER2 reg = Version2(MERIT_NORMAL);
  ASSERT_EQ(m_Mapper->RegisterFilter(kFilterA, L"D\u00e9mux \u2713", moniker.PutAddress(), nullptr,
                                     nullptr, &reg),
            S_OK);
  const std::string path = EntryPath(kLegacy, GuidToString(kFilterA));
  EXPECT_EQ(Text(Value(path, "CLSID")), GuidToString(kFilterA));
  EXPECT_EQ(Text(Value(path, "FriendlyName")), "D\xC3\xA9mux \xE2\x9C\x93");
  DWORD type = 0;
  const auto blob = Value(path, "FilterData", &type);
  ASSERT_TRUE(blob);
  EXPECT_EQ(type, REG_BINARY);
  const auto data = DecodeFilterData(*blob);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->merit, MERIT_NORMAL);
  ASSERT_EQ(data->pins.size(), 2u);
  EXPECT_EQ(data->pins[1].flags, REG_PINFLAG_B_OUTPUT);
  ASSERT_TRUE(moniker);
  EXPECT_EQ(DisplayName(moniker.Get()),
            L"@device:sw:" + AnsiToWide(kLegacy + "\\" + GuidToString(kFilterA)));

  // A category and an instance of the caller's.
  ASSERT_EQ(Register(kFilterB, MERIT_NORMAL, &kCategory, L"My demux"), S_OK);
  EXPECT_EQ(Text(Value(EntryPath(GuidToString(kCategory), "My demux"), "CLSID")),
            GuidToString(kFilterB));

  ASSERT_EQ(m_Mapper->CreateCategory(kCategory, MERIT_UNLIKELY, L"Demultiplexers"), S_OK);
  const std::string categoryPath = EntryPath(kCategories, GuidToString(kCategory));
  EXPECT_EQ(Text(Value(categoryPath, "CLSID")), GuidToString(kCategory));
  EXPECT_EQ(Text(Value(categoryPath, "FriendlyName")), "Demultiplexers");
  const auto merit = Value(categoryPath, "Merit", &type);
  ASSERT_TRUE(merit);
  EXPECT_EQ(type, REG_DWORD);
  EXPECT_EQ(*merit, (std::vector<BYTE>{0x00, 0x00, 0x40, 0x00}));
}

TEST_F(FilterMapper, ReplaceAndUnregisterTwice) {
  const std::string path = EntryPath(kLegacy, GuidToString(kFilterA));
  ASSERT_EQ(Register(kFilterA, MERIT_NORMAL, nullptr, nullptr, L"First"), S_OK);
  SetValue(path, "Stale", REG_SZ, {'x', 0});
  ASSERT_EQ(Register(kFilterA, MERIT_UNLIKELY, nullptr, nullptr, L"Second"), S_OK);
  EXPECT_EQ(Text(Value(path, "FriendlyName")), "Second");
  EXPECT_FALSE(Value(path, "Stale"));
  const auto filters = MatchingFilters(FilterQuery());
  ASSERT_EQ(filters.size(), 1u);
  EXPECT_EQ(filters[0].merit, MERIT_UNLIKELY);

  // A moniker passed in names where to write.
  ComPtr<IMoniker> place;
  const REGFILTER2 reg = Version2(MERIT_NORMAL);
  ASSERT_EQ(
      m_Mapper->RegisterFilter(kFilterB, L"B", place.PutAddress(), &kCategory, L"Place", &reg),
      S_OK);
  IMoniker* given = place.Get();
  ASSERT_EQ(m_Mapper->RegisterFilter(kFilterC, L"C", &given, nullptr, nullptr, &reg), S_OK);
  EXPECT_EQ(given, place.Get());
  EXPECT_EQ(Text(Value(EntryPath(GuidToString(kCategory), "Place"), "CLSID")),
            GuidToString(kFilterC));

  EXPECT_EQ(m_Mapper->UnregisterFilter(nullptr, nullptr, kFilterA), S_OK);
  EXPECT_FALSE(Value(path, "CLSID"));
  EXPECT_EQ(m_Mapper->UnregisterFilter(nullptr, nullptr, kFilterA), kNotFound);
  EXPECT_EQ(m_Mapper->UnregisterFilter(&kCategory, L"Place", kFilterC), S_OK);
  EXPECT_EQ(m_Mapper->UnregisterFilter(&kCategory, L"Place", kFilterC), kNotFound);

  ASSERT_EQ(m_Older->RegisterFilter(kFilterD, L"D", MERIT_NORMAL), S_OK);
  EXPECT_EQ(m_Older->UnregisterFilter(kFilterD), S_OK);
  EXPECT_EQ(m_Older->UnregisterFilter(kFilterD), kNotFound);
}

TEST_F(FilterMapper, RefusalsWriteNothing) {
  REGFILTER2 version3 = Version2(MERIT_NORMAL);
  version3.dwVersion = 3;
  const REGFILTER2 good = Version2(MERIT_NORMAL);
  const struct {
    const char* what;
    LPCWSTR name;
    LPCOLESTR instance;
    const REGFILTER2* reg;
    HRESULT expected;
  } cases[] = {
      {"no data", L"F", nullptr, nullptr, E_POINTER},
      {"no name", nullptr, nullptr, &good, E_POINTER},
      {"version 3", L"F", nullptr, &version3, E_INVALIDARG},
      {"instance with a backslash", L"F", L"a\\b", &good, E_INVALIDARG},
  };
  for (const auto& c : cases) {
    ComPtr<IMoniker> moniker;
    EXPECT_EQ(m_Mapper->RegisterFilter(kFilterA, c.name, moniker.PutAddress(), nullptr, c.instance,
                                       c.reg),
              c.expected)
        << c.what;
    EXPECT_FALSE(moniker) << c.what;
  }
  EXPECT_TRUE(MatchingFilters(FilterQuery()).empty());
  EXPECT_EQ(m_Mapper->CreateCategory(kCategory, 0, nullptr), E_POINTER);
}

TEST_F(FilterMapper, MeritOrderAndMinimum) {
  ASSERT_EQ(Register(kFilterA, MERIT_NORMAL), S_OK);
  ASSERT_EQ(Register(kFilterB, MERIT_DO_NOT_USE), S_OK);
  ASSERT_EQ(Register(kFilterC, MERIT_PREFERRED), S_OK);
  ASSERT_EQ(Register(kFilterD, MERIT_NORMAL), S_OK);
  EXPECT_EQ(Found(MERIT_DO_NOT_USE + 1), (std::vector<CLSID>{kFilterC, kFilterA, kFilterD}));
  EXPECT_EQ(Found(MERIT_DO_NOT_USE), (std::vector<CLSID>{kFilterC, kFilterA, kFilterD, kFilterB}));
}

TEST_F(FilterMapper, CategoriesAreSearchedOnceEach) {
  ASSERT_EQ(m_Mapper->CreateCategory(kCategory, MERIT_NORMAL, L"Mine"), S_OK);
  ASSERT_EQ(m_Mapper->CreateCategory(CLSID_LegacyAmFilterCategory, MERIT_NORMAL, L"Legacy"), S_OK);
  ASSERT_EQ(Register(kFilterA, MERIT_UNLIKELY, &kCategory), S_OK);
  ASSERT_EQ(Register(kFilterB, MERIT_NORMAL, &kCategory), S_OK);
  // In both; the legacy category is searched first, so its name is seen.
  ASSERT_EQ(Register(kFilterB, MERIT_NORMAL, nullptr, nullptr, L"Legacy B"), S_OK);
  auto filters = MatchingFilters(FilterQuery());
  ASSERT_EQ(filters.size(), 2u);
  EXPECT_EQ(filters[0].clsid, kFilterB);
  EXPECT_EQ(filters[0].name, L"Legacy B");
  EXPECT_EQ(filters[1].clsid, kFilterA);

  // A category's merit keeps it out of searches asking for more.
  ASSERT_EQ(m_Mapper->CreateCategory(kCategory, MERIT_DO_NOT_USE, L"Mine"), S_OK);
  EXPECT_EQ(Found(MERIT_DO_NOT_USE + 1), (std::vector<CLSID>{kFilterB}));
  EXPECT_EQ(Found(0), (std::vector<CLSID>{kFilterB, kFilterA}));
}

TEST_F(FilterMapper, UnreadableEntriesArePassedOver) {
  ASSERT_EQ(Register(kFilterB, MERIT_NORMAL), S_OK);
  std::vector<BYTE> cut = *Value(EntryPath(kLegacy, GuidToString(kFilterB)), "FilterData");
  cut.resize(cut.size() - 1);
  const std::string clsidA = GuidToString(kFilterA);
  const std::string clsidC = GuidToString(kFilterC);
  SetValue(EntryPath(kLegacy, "cut"), "CLSID", REG_SZ,
           std::vector<BYTE>(clsidA.begin(), clsidA.end() + 1));
  SetValue(EntryPath(kLegacy, "cut"), "FilterData", REG_BINARY, cut);
  SetValue(EntryPath(kLegacy, "no class"), "FilterData", REG_BINARY, cut);
  SetValue(EntryPath(kLegacy, "text data"), "CLSID", REG_SZ,
           std::vector<BYTE>(clsidC.begin(), clsidC.end() + 1));
  SetValue(EntryPath(kLegacy, "text data"), "FilterData", REG_SZ, {'x', 0});
  EXPECT_EQ(Found(0), (std::vector<CLSID>{kFilterB}));
}

TEST_F(FilterMapper, OlderInterfaceBuildsAFilterInSteps) {
  const CLSID none = GUID_NULL;
  EXPECT_EQ(m_Older->RegisterPin(kFilterA, L"In", TRUE, FALSE, FALSE, FALSE, none, nullptr),
            kNotFound);
  ASSERT_EQ(m_Older->RegisterFilter(kFilterA, L"Old style", MERIT_NORMAL), S_OK);
  ASSERT_EQ(m_Older->RegisterPin(kFilterA, L"In", FALSE, FALSE, FALSE, FALSE, none, nullptr), S_OK);
  ASSERT_EQ(m_Older->RegisterPin(kFilterA, L"Out", FALSE, TRUE, FALSE, TRUE, none, nullptr), S_OK);
  ASSERT_EQ(m_Older->RegisterPinType(kFilterA, L"Out", MEDIATYPE_Video, GUID_NULL), S_OK);
  ASSERT_EQ(m_Older->RegisterPinType(kFilterA, L"In", MEDIATYPE_Audio, GUID_NULL), S_OK);
  // Registering "in" again replaces the pin, types and all.
  ASSERT_EQ(m_Older->RegisterPin(kFilterA, L"in", TRUE, FALSE, FALSE, FALSE, none, nullptr), S_OK);
  ASSERT_EQ(
      m_Older->RegisterPinType(kFilterA, L"IN", MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT),
      S_OK);
  ASSERT_EQ(
      m_Older->RegisterPinType(kFilterA, L"IN", MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT),
      S_OK);
  EXPECT_EQ(m_Older->RegisterPinType(kFilterA, L"Missing", MEDIATYPE_Stream, GUID_NULL), kNotFound);
  EXPECT_EQ(m_Older->UnregisterPin(kFilterA, L"Missing"), kNotFound);

  const auto filters = MatchingFilters(FilterQuery());
  ASSERT_EQ(filters.size(), 1u);
  EXPECT_EQ(filters[0].name, L"Old style");
  ASSERT_EQ(filters[0].pins.size(), 2u);
  EXPECT_EQ(filters[0].pins[0].flags, REG_PINFLAG_B_RENDERER);
  EXPECT_EQ(filters[0].pins[0].types.size(), 1u);
  EXPECT_EQ(filters[0].pins[1].flags, REG_PINFLAG_B_OUTPUT | REG_PINFLAG_B_MANY);

  // Found through the older enumerator, one block per record.
  ComPtr<IEnumRegFilters> found;
  ASSERT_EQ(
      m_Older->EnumMatchingFilters(found.PutAddress(), MERIT_DO_NOT_USE + 1, TRUE, MEDIATYPE_Stream,
                                   GUID_NULL, TRUE, TRUE, GUID_NULL, GUID_NULL),
      S_OK);
  REGFILTER* records[2] = {};
  ULONG fetched = 0;
  EXPECT_EQ(found->Next(2, records, &fetched), S_FALSE);
  ASSERT_EQ(fetched, 1u);
  EXPECT_EQ(records[0]->Clsid, kFilterA);
  EXPECT_STREQ(records[0]->Name, L"Old style");
  CoTaskMemFree(records[0]);

  // Without its output pin it no longer offers an output.
  ASSERT_EQ(m_Older->UnregisterPin(kFilterA, L"out"), S_OK);
  ASSERT_EQ(m_Older->EnumMatchingFilters(found.PutAddress(), 0, FALSE, GUID_NULL, GUID_NULL, FALSE,
                                         TRUE, GUID_NULL, GUID_NULL),
            S_OK);
  EXPECT_EQ(found->Next(1, records, nullptr), S_FALSE);
}

TEST_F(FilterMapper, PinsNamedInVersion1AreEditedByTheOlderInterface) {
  const REGPINTYPES types[] = {{&MEDIATYPE_Stream, nullptr}};
  REGFILTERPINS pins[] = {
      {const_cast<LPWSTR>(L"Input"), FALSE, FALSE, FALSE, FALSE, nullptr, nullptr, 1, types}};
  REGFILTER2 reg{};
  reg.dwVersion = 1;
  reg.dwMerit = MERIT_NORMAL;
  reg.cPins = 1;
  reg.rgPins = pins;
  ASSERT_EQ(m_Mapper->RegisterFilter(kFilterA, L"A", nullptr, nullptr, nullptr, &reg), S_OK);
  ASSERT_EQ(m_Older->RegisterPinType(kFilterA, L"Input", MEDIATYPE_Video, GUID_NULL), S_OK);
  FilterQuery query;
  query.inputTypes = {{MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO}};
  EXPECT_EQ(Found(query), (std::vector<CLSID>{kFilterA}));
}

TEST_F(FilterMapper, MatchingMonikersBindToTheFilter) {
  ASSERT_EQ(PlatformRegisterInprocServer(CLSID_TestModuleObject, BRINDLET_TEST_MODULE), S_OK);
  ASSERT_EQ(m_Mapper->CreateCategory(kCategory, MERIT_NORMAL, L"Mine"), S_OK);
  ASSERT_EQ(Register(CLSID_TestModuleObject, MERIT_NORMAL, &kCategory, L"Test"), S_OK);
  ASSERT_EQ(Register(kFilterA, MERIT_PREFERRED), S_OK);
  const REGFILTERPINS2 inputOnly[] = {kDemuxPins[0]};
  const REGFILTER2 sink = Version2(MERIT_PREFERRED, inputOnly, 1);
  ASSERT_EQ(m_Mapper->RegisterFilter(kFilterB, L"Sink", nullptr, nullptr, nullptr, &sink), S_OK);

  // Pairs of major and minor type; the second pair matches by wildcard.
  const GUID inputTypes[] = {MEDIATYPE_Audio, GUID_NULL, MEDIATYPE_Stream, GUID_NULL};
  ComPtr<IEnumMoniker> monikers;
  ASSERT_EQ(m_Mapper->EnumMatchingFilters(monikers.PutAddress(), 0, FALSE, MERIT_DO_NOT_USE + 1,
                                          TRUE, 2, inputTypes, nullptr, nullptr, FALSE, TRUE, 0,
                                          nullptr, nullptr, nullptr),
            S_OK);
  IMoniker* got[3] = {};
  ULONG fetched = 0;
  EXPECT_EQ(monikers->Next(3, got, &fetched), S_FALSE);
  ASSERT_EQ(fetched, 2u);
  ComPtr<IMoniker> first = ComPtr<IMoniker>::Attach(got[0]);
  ComPtr<IMoniker> second = ComPtr<IMoniker>::Attach(got[1]);
  EXPECT_EQ(DisplayName(first.Get()),
            L"@device:sw:" + AnsiToWide(kLegacy + "\\" + GuidToString(kFilterA)));
  EXPECT_EQ(DisplayName(second.Get()),
            L"@device:sw:" + AnsiToWide(GuidToString(kCategory)) + L"\\Test");

  ComPtr<ITestModuleObject> object;
  ASSERT_EQ(second->BindToObject(nullptr, nullptr, IID_ITestModuleObject, object.PutVoid()), S_OK);
  EXPECT_TRUE(object);
  void* none = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(first->BindToObject(nullptr, nullptr, IID_IUnknown, &none), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(none, nullptr);

  // The enumerator's position: a clone starts where it stands, Reset goes back.
  ComPtr<IEnumMoniker> clone;
  ASSERT_EQ(monikers->Clone(clone.PutAddress()), S_OK);
  EXPECT_EQ(clone->Skip(1), S_FALSE);
  ASSERT_EQ(monikers->Reset(), S_OK);
  EXPECT_EQ(monikers->Skip(1), S_OK);
  ASSERT_EQ(monikers->Next(1, got, nullptr), S_OK);
  ComPtr<IMoniker> again = ComPtr<IMoniker>::Attach(got[0]);
  EXPECT_EQ(again->IsEqual(second.Get()), S_OK);
  EXPECT_EQ(again->IsEqual(first.Get()), S_FALSE);
}

}  // namespace
