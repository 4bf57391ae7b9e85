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

struct PlatformModuleResources {
  const PlatformStringResource* strings;
  UINT stringCount;
};

// The string `id` of the module (null: the program) copied into `buffer`,
// cut to `size` - 1 characters with a zero; returns the characters copied
// without the zero, 0 if the module has no such string.
int LoadStringA(HINSTANCE module, UINT id, LPSTR buffer, int size);
