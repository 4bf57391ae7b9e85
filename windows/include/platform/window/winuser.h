// Windows build: windows, dialogs and controls come from the platform.
#pragma once

#include <windows.h>
