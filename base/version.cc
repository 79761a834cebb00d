#include "base/version.h"

namespace tr {

// TRELLIS_VERSION is defined for this file alone by CMakeLists.txt, so a
// new version rebuilds one file.
const char kVersion[] = TRELLIS_VERSION;

}  // namespace tr
