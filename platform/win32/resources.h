// A module's resources as the stand-in keeps them: the resource compiler
// (platform/tools/rc_compile) turns a module's resource script into a table
// that the module exports under the name PlatformResources, and the
// platform's resource calls find it there.
#pragma once

#include "platform/com/objbase.h"

struct PlatformStringResource {
  UINT id;
  const char* text;  // UTF-8, the ANSI code page here
};

// One control of a dialog template, as the script's control statement gave
// it: the window class ("Static", "Button", "ListBox", "ComboBox", "Edit",
// "SysListView32"), the text (for an SS_BITMAP static, the bitmap's id in
// decimal), the id (0xFFFF for none), the full style and the position and
// size in dialog units.
struct PlatformDialogItem {
  const char* className;
  const char* text;
  WORD id;
  DWORD style;
  DWORD exStyle;
  short x;
  short y;
  short cx;
  short cy;
};

struct PlatformDialogResource {
  UINT id;
  DWORD style;
  DWORD exStyle;
  short x;
  short y;
  short cx;
  short cy;
  const char* caption;   // "" for none
  const char* fontName;  // "" without DS_SETFONT
  WORD fontSize;         // points
  const PlatformDialogItem* items;
  UINT itemCount;
};

// A BITMAP resource: the bytes of the .bmp file the script named, without
// its 14-byte file header, as the platform keeps a bitmap resource (a
// BITMAPINFOHEADER, the colour table, the pixels).
struct PlatformBitmapResource {
  UINT id;
  const BYTE* bits;
  UINT size;
};

struct PlatformModuleResources {
  const PlatformStringResource* strings;
  UINT stringCount;
  const PlatformDialogResource* dialogs;
  UINT dialogCount;
  const PlatformBitmapResource* bitmaps;
  UINT bitmapCount;
};

// The string `id` of the module (null: the program) copied into `buffer`,
// cut to `size` - 1 characters with a zero; returns the characters copied
// without the zero, 0 if the module has no such string.
int LoadStringA(HINSTANCE module, UINT id, LPSTR buffer, int size);

// The dialog template `name` (MAKEINTRESOURCEA(id); templates have numbers)
// of the module (null: the program); null if it has none.
const PlatformDialogResource* PlatformFindDialog(HINSTANCE module, LPCSTR name);

// The bitmap `id` of the module; null if it has none.
const PlatformBitmapResource* PlatformFindBitmap(HINSTANCE module, UINT id);
