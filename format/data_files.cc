#include "format/data_files.h"

#include "base/platform.h"

namespace tr {

std::string dataFileName(int fileNum, const char* suffix) {
  return formatString("TR%05d%s", fileNum, suffix);
}

std::string dataFilePath(int fileNum, const char* suffix) {
  return mediaPath(dataFileName(fileNum, suffix));
}

}  // namespace tr
