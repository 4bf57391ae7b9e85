// The Qt host over the module's real pages: the sheet that
// OleCreatePropertyFrame shows, its widgets against the window model, the
// user's actions reaching the pages, message boxes, and the bitmap decoder.
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <cstdlib>

#include "platform/com/com_memory.h"
#include "platform/qt/qt_controls.h"
#include "platform/qt/qt_window_host.h"
#include "platform/win32/messages.h"
#include "platform/win32/resources.h"
#include "tests/pages/page_harness.h"

namespace {

constexpr int kProgramInfo = 0;
constexpr int kPidInfo = 1;
constexpr int kAbout = 3;
constexpr int kLink = 1026;

// Shows the filter's pages through OleCreatePropertyFrame with the Qt host;
// `drive` gets the sheet once it is shown and closes it (Cancel unless it
// says otherwise).
void WithSheet(IUnknown* filter, const std::function<void(CQtPropertySheet&)>& drive) {
  CQtWindowHost host;
  bool driven = false;
  host.SetSheetShown([&](CQtPropertySheet& sheet) {
    driven = true;
    drive(sheet);
    if (sheet.isVisible()) sheet.reject();
  });
  ComPtr<ISpecifyPropertyPages> specify;
  ASSERT_EQ(filter->QueryInterface(IID_ISpecifyPropertyPages, specify.PutVoid()), S_OK);
  CAUUID pages{};
  ASSERT_EQ(specify->GetPages(&pages), S_OK);
  EXPECT_EQ(OleCreatePropertyFrame(nullptr, 0, 0, L"Brindlet", 1, &filter, pages.cElems, pages.pElems, 0, 0, nullptr),
            S_OK);
  CoTaskMemFree(pages.pElems);
  EXPECT_TRUE(driven);
}

PlatformWindowState State(HWND window) {
  PlatformWindowState state;
  EXPECT_TRUE(PlatformGetWindowState(window, &state));
  return state;
}

QRect PixelRect(HWND control) {
  RECT rect{};
  EXPECT_TRUE(GetWindowRect(control, &rect));
  return {static_cast<int>(rect.left), static_cast<int>(rect.top), static_cast<int>(rect.right - rect.left),
          static_cast<int>(rect.bottom - rect.top)};
}

class QtHostTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(m_Filter.Load(pages::BundledSample()), S_OK); }
  pages::CModuleFilter m_Filter;
};

TEST_F(QtHostTest, TabsFollowThePagesAndTheirSizes) {
  WithSheet(m_Filter.Unknown(), [](CQtPropertySheet& sheet) {
    EXPECT_EQ(sheet.windowTitle(), "Brindlet");
    ASSERT_EQ(sheet.PageCount(), 4);
    const char* titles[] = {"Program Info", "PID Info", "Programs", "About"};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(sheet.Tabs()->tabText(i), titles[i]);
    // Only the first page is shown at once; the others come with their tab.
    EXPECT_NE(sheet.PageWindow(0), nullptr);
    EXPECT_EQ(sheet.PageWindow(2), nullptr);
    sheet.ShowTab(2);
    EXPECT_EQ(sheet.Tabs()->currentIndex(), 2);
    EXPECT_NE(sheet.PageWindow(2), nullptr);
    // Every page is as large as the largest template (230 dialog units high).
    RECT tallest{0, 0, 236, 230};
    MapDialogRect(sheet.PageWindow(0), &tallest);
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(sheet.PageWidget(i)->size(), QSize(static_cast<int>(tallest.right), static_cast<int>(tallest.bottom)));
    }
    EXPECT_FALSE(sheet.ApplyButton()->isEnabled());
  });
}

TEST_F(QtHostTest, EachKindOfControlIsItsWidgetWhereTheModelPutsIt) {
  const struct {
    int page;
    int id;
    const char* widgetClass;
  } cases[] = {
      {kProgramInfo, 1008, "QLabel"},        {kProgramInfo, 1007, "QListWidget"}, {kProgramInfo, 1011, "QCheckBox"},
      {kProgramInfo, 1013, "QCheckBox"},     {kProgramInfo, 1012, "QLineEdit"},   {kProgramInfo, 1023, "QComboBox"},
      {kProgramInfo, kLink, "CQtLinkLabel"}, {kPidInfo, 1021, "QTreeWidget"},     {kPidInfo, 1022, "QLabel"},
  };
  WithSheet(m_Filter.Unknown(), [&](CQtPropertySheet& sheet) {
    for (const auto& c : cases) {
      sheet.ShowTab(c.page);
      QWidget* widget = sheet.ControlWidget(c.page, c.id);
      ASSERT_NE(widget, nullptr) << c.id;
      HWND control = GetDlgItem(sheet.PageWindow(c.page), c.id);
      const PlatformWindowState state = State(control);
      EXPECT_TRUE(widget->inherits(c.widgetClass)) << c.id << " is a " << widget->metaObject()->className();
      EXPECT_EQ(widget->parentWidget(), sheet.PageWidget(c.page)) << c.id;
      const QRect model = PixelRect(control);
      if (c.id == kLink) {
        // The link may grow to the right to show all of its text.
        EXPECT_EQ(widget->geometry().topLeft(), model.topLeft());
        EXPECT_EQ(widget->height(), model.height());
        EXPECT_GE(widget->width(), model.width());
      } else {
        EXPECT_EQ(widget->geometry(), model) << c.id;
      }
      EXPECT_EQ(widget->isVisibleTo(sheet.PageWidget(c.page)), state.visible) << c.id;
      EXPECT_EQ(widget->isEnabled(), state.enabled) << c.id;
    }
    // Dialog units become pixels through the dialog font's base units.
    const QFontMetrics metrics(CQtWindowHost::DialogFont());
    const QRect version = sheet.ControlWidget(kProgramInfo, 1008)->geometry();
    EXPECT_EQ(version.top(), 17 * metrics.height() / 8);
    // Group boxes are drawn behind, and the hidden settings stay hidden.
    int groups = 0;
    for (auto* box : sheet.PageWidget(kProgramInfo)->findChildren<QGroupBox*>()) {
      ++groups;
      EXPECT_TRUE(box->findChildren<QWidget*>().isEmpty()) << "a group box holds no controls";
    }
    EXPECT_EQ(groups, 6);
  });
}

TEST_F(QtHostTest, ListsShowTheModelsItemsAndSelections) {
  WithSheet(m_Filter.Unknown(), [](CQtPropertySheet& sheet) {
    HWND page = sheet.PageWindow(kProgramInfo);
    auto* programs = qobject_cast<QListWidget*>(sheet.ControlWidget(kProgramInfo, 1007));
    auto* audio = qobject_cast<QListWidget*>(sheet.ControlWidget(kProgramInfo, 1015));
    ASSERT_TRUE(programs != nullptr && audio != nullptr);
    const PlatformWindowState audioState = State(GetDlgItem(page, 1015));
    ASSERT_EQ(audio->count(), static_cast<int>(audioState.items.size()));
    ASSERT_GE(audio->count(), 2) << "the sample has two audio tracks";
    EXPECT_EQ(audio->currentRow(), audioState.selected);
    // A user's choice goes to the model; the widget shows what it made of it.
    const int other = audioState.selected == 0 ? 1 : 0;
    audio->setCurrentRow(other);
    EXPECT_EQ(State(GetDlgItem(page, 1015)).selected, other);
    EXPECT_EQ(audio->currentRow(), other);
    EXPECT_GE(programs->count(), 1);

    sheet.ShowTab(kPidInfo);
    auto* table = qobject_cast<QTreeWidget*>(sheet.ControlWidget(kPidInfo, 1021));
    ASSERT_NE(table, nullptr);
    const PlatformWindowState pids = State(GetDlgItem(sheet.PageWindow(kPidInfo), 1021));
    ASSERT_EQ(table->columnCount(), static_cast<int>(pids.columns.size()));
    RECT unit{0, 0, 4, 8};
    MapDialogRect(sheet.PageWindow(kPidInfo), &unit);
    EXPECT_EQ(unit.right, std::lround(QFontMetrics(CQtWindowHost::DialogFont()).horizontalAdvance(
                              QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz")) / 52.0));
    for (int i = 0; i < table->columnCount(); ++i) {
      EXPECT_EQ(table->headerItem()->text(i).toStdString(), pids.columns[static_cast<std::size_t>(i)].title);
      // The pages' pixel widths are for 6-pixel base units; ours come from the font.
      EXPECT_EQ(table->columnWidth(i), (pids.columns[static_cast<std::size_t>(i)].width * unit.right + 3) / 6);
    }
    ASSERT_EQ(table->topLevelItemCount(), static_cast<int>(pids.rows.size()));
    EXPECT_EQ(table->topLevelItem(0)->text(0).toStdString(), pids.rows[0][0]);
    table->topLevelItem(1)->setSelected(true);
    EXPECT_EQ(State(GetDlgItem(sheet.PageWindow(kPidInfo), 1021)).selected, 1);
  });
}

TEST_F(QtHostTest, ApplyOkAndCancel) {
  for (const char* button : {"Apply", "Ok", "Cancel"}) {
    WithSheet(m_Filter.Unknown(), [&](CQtPropertySheet& sheet) {
      qobject_cast<QCheckBox*>(sheet.ControlWidget(kProgramInfo, 1025))->click();
      ASSERT_TRUE(sheet.ApplyButton()->isEnabled()) << button;
      const std::string which = button;
      if (which == "Apply") {
        sheet.ApplyButton()->click();
        EXPECT_FALSE(sheet.ApplyButton()->isEnabled()) << "the pages are clean again";
        EXPECT_TRUE(sheet.isVisible());
      } else if (which == "Ok") {
        sheet.OkButton()->click();
        EXPECT_EQ(sheet.result(), QDialog::Accepted);
        EXPECT_FALSE(sheet.isVisible());
      } else {
        sheet.CancelButton()->click();
        EXPECT_EQ(sheet.result(), QDialog::Rejected);
        EXPECT_FALSE(sheet.isVisible());
      }
    });
  }
}

TEST_F(QtHostTest, TheLinkPaintsUnderlinedInItsColourAndOpensOnAClick) {
  CShellExecuteRecorder shell;
  WithSheet(m_Filter.Unknown(), [](CQtPropertySheet& sheet) {
    sheet.ShowTab(kAbout);
    auto* link = qobject_cast<CQtLinkLabel*>(sheet.ControlWidget(kAbout, kLink));
    ASSERT_NE(link, nullptr);
    const auto& ops = link->PaintOps();
    ASSERT_FALSE(ops.empty());
    const PlatformWindowState state = State(link->Window());
    EXPECT_EQ(ops[0].kind, PlatformPaintOp::kText);
    EXPECT_EQ(ops[0].text, "https://caldrovia.example/");
    EXPECT_TRUE(ops[0].font.lfUnderline);
    EXPECT_EQ(ops[0].colour, RGB(0, 0, 255));
    // The painted widget carries the link's blue.
    const QImage image = link->grab().toImage();
    int blue = 0;
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) blue += image.pixelColor(x, y) == QColor(0, 0, 255) ? 1 : 0;
    }
    EXPECT_GT(blue, 10);
    // The text is measured in the dialog font and its ink fits the label.
    const QFontMetrics metrics(QtFontOf(ops[0].font));
    const QString text = QString::fromStdString(ops[0].text);
    RECT client{};
    GetClientRect(link->Window(), &client);
    EXPECT_EQ(state.tooltipRect.right - state.tooltipRect.left,
              std::min<LONG>(metrics.horizontalAdvance(text), client.right));
    EXPECT_LT(metrics.tightBoundingRect(text).right(), link->width());

    const QPoint inside((state.tooltipRect.left + state.tooltipRect.right) / 2,
                        (state.tooltipRect.top + state.tooltipRect.bottom) / 2);
    QTest::mouseMove(link, inside);
    EXPECT_EQ(PlatformCurrentCursorId(), 32649u);
    EXPECT_EQ(link->cursor().shape(), Qt::PointingHandCursor);
    QTest::mouseClick(link, Qt::LeftButton, Qt::NoModifier, inside);
    // The click focused the link, which now draws its focus rectangle.
    EXPECT_EQ(GetFocus(), link->Window());
    bool focusRect = false;
    for (const PlatformPaintOp& op : link->PaintOps()) focusRect = focusRect || op.kind == PlatformPaintOp::kFocusRect;
    EXPECT_TRUE(focusRect);
    QTest::keyClick(link, Qt::Key_Space);
  });
  const auto calls = shell.Calls();
  ASSERT_EQ(calls.size(), 2u) << "one for the click, one for the space key";
  EXPECT_EQ(calls[0].file, "https://caldrovia.example/projects/brindlet/?ver=1.0.10");
}

TEST_F(QtHostTest, MessageBoxesAskWithTheirButtons) {
  const struct {
    UINT type;
    QMessageBox::StandardButton press;
    int answer;
    QMessageBox::Icon icon;
    int buttons;
  } cases[] = {
      {MB_OK, QMessageBox::Ok, IDOK, QMessageBox::NoIcon, 1},
      {MB_OKCANCEL | MB_ICONWARNING, QMessageBox::Cancel, IDCANCEL, QMessageBox::Warning, 2},
      {MB_YESNO | MB_ICONQUESTION, QMessageBox::Yes, IDYES, QMessageBox::Question, 2},
      {MB_YESNOCANCEL | MB_ICONERROR, QMessageBox::No, IDNO, QMessageBox::Critical, 3},
      {MB_YESNOCANCEL | MB_ICONINFORMATION, QMessageBox::Cancel, IDCANCEL, QMessageBox::Information, 3},
  };
  CQtWindowHost host;
  for (const auto& c : cases) {
    QString caption, text;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    int buttons = 0;
    QTimer::singleShot(0, [&] {
      auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      ASSERT_NE(box, nullptr);
      caption = box->windowTitle();
      text = box->text();
      icon = box->icon();
      buttons = static_cast<int>(box->buttons().size());
      box->button(c.press)->click();
    });
    EXPECT_EQ(MessageBoxA(nullptr, "Register .ts files?", "Brindlet", c.type), c.answer) << c.type;
    EXPECT_EQ(caption, "Brindlet");
    EXPECT_EQ(text, "Register .ts files?");
    EXPECT_EQ(icon, c.icon) << c.type;
    EXPECT_EQ(buttons, c.buttons) << c.type;
  }
}

TEST(QtHost, RestoresTheHandlersItReplaced) {
  CMessageBoxRecorder recorder(IDYES);
  { CQtWindowHost host; }
  EXPECT_EQ(MessageBoxA(nullptr, "text", "caption", MB_YESNO), IDYES);
  EXPECT_EQ(recorder.Count(), 1u);
}

// ---- Bitmaps ----

// A 2 x 2 bitmap of 8 bits with a four-colour table, bottom-up, rows padded
// to 4 bytes.
std::vector<BYTE> TwoByTwo() {
  std::vector<BYTE> bytes(40, 0);
  auto put32 = [&](std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes[at + static_cast<std::size_t>(i)] = static_cast<BYTE>(v >> (8 * i));
  };
  put32(0, 40);
  put32(4, 2);
  put32(8, 2);
  bytes[12] = 1;
  bytes[14] = 8;
  put32(32, 4);
  const BYTE table[] = {0, 0, 0, 0, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0};  // black, red, green, blue
  bytes.insert(bytes.end(), std::begin(table), std::end(table));
  const BYTE pixels[] = {1, 2, 0, 0, 3, 0, 0, 0};  // bottom row: red green; top row: blue black
  bytes.insert(bytes.end(), std::begin(pixels), std::end(pixels));
  return bytes;
}

TEST(QtBitmap, DecodesBottomUpRowsThroughTheColourTable) {
  const std::vector<BYTE> bytes = TwoByTwo();
  const PlatformBitmapResource resource{1, bytes.data(), static_cast<UINT>(bytes.size())};
  const QImage image = QtBitmapImage(&resource);
  ASSERT_EQ(image.size(), QSize(2, 2));
  EXPECT_EQ(image.pixelColor(0, 0), QColor(0, 0, 255));
  EXPECT_EQ(image.pixelColor(1, 0), QColor(0, 0, 0));
  EXPECT_EQ(image.pixelColor(0, 1), QColor(255, 0, 0));
  EXPECT_EQ(image.pixelColor(1, 1), QColor(0, 255, 0));
}

TEST(QtBitmap, RefusesBytesThatHoldNoBitmap) {
  const std::vector<BYTE> good = TwoByTwo();
  const struct {
    const char* what;
    std::size_t size;
    std::size_t at;
    BYTE value;
  } cases[] = {
      {"no header", 11, 0, 40},
      {"header larger than the resource", good.size(), 0, 200},
      {"colour table past the end", 50, 0, 40},
      {"more than 256 colours", good.size(), 33, 1},
      {"pixels cut short", good.size() - 4, 0, 40},
  };
  for (const auto& c : cases) {
    std::vector<BYTE> bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(c.size));
    bytes[c.at] = c.value;
    const PlatformBitmapResource resource{1, bytes.data(), static_cast<UINT>(bytes.size())};
    EXPECT_TRUE(QtBitmapImage(&resource).isNull()) << c.what;
  }
  EXPECT_TRUE(QtBitmapImage(nullptr).isNull());
}

}  // namespace

int main(int argc, char** argv) {
  // Listing the tests at build time has no display either.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
