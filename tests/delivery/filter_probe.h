// Test access to the filter's findings and to the fields that later stages of
// the scan set, so each test can arrange exactly the state it needs; and a
// stub filter for the fakes that stand beside it in a graph.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "delivery/ts_source_filter.h"
#include "platform/com/com_memory.h"
#include "tests/support/capture_pin.h"
#include "tests/support/ts_writer.h"

class CTsSourceFilterProbe {
 public:
  static void SetDetLength(CTsSourceFilter& f, int on) { f.m_DetLength = on; }
  static REFERENCE_TIME Duration(CTsSourceFilter& f) { return f.m_Duration; }
  static const CPidCensus& Census(CTsSourceFilter& f) { return f.m_Census; }
};

// A filter created as the class factory would, released at the end.
class FilterHolder {
 public:
  FilterHolder() {
    HRESULT hr = E_FAIL;
    m_Object = static_cast<CTsSourceFilter*>(CTsSourceFilter::CreateInstance(nullptr, &hr));
    EXPECT_EQ(hr, S_OK);
    m_Object->NonDelegatingUnknown()->AddRef();
  }
  ~FilterHolder() { m_Object->NonDelegatingUnknown()->Release(); }
  FilterHolder(const FilterHolder&) = delete;
  FilterHolder& operator=(const FilterHolder&) = delete;

  CTsSourceFilter& operator*() { return *m_Object; }
  CTsSourceFilter* operator->() { return m_Object; }

  HRESULT Load(const std::filesystem::path& path) {
    return m_Object->Load(path.wstring().c_str(), nullptr);
  }
  // Writes `file` into a folder of the holder's own, under a new name each
  // time, and loads it.
  HRESULT Load(const tsw::TsFile& file) {
    m_Path = m_Dir.File(std::to_string(++m_Files) + ".ts");
    file.Write(m_Path);
    return Load(m_Path);
  }
  const std::filesystem::path& Path() const { return m_Path; }
  // The answer to a text query, "<null>" for no string.
  std::string Query(const wchar_t* keyword) {
    LPWSTR text = nullptr;
    EXPECT_EQ(m_Object->QueryText(keyword, &text), S_OK);
    if (text == nullptr) return "<null>";
    std::string answer;
    for (const wchar_t* p = text; *p != 0; ++p) answer.push_back(static_cast<char>(*p));
    CoTaskMemFree(text);
    return answer;
  }

 private:
  CTsSourceFilter* m_Object;
  tsw::TempDir m_Dir;
  std::filesystem::path m_Path;
  int m_Files = 0;
};

// A filter that takes every state and implements nothing else, with one more
// interface, Extra, answered for kExtra. It lives on the test's stack, so
// references are only counted.
template <class Extra, const IID& kExtra>
class StubFilter : public tsw::BaseFilterStubs, public Extra {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    const bool filter =
        riid == IID_IUnknown || riid == IID_IBaseFilter || riid == IID_IMediaFilter || riid == IID_IPersist;
    *ppv = filter ? static_cast<void*>(static_cast<IBaseFilter*>(this))
                  : riid == kExtra ? static_cast<Extra*>(this) : nullptr;
    return *ppv != nullptr ? (AddRef(), S_OK) : E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++m_References); }
  STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--m_References); }

 private:
  std::atomic<long> m_References{0};
};
