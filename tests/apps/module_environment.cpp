// The commands reach the filter through the module, as the tool does; the
// test program does not sit beside it, so it names the module.
#include <cstdlib>

namespace {
const bool kModuleNamed = [] { return setenv("BRINDLET_MODULE", BRINDLET_MODULE_PATH, 0) == 0; }();
}  // namespace
