#include "pages/program_info_page.h"
