#include "host/hyperlink.h"
