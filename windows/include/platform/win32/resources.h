// Windows build: resources are read with the platform's own calls.
#pragma once

#include <windows.h>
