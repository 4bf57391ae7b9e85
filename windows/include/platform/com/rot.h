// Windows build: the Running Object Table and item monikers come from the platform.
#pragma once

#include <objbase.h>
#include <objidl.h>
