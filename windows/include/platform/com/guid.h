// Windows build: GUIDs and their text forms come from the platform.
#pragma once

#include <windows.h>
#include <objbase.h>
