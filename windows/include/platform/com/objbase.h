// Windows build: the COM runtime comes from the platform.
#pragma once

#include <windows.h>
#include <objbase.h>
#include "platform/com/com_ptr.h"
