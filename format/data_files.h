// The data files on the card's file system that the index files point into:
// one record data file "TR<fileNum>.mp4" and one picture data file
// "TR<fileNum>.picture" per data file number, in the media directory.
#ifndef TRELLIS_FORMAT_DATA_FILES_H_
#define TRELLIS_FORMAT_DATA_FILES_H_

#include <string>

namespace tr {

constexpr const char kRecordDataSuffix[] = ".mp4";
constexpr const char kPictureDataSuffix[] = ".picture";

// "TR" + fileNum as five digits + `suffix`, and the same in the media
// directory.
std::string dataFileName(int fileNum, const char* suffix);
std::string dataFilePath(int fileNum, const char* suffix);

}  // namespace tr

#endif  // TRELLIS_FORMAT_DATA_FILES_H_
