// Windows build: ShellExecuteA comes from the platform.
#pragma once

#include <windows.h>
#include <shellapi.h>
