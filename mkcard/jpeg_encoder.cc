#include "mkcard/jpeg_encoder.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tr {
namespace {

// Coefficient k of a block in zig-zag order lies at natural position
// kZigZag[k].
constexpr uint8_t kZigZag[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// The customary luminance and chrominance tables for quality 50, in
// natural order.
constexpr uint8_t kLumaQuant[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr uint8_t kChromaQuant[64] = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
    24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// The customary Huffman tables: code counts per length 1..16, then the
// symbols in code order.
constexpr uint8_t kDcLumaBits[16] = {0, 1, 5, 1, 1, 1, 1, 1,
                                     1, 0, 0, 0, 0, 0, 0, 0};
constexpr uint8_t kDcChromaBits[16] = {0, 3, 1, 1, 1, 1, 1, 1,
                                       1, 1, 1, 0, 0, 0, 0, 0};
constexpr uint8_t kDcValues[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr uint8_t kAcLumaBits[16] = {0, 2, 1, 3, 3, 2, 4, 3,
                                     5, 5, 4, 4, 0, 0, 1, 0x7d};
constexpr uint8_t kAcLumaValues[162] = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06,
    0x13, 0x51, 0x61, 0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xa1, 0x08,
    0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72,
    0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25, 0x26, 0x27, 0x28,
    0x29, 0x2a, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45,
    0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59,
    0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75,
    0x76, 0x77, 0x78, 0x79, 0x7a, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89,
    0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3,
    0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6,
    0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9,
    0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2,
    0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4,
    0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};
constexpr uint8_t kAcChromaBits[16] = {0, 2, 1, 2, 4, 4, 3, 4,
                                       7, 5, 4, 4, 0, 1, 2, 0x77};
constexpr uint8_t kAcChromaValues[162] = {
    0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41,
    0x51, 0x07, 0x61, 0x71, 0x13, 0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91,
    0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1,
    0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18, 0x19, 0x1a, 0x26,
    0x27, 0x28, 0x29, 0x2a, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44,
    0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58,
    0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74,
    0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87,
    0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a,
    0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4,
    0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7,
    0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda,
    0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf2, 0xf3, 0xf4,
    0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

struct HuffmanTable {
  const uint8_t* bits;
  const uint8_t* values;
};

// Code and length of every symbol of one table.
struct HuffmanCodes {
  uint16_t code[256] = {};
  uint8_t length[256] = {};
};

HuffmanCodes buildCodes(const HuffmanTable& table) {
  HuffmanCodes codes;
  uint16_t code = 0;
  int k = 0;
  for (int length = 1; length <= 16; ++length) {
    for (int i = 0; i < table.bits[length - 1]; ++i) {
      const uint8_t symbol = table.values[k++];
      codes.code[symbol] = code++;
      codes.length[symbol] = static_cast<uint8_t>(length);
    }
    code = static_cast<uint16_t>(code << 1);
  }
  return codes;
}

int symbolCount(const uint8_t* bits) {
  int count = 0;
  for (int i = 0; i < 16; ++i) count += bits[i];
  return count;
}

// Entropy-coded bits, most significant first, with a zero byte stuffed after
// every 0xFF so that no marker appears inside the data.
class BitWriter {
 public:
  explicit BitWriter(std::string* out) : out_(out) {}
  void put(uint32_t bits, int count) {
    accumulator_ = (accumulator_ << count) | (bits & ((1u << count) - 1));
    pending_ += count;
    while (pending_ >= 8) {
      const uint8_t byte = static_cast<uint8_t>(accumulator_ >> (pending_ - 8));
      out_->push_back(static_cast<char>(byte));
      if (byte == 0xFF) out_->push_back('\0');
      pending_ -= 8;
    }
    accumulator_ &= (1u << pending_) - 1;
  }
  // Pads the last byte with 1-bits.
  void flush() {
    if (pending_ > 0) put((1u << (8 - pending_)) - 1, 8 - pending_);
  }

 private:
  std::string* out_;
  uint32_t accumulator_ = 0;
  int pending_ = 0;
};

void putByte(std::string* out, int value) {
  out->push_back(static_cast<char>(value & 0xFF));
}

void putWord(std::string* out, int value) {
  putByte(out, value >> 8);
  putByte(out, value);
}

void putMarker(std::string* out, int marker, int payloadLength) {
  putByte(out, 0xFF);
  putByte(out, marker);
  putWord(out, payloadLength + 2);
}

// The base table scaled to `quality` the customary way, in zig-zag order.
void scaleTable(const uint8_t* base, int quality, uint8_t* zigzag) {
  const int scale = quality < 50 ? 5000 / quality : 200 - 2 * quality;
  for (int k = 0; k < 64; ++k) {
    const int value = (base[kZigZag[k]] * scale + 50) / 100;
    zigzag[k] = static_cast<uint8_t>(std::clamp(value, 1, 255));
  }
}

void writeHuffmanTable(std::string* out, int classAndId,
                       const HuffmanTable& table) {
  putByte(out, classAndId);
  for (int i = 0; i < 16; ++i) putByte(out, table.bits[i]);
  const int count = symbolCount(table.bits);
  for (int i = 0; i < count; ++i) putByte(out, table.values[i]);
}

// Number of bits of |value|: the coefficient's size category.
int category(int value) {
  int magnitude = value < 0 ? -value : value;
  int bits = 0;
  while (magnitude != 0) {
    ++bits;
    magnitude >>= 1;
  }
  return bits;
}

// The category's extra bits: the value itself, or for a negative value its
// one's complement.
uint32_t extraBits(int value, int size) {
  return static_cast<uint32_t>(value < 0 ? value + (1 << size) - 1 : value);
}

struct Component {
  const uint8_t* quant;  // zig-zag order
  const HuffmanCodes* dc;
  const HuffmanCodes* ac;
  int previousDc = 0;
};

class BlockCoder {
 public:
  BlockCoder() {
    const double pi = std::acos(-1.0);
    for (int x = 0; x < 8; ++x) {
      for (int u = 0; u < 8; ++u) {
        const double alpha = u == 0 ? std::sqrt(0.125) : 0.5;
        cosine_[x][u] = alpha * std::cos((2 * x + 1) * u * pi / 16.0);
      }
    }
  }

  // Transforms, quantises and codes one 8x8 block of level-shifted samples.
  void code(const double* samples, Component* component, BitWriter* bits) {
    double rows[64];
    for (int y = 0; y < 8; ++y) {
      for (int u = 0; u < 8; ++u) {
        double sum = 0;
        for (int x = 0; x < 8; ++x) sum += samples[y * 8 + x] * cosine_[x][u];
        rows[y * 8 + u] = sum;
      }
    }
    int coefficients[64];
    for (int k = 0; k < 64; ++k) {
      const int v = kZigZag[k] / 8;
      const int u = kZigZag[k] % 8;
      double sum = 0;
      for (int y = 0; y < 8; ++y) sum += rows[y * 8 + u] * cosine_[y][v];
      // Baseline tables code AC sizes up to 10 bits and DC differences up
      // to 11; the clamp only matters at qualities this encoder never uses.
      const long q = std::lround(sum / component->quant[k]);
      coefficients[k] = static_cast<int>(std::clamp(q, -1023L, 1023L));
    }

    const int diff = coefficients[0] - component->previousDc;
    component->previousDc = coefficients[0];
    const int dcSize = category(diff);
    bits->put(component->dc->code[dcSize], component->dc->length[dcSize]);
    if (dcSize > 0) bits->put(extraBits(diff, dcSize), dcSize);

    int run = 0;
    for (int k = 1; k < 64; ++k) {
      if (coefficients[k] == 0) {
        ++run;
        continue;
      }
      for (; run > 15; run -= 16) {
        bits->put(component->ac->code[0xF0], component->ac->length[0xF0]);
      }
      const int size = category(coefficients[k]);
      const int symbol = (run << 4) | size;
      bits->put(component->ac->code[symbol], component->ac->length[symbol]);
      bits->put(extraBits(coefficients[k], size), size);
      run = 0;
    }
    if (run > 0)
      bits->put(component->ac->code[0x00], component->ac->length[0x00]);
  }

 private:
  double cosine_[8][8];
};

// Sample (x, y) of component c (0 Y, 1 Cb, 2 Cr), edges repeated past the
// image, level-shifted by 128.
double sampleAt(const RgbImage& image, int x, int y, int c) {
  x = std::min(x, image.width - 1);
  y = std::min(y, image.height - 1);
  const size_t at = (static_cast<size_t>(y) * image.width + x) * 3;
  const double r = image.pixels[at];
  const double g = image.pixels[at + 1];
  const double b = image.pixels[at + 2];
  switch (c) {
    case 0:
      return 0.299 * r + 0.587 * g + 0.114 * b - 128.0;
    case 1:
      return -0.168736 * r - 0.331264 * g + 0.5 * b;
    default:
      return 0.5 * r - 0.418688 * g - 0.081312 * b;
  }
}

void writeHeaders(std::string* out, const RgbImage& image,
                  const uint8_t* lumaQuant, const uint8_t* chromaQuant,
                  const std::string& comment, const HuffmanTable (&tables)[4]) {
  putByte(out, 0xFF);
  putByte(out, 0xD8);  // start of image
  putMarker(out, 0xE0, 14);
  out->append("JFIF", 5);
  putWord(out, 0x0101);  // version 1.01
  putByte(out, 0);       // no density unit: aspect ratio 1:1
  putWord(out, 1);
  putWord(out, 1);
  putWord(out, 0);  // no thumbnail
  const size_t commentLength = std::min<size_t>(comment.size(), 65000);
  if (commentLength > 0) {
    putMarker(out, 0xFE, static_cast<int>(commentLength));
    out->append(comment, 0, commentLength);
  }
  putMarker(out, 0xDB, 2 * 65);
  putByte(out, 0);
  out->append(reinterpret_cast<const char*>(lumaQuant), 64);
  putByte(out, 1);
  out->append(reinterpret_cast<const char*>(chromaQuant), 64);
  putMarker(out, 0xC0, 15);  // baseline frame
  putByte(out, 8);
  putWord(out, image.height);
  putWord(out, image.width);
  putByte(out, 3);
  for (int c = 0; c < 3; ++c) {
    putByte(out, c + 1);
    putByte(out, 0x11);            // no subsampling
    putByte(out, c == 0 ? 0 : 1);  // quantisation table
  }
  int huffmanLength = 0;
  for (const HuffmanTable& table : tables)
    huffmanLength += 17 + symbolCount(table.bits);
  putMarker(out, 0xC4, huffmanLength);
  const int classAndId[4] = {0x00, 0x10, 0x01, 0x11};
  for (int i = 0; i < 4; ++i) writeHuffmanTable(out, classAndId[i], tables[i]);
  putMarker(out, 0xDA, 10);  // one scan over all three components
  putByte(out, 3);
  for (int c = 0; c < 3; ++c) {
    putByte(out, c + 1);
    putByte(out, c == 0 ? 0x00 : 0x11);
  }
  putByte(out, 0);
  putByte(out, 63);
  putByte(out, 0);
}

}  // namespace

std::string encodeJpeg(const RgbImage& image, int quality,
                       const std::string& comment) {
  if (image.width <= 0 || image.height <= 0 || image.width > 65535 ||
      image.height > 65535 ||
      image.pixels.size() !=
          static_cast<size_t>(image.width) * image.height * 3) {
    return std::string();
  }
  quality = std::clamp(quality, 1, 95);
  uint8_t lumaQuant[64];
  uint8_t chromaQuant[64];
  scaleTable(kLumaQuant, quality, lumaQuant);
  scaleTable(kChromaQuant, quality, chromaQuant);
  const HuffmanTable tables[4] = {{kDcLumaBits, kDcValues},
                                  {kAcLumaBits, kAcLumaValues},
                                  {kDcChromaBits, kDcValues},
                                  {kAcChromaBits, kAcChromaValues}};
  const HuffmanCodes dcLuma = buildCodes(tables[0]);
  const HuffmanCodes acLuma = buildCodes(tables[1]);
  const HuffmanCodes dcChroma = buildCodes(tables[2]);
  const HuffmanCodes acChroma = buildCodes(tables[3]);

  std::string out;
  writeHeaders(&out, image, lumaQuant, chromaQuant, comment, tables);

  Component components[3] = {{lumaQuant, &dcLuma, &acLuma},
                             {chromaQuant, &dcChroma, &acChroma},
                             {chromaQuant, &dcChroma, &acChroma}};
  BlockCoder coder;
  BitWriter bits(&out);
  double samples[64];
  for (int by = 0; by < image.height; by += 8) {
    for (int bx = 0; bx < image.width; bx += 8) {
      for (int c = 0; c < 3; ++c) {
        for (int i = 0; i < 64; ++i) {
          samples[i] = sampleAt(image, bx + i % 8, by + i / 8, c);
        }
        coder.code(samples, &components[c], &bits);
      }
    }
  }
  bits.flush();
  putByte(&out, 0xFF);
  putByte(&out, 0xD9);  // end of image
  return out;
}

}  // namespace tr
