#include "format/data_files.h"

#include "base/platform.h"

namespace tr {

std::string dataFilePath(int fileNum, const char* suffix) {
  return mediaPath(formatString("TR%05d%s", fileNum, suffix));
}

}  // namespace tr
