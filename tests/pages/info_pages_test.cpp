// Tests of the four pages that show what the filter found.
#include <gtest/gtest.h>
