// brindlet-props end to end: the filter's sheet on real widgets over a
// loaded (and playing) filter, driven as a user drives it, with its effects
// read back from the filter, the registry and the tool.
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <cstdlib>
#include <functional>
#include <sstream>

#include "apps/props/props_session.h"
#include "control/brindlet_ids.h"
#include "control/settings_store.h"
#include "platform/com/guid.h"
#include "platform/qt/qt_window_host.h"
#include "platform/win32/registry.h"
#include "platform/window/window_model.h"
#include "tests/support/process.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_writer.h"

namespace {

constexpr int kProgramInfo = 0;
constexpr int kAudioList = 1015;
constexpr int kExtensionEdit = 1012;
constexpr int kFastSeeking = 1025;
constexpr int kPtsLabel = 1022;
constexpr int kHelpLink = 1026;

std::string Sample() { return BRINDLET_SOURCE_DIR "/samples/mpeg2-mp2-ac3.ts"; }

// Lets the sheet's timer and the pages' timers run for `ms`, or until
// `done` holds.
bool RunFor(int ms, CQtPropertySheet& sheet, const std::function<bool()>& done = [] { return false; }) {
  QElapsedTimer clock;
  clock.start();
  while (clock.elapsed() < ms) {
    sheet.Refresh();
    QCoreApplication::processEvents();
    if (done()) return true;
    QThread::msleep(20);
  }
  return done();
}

class PropsTest : public testing::Test {
 protected:
  // Opens the sheet over the session's filter, runs `body` on it, and
  // closes it; gives what OleCreatePropertyFrame returned.
  HRESULT WithSheet(CPropsSession& session, const std::function<void(CQtPropertySheet&)>& body) {
    bool shown = false;
    m_Host.SetSheetShown([&](CQtPropertySheet& sheet) {
      shown = true;
      body(sheet);
      sheet.reject();
    });
    std::ostringstream err;
    const HRESULT hr = session.ShowPages(err);
    EXPECT_TRUE(shown) << err.str();
    return hr;
  }

  static std::string Tool(const std::string& arguments) {
    return tsw::Shell(std::string("'") + BRINDLET_CLI + "' " + arguments + " 2>&1").out;
  }

  static void ClickRow(QListWidget* list, int row) {
    ASSERT_NE(list->item(row), nullptr);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(row)).center());
  }

  tsw::ScopedRegistry m_Registry;
  CQtWindowHost m_Host;
};

TEST_F(PropsTest, TabsFollowTheStream) {
  tsw::TempDir dir;
  const std::string h264 = dir.File("h264.ts").string();
  const bool haveFfmpeg = tsw::OnPath("ffmpeg") &&
                          tsw::Shell("ffmpeg -v error -y -threads 2 -f lavfi -i testsrc2=size=640x360:rate=25 -t 1 "
                                     "-c:v libx264 -preset fast -bf 2 -x264-params aud=1 -pix_fmt yuv420p -f mpegts '" +
                                     h264 + "' 2>&1")
                                  .status == 0;
  const struct {
    std::string file;
    std::vector<std::string> tabs;
  } kCases[] = {
      {Sample(), {"Program Info", "PID Info", "Programs", "About"}},
      {"", {"Program Info", "PID Info", "Programs", "About"}},
      {h264, {"Program Info", "H.264", "PID Info", "Programs", "About"}},
  };
  for (const auto& c : kCases) {
    if (c.file == h264 && !haveFfmpeg) continue;
    SCOPED_TRACE(c.file.empty() ? "no file" : c.file);
    std::ostringstream err;
    CPropsSession session(c.file, err);
    ASSERT_TRUE(session.Ok()) << err.str();
    std::vector<std::string> tabs;
    ASSERT_EQ(WithSheet(session,
                        [&](CQtPropertySheet& sheet) {
                          EXPECT_EQ(sheet.windowTitle().toStdString(), "Caldrovia Brindlet Properties");
                          for (int i = 0; i < sheet.Tabs()->count(); ++i) {
                            tabs.push_back(sheet.Tabs()->tabText(i).toStdString());
                          }
                        }),
              S_OK);
    EXPECT_EQ(tabs, c.tabs);
  }
  if (!haveFfmpeg) GTEST_SKIP() << "the H.264 case needs ffmpeg with libx264";
}

TEST_F(PropsTest, CheckBoxMakesThePageDirtyAndApplyStoresIt) {
  std::ostringstream err;
  CPropsSession session(Sample(), err);
  ASSERT_TRUE(session.Ok()) << err.str();
  DWORD before = 1;
  ReadSettingDword("FastSeeking", &before);
  WithSheet(session, [&](CQtPropertySheet& sheet) {
    auto* box = qobject_cast<QCheckBox*>(sheet.ControlWidget(kProgramInfo, kFastSeeking));
    ASSERT_NE(box, nullptr);
    EXPECT_FALSE(sheet.ApplyButton()->isEnabled());
    const bool shown = box->isChecked();
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(6, box->height() / 2));
    sheet.Refresh();
    EXPECT_NE(box->isChecked(), shown);
    EXPECT_TRUE(sheet.ApplyButton()->isEnabled());
    QTest::mouseClick(sheet.ApplyButton(), Qt::LeftButton);
    sheet.Refresh();
    EXPECT_FALSE(sheet.ApplyButton()->isEnabled());
  });
  // The tool, as another process on the same registry, sees the new value.
  const std::string shown = Tool("settings get FastSeeking");
  EXPECT_NE(shown.find(before != 0 ? "0" : "1"), std::string::npos) << shown;
  DWORD after = before;
  ASSERT_TRUE(ReadSettingDword("FastSeeking", &after));
  EXPECT_EQ(after, before != 0 ? 0u : 1u);
}

TEST_F(PropsTest, TypedExtensionIsLowerCasedAndRegisteredOnApply) {
  std::ostringstream err;
  CPropsSession session(Sample(), err);
  ASSERT_TRUE(session.Ok()) << err.str();
  WithSheet(session, [&](CQtPropertySheet& sheet) {
    auto* edit = qobject_cast<QLineEdit*>(sheet.ControlWidget(kProgramInfo, kExtensionEdit));
    ASSERT_NE(edit, nullptr);
    edit->setFocus();
    edit->end(false);
    QTest::keyClicks(edit, ".M2TS;");
    sheet.Refresh();
    EXPECT_EQ(edit->text().toStdString(), ".ts;.tp;.m2ts;");
    EXPECT_TRUE(sheet.ApplyButton()->isEnabled());
    QTest::mouseClick(sheet.OkButton(), Qt::LeftButton);
  });
  EXPECT_EQ(ReadSettingString("Extensions").value_or(""), ".ts;.tp;.m2ts;");
  for (const char* extension : {".ts", ".m2ts"}) {
    SCOPED_TRACE(extension);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_CLASSES_ROOT, (std::string("Media Type\\Extensions\\") + extension).c_str(), 0,
                            KEY_QUERY_VALUE, &key),
              ERROR_SUCCESS);
    char text[64] = {};
    DWORD size = sizeof text;
    DWORD type = REG_NONE;
    EXPECT_EQ(RegQueryValueExA(key, "Source Filter", nullptr, &type, reinterpret_cast<BYTE*>(text), &size),
              ERROR_SUCCESS);
    RegCloseKey(key);
    EXPECT_EQ(std::string(text), GuidToString(CLSID_BrindletSource));
  }
}

TEST_F(PropsTest, PtsMovesWhilePlaying) {
  std::ostringstream err;
  CPropsSession session(Sample(), err);
  ASSERT_TRUE(session.Ok()) << err.str();
  ASSERT_TRUE(session.Play(err)) << err.str();
  WithSheet(session, [&](CQtPropertySheet& sheet) {
    auto* pts = qobject_cast<QLabel*>(sheet.ControlWidget(kProgramInfo, kPtsLabel));
    ASSERT_NE(pts, nullptr);
    const QString first = pts->text();
    EXPECT_TRUE(RunFor(2500, sheet, [&] { return pts->text() != first; })) << first.toStdString();
    const QString second = pts->text();
    EXPECT_TRUE(RunFor(2500, sheet, [&] { return pts->text() != second; })) << second.toStdString();
  });
}

TEST_F(PropsTest, SameKindAudioTrackSwitchesAtOnce) {
  if (!tsw::OnPath("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
  // Two MPEG audio tracks in a file long enough for a switch (packet 30000
  // and on).
  tsw::TempDir dir;
  const std::string file = dir.File("two-mp2.ts").string();
  const tsw::CommandResult made = tsw::Shell(
      "ffmpeg -v error -y -threads 2 -f lavfi -i testsrc2=size=720x576:rate=25 -f lavfi -i sine=frequency=440 "
      "-f lavfi -i sine=frequency=880 -t 4 -map 0:v -map 1:a -map 2:a -c:v mpeg2video -b:v 15M -minrate 15M "
      "-maxrate 15M -bufsize 3M -c:a mp2 -b:a 192k -f mpegts '" + file + "' 2>&1");
  ASSERT_EQ(made.status, 0) << made.out;
  std::ostringstream err;
  CPropsSession session(file, err);
  ASSERT_TRUE(session.Ok()) << err.str();
  const std::string before = session.Query("AUDIOPID");
  ASSERT_TRUE(session.Play(err, 2.5, false)) << err.str();
  int boxes = 0;
  const MessageBoxHandler previous = SetMessageBoxHandler([&](const char*, const char*, UINT) {
    ++boxes;
    return IDNO;
  });
  WithSheet(session, [&](CQtPropertySheet& sheet) {
    auto* list = qobject_cast<QListWidget*>(sheet.ControlWidget(kProgramInfo, kAudioList));
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->count(), 2);
    const int other = list->currentRow() == 0 ? 1 : 0;
    QThread::msleep(300);  // the delivery passes packet 30000
    ClickRow(list, other);
    sheet.Refresh();
    EXPECT_EQ(list->currentRow(), other);
  });
  SetMessageBoxHandler(previous);
  EXPECT_EQ(boxes, 0);
  EXPECT_NE(session.Query("AUDIOPID"), before);
}

TEST_F(PropsTest, OtherKindOfAudioAsksAndYesChangesTheMode) {
  ASSERT_TRUE(WriteSettingDword("AC3", 0));
  std::ostringstream err;
  CPropsSession session(Sample(), err);
  ASSERT_TRUE(session.Ok()) << err.str();
  const std::string before = session.Query("AUDIOPID");
  // Past packet 30000, where the filter allows a change of track.
  ASSERT_TRUE(session.Play(err, 18, false)) << err.str();
  QString asked;
  QTimer answer;
  QObject::connect(&answer, &QTimer::timeout, [&] {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr || box->button(QMessageBox::Yes) == nullptr) return;
    asked = box->windowTitle() + "|" + box->text();
    box->button(QMessageBox::Yes)->click();
  });
  answer.start(20);
  WithSheet(session, [&](CQtPropertySheet& sheet) {
    auto* list = qobject_cast<QListWidget*>(sheet.ControlWidget(kProgramInfo, kAudioList));
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->count(), 2);
    QThread::msleep(300);
    ClickRow(list, list->currentRow() == 0 ? 1 : 0);
    sheet.Refresh();
  });
  answer.stop();
  EXPECT_TRUE(asked.startsWith("Media Type Change|The Brindlet filter is currently in MPEG audio mode"))
      << asked.toStdString();
  // The running graph plays on with its track; the next file gets the other
  // kind.
  EXPECT_EQ(session.Query("AUDIOPID"), before);
  DWORD ac3 = 0;
  ASSERT_TRUE(ReadSettingDword("AC3", &ac3));
  EXPECT_EQ(ac3, 1u);
}

TEST_F(PropsTest, HelpLinkOpensThePageTopic) {
  // The help file lies beside the module the class is registered to.
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyA(HKEY_CLASSES_ROOT,
                          ("CLSID\\" + GuidToString(CLSID_BrindletSource) + "\\InprocServer32").c_str(), &key),
            ERROR_SUCCESS);
  const std::string module = BRINDLET_MODULE_PATH;
  RegSetValueExA(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(module.c_str()),
                 static_cast<DWORD>(module.size() + 1));
  RegCloseKey(key);
  std::ostringstream err;
  CPropsSession session(Sample(), err);
  ASSERT_TRUE(session.Ok()) << err.str();
  CShellExecuteRecorder shell;
  WithSheet(session, [&](CQtPropertySheet& sheet) {
    QWidget* link = sheet.ControlWidget(kProgramInfo, kHelpLink);
    ASSERT_NE(link, nullptr);
    QTest::mouseClick(link, Qt::LeftButton, {}, QPoint(4, link->height() / 2));
    sheet.Refresh();
  });
  const auto calls = shell.Calls();
  ASSERT_EQ(calls.size(), 1u);
  const std::string folder = module.substr(0, module.rfind('/'));
  EXPECT_EQ(calls[0].file, "file://" + folder + "/Brindlet.chm/html/prop_page.htm");
}

TEST(PropsProgram, ScreenshotsAndErrors) {
  tsw::ScopedRegistry registry;
  tsw::TempDir dir;
  const std::string program = std::string("'") + BRINDLET_PROPS + "' ";
  const tsw::CommandResult shot = tsw::Shell(program + "'" + Sample() + "' --screenshot '" + dir.Path().string() +
                                             "' 2>&1");
  ASSERT_EQ(shot.status, 0) << shot.out;
  for (const char* name : {"1-Program-Info.png", "2-PID-Info.png", "3-Programs.png", "4-About.png"}) {
    QImage image((dir.Path() / name).string().c_str());
    EXPECT_FALSE(image.isNull()) << name;
    EXPECT_GT(image.width(), 300) << name;
  }
  const struct {
    std::string arguments;
    int status;
    const char* message;
  } kErrors[] = {
      {"/nonexistent/file.ts", 1, "cannot open /nonexistent/file.ts"},
      {"--play", 2, "--play needs a FILE"},
      {"--bogus", 2, "brindlet-props: "},
  };
  for (const auto& c : kErrors) {
    SCOPED_TRACE(c.arguments);
    const tsw::CommandResult run = tsw::Shell(program + c.arguments + " 2>&1");
    EXPECT_EQ(run.status, c.status);
    EXPECT_NE(run.out.find(c.message), std::string::npos) << run.out;
  }
}

}  // namespace

int main(int argc, char** argv) {
  setenv("BRINDLET_MODULE", BRINDLET_MODULE_PATH, 0);
  // Listing the tests at build time runs this too, without the tests' environment.
  setenv("QT_QPA_PLATFORM", "offscreen", 0);
  QApplication application(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
