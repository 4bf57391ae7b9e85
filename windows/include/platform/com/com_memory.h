// Windows build: task memory comes from the platform.
#pragma once

#include <objbase.h>
