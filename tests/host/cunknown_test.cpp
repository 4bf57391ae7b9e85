#include "host/cunknown.h"

#include <gtest/gtest.h>

#include "host/media_sample.h"

namespace {

constexpr IID IID_ITestFace = MakeGuid(0x1D1D1D1D, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11);

struct ITestFace : public IUnknown {
  STDMETHOD_(int, Value)() PURE;

 protected:
  ~ITestFace() = default;
};

class CInner : public CUnknown, public ITestFace {
 public:
  explicit CInner(IUnknown* outer) : CUnknown("inner", outer) {}
  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
    if (riid == IID_ITestFace) return GetInterface(static_cast<ITestFace*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }
  STDMETHODIMP_(int) Value() override { return 42; }
};

// An outer object that aggregates CInner and exposes its face as its own.
class COuter : public CUnknown {
 public:
  COuter() : CUnknown("outer", nullptr) {
    auto* inner = new CInner(GetOwner());
    m_Inner = inner->NonDelegatingUnknown();
    m_Inner->AddRef();
  }
  ~COuter() override { m_Inner->Release(); }
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
    if (riid == IID_ITestFace) return m_Inner->QueryInterface(riid, ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }

 private:
  IUnknown* m_Inner;
};

TEST(CUnknown, StandaloneCountsFromZeroAndDeletesAtLastRelease) {
  const long before = ActiveObjectCount();
  auto* object = new CInner(nullptr);
  IUnknown* unknown = object->NonDelegatingUnknown();
  EXPECT_EQ(unknown->AddRef(), 1u);
  ITestFace* face = nullptr;
  ASSERT_EQ(unknown->QueryInterface(IID_ITestFace, reinterpret_cast<void**>(&face)), S_OK);
  EXPECT_EQ(face->Value(), 42);
  // The face's IUnknown is the object's own when not aggregated.
  IUnknown* viaFace = nullptr;
  ASSERT_EQ(face->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&viaFace)), S_OK);
  EXPECT_EQ(viaFace, unknown);
  viaFace->Release();
  face->Release();
  void* none = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(unknown->QueryInterface(IID_IMediaSample, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(ActiveObjectCount(), before + 1);
  EXPECT_EQ(unknown->Release(), 0u);
  EXPECT_EQ(ActiveObjectCount(), before);
}

TEST(CUnknown, AggregatedFaceDelegatesIdentityAndCountToTheOuter) {
  const long before = ActiveObjectCount();
  auto* outer = new COuter();
  IUnknown* outerUnknown = outer->NonDelegatingUnknown();
  outerUnknown->AddRef();
  ITestFace* face = nullptr;
  ASSERT_EQ(outerUnknown->QueryInterface(IID_ITestFace, reinterpret_cast<void**>(&face)), S_OK);
  IUnknown* identity = nullptr;
  ASSERT_EQ(face->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)), S_OK);
  EXPECT_EQ(identity, outerUnknown) << "the inner object answers with the outer identity";
  identity->Release();
  EXPECT_EQ(face->AddRef(), 3u) << "the count is the outer's";
  face->Release();
  face->Release();
  EXPECT_EQ(ActiveObjectCount(), before + 2);
  EXPECT_EQ(outerUnknown->Release(), 0u);
  EXPECT_EQ(ActiveObjectCount(), before);
}

TEST(CMediaSample, TimesFlagsAndLengthBounds) {
  auto* sample = new CMediaSample(188);
  sample->AddRef();
  REFERENCE_TIME start = 0, stop = 0;
  EXPECT_EQ(sample->GetTime(&start, &stop), VFW_E_SAMPLE_TIME_NOT_SET);
  REFERENCE_TIME a = 10, b = 20;
  sample->SetTime(&a, &b);
  ASSERT_EQ(sample->GetTime(&start, &stop), S_OK);
  EXPECT_EQ(start, 10);
  EXPECT_EQ(stop, 20);
  EXPECT_EQ(sample->SetActualDataLength(189), VFW_E_BUFFER_OVERFLOW);
  EXPECT_EQ(sample->SetActualDataLength(-1), VFW_E_BUFFER_OVERFLOW);
  EXPECT_EQ(sample->SetActualDataLength(100), S_OK);
  sample->SetDiscontinuity(TRUE);
  EXPECT_EQ(sample->IsDiscontinuity(), S_OK);
  sample->ResetProperties();
  EXPECT_EQ(sample->IsDiscontinuity(), S_FALSE);
  EXPECT_EQ(sample->GetActualDataLength(), 188);
  EXPECT_EQ(sample->Release(), 0u);
}

}  // namespace
