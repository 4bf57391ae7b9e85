// Windows build: message boxes and posted messages come from the platform.
#pragma once

#include <windows.h>
