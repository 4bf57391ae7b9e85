#include "platform/win32/messages.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform/win32/files.h"

namespace {

TEST(MessageBox, DefaultHandlerPrintsOneLineAndTakesTheSafeAnswer) {
  const MessageBoxHandler saved = SetMessageBoxHandler(nullptr);
  const struct {
    UINT type;
    int answer;
  } cases[] = {
      {MB_OK, IDOK},
      {MB_OKCANCEL | MB_ICONWARNING, IDOK},
      {MB_YESNO | MB_ICONQUESTION, IDNO},
      {MB_YESNOCANCEL, IDNO},
      {0x05, IDCANCEL},  // retry/cancel
  };
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(MessageBoxA(nullptr, "Something happened", "Brindlet", c.type), c.answer);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Brindlet: Something happened\n");
  }
  SetMessageBoxHandler(saved);
}

class WindowTest : public testing::Test {
 protected:
  void SetUp() override { window_ = CreatePlatformWindow(); }
  void TearDown() override {
    if (IsWindow(window_)) DestroyPlatformWindow(window_);
  }
  HWND window_ = nullptr;
};

TEST_F(WindowTest, MessagesArriveInOrderWithTheirParameters) {
  for (UINT i = 0; i < 5; ++i) {
    ASSERT_TRUE(PostMessageA(window_, WM_APP + i, i * 10, -static_cast<LPARAM>(i)));
  }
  MSG msg{};
  for (UINT i = 0; i < 5; ++i) {
    ASSERT_TRUE(PeekPlatformMessage(window_, &msg));
    EXPECT_EQ(msg.hwnd, window_);
    EXPECT_EQ(msg.message, WM_APP + i);
    EXPECT_EQ(msg.wParam, i * 10);
    EXPECT_EQ(msg.lParam, -static_cast<LPARAM>(i));
  }
  EXPECT_FALSE(PeekPlatformMessage(window_, &msg));
}

TEST_F(WindowTest, PostingToUnknownOrDestroyedWindowsFails) {
  const HWND destroyed = CreatePlatformWindow();
  ASSERT_TRUE(PostMessageA(destroyed, WM_USER, 0, 0));
  ASSERT_TRUE(DestroyPlatformWindow(destroyed));

  for (HWND target : {HWND{nullptr}, reinterpret_cast<HWND>(std::uintptr_t{0x1234}), destroyed}) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(PostMessageA(target, WM_USER, 1, 2));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    MSG msg{};
    EXPECT_FALSE(PeekPlatformMessage(target, &msg));
    EXPECT_FALSE(WaitPlatformMessage(target, &msg, 0));
    EXPECT_FALSE(IsWindow(target));
  }
  // A new window never takes over a destroyed one's handle.
  const HWND fresh = CreatePlatformWindow();
  EXPECT_NE(fresh, destroyed);
  DestroyPlatformWindow(fresh);
}

// A wait ends at its timeout, at a post from another thread, or when
// another thread destroys the window.
TEST_F(WindowTest, WaitEndsAtTimeoutPostOrDestroy) {
  MSG msg{};
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(WaitPlatformMessage(window_, &msg, 30));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));

  std::thread poster([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    PostMessageA(window_, WM_APP + 7, 1, 2);
  });
  EXPECT_TRUE(WaitPlatformMessage(window_, &msg, INFINITE));
  poster.join();
  EXPECT_EQ(msg.message, WM_APP + 7u);
  EXPECT_EQ(msg.wParam, 1u);
  EXPECT_EQ(msg.lParam, 2);

  std::thread destroyer([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    DestroyPlatformWindow(window_);
  });
  EXPECT_FALSE(WaitPlatformMessage(window_, &msg, INFINITE));
  destroyer.join();
  EXPECT_FALSE(IsWindow(window_));
}

}  // namespace
