#include "pages/about_page.h"
