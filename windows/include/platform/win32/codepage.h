// Windows build: code page conversions come from the platform.
#pragma once

#include <windows.h>
