#include "pages/pid_info_page.h"
