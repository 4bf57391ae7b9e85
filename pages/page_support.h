// What the pages share: asking the filter a text, the help file beside the
// module and its topics, and filling a list view's columns.
#pragma once

#include <string>

#include "control/ts_stream_info.h"
#include "platform/window/winuser.h"

// QueryText of `keyword`, narrowed by the ANSI code page into at most 254
// bytes; a failed or null answer is "".
std::string QueryPageText(ITsStreamInfo* info, const char* keyword);
// The same answer set as the text of control `id`.
void SetDlgItemQuery(HWND dialog, int id, ITsStreamInfo* info, const char* keyword);

// The help file: the registered path of the module with "chm" after its
// last point; "" when the module's key can't be read.
std::string FindHelpFile();
// Shows `topic` of `helpFile` through the help library; does nothing when
// the library can't be loaded, and doesn't try again after that.
void ShowHelpTopic(HWND dialog, const std::string& helpFile, const char* topic);

struct PageListColumn {
  const char* title;
  int width;
};
// Inserts the columns left aligned with their subitem numbers; false as
// soon as one fails.
bool InsertListColumns(HWND list, const PageListColumn* columns, int count);
// Inserts row `row` with `text` in column 0; the index or -1.
int InsertListRow(HWND list, int row, const char* text);
void SetListCell(HWND list, int row, int column, const char* text);
