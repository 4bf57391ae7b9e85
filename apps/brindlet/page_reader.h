// Reads a page's dialog back from the window layer the way a person reads
// it: each control with the label beside it or the group box around it.
#pragma once

#include <string>
#include <vector>

#include "platform/window/window_model.h"

struct PageControl {
  PlatformWindowState state;
  std::string kind;   // "static", "check", "listbox", "combo", "edit", "listview", "link", "bitmap"...
  std::string label;  // the text beside it, or its own for a check box
  std::string group;  // the group box it lies in
};

struct PageView {
  std::string clsid;
  std::string title;
  int width = 0;  // dialog units, from the template
  int height = 0;
  std::vector<PageControl> controls;  // template order, labels and group boxes left out
};

PageView ReadPage(HWND dialog, const std::string& clsid, const std::string& title);
