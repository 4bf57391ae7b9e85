// The property sheet as a Qt dialog; see qt_window_host.h.
#include <QApplication>
#include <QDialogButtonBox>
#include <QGroupBox>
#include <QPushButton>
#include <QTabWidget>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>
#include <memory>
#include <vector>

#include "platform/qt/qt_controls.h"
#include "platform/qt/qt_window_host.h"

namespace {
constexpr int kRefreshMs = 50;
}  // namespace

struct CQtPropertySheet::Impl {
  struct Page {
    QWidget* widget = nullptr;  // owned by the tabs
    HWND window = nullptr;      // null until the page is shown
    std::vector<std::unique_ptr<CQtControl>> controls;
  };

  CPlatformPropertySheet& sheet;
  QTabWidget* tabs = nullptr;
  QDialogButtonBox* buttons = nullptr;
  QTimer* timer = nullptr;
  std::vector<Page> pages;
  bool closing = false;    // set while the dialog is taken down
  bool refreshing = false; // a refresh is running: a nested one has nothing to add

  explicit Impl(CPlatformPropertySheet& s) : sheet(s) {}
};

CQtPropertySheet::CQtPropertySheet(CPlatformPropertySheet& sheet, const QString& caption, QWidget* parent)
    : QDialog(parent), m_Impl(new Impl(sheet)) {
  setWindowTitle(caption);
  setFont(CQtWindowHost::DialogFont());
  auto* layout = new QVBoxLayout(this);
  layout->setSizeConstraint(QLayout::SetFixedSize);
  m_Impl->tabs = new QTabWidget(this);
  layout->addWidget(m_Impl->tabs);

  // Every tab as large as the largest page, as the frame sizes itself.
  QSize largest;
  for (ULONG i = 0; i < sheet.PageCount(); ++i) {
    const SIZE size = sheet.PageSize(i);
    largest = largest.expandedTo(QSize(static_cast<int>(size.cx), static_cast<int>(size.cy)));
  }
  for (ULONG i = 0; i < sheet.PageCount(); ++i) {
    Impl::Page page;
    page.widget = new QWidget;
    page.widget->setFixedSize(largest);
    m_Impl->tabs->addTab(page.widget, QString::fromUtf8(sheet.PageTitle(i).c_str()));
    m_Impl->pages.push_back(std::move(page));
  }

  m_Impl->buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel | QDialogButtonBox::Apply, this);
  layout->addWidget(m_Impl->buttons);
  connect(OkButton(), &QPushButton::clicked, this, [this] {
    m_Impl->sheet.Apply();
    accept();
  });
  connect(CancelButton(), &QPushButton::clicked, this, &QDialog::reject);
  connect(ApplyButton(), &QPushButton::clicked, this, [this] {
    m_Impl->sheet.Apply();
    Refresh();
  });
  ApplyButton()->setEnabled(sheet.ApplyEnabled());
  sheet.SetStatusListener([this] {
    // Pages report from the thread that runs them, which is ours; anything
    // else waits for the next refresh.
    if (QThread::currentThread() == thread() && !m_Impl->closing) ApplyButton()->setEnabled(m_Impl->sheet.ApplyEnabled());
  });

  connect(m_Impl->tabs, &QTabWidget::currentChanged, this, [this](int index) { ShowTab(index); });
  if (!m_Impl->pages.empty()) ShowTab(0);

  m_Impl->timer = new QTimer(this);
  m_Impl->timer->setInterval(kRefreshMs);
  connect(m_Impl->timer, &QTimer::timeout, this, &CQtPropertySheet::Refresh);
  m_Impl->timer->start();
}

CQtPropertySheet::~CQtPropertySheet() {
  m_Impl->closing = true;
  m_Impl->timer->stop();
  m_Impl->sheet.SetStatusListener({});
  // The widgets go before the controls that point at them.
  delete m_Impl->tabs;
  delete m_Impl;
}

int CQtPropertySheet::PageCount() const { return static_cast<int>(m_Impl->pages.size()); }

void CQtPropertySheet::ShowTab(int index) {
  if (index < 0 || index >= PageCount() || m_Impl->closing) return;
  if (m_Impl->tabs->currentIndex() != index) {
    m_Impl->tabs->setCurrentIndex(index);  // comes back here through currentChanged
    return;
  }
  Impl::Page& page = m_Impl->pages[static_cast<std::size_t>(index)];
  HWND window = m_Impl->sheet.ShowPage(static_cast<ULONG>(index));
  if (window == nullptr || page.window == window) {
    Refresh();
    return;
  }
  page.window = window;
  page.controls.clear();
  const auto acted = [this] { Refresh(); };
  for (HWND child : PlatformChildWindows(window)) {
    PlatformWindowState state;
    if (!PlatformGetWindowState(child, &state)) continue;
    // A tooltip is a popup of its own that the link shows; dialogs inside
    // pages are not in our templates.
    if (state.kind == PlatformControlKind::kTooltip || state.kind == PlatformControlKind::kDialog) continue;
    page.controls.push_back(std::make_unique<CQtControl>(state, page.widget, acted));
  }
  // Group boxes lie behind everything else.
  for (const auto& control : page.controls) {
    if (qobject_cast<QGroupBox*>(control->Widget()) != nullptr) control->Widget()->lower();
  }
  Refresh();
}

QTabWidget* CQtPropertySheet::Tabs() const { return m_Impl->tabs; }

QWidget* CQtPropertySheet::PageWidget(int index) const {
  if (index < 0 || index >= PageCount()) return nullptr;
  return m_Impl->pages[static_cast<std::size_t>(index)].widget;
}

HWND CQtPropertySheet::PageWindow(int index) const {
  if (index < 0 || index >= PageCount()) return nullptr;
  return m_Impl->pages[static_cast<std::size_t>(index)].window;
}

QWidget* CQtPropertySheet::ControlWidget(int index, int id) const {
  if (index < 0 || index >= PageCount()) return nullptr;
  for (const auto& control : m_Impl->pages[static_cast<std::size_t>(index)].controls) {
    if (control->Id() == id) return control->Widget();
  }
  return nullptr;
}

QPushButton* CQtPropertySheet::OkButton() const { return m_Impl->buttons->button(QDialogButtonBox::Ok); }
QPushButton* CQtPropertySheet::CancelButton() const { return m_Impl->buttons->button(QDialogButtonBox::Cancel); }
QPushButton* CQtPropertySheet::ApplyButton() const { return m_Impl->buttons->button(QDialogButtonBox::Apply); }

void CQtPropertySheet::Refresh() {
  if (m_Impl->closing || m_Impl->refreshing) return;
  m_Impl->refreshing = true;
  // The pages' timers and posted messages run here, on the thread that
  // made their windows.
  PlatformPumpMessages(0);
  for (Impl::Page& page : m_Impl->pages) {
    for (const auto& control : page.controls) control->Sync();
  }
  ApplyButton()->setEnabled(m_Impl->sheet.ApplyEnabled());
  m_Impl->refreshing = false;
}
