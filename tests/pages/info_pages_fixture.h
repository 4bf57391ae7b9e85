// What the info page tests share: the fixture with its fake filter and
// small readers of the registry and the page's timers.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "control/brindlet_ids.h"
#include "control/settings_store.h"
#include "platform/win32/registry.h"
#include "platform/window/window_model.h"
#include "tests/delivery/player_graph.h"
#include "tests/pages/fake_stream_info.h"
#include "tests/pages/page_harness.h"
#include "tests/support/deadline.h"
#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace info_pages_test {

using namespace pages;
using namespace std::chrono_literals;
using Rows = std::vector<std::vector<std::string>>;

inline constexpr char kClsidText[] = "{8F923A8B-F96C-420C-8458-0D6406E82E4C}";

inline std::string Format(const char* format, long value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value, value);
  return text;
}

inline std::optional<std::string> RegistryText(HKEY root, const std::string& path, const char* name) {
  HKEY key = nullptr;
  if (RegOpenKeyExA(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return std::nullopt;
  char buffer[300] = {};
  DWORD size = sizeof buffer - 1;
  const LONG result = RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size);
  RegCloseKey(key);
  if (result != ERROR_SUCCESS) return std::nullopt;
  return std::string(buffer);
}

inline std::optional<DWORD> StoredNumber(const char* name) {
  DWORD value = 0xDEADBEEF;
  if (!ReadSettingDword(name, &value)) return std::nullopt;
  return value;
}

// The filter this test file registers extensions for, as the media system sees it.
inline std::optional<std::string> SourceFilterOf(const std::string& extension) {
  return RegistryText(HKEY_CLASSES_ROOT, "Media Type\\Extensions\\" + extension, "Source Filter");
}

inline void ForgetExtension(const std::string& extension) {
  RegDeleteKeyA(HKEY_CLASSES_ROOT, ("Media Type\\Extensions\\" + extension).c_str());
  RegDeleteKeyA(HKEY_CLASSES_ROOT, extension.c_str());
}

inline std::vector<std::pair<UINT_PTR, UINT>> Timers(HWND dialog) {
  std::vector<std::pair<UINT_PTR, UINT>> timers;
  for (const PlatformTimerState& timer : PlatformWindowTimers(dialog)) timers.emplace_back(timer.id, timer.elapse);
  return timers;
}

// An object that is no filter: it answers IUnknown only.
class CPlainObject final : public IUnknown {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = riid == IID_IUnknown ? this : nullptr;
    if (*ppv == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++m_Refs; }
  STDMETHODIMP_(ULONG) Release() override { return --m_Refs; }

 private:
  std::atomic<ULONG> m_Refs{0};
};

const CLSID* const kInfoPages[] = {&CLSID_ProgramInfoPage, &CLSID_PidInfoPage, &CLSID_H264AnalyzerPage,
                                   &CLSID_ProgramsPage};

// Every test starts from an empty settings key and no extensions of ours.
class InfoPagesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterModuleForProcess();
    ResetSettings();
    for (const char* extension : {".ts", ".tp", ".m2t", ".mpg"}) ForgetExtension(extension);
  }
  void TearDown() override { EXPECT_EQ(m_Fake.References(), 0u) << "a page kept the filter"; }

  // A Program Info page on the fake.
  HWND OpenOnFake(CPageHarness& page) {
    EXPECT_EQ(page.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
    return page.Dialog();
  }

  CFakeStreamInfo m_Fake;
};


}  // namespace info_pages_test
