// The widgets that stand for a page's controls; see qt_controls.h.
#include "platform/qt/qt_controls.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTreeWidget>
#include <algorithm>
#include <cstring>

#include "platform/qt/qt_window_host.h"
#include "platform/win32/resources.h"

namespace {

constexpr std::size_t kFileHeaderSize = 14;
constexpr std::uint32_t kCoreHeaderSize = 12;
constexpr std::uint32_t kInfoHeaderSize = 40;
constexpr std::uint32_t kBitFields = 3;
constexpr UINT kIndeterminate = 2;  // BST_INDETERMINATE
// The base unit width the pages' column widths in pixels were chosen for.
constexpr int kPageBaseX = 6;

std::uint32_t Read32(const BYTE* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

std::uint16_t Read16(const BYTE* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

void Append32(QByteArray& out, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.append(static_cast<char>((value >> shift) & 0xFF));
}

QString Utf8(const std::string& text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

QStringList Utf8List(const std::vector<std::string>& texts) {
  QStringList list;
  for (const std::string& text : texts) list.append(Utf8(text));
  return list;
}

bool SameColumns(const std::vector<PlatformListColumn>& a, const std::vector<PlatformListColumn>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return x.title == y.title && x.width == y.width && x.format == y.format;
  });
}

Qt::Alignment StaticAlignment(DWORD style) {
  switch (style & SS_TYPEMASK) {
    case SS_CENTER: return Qt::AlignHCenter | Qt::AlignTop;
    case SS_RIGHT: return Qt::AlignRight | Qt::AlignTop;
    default: return Qt::AlignLeft | Qt::AlignTop;
  }
}

bool IsLink(const PlatformWindowState& state) { return state.kind == PlatformControlKind::kStatic && state.subclassed; }

}  // namespace

QFont QtFontOf(const LOGFONTA& logFont) {
  QFont font = CQtWindowHost::DialogFont();
  font.setUnderline(logFont.lfUnderline != 0);
  font.setItalic(logFont.lfItalic != 0);
  font.setStrikeOut(logFont.lfStrikeOut != 0);
  if (logFont.lfWeight > 0) font.setWeight(static_cast<QFont::Weight>(std::clamp<LONG>(logFont.lfWeight, 100, 900)));
  return font;
}

QImage QtBitmapImage(const PlatformBitmapResource* bitmap) {
  if (bitmap == nullptr || bitmap->bits == nullptr || bitmap->size < kCoreHeaderSize) return {};
  const BYTE* bits = bitmap->bits;
  const std::uint32_t headerSize = Read32(bits);
  if (headerSize < kCoreHeaderSize || headerSize > bitmap->size) return {};
  // The file header we put back needs to know where the pixels start: after
  // the info header, the masks of a bit-field bitmap and the colour table.
  std::uint64_t tableBytes = 0;
  if (headerSize == kCoreHeaderSize) {
    const std::uint16_t bitCount = Read16(bits + 10);
    if (bitCount <= 8) tableBytes = 3ull << bitCount;
  } else {
    if (headerSize < kInfoHeaderSize) return {};
    const std::uint16_t bitCount = Read16(bits + 14);
    const std::uint32_t compression = Read32(bits + 16);
    const std::uint32_t used = Read32(bits + 32);
    if (used > 256) return {};
    const std::uint64_t entries = used != 0 ? used : (bitCount <= 8 ? 1ull << bitCount : 0);
    tableBytes = entries * 4;
    if (compression == kBitFields && headerSize == kInfoHeaderSize) tableBytes += 12;
    // Uncompressed rows are padded to 4 bytes; all of them must be there,
    // as the image reader would otherwise show what lies past the end.
    if (compression == 0 || compression == kBitFields) {
      const auto width = static_cast<std::int32_t>(Read32(bits + 4));
      const auto height = static_cast<std::int32_t>(Read32(bits + 8));
      if (width <= 0 || height == 0 || bitCount == 0 || bitCount > 32) return {};
      const std::uint64_t stride = (static_cast<std::uint64_t>(width) * bitCount + 31) / 32 * 4;
      const std::uint64_t rows = height < 0 ? 0ull - static_cast<std::uint64_t>(static_cast<std::int64_t>(height))
                                            : static_cast<std::uint64_t>(height);
      if (headerSize + tableBytes + stride * rows > bitmap->size) return {};
    }
  }
  const std::uint64_t pixelsAt = headerSize + tableBytes;
  if (pixelsAt > bitmap->size) return {};
  QByteArray file;
  file.reserve(static_cast<qsizetype>(kFileHeaderSize + bitmap->size));
  file.append("BM", 2);
  Append32(file, static_cast<std::uint32_t>(kFileHeaderSize + bitmap->size));
  Append32(file, 0);
  Append32(file, static_cast<std::uint32_t>(kFileHeaderSize + pixelsAt));
  file.append(reinterpret_cast<const char*>(bits), static_cast<qsizetype>(bitmap->size));
  return QImage::fromData(file, "BMP");
}

int QtColumnWidth(HWND listView, int width) {
  RECT unit{0, 0, 4, 8};
  if (!MapDialogRect(GetParent(listView), &unit) || unit.right <= 0) return width;
  return static_cast<int>((static_cast<long long>(width) * unit.right + kPageBaseX / 2) / kPageBaseX);
}

CQtControl::CQtControl(const PlatformWindowState& state, QWidget* page, std::function<void()> acted)
    : m_State(state), m_Acted(std::move(acted)) {
  Make(page);
  Apply(m_State, true);
}

void CQtControl::Make(QWidget* page) {
  const HWND window = m_State.window;
  const auto acted = [this] {
    if (m_Acted) m_Acted();
  };
  if (IsLink(m_State)) {
    m_Widget = new CQtLinkLabel(window, m_Acted, page);
    return;
  }
  switch (m_State.kind) {
    case PlatformControlKind::kGroupBox: {
      auto* box = new QGroupBox(page);
      // Drawn behind the controls it frames, which are its siblings.
      box->lower();
      box->setAttribute(Qt::WA_TransparentForMouseEvents);
      m_Widget = box;
      break;
    }
    case PlatformControlKind::kBitmap:
    case PlatformControlKind::kStatic: {
      auto* label = new QLabel(page);
      label->setTextFormat(Qt::PlainText);
      if ((m_State.style & SS_SUNKEN) != 0) {
        label->setFrameStyle(QFrame::Panel | QFrame::Sunken);
        label->setLineWidth(1);
      }
      if (m_State.kind == PlatformControlKind::kStatic) {
        label->setAlignment(StaticAlignment(m_State.style));
        // Left, centred and right statics wrap at word breaks; the others
        // keep to one line.
        const DWORD type = m_State.style & SS_TYPEMASK;
        label->setWordWrap(type == SS_LEFT || type == SS_CENTER || type == SS_RIGHT);
        if ((m_State.style & SS_SUNKEN) != 0) label->setIndent(2);
      }
      m_Widget = label;
      break;
    }
    case PlatformControlKind::kCheckBox: {
      auto* box = new QCheckBox(page);
      // The box shows the model's check state; the click only asks for it.
      QObject::connect(box, &QCheckBox::clicked, box, [window, acted] {
        PlatformClickButton(window);
        acted();
      });
      m_Widget = box;
      break;
    }
    case PlatformControlKind::kButton: {
      auto* button = new QPushButton(page);
      QObject::connect(button, &QPushButton::clicked, button, [window, acted] {
        PlatformClickButton(window);
        acted();
      });
      m_Widget = button;
      break;
    }
    case PlatformControlKind::kListBox: {
      auto* list = new QListWidget(page);
      list->setSelectionMode(QAbstractItemView::SingleSelection);
      QObject::connect(list, &QListWidget::currentRowChanged, list, [window, acted](int row) {
        if (row >= 0) PlatformSelectItem(window, row);
        acted();
      });
      m_Widget = list;
      break;
    }
    case PlatformControlKind::kComboBox: {
      auto* combo = new QComboBox(page);
      QObject::connect(combo, &QComboBox::activated, combo, [window, acted](int index) {
        PlatformSelectItem(window, index);
        acted();
      });
      m_Widget = combo;
      break;
    }
    case PlatformControlKind::kEdit: {
      auto* edit = new QLineEdit(page);
      // The model lower-cases an ES_LOWERCASE edit's text; the refresh that
      // follows shows its text.
      QObject::connect(edit, &QLineEdit::textEdited, edit, [window, acted](const QString& text) {
        PlatformTypeText(window, text.toUtf8().constData());
        acted();
      });
      m_Widget = edit;
      break;
    }
    case PlatformControlKind::kListView: {
      auto* view = new QTreeWidget(page);
      view->setRootIsDecorated(false);
      view->setItemsExpandable(false);
      view->setUniformRowHeights(true);
      view->setSelectionMode(QAbstractItemView::SingleSelection);
      view->header()->setStretchLastSection(false);
      QObject::connect(view, &QTreeWidget::itemSelectionChanged, view, [view, window, acted] {
        const QList<QTreeWidgetItem*> chosen = view->selectedItems();
        if (!chosen.isEmpty()) PlatformSelectItem(window, view->indexOfTopLevelItem(chosen.front()));
        acted();
      });
      m_Widget = view;
      break;
    }
    default:
      m_Widget = new QWidget(page);
      break;
  }
}

void CQtControl::Sync() {
  PlatformWindowState now;
  if (!PlatformGetWindowState(m_State.window, &now)) {
    // The window is gone: nothing of it is shown any more.
    m_Widget->hide();
    return;
  }
  Apply(now, false);
  m_State = std::move(now);
}

void CQtControl::Apply(const PlatformWindowState& now, bool first) {
  const PlatformWindowState& was = m_State;
  const QSignalBlocker blocker(m_Widget);

  if (auto* link = qobject_cast<CQtLinkLabel*>(m_Widget)) link->Sync(now);
  RECT rect{};
  if (GetWindowRect(now.window, &rect)) {
    QRect geometry(static_cast<int>(rect.left), static_cast<int>(rect.top), static_cast<int>(rect.right - rect.left),
                   static_cast<int>(rect.bottom - rect.top));
    if (now.kind == PlatformControlKind::kBitmap && now.bitmapWidth > 0 && now.bitmapHeight > 0) {
      // A bitmap static takes the size of its bitmap, and its frame around it.
      const int frame = (now.style & SS_SUNKEN) != 0 ? 2 : 0;
      geometry.setSize(QSize(now.bitmapWidth + frame, now.bitmapHeight + frame));
    }
    if (auto* link = qobject_cast<CQtLinkLabel*>(m_Widget)) {
      // Our font's ink may reach a pixel or two past a label sized for the
      // platform's font; the widget grows to the right rather than cut it.
      geometry.setWidth(std::max(geometry.width(), link->InkRight() + 1));
    }
    if (m_Widget->geometry() != geometry) m_Widget->setGeometry(geometry);
  }
  if (m_Widget->isEnabled() != now.enabled) m_Widget->setEnabled(now.enabled);
  if (first || was.visible != now.visible) m_Widget->setVisible(now.visible);

  if (qobject_cast<CQtLinkLabel*>(m_Widget) != nullptr) return;
  const bool textChanged = first || was.text != now.text;
  const bool itemsChanged = first || was.items != now.items;
  switch (now.kind) {
    case PlatformControlKind::kGroupBox:
      if (textChanged) static_cast<QGroupBox*>(m_Widget)->setTitle(Utf8(now.text));
      break;
    case PlatformControlKind::kStatic:
      if (textChanged) static_cast<QLabel*>(m_Widget)->setText(Utf8(now.text));
      break;
    case PlatformControlKind::kBitmap:
      if (first || was.bitmap != now.bitmap) {
        static_cast<QLabel*>(m_Widget)->setPixmap(QPixmap::fromImage(QtBitmapImage(now.bitmap)));
      }
      break;
    case PlatformControlKind::kCheckBox: {
      auto* box = static_cast<QCheckBox*>(m_Widget);
      if (textChanged) box->setText(Utf8(now.text));
      const Qt::CheckState want = now.check == BST_CHECKED         ? Qt::Checked
                                  : now.check == kIndeterminate ? Qt::PartiallyChecked
                                                                   : Qt::Unchecked;
      // Compared with the box itself: a click may have toggled it already.
      if (box->checkState() != want) {
        box->setTristate(want == Qt::PartiallyChecked);
        box->setCheckState(want);
      }
      break;
    }
    case PlatformControlKind::kButton:
      if (textChanged) static_cast<QPushButton*>(m_Widget)->setText(Utf8(now.text));
      break;
    case PlatformControlKind::kListBox: {
      auto* list = static_cast<QListWidget*>(m_Widget);
      if (itemsChanged) {
        list->clear();
        list->addItems(Utf8List(now.items));
      }
      if (list->currentRow() != now.selected || itemsChanged) {
        list->setCurrentRow(now.selected);
        if (now.selected < 0) list->clearSelection();
      }
      break;
    }
    case PlatformControlKind::kComboBox: {
      auto* combo = static_cast<QComboBox*>(m_Widget);
      if (itemsChanged) {
        combo->clear();
        combo->addItems(Utf8List(now.items));
      }
      if (combo->currentIndex() != now.selected) combo->setCurrentIndex(now.selected);
      break;
    }
    case PlatformControlKind::kEdit: {
      auto* edit = static_cast<QLineEdit*>(m_Widget);
      const int limit = now.textLimit > 0 ? now.textLimit : 30000;
      if (edit->maxLength() != limit) edit->setMaxLength(limit);
      const QString text = Utf8(now.text);
      if (edit->text() != text) {
        const int cursor = edit->cursorPosition();
        edit->setText(text);
        edit->setCursorPosition(std::min(cursor, static_cast<int>(text.size())));
      }
      break;
    }
    case PlatformControlKind::kListView: {
      auto* view = static_cast<QTreeWidget*>(m_Widget);
      const bool columnsChanged = first || !SameColumns(was.columns, now.columns);
      if (columnsChanged) {
        QStringList titles;
        for (const PlatformListColumn& column : now.columns) titles.append(Utf8(column.title));
        view->setColumnCount(static_cast<int>(titles.size()));
        view->setHeaderLabels(titles);
        for (std::size_t i = 0; i < now.columns.size(); ++i) {
          view->setColumnWidth(static_cast<int>(i), QtColumnWidth(now.window, now.columns[i].width));
        }
      }
      const bool rowsChanged = first || was.rows != now.rows;
      if (rowsChanged) {
        view->clear();
        QList<QTreeWidgetItem*> items;
        for (const auto& row : now.rows) items.append(new QTreeWidgetItem(Utf8List(row)));
        view->addTopLevelItems(items);
      }
      QTreeWidgetItem* want = now.selected >= 0 ? view->topLevelItem(now.selected) : nullptr;
      if (rowsChanged || view->currentItem() != want || (want != nullptr && !want->isSelected())) {
        view->clearSelection();
        if (want != nullptr) {
          view->setCurrentItem(want);
          want->setSelected(true);
        }
      }
      break;
    }
    default:
      break;
  }
}
