// Text between wide strings and the ANSI code page, and class ids in the
// registry's text form, through the platform's own conversion calls.
#pragma once

#include <string>
#include <string_view>

#include "platform/com/guid.h"
#include "platform/win32/win_types.h"

// What the code page cannot hold is replaced, never refused; text too long
// for the platform's int lengths gives an empty string.
std::string NarrowText(std::wstring_view text);
std::wstring WidenText(std::string_view text);

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" in upper case, as the registry
// writes class ids.
std::string GuidText(REFGUID guid);
