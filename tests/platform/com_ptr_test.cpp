#include "platform/com/com_ptr.h"

#include <gtest/gtest.h>

#include <utility>

#include "platform/com/unknwn.h"

namespace {

constexpr IID IID_IThing =
    MakeGuid(0x5C1B4A2E, 0x0D3F, 0x4E8A, 0x9B, 0x61, 0x2F, 0x7E, 0x44, 0x10, 0xA9, 0x03);

struct IThing : IUnknown {
  virtual int STDMETHODCALLTYPE Value() = 0;
};

// Counts its references; lives on the stack so a test can look at the count
// after every holder has gone.
class CThing final : public IThing {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (riid == IID_IUnknown || riid == IID_IThing) {
      *ppv = static_cast<IThing*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  int STDMETHODCALLTYPE Value() override { return 42; }

  ULONG refs = 0;
};

TEST(ComPtr, CopyMoveAndDestroyKeepCountsBalanced) {
  CThing thing;
  {
    ComPtr<IThing> a(&thing);
    EXPECT_EQ(thing.refs, 1u);
    ComPtr<IThing> b = a;
    EXPECT_EQ(thing.refs, 2u);
    ComPtr<IThing> c = std::move(b);
    EXPECT_EQ(thing.refs, 2u);
    EXPECT_FALSE(b);
    EXPECT_EQ(c->Value(), 42);

    // Self-assignment must not drop the reference before taking it again.
    ComPtr<IThing>& alias = c;
    c = alias;
    EXPECT_EQ(thing.refs, 2u);
    c = std::move(alias);
    EXPECT_TRUE(c);
    EXPECT_EQ(thing.refs, 2u);

    ComPtr<IUnknown> base = a;  // derived to base, like the raw pointers
    EXPECT_EQ(thing.refs, 3u);
    a = nullptr;
    EXPECT_EQ(thing.refs, 2u);
  }
  EXPECT_EQ(thing.refs, 0u);
}

TEST(ComPtr, OutParametersReleaseWhatWasHeld) {
  CThing first;
  CThing second;
  ComPtr<IThing> holder(&first);

  // T** form: the callee overwrites without releasing, as COM callees do.
  IThing** slot = holder.PutAddress();
  EXPECT_EQ(first.refs, 0u);
  EXPECT_EQ(*slot, nullptr);
  *slot = &second;
  second.AddRef();
  EXPECT_EQ(holder.Get(), &second);

  // void** form through QueryInterface.
  ComPtr<IThing> queried(&first);
  ASSERT_EQ(second.QueryInterface(IID_IThing, queried.PutVoid()), S_OK);
  EXPECT_EQ(first.refs, 0u);
  EXPECT_EQ(queried.Get(), &second);
  EXPECT_EQ(second.refs, 2u);
}

}  // namespace
