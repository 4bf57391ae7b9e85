#include "platform/graph/filter_data.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/graph/strmif.h"

namespace platform_internal {
namespace {

constexpr GUID kCategory =
    MakeGuid(0x7E57CA70, 0x0F11, 0x4D2E, 0x9A, 0x10, 0x5E, 0xED, 0x00, 0x00, 0x00, 0x03);
constexpr GUID kMedium = MakeGuid(0xA1B2C3D4, 0x0001, 0x0002, 1, 2, 3, 4, 5, 6, 7, 8);

// Two named input pins (one a renderer) and an unnamed output pin with a
// medium and a category: every part of the layout at once.
FilterData Demux() {
  FilterData data;
  data.merit = MERIT_NORMAL;
  data.pins.push_back({L"Input",
                       REG_PINFLAG_B_RENDERER,
                       0,
                       {{MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO}, {MEDIATYPE_Stream, GUID_NULL}},
                       {},
                       {}});
  data.pins.push_back({L"Audio \U0001F3B5 in", 0, 1, {{MEDIATYPE_Audio, GUID_NULL}}, {}, {}});
  data.pins.push_back({L"",
                       REG_PINFLAG_B_OUTPUT | REG_PINFLAG_B_MANY,
                       2,
                       {{MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3}},
                       {{kMedium, 7, 9}},
                       kCategory});
  return data;
}

std::vector<BYTE> Encoded() { return EncodeFilterData(Demux()); }

DWORD DwordAt(const std::vector<BYTE>& blob, std::size_t at) {
  DWORD value = 0;
  for (std::size_t i = 0; i < 4; ++i) value |= static_cast<DWORD>(blob[at + i]) << (8 * i);
  return value;
}

void PutDwordAt(std::vector<BYTE>* blob, std::size_t at, DWORD value) {
  for (std::size_t i = 0; i < 4; ++i) (*blob)[at + i] = static_cast<BYTE>(value >> (8 * i));
}

TEST(FilterData, RoundTrips) {
  FilterData unnamed = Demux();
  for (FilterDataPin& pin : unnamed.pins) pin.name.clear();
  const FilterData cases[] = {FilterData{MERIT_DO_NOT_USE, {}}, unnamed, Demux()};
  for (const FilterData& data : cases) {
    const auto decoded = DecodeFilterData(EncodeFilterData(data));
    EXPECT_TRUE(decoded && *decoded == data);
  }
  // Without names there is no name table, as a reader of plain records expects.
  EXPECT_EQ(DwordAt(EncodeFilterData(unnamed), 12), 0u);
}

TEST(FilterData, ReadsARecordWrittenByHand) {
  std::vector<BYTE> blob(16 + 24 + 16 + 32);
  PutDwordAt(&blob, 0, 2);
  PutDwordAt(&blob, 4, 0x123456);
  PutDwordAt(&blob, 8, 1);
  std::memcpy(&blob[16], "0pi3", 4);
  PutDwordAt(&blob, 20, REG_PINFLAG_B_OUTPUT);
  PutDwordAt(&blob, 28, 1);
  std::memcpy(&blob[40], "0ty3", 4);
  PutDwordAt(&blob, 48, 56);
  PutDwordAt(&blob, 52, 72);
  // {E436EB83-524F-11CE-9F53-0020AF0BA770}, then GUID_NULL.
  const BYTE major[16] = {0x83, 0xEB, 0x36, 0xE4, 0x4F, 0x52, 0xCE, 0x11,
                          0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70};
  std::memcpy(&blob[56], major, 16);

  const auto data = DecodeFilterData(blob);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->merit, 0x123456u);
  ASSERT_EQ(data->pins.size(), 1u);
  EXPECT_EQ(data->pins[0].flags, REG_PINFLAG_B_OUTPUT);
  ASSERT_EQ(data->pins[0].types.size(), 1u);
  EXPECT_EQ(data->pins[0].types[0].major, MEDIATYPE_Stream);
  EXPECT_EQ(data->pins[0].types[0].minor, GUID_NULL);
}

TEST(FilterData, EveryCutIsRefused) {
  const std::vector<BYTE> whole = Encoded();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    // A copy of exactly this length, so a read past it is a heap overflow.
    const std::vector<BYTE> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(DecodeFilterData(cut)) << "cut to " << length;
  }
}

TEST(FilterData, BadFieldsAreRefused) {
  const std::vector<BYTE> whole = Encoded();
  const auto size = static_cast<DWORD>(whole.size());
  const DWORD names = DwordAt(whole, 12);
  // Offsets into the first pin (at 16) and its first type (at 40).
  const struct {
    const char* what;
    std::size_t at;
    DWORD value;
  } cases[] = {
      {"version 1", 0, 1},
      {"version 3", 0, 3},
      {"pin count past the records", 8, 4},
      {"pin count huge", 8, 0xFFFFFFFF},
      {"name table past the end", 12, size - 4},
      {"name table in the header", 12, 4},
      {"name table tag", names, 0},
      {"name table count", names + 4, 2},
      {"name offset past the end", names + 8, size},
      {"pin tag", 16, 0x32697030},  // "0pi2"
      {"type count huge", 28, 0xFFFFFFFF},
      {"medium count huge", 32, 0x40000000},
      {"category offset past the end", 36, size - 15},
      {"type tag", 40, 0},
      {"major type offset 0", 48, 0},
      {"major type offset in the header", 48, 15},
      {"minor type offset past the end", 52, size - 8},
      {"minor type offset huge", 52, 0xFFFFFFF0},
  };
  for (const auto& c : cases) {
    std::vector<BYTE> blob = whole;
    PutDwordAt(&blob, c.at, c.value);
    EXPECT_FALSE(DecodeFilterData(blob)) << c.what;
  }
  // The last name loses its terminator.
  std::vector<BYTE> unterminated = whole;
  unterminated[unterminated.size() - 2] = 'x';
  EXPECT_FALSE(DecodeFilterData(unterminated));
}

TEST(FilterData, FromRegFilter2) {
  const REGPINTYPES types[] = {{&MEDIATYPE_Stream, nullptr}};
  REGFILTERPINS pins1[] = {
      {const_cast<LPWSTR>(L"In"), TRUE, FALSE, TRUE, FALSE, nullptr, nullptr, 1, types},
      {const_cast<LPWSTR>(L"Out"), FALSE, TRUE, FALSE, TRUE, nullptr, nullptr, 0, nullptr},
  };
  REGFILTER2 v1{};
  v1.dwVersion = 1;
  v1.dwMerit = MERIT_UNLIKELY;
  v1.cPins = 2;
  v1.rgPins = pins1;
  FilterData data;
  ASSERT_EQ(FilterDataFromRegFilter2(v1, &data), S_OK);
  FilterData expected{MERIT_UNLIKELY,
                      {{L"In",
                        REG_PINFLAG_B_RENDERER | REG_PINFLAG_B_ZERO,
                        0,
                        {{MEDIATYPE_Stream, GUID_NULL}},
                        {},
                        {}},
                       {L"Out", REG_PINFLAG_B_OUTPUT | REG_PINFLAG_B_MANY, 0, {}, {}, {}}}};
  EXPECT_TRUE(data == expected);

  const REGPINMEDIUM mediums[] = {{kMedium, 1, 2}};
  const REGFILTERPINS2 pins2[] = {{REG_PINFLAG_B_OUTPUT, 3, 1, types, 1, mediums, &kCategory}};
  REGFILTER2 v2{};
  v2.dwVersion = 2;
  v2.dwMerit = MERIT_PREFERRED;
  v2.cPins2 = 1;
  v2.rgPins2 = pins2;
  ASSERT_EQ(FilterDataFromRegFilter2(v2, &data), S_OK);
  expected = {MERIT_PREFERRED,
              {{L"",
                REG_PINFLAG_B_OUTPUT,
                3,
                {{MEDIATYPE_Stream, GUID_NULL}},
                {{kMedium, 1, 2}},
                kCategory}}};
  EXPECT_TRUE(data == expected);

  const REGFILTERPINS2 noTypes[] = {{0, 0, 2, nullptr, 0, nullptr, nullptr}};
  const REGFILTERPINS2 noMediums[] = {{0, 0, 0, nullptr, 1, nullptr, nullptr}};
  const struct {
    DWORD version;
    ULONG count;
    const REGFILTERPINS2* pins;
    HRESULT expected;
  } refusals[] = {
      {0, 0, nullptr, E_INVALIDARG}, {3, 0, nullptr, E_INVALIDARG}, {2, 1, nullptr, E_POINTER},
      {2, 1, noTypes, E_POINTER},    {2, 1, noMediums, E_POINTER},
  };
  for (const auto& r : refusals) {
    REGFILTER2 reg{};
    reg.dwVersion = r.version;
    reg.cPins2 = r.count;
    reg.rgPins2 = r.pins;
    EXPECT_EQ(FilterDataFromRegFilter2(reg, &data), r.expected) << r.version << " " << r.count;
  }
}

constexpr RegisteredPinType kMpeg2{MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO};
constexpr RegisteredPinType kTransport{MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT};
constexpr RegisteredPinType kAc3{MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3};
constexpr RegisteredPinType kAnyVideo{MEDIATYPE_Video, GUID_NULL};
constexpr RegisteredPinType kAnyStream{MEDIATYPE_Stream, GUID_NULL};
constexpr REGPINMEDIUM kDemuxMedium{kMedium, 7, 9};

TEST(FilterData, Matching) {
  using Edit = void (*)(FilterSearch*);
  const struct {
    const char* what;
    Edit edit;
    bool matches;
  } cases[] = {
      {"nothing asked", [](FilterSearch*) {}, true},
      {"input and output needed",
       [](FilterSearch* s) { s->query.inputNeeded = s->query.outputNeeded = true; }, true},
      {"merit at the minimum", [](FilterSearch* s) { s->query.minimumMerit = MERIT_NORMAL; }, true},
      {"merit below the minimum", [](FilterSearch* s) { s->query.minimumMerit = MERIT_NORMAL + 1; },
       false},
      {"exact type", [](FilterSearch* s) { s->query.inputTypes = {kMpeg2}; }, true},
      {"one of several",
       [](FilterSearch* s) {
         s->query.inputTypes = {kAc3, kTransport};
       },
       true},
      {"query's minor is a wildcard", [](FilterSearch* s) { s->query.inputTypes = {kAnyVideo}; },
       true},
      {"query's wildcard, exact",
       [](FilterSearch* s) {
         s->query.inputTypes = {kAnyVideo};
         s->query.exactMatch = true;
       },
       false},
      {"pin's minor is a wildcard", [](FilterSearch* s) { s->query.inputTypes = {kTransport}; },
       true},
      {"pin's wildcard, exact",
       [](FilterSearch* s) {
         s->query.inputTypes = {kTransport};
         s->query.exactMatch = true;
       },
       false},
      {"both wildcards, exact",
       [](FilterSearch* s) {
         s->query.inputTypes = {kAnyStream};
         s->query.exactMatch = true;
       },
       true},
      {"output's exact type asked of inputs",
       [](FilterSearch* s) {
         s->query.inputTypes = {kAc3};
         s->query.exactMatch = true;
       },
       false},
      {"output type", [](FilterSearch* s) { s->query.outputTypes = {kAc3}; }, true},
      {"input type asked of outputs", [](FilterSearch* s) { s->query.outputTypes = {kMpeg2}; },
       false},
      {"rendered pin of the type",
       [](FilterSearch* s) {
         s->query.inputTypes = {kMpeg2};
         s->query.render = true;
       },
       true},
      // The audio input takes AC-3 but is no renderer; the renderer does not take it.
      {"type and renderer on different pins",
       [](FilterSearch* s) {
         s->query.inputTypes = {kAc3};
         s->query.render = true;
       },
       false},
      {"type on a pin that is no renderer", [](FilterSearch* s) { s->query.inputTypes = {kAc3}; },
       true},
      {"output medium", [](FilterSearch* s) { s->outputMedium = kDemuxMedium; }, true},
      {"other output medium",
       [](FilterSearch* s) {
         s->outputMedium = REGPINMEDIUM{kMedium, 7, 10};
       },
       false},
      {"medium asked of inputs", [](FilterSearch* s) { s->inputMedium = kDemuxMedium; }, false},
      {"output pin category", [](FilterSearch* s) { s->outputCategory = kCategory; }, true},
      {"input pin category", [](FilterSearch* s) { s->inputCategory = kCategory; }, false},
  };
  const FilterData demux = Demux();
  for (const auto& c : cases) {
    FilterSearch search;
    c.edit(&search);
    EXPECT_EQ(FilterDataMatches(demux, search), c.matches) << c.what;
  }

  const FilterData sourceOnly{MERIT_NORMAL, {{L"", REG_PINFLAG_B_OUTPUT, 0, {kTransport}, {}, {}}}};
  FilterSearch needsInput;
  needsInput.query.inputNeeded = true;
  EXPECT_FALSE(FilterDataMatches(sourceOnly, needsInput));
}

}  // namespace
}  // namespace platform_internal
