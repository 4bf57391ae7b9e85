#include "platform/com/rot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/com/com_memory.h"

namespace {

// An object that only counts its references.
class CCounted final : public IUnknown {
 public:
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    *ppv = riid == IID_IUnknown ? this : nullptr;
    if (*ppv == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
  STDMETHODIMP_(ULONG) Release() override { return --refs; }
  ULONG refs = 0;
};

ComPtr<IMoniker> Item(LPCOLESTR delimiter, LPCOLESTR item) {
  ComPtr<IMoniker> moniker;
  EXPECT_EQ(CreateItemMoniker(delimiter, item, moniker.PutAddress()), S_OK);
  return moniker;
}

bool Listed(const std::wstring& name) {
  const auto names = PlatformRunningObjectNames();
  return std::find(names.begin(), names.end(), name) != names.end();
}

ComPtr<IRunningObjectTable> Table() {
  ComPtr<IRunningObjectTable> table;
  EXPECT_EQ(GetRunningObjectTable(0, table.PutAddress()), S_OK);
  return table;
}

TEST(RunningObjectTable, RegisterHoldsUntilRevokeAndNamesMayRepeat) {
  const ComPtr<IRunningObjectTable> table = Table();
  CCounted object;
  const ComPtr<IMoniker> name = Item(L"!", L"Brindlet:rot-test-1");
  DWORD cookie = 0;
  ASSERT_EQ(table->Register(0, &object, name.Get(), &cookie), S_OK);
  EXPECT_NE(cookie, 0u);
  EXPECT_EQ(object.refs, 1u);
  EXPECT_TRUE(Listed(L"!Brindlet:rot-test-1"));
  EXPECT_EQ(table->IsRunning(Item(L"!", L"BRINDLET:ROT-TEST-1").Get()), S_OK);

  EXPECT_EQ(table->Revoke(cookie), S_OK);
  EXPECT_EQ(object.refs, 0u);
  EXPECT_FALSE(Listed(L"!Brindlet:rot-test-1"));
  EXPECT_EQ(table->Revoke(cookie), E_INVALIDARG);
  EXPECT_EQ(table->IsRunning(name.Get()), S_FALSE);

  // The same name again, in any case, is registered with a cookie of its own.
  CCounted first;
  CCounted second;
  DWORD cookie1 = 0;
  DWORD cookie2 = 0;
  ASSERT_EQ(table->Register(0, &first, Item(L"!", L"rot-dup").Get(), &cookie1), S_OK);
  EXPECT_EQ(table->Register(0, &second, Item(L"!", L"ROT-DUP").Get(), &cookie2),
            MK_S_MONIKERALREADYREGISTERED);
  EXPECT_NE(cookie1, cookie2);
  EXPECT_EQ(second.refs, 1u);
  EXPECT_EQ(table->Revoke(cookie1), S_OK);
  EXPECT_EQ(first.refs, 0u);
  EXPECT_TRUE(Listed(L"!ROT-DUP"));
  EXPECT_EQ(table->Revoke(cookie2), S_OK);
  EXPECT_EQ(second.refs, 0u);
}

}  // namespace
