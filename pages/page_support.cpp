#include "pages/page_support.h"
