// Windows build: HtmlHelpA comes from the platform's help library.
#pragma once

#include <windows.h>
#include <htmlhelp.h>
