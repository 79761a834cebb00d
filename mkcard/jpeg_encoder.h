// A small baseline JPEG encoder for the sample card's pictures: 8-bit RGB in,
// a JFIF file with three 1x1-sampled components (no chroma subsampling), the
// standard quantisation tables scaled to a quality, and the standard Huffman
// tables. Enough to store snapshots any decoder and image viewer opens,
// without a library the recorder's build would have to carry.
#ifndef TRELLIS_MKCARD_JPEG_ENCODER_H_
#define TRELLIS_MKCARD_JPEG_ENCODER_H_

#include <cstdint>
#include <string>
#include <vector>

namespace tr {

struct RgbImage {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> pixels;  // width * height * 3 bytes, rows top down
};

// The JPEG file for `image`, or an empty string when the image is empty or
// its pixel count does not match. `quality` is 1..100 (clamped); `comment`,
// when not empty, is stored in a COM segment.
std::string encodeJpeg(const RgbImage& image, int quality,
                       const std::string& comment);

}  // namespace tr

#endif  // TRELLIS_MKCARD_JPEG_ENCODER_H_
