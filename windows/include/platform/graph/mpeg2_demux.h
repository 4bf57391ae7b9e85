// Windows build: the demultiplexer's interfaces come from the platform.
#pragma once

#include <strmif.h>
#include <bdaiface.h>
