#include "pages/programs_page.h"
