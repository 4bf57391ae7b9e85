#include "pages/h264_analyzer_page.h"
