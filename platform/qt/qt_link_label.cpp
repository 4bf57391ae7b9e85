// A subclassed static shown by replaying its own painting; see qt_controls.h.
#include <QHelpEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QFontMetrics>
#include <QPainter>
#include <QToolTip>

#include "platform/qt/qt_controls.h"

namespace {

constexpr UINT kHandCursor = 32649;  // IDC_HAND

bool SameOps(const std::vector<PlatformPaintOp>& a, const std::vector<PlatformPaintOp>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const PlatformPaintOp& x, const PlatformPaintOp& y) {
    return x.kind == y.kind && x.text == y.text && x.rect.left == y.rect.left && x.rect.top == y.rect.top &&
           x.rect.right == y.rect.right && x.rect.bottom == y.rect.bottom && x.format == y.format &&
           x.colour == y.colour && x.font.lfUnderline == y.font.lfUnderline && x.font.lfWeight == y.font.lfWeight &&
           x.font.lfItalic == y.font.lfItalic;
  });
}

QRect ToQRect(const RECT& rect) {
  return {static_cast<int>(rect.left), static_cast<int>(rect.top), static_cast<int>(rect.right - rect.left),
          static_cast<int>(rect.bottom - rect.top)};
}

int TextFlags(UINT format) {
  int flags = (format & DT_CENTER) != 0 ? Qt::AlignHCenter : (format & DT_RIGHT) != 0 ? Qt::AlignRight : Qt::AlignLeft;
  if ((format & DT_SINGLELINE) != 0) {
    flags |= Qt::TextSingleLine | ((format & DT_VCENTER) != 0 ? Qt::AlignVCenter : Qt::AlignTop);
  } else {
    flags |= Qt::AlignTop;
  }
  // Without DT_NOPREFIX an ampersand marks the next character, as in Qt.
  if ((format & DT_NOPREFIX) == 0) flags |= Qt::TextShowMnemonic;
  return flags;
}

}  // namespace

CQtLinkLabel::CQtLinkLabel(HWND window, std::function<void()> acted, QWidget* parent)
    : QWidget(parent), m_Window(window), m_Acted(std::move(acted)) {
  setMouseTracking(true);
  // The label is a tab stop; clicks focus it too, as the window asks.
  setFocusPolicy(Qt::StrongFocus);
}

void CQtLinkLabel::Sync(const PlatformWindowState& state) {
  m_Tooltip = state.tooltip;
  m_TooltipRect = state.tooltipRect;
  std::vector<PlatformPaintOp> ops = PlatformPaintWindow(m_Window);
  if (!SameOps(ops, m_Ops)) {
    m_Ops = std::move(ops);
    update();
  }
}

int CQtLinkLabel::InkRight() const {
  int right = 0;
  for (const PlatformPaintOp& op : m_Ops) {
    if (op.kind != PlatformPaintOp::kText) continue;
    const QFontMetrics metrics(QtFontOf(op.font));
    const QString text = QString::fromUtf8(op.text.c_str());
    // The laid-out box, and the glyphs' own ink, which may overhang it.
    const QRect box = metrics.boundingRect(ToQRect(op.rect), TextFlags(op.format), text);
    right = std::max({right, box.right(), box.left() + metrics.tightBoundingRect(text).right()});
  }
  return right;
}

bool CQtLinkLabel::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip) {
    const auto* help = static_cast<QHelpEvent*>(event);
    const QRect tool = ToQRect(m_TooltipRect);
    if (!m_Tooltip.empty() && tool.contains(help->pos())) {
      QToolTip::showText(help->globalPos(), QString::fromUtf8(m_Tooltip.c_str()), this, tool);
    } else {
      QToolTip::hideText();
      event->ignore();
    }
    return true;
  }
  return QWidget::event(event);
}

void CQtLinkLabel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  for (const PlatformPaintOp& op : m_Ops) {
    const QRect rect = ToQRect(op.rect);
    if (op.kind == PlatformPaintOp::kFocusRect) {
      painter.setPen(QPen(palette().color(QPalette::WindowText), 1, Qt::DotLine));
      painter.setBrush(Qt::NoBrush);
      painter.drawRect(rect.adjusted(0, 0, -1, -1));
      continue;
    }
    // COLORREF keeps red in the low byte.
    painter.setPen(QColor(static_cast<int>(op.colour & 0xFF), static_cast<int>((op.colour >> 8) & 0xFF),
                          static_cast<int>((op.colour >> 16) & 0xFF)));
    painter.setFont(QtFontOf(op.font));
    painter.drawText(rect, TextFlags(op.format), QString::fromUtf8(op.text.c_str()));
  }
}

void CQtLinkLabel::Mouse(UINT message, const QPoint& at) {
  PlatformMouse(m_Window, message, at.x(), at.y());
  if (message == WM_MOUSEMOVE) {
    if (PlatformCurrentCursorId() == kHandCursor) {
      setCursor(Qt::PointingHandCursor);
    } else {
      unsetCursor();
    }
  }
  if (m_Acted) m_Acted();
}

void CQtLinkLabel::mouseMoveEvent(QMouseEvent* event) { Mouse(WM_MOUSEMOVE, event->position().toPoint()); }

void CQtLinkLabel::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
  Mouse(WM_LBUTTONDOWN, event->position().toPoint());
}

void CQtLinkLabel::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return QWidget::mouseReleaseEvent(event);
  Mouse(WM_LBUTTONUP, event->position().toPoint());
}

void CQtLinkLabel::keyPressEvent(QKeyEvent* event) {
  WPARAM key = 0;
  switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter: key = VK_RETURN; break;
    case Qt::Key_Space: key = VK_SPACE; break;
    default: return QWidget::keyPressEvent(event);
  }
  PlatformKey(m_Window, key);
  if (m_Acted) m_Acted();
}

void CQtLinkLabel::focusInEvent(QFocusEvent* event) {
  // The window draws its focus rectangle while it has the model's focus.
  SetFocus(m_Window);
  QWidget::focusInEvent(event);
  if (m_Acted) m_Acted();
}

void CQtLinkLabel::focusOutEvent(QFocusEvent* event) {
  if (GetFocus() == m_Window) SetFocus(nullptr);
  QWidget::focusOutEvent(event);
  if (m_Acted) m_Acted();
}
