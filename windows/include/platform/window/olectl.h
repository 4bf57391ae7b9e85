// Windows build: property frames and registration results come from the platform.
#pragma once

#include <windows.h>
#include <olectl.h>
