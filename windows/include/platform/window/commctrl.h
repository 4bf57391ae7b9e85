// Windows build: the common controls come from the platform.
#pragma once

#include <windows.h>
#include <commctrl.h>
