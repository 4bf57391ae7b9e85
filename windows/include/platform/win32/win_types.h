// Windows build: the platform's basic types, calling conventions and result codes.
#pragma once

#include <windows.h>
#include <strmif.h>
