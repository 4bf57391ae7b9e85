// Windows build: drawing calls come from the platform.
#pragma once

#include <windows.h>
