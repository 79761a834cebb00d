// The sample card's snapshots: small JPEG pictures of a simple scene, with
// the channel and the local capture time drawn in the corner as a camera
// does. Each picture differs from every other (the scene moves with the
// picture number), so a wrong offset or size in an extraction shows.
#ifndef TRELLIS_MKCARD_SAMPLE_PICTURES_H_
#define TRELLIS_MKCARD_SAMPLE_PICTURES_H_

#include <cstdint>
#include <string>

namespace tr {

constexpr int kSamplePictureWidth = 256;
constexpr int kSamplePictureHeight = 144;

// Picture `number` of `channel`, captured at `localTime` (seconds since the
// epoch, already shifted to the camera's zone). Returns the JPEG file.
std::string sampleJpeg(uint32_t channel, uint32_t number, int64_t localTime);

}  // namespace tr

#endif  // TRELLIS_MKCARD_SAMPLE_PICTURES_H_
