// Tests of the page shell: the base class, the hyperlink, help, GetPages and the About page.
#include <gtest/gtest.h>
