// The widgets that stand for a page's controls in the Qt sheet: one per
// window of the model, kept in step with it, passing the user's actions back
// as the model's own actions.
#pragma once

#include <QImage>
#include <QWidget>
#include <functional>
#include <vector>

#include "platform/window/window_model.h"

// The dialog font with what a LOGFONTA adds to it: underline, weight, italic.
// Drawing and measuring both use it, so that what the model measured is what
// the widgets show.
QFont QtFontOf(const LOGFONTA& font);

// A bitmap resource (header, colour table, pixels, without the file header)
// as an image; a null image when the bytes do not hold a bitmap.
QImage QtBitmapImage(const PlatformBitmapResource* bitmap);

// A list view column's width in pixels for `width` as the page gave it: pages
// choose widths for the platform's usual dialog font, so a wider dialog font
// widens the columns by the same ratio as the dialog units.
int QtColumnWidth(HWND listView, int width);

// A subclassed static that draws itself: shows what its window procedure
// painted, and gives it the mouse and the keys it asks for.
class CQtLinkLabel : public QWidget {
  Q_OBJECT

 public:
  CQtLinkLabel(HWND window, std::function<void()> acted, QWidget* parent);
  HWND Window() const { return m_Window; }
  // Paints the window in the model again; repaints the widget if the
  // drawing changed.
  void Sync(const PlatformWindowState& state);
  const std::vector<PlatformPaintOp>& PaintOps() const { return m_Ops; }
  // The rightmost pixel the painted text's ink reaches.
  int InkRight() const;

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;

 private:
  void Mouse(UINT message, const QPoint& at);

  HWND m_Window;
  std::function<void()> m_Acted;
  std::vector<PlatformPaintOp> m_Ops;
  std::string m_Tooltip;
  RECT m_TooltipRect{};
};

// One control of a page and the widget that shows it.
class CQtControl {
 public:
  // Makes the widget as a child of `page`; `acted` runs after each user
  // action has reached the model.
  CQtControl(const PlatformWindowState& state, QWidget* page, std::function<void()> acted);
  HWND Window() const { return m_State.window; }
  int Id() const { return m_State.id; }
  QWidget* Widget() const { return m_Widget; }
  // Reads the model again and updates what changed.
  void Sync();

 private:
  void Make(QWidget* page);
  void Apply(const PlatformWindowState& state, bool first);

  PlatformWindowState m_State;  // as last shown
  QWidget* m_Widget = nullptr;  // owned by the page widget
  std::function<void()> m_Acted;
};
