// Windows build: the file calls come from the platform.
#pragma once

#include <windows.h>
