#include "platform/com/objbase.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <string>

#include "platform/graph/control.h"
#include "platform/win32/files.h"
#include "platform/win32/registry.h"
#include "platform/graph/stream_sinks.h"
#include "platform/graph/strmif.h"
#include "tests/platform/test_module.h"
#include "tests/support/scoped_registry.h"

namespace {

constexpr CLSID kUnknownClass =
    MakeGuid(0x9E2C7D41, 0x1B0A, 0x4C55, 0x8F, 0x2E, 0x33, 0x71, 0x0D, 0x6A, 0x5B, 0x90);

std::string RealPath(const std::string& path) {
  std::error_code error;
  return std::filesystem::canonical(path, error).string();
}

TEST(CoCreateInstance, RefusalsLeaveNoObject) {
  const struct {
    CLSID clsid;
    IUnknown* outer;
    DWORD context;
    IID iid;
    HRESULT expected;
  } cases[] = {
      {kUnknownClass, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, REGDB_E_CLASSNOTREG},
      {CLSID_FilterGraph, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, REGDB_E_CLASSNOTREG},
      {CLSID_NullRenderer, nullptr, CLSCTX_ALL, IID_IFileSinkFilter, E_NOINTERFACE},
      {CLSID_SystemClock, reinterpret_cast<IUnknown*>(0x10), CLSCTX_INPROC_SERVER, IID_IUnknown,
       CLASS_E_NOAGGREGATION},
  };
  for (const auto& c : cases) {
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(CoCreateInstance(c.clsid, c.outer, c.context, c.iid, &object), c.expected);
    EXPECT_EQ(object, nullptr);
  }
}

// The module is loaded once per process, so the tests below share it and
// check DllMain's count as it must stand whatever ran before.
class TestModule : public testing::Test {
 protected:
  static std::string ModulePath() { return BRINDLET_TEST_MODULE; }

  static ComPtr<ITestModuleObject> Create(REFCLSID clsid, HRESULT* result = nullptr) {
    ComPtr<ITestModuleObject> object;
    const HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_ITestModuleObject,
                                        object.PutVoid());
    if (result != nullptr) *result = hr;
    return object;
  }
};

TEST_F(TestModule, LoadsThroughProcessRegistration) {
  ASSERT_EQ(PlatformRegisterInprocServer(CLSID_TestModuleObject, ModulePath().c_str()), S_OK);
  const ComPtr<ITestModuleObject> first = Create(CLSID_TestModuleObject);
  const ComPtr<ITestModuleObject> second = Create(CLSID_TestModuleObject);
  ASSERT_TRUE(first);
  ASSERT_TRUE(second);
  EXPECT_EQ(first->AttachCount(), 1);

  char path[PATH_MAX];
  const DWORD length = first->ModulePath(path, sizeof path);
  ASSERT_GT(length, 0u);
  EXPECT_EQ(RealPath(std::string(path, length)), RealPath(ModulePath()));

  // The module answers for its own classes only.
  HRESULT hr = S_OK;
  ASSERT_EQ(PlatformRegisterInprocServer(kUnknownClass, ModulePath().c_str()), S_OK);
  EXPECT_FALSE(Create(kUnknownClass, &hr));
  EXPECT_EQ(hr, CLASS_E_CLASSNOTAVAILABLE);
  ASSERT_EQ(PlatformRegisterInprocServer(kUnknownClass, nullptr), S_OK);
  EXPECT_FALSE(Create(kUnknownClass, &hr));
  EXPECT_EQ(hr, REGDB_E_CLASSNOTREG);
}

class RegistryDir : public TestModule {
 protected:
  static void RegisterServer(REFCLSID clsid, const std::string& path) {
    HKEY key = nullptr;
    const std::string subKey = "CLSID\\" + GuidToString(clsid) + "\\InprocServer32";
    ASSERT_EQ(RegCreateKeyExA(HKEY_CLASSES_ROOT, subKey.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr,
                              &key, nullptr),
              ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExA(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                             static_cast<DWORD>(path.size() + 1)),
              ERROR_SUCCESS);
    RegCloseKey(key);
  }
  tsw::ScopedRegistry m_Registry;
};

TEST_F(RegistryDir, LoadsThroughInprocServer32UnderAnotherPathOnce) {
  HRESULT hr = S_OK;
  EXPECT_FALSE(Create(CLSID_TestModuleRegistered, &hr));
  EXPECT_EQ(hr, REGDB_E_CLASSNOTREG);

  // Another spelling of the same file is still the one module.
  const std::filesystem::path module(ModulePath());
  const std::string detour =
      (module.parent_path() / ".." / module.parent_path().filename() / module.filename()).string();
  RegisterServer(CLSID_TestModuleRegistered, detour);
  const ComPtr<ITestModuleObject> object = Create(CLSID_TestModuleRegistered, &hr);
  ASSERT_TRUE(object) << std::hex << hr;
  EXPECT_EQ(object->AttachCount(), 1);
}

TEST_F(RegistryDir, ModulesThatCannotServeSayWhy) {
  const std::string missing = (m_Registry.Path() / "absent.so").string();
  RegisterServer(kUnknownClass, missing);
  HRESULT hr = S_OK;
  EXPECT_FALSE(Create(kUnknownClass, &hr));
  EXPECT_EQ(hr, HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
  EXPECT_NE(PlatformLastLoadError().find("absent.so"), std::string::npos);

  // The platform library loads but serves nothing.
  RegisterServer(kUnknownClass, BRINDLET_PLATFORM_LIBRARY);
  EXPECT_FALSE(Create(kUnknownClass, &hr));
  EXPECT_EQ(hr, HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
  EXPECT_NE(PlatformLastLoadError().find("DllGetClassObject"), std::string::npos);
}

}  // namespace
