// The version of the programs, as the build names it (the project's
// version in CMakeLists.txt); `--version` prints it.
#ifndef TRELLIS_BASE_VERSION_H_
#define TRELLIS_BASE_VERSION_H_

namespace tr {

extern const char kVersion[];

}  // namespace tr

#endif  // TRELLIS_BASE_VERSION_H_
