// The Qt host of the window layer; see qt_window_host.h.
#include "platform/qt/qt_window_host.h"

#include <QApplication>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QMessageBox>
#include <QThread>
#include <cmath>

#include "platform/qt/qt_controls.h"
#include "platform/win32/codepage.h"
#include "platform/win32/messages.h"

namespace {

// The platform's own base units, which the model falls back to.
constexpr int kDefaultBaseX = 6;
constexpr int kDefaultBaseY = 13;

QMessageBox::Icon IconOf(UINT type) {
  switch (type & 0xF0) {
    case MB_ICONERROR: return QMessageBox::Critical;
    case MB_ICONQUESTION: return QMessageBox::Question;
    case MB_ICONWARNING: return QMessageBox::Warning;
    case MB_ICONINFORMATION: return QMessageBox::Information;
    default: return QMessageBox::NoIcon;
  }
}

int AskWithMessageBox(const QString& text, const QString& caption, UINT type) {
  struct Choice {
    QMessageBox::StandardButton button;
    int answer;
  };
  std::vector<Choice> choices;
  switch (type & MB_TYPEMASK) {
    case MB_OKCANCEL: choices = {{QMessageBox::Ok, IDOK}, {QMessageBox::Cancel, IDCANCEL}}; break;
    case MB_YESNO: choices = {{QMessageBox::Yes, IDYES}, {QMessageBox::No, IDNO}}; break;
    case MB_YESNOCANCEL:
      choices = {{QMessageBox::Yes, IDYES}, {QMessageBox::No, IDNO}, {QMessageBox::Cancel, IDCANCEL}};
      break;
    default: choices = {{QMessageBox::Ok, IDOK}}; break;
  }
  QMessageBox box(IconOf(type), caption, text, QMessageBox::NoButton, QApplication::activeWindow());
  for (const Choice& choice : choices) box.addButton(choice.button);
  box.setDefaultButton(choices.front().button);
  // Escape (or closing the box) answers Cancel where there is one, else the
  // only button, as the platform's boxes do; Yes/No alone cannot be escaped.
  const bool cancellable = (type & MB_TYPEMASK) != MB_YESNO;
  if (cancellable) box.setEscapeButton(choices.back().button);
  box.exec();
  const auto clicked = box.standardButton(box.clickedButton());
  for (const Choice& choice : choices) {
    if (choice.button == clicked) return choice.answer;
  }
  return cancellable ? choices.back().answer : IDNO;
}

}  // namespace

struct CQtWindowHost::Impl {
  PropertyFrameHandler previousFrame;
  MessageBoxHandler previousMessageBox;
  std::function<void(CQtPropertySheet&)> shown;
};

CQtWindowHost::CQtWindowHost() : m_Impl(new Impl) {
  const QFontMetrics metrics(DialogFont());
  // Base units as the platform derives them from the dialog font: the mean
  // width of the 52 letters, and the height of a line.
  const QString letters = QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
  const int baseX = static_cast<int>(std::lround(metrics.horizontalAdvance(letters) / 52.0));
  PlatformSetDialogBaseUnits(baseX, metrics.height());
  PlatformSetTextMeasure([](const std::string& text, const LOGFONTA& font) {
    const QFontMetrics measured(QtFontOf(font));
    return SIZE{measured.horizontalAdvance(QString::fromUtf8(text.c_str())), measured.height()};
  });

  m_Impl->previousMessageBox = SetMessageBoxHandler([](const char* text, const char* caption, UINT type) {
    const QString qtext = QString::fromUtf8(text);
    const QString qcaption = QString::fromUtf8(caption);
    QCoreApplication* app = QCoreApplication::instance();
    if (app == nullptr) return IDCANCEL;
    if (QThread::currentThread() == app->thread()) return AskWithMessageBox(qtext, qcaption, type);
    // Widgets live on the application's thread: ask there and wait.
    int answer = IDCANCEL;
    QMetaObject::invokeMethod(
        app, [&] { answer = AskWithMessageBox(qtext, qcaption, type); }, Qt::BlockingQueuedConnection);
    return answer;
  });

  Impl* impl = m_Impl;
  m_Impl->previousFrame = SetPropertyFrameHandler([impl](CPlatformPropertySheet& sheet) {
    char caption[256] = {};
    GetWindowTextA(sheet.FrameWindow(), caption, sizeof caption);
    CQtPropertySheet dialog(sheet, QString::fromUtf8(caption));
    bool closed = false;
    QObject::connect(&dialog, &QDialog::finished, &dialog, [&closed] { closed = true; });
    dialog.show();
    if (impl->shown) impl->shown(dialog);
    if (!closed) dialog.exec();
  });
}

CQtWindowHost::~CQtWindowHost() {
  SetPropertyFrameHandler(m_Impl->previousFrame);
  SetMessageBoxHandler(m_Impl->previousMessageBox);
  PlatformSetTextMeasure({});
  PlatformSetDialogBaseUnits(kDefaultBaseX, kDefaultBaseY);
  delete m_Impl;
}

void CQtWindowHost::SetSheetShown(std::function<void(CQtPropertySheet&)> callback) {
  m_Impl->shown = std::move(callback);
}

QFont CQtWindowHost::DialogFont() {
  QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
  // A plain sans serif at 8 points, 7 x 13 base units at 96 dots per inch:
  // the templates' labels fit it (the condensed cut clips some), and list
  // columns grow with the base units (see qt_controls.cpp).
  font.setFamilies({QStringLiteral("DejaVu Sans"), font.family()});
  font.setStyleHint(QFont::SansSerif);
  font.setPointSize(8);
  return font;
}
