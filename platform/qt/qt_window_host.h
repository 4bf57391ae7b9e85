// The window layer on real widgets: a Qt 6 host that shows the property
// sheet of OleCreatePropertyFrame as a dialog with a tab per page and OK,
// Cancel and Apply, each page's controls as widgets placed by their dialog
// units, and MessageBoxA as a QMessageBox. The window layer's model stays
// the one truth: the widgets show it, and the user's actions reach the pages
// as their messages.
#pragma once

#include <QDialog>
#include <QFont>
#include <functional>

#include "platform/window/window_model.h"

class QPushButton;
class QTabWidget;
class QTimer;

class CQtPropertySheet : public QDialog {
  Q_OBJECT

 public:
  CQtPropertySheet(CPlatformPropertySheet& sheet, const QString& caption, QWidget* parent = nullptr);
  ~CQtPropertySheet() override;

  int PageCount() const;
  // As the user choosing the tab: the page is activated when first shown.
  void ShowTab(int index);
  QTabWidget* Tabs() const;
  // The tab's page; its controls are its child widgets.
  QWidget* PageWidget(int index) const;
  // The page's window in the model, null until the tab was first shown.
  HWND PageWindow(int index) const;
  // The widget of control `id` on page `index`, null if there is none.
  QWidget* ControlWidget(int index, int id) const;
  QPushButton* OkButton() const;
  QPushButton* CancelButton() const;
  QPushButton* ApplyButton() const;
  // Delivers the pages' due timers and posted messages and reads the model
  // back into the widgets; a timer does this every 50 ms while it is shown.
  void Refresh();

 private:
  struct Impl;
  Impl* m_Impl;
};

// While it lives, OleCreatePropertyFrame shows a CQtPropertySheet and runs
// it modally until the user closes it, and MessageBoxA asks with a
// QMessageBox. Dialog units and text measuring follow DialogFont(). A
// QApplication must exist; the host is used from its thread.
class CQtWindowHost {
 public:
  CQtWindowHost();
  ~CQtWindowHost();
  CQtWindowHost(const CQtWindowHost&) = delete;
  CQtWindowHost& operator=(const CQtWindowHost&) = delete;

  // Called once a sheet is shown, before the user gets it: tests and
  // screenshots drive the sheet here. When the callback closes the sheet
  // (accept, reject) OleCreatePropertyFrame returns; otherwise the user has it.
  void SetSheetShown(std::function<void(CQtPropertySheet&)> callback);

  // The font that stands for the templates' "MS Shell Dlg" 8.
  static QFont DialogFont();

 private:
  struct Impl;
  Impl* m_Impl;
};
