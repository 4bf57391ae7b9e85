#include "host/property_page.h"
