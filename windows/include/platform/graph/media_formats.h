// Windows build: the media format blocks come from the platform.
#pragma once

#include <windows.h>
#include <mmreg.h>
#include <strmif.h>
#include <amvideo.h>
#include <dvdmedia.h>
