// Windows build: the root interface from the platform, with our interface holder.
#pragma once

#include <unknwn.h>
#include "platform/com/com_ptr.h"
