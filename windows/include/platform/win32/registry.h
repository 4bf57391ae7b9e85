// Windows build: the registry calls come from the platform.
#pragma once

#include <windows.h>
#include <winreg.h>
