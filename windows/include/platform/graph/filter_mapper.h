// Windows build: the filter mapper comes from the platform.
#pragma once

#include <strmif.h>
#include <uuids.h>
