#include "mkcard/sample_video.h"

#include <cstring>

#include "base/platform.h"
#include "base/times.h"

namespace tr {
namespace {

constexpr int kMbColumns = kSampleVideoWidth / 16;
constexpr int kMacroblocks = kMbColumns * (kSampleVideoHeight / 16);
constexpr uint8_t kBlack = 16;  // the darkest and lightest video samples
constexpr uint8_t kWhite = 235;

// The bits of one NAL unit's payload, most significant bit first.
class Bits {
 public:
  void u(int count, uint32_t value) {
    for (int i = count - 1; i >= 0; --i) bit((value >> i) & 1);
  }
  // Exp-Golomb codes.
  void ue(uint32_t value) {
    const uint32_t code = value + 1;
    int length = 0;
    while ((code >> length) > 1) ++length;
    u(length, 0);
    u(length + 1, code);
  }
  void se(int32_t value) {
    ue(value > 0 ? 2 * static_cast<uint32_t>(value) - 1
                 : 2 * static_cast<uint32_t>(-value));
  }
  void align() {
    while (filled_ != 0) bit(0);
  }
  void byte(uint8_t value) { bytes_.push_back(static_cast<char>(value)); }
  void trailing() {
    bit(1);
    align();
  }
  const std::string& bytes() const { return bytes_; }

 private:
  void bit(uint32_t value) {
    current_ = static_cast<uint8_t>(current_ << 1 | value);
    if (++filled_ == 8) {
      bytes_.push_back(static_cast<char>(current_));
      current_ = 0;
      filled_ = 0;
    }
  }
  std::string bytes_;
  uint8_t current_ = 0;
  int filled_ = 0;
};

// A NAL unit: start code, header, payload with the emulation prevention
// byte wherever two zeros would be followed by a byte up to 3.
std::string nal(int type, int refIdc, const std::string& payload) {
  std::string unit = std::string("\0\0\0\1", 4);
  unit += static_cast<char>(refIdc << 5 | type);
  int zeros = 0;
  for (const char c : payload) {
    const uint8_t byte = static_cast<uint8_t>(c);
    if (zeros >= 2 && byte <= 3) {
      unit += '\3';
      zeros = 0;
    }
    unit += c;
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return unit;
}

// Baseline, level 3.0, frames only; timing at `fps`.
std::string sequenceParameters(int fps) {
  Bits b;
  b.u(8, 66);
  b.u(8, 0xC0);
  b.u(8, 30);
  b.ue(0);  // its id
  b.ue(0);  // frame numbers of 4 bits
  b.ue(2);  // picture order from the frame number
  b.ue(1);  // one reference frame
  b.u(1, 0);
  b.ue(kMbColumns - 1);
  b.ue(kSampleVideoHeight / 16 - 1);
  b.u(1, 1);  // frames only
  b.u(1, 1);
  b.u(1, 0);  // no cropping
  b.u(1, 1);  // VUI with timing information alone
  b.u(4, 0);
  b.u(1, 1);
  b.u(32, 1);
  b.u(32, 2 * static_cast<uint32_t>(fps));
  b.u(1, 1);
  b.u(4, 0);
  b.trailing();
  return nal(7, 3, b.bytes());
}

// CAVLC, one slice group, no weighted prediction, deblocking controlled in
// the slice header.
std::string pictureParameters() {
  Bits b;
  b.ue(0);
  b.ue(0);
  b.u(1, 0);
  b.u(1, 0);
  b.ue(0);
  b.ue(0);
  b.ue(0);
  b.u(1, 0);
  b.u(2, 0);
  b.se(0);
  b.se(0);
  b.se(0);
  b.u(1, 1);
  b.u(1, 0);
  b.u(1, 0);
  b.trailing();
  return nal(8, 3, b.bytes());
}

// Rows of an 8x8 glyph, the leftmost pixel in the top bit.
const uint8_t* glyph(char c) {
  static const uint8_t kDigits[10][8] = {
      {0x3C, 0x66, 0x6E, 0x76, 0x66, 0x66, 0x3C, 0},
      {0x18, 0x38, 0x18, 0x18, 0x18, 0x18, 0x7E, 0},
      {0x3C, 0x66, 0x06, 0x0C, 0x30, 0x60, 0x7E, 0},
      {0x3C, 0x66, 0x06, 0x1C, 0x06, 0x66, 0x3C, 0},
      {0x0C, 0x1C, 0x3C, 0x6C, 0x7E, 0x0C, 0x0C, 0},
      {0x7E, 0x60, 0x7C, 0x06, 0x06, 0x66, 0x3C, 0},
      {0x3C, 0x60, 0x7C, 0x66, 0x66, 0x66, 0x3C, 0},
      {0x7E, 0x06, 0x0C, 0x18, 0x30, 0x30, 0x30, 0},
      {0x3C, 0x66, 0x66, 0x3C, 0x66, 0x66, 0x3C, 0},
      {0x3C, 0x66, 0x66, 0x3E, 0x06, 0x0C, 0x38, 0}};
  static const uint8_t kDash[8] = {0, 0, 0, 0x7E, 0, 0, 0, 0};
  static const uint8_t kColon[8] = {0, 0x18, 0x18, 0, 0x18, 0x18, 0, 0};
  static const uint8_t kC[8] = {0x3C, 0x66, 0x60, 0x60, 0x60, 0x66, 0x3C, 0};
  static const uint8_t kH[8] = {0x66, 0x66, 0x66, 0x7E, 0x66, 0x66, 0x66, 0};
  static const uint8_t kBlank[8] = {};
  if (c >= '0' && c <= '9') return kDigits[c - '0'];
  return c == '-'   ? kDash
         : c == ':' ? kColon
         : c == 'C' ? kC
         : c == 'H' ? kH
                    : kBlank;
}

// The picture: three lines of text, each glyph 3 times its size, light on
// dark, centred.
std::string luma(int channel, int64_t clock) {
  constexpr int kScale = 3;
  std::string plane(kSampleVideoWidth * kSampleVideoHeight,
                    static_cast<char>(kBlack));
  const std::string iso = isoUtc(clock);  // the clock, zone already added
  const std::string lines[3] = {formatString("CH %d", channel),
                                iso.substr(0, 10), iso.substr(11, 8)};
  for (int line = 0; line < 3; ++line) {
    const int width = static_cast<int>(lines[line].size()) * 8 * kScale;
    const int left = (static_cast<int>(kSampleVideoWidth) - width) / 2;
    const int top = 36 + line * 40;
    for (size_t k = 0; k < lines[line].size(); ++k) {
      const uint8_t* rows = glyph(lines[line][k]);
      for (int y = 0; y < 8 * kScale; ++y) {
        for (int x = 0; x < 8 * kScale; ++x) {
          if ((rows[y / kScale] >> (7 - x / kScale) & 1) == 0) continue;
          const int px = left + static_cast<int>(k) * 8 * kScale + x;
          if (px < 0 || px >= static_cast<int>(kSampleVideoWidth)) continue;
          plane[(top + y) * kSampleVideoWidth + px] = static_cast<char>(kWhite);
        }
      }
    }
  }
  return plane;
}

// An IDR picture of I_PCM macroblocks: the luma plane raw, the chroma
// neutral.
std::string idrPicture(int idrId, const std::string& plane) {
  Bits b;
  b.ue(0);  // first macroblock
  b.ue(7);  // I slices only
  b.ue(0);
  b.u(4, 0);  // frame number
  b.ue(static_cast<uint32_t>(idrId));
  b.u(1, 0);
  b.u(1, 0);
  b.se(0);
  b.ue(1);  // no deblocking
  for (int mb = 0; mb < kMacroblocks; ++mb) {
    b.ue(25);  // I_PCM
    b.align();
    const int x0 = mb % kMbColumns * 16;
    const int y0 = mb / kMbColumns * 16;
    for (int i = 0; i < 256; ++i) {
      b.byte(static_cast<uint8_t>(
          plane[(y0 + i / 16) * kSampleVideoWidth + x0 + i % 16]));
    }
    for (int i = 0; i < 128; ++i) b.byte(128);
  }
  b.trailing();
  return nal(5, 3, b.bytes());
}

// A P picture whose macroblocks are all skipped: the picture before it.
std::string skippedPicture(int frameNum) {
  Bits b;
  b.ue(0);
  b.ue(5);  // P slices only
  b.ue(0);
  b.u(4, static_cast<uint32_t>(frameNum % 16));
  b.u(1, 0);
  b.u(1, 0);
  b.u(1, 0);
  b.se(0);
  b.ue(1);
  b.ue(kMacroblocks);  // skip them all
  b.trailing();
  return nal(1, 2, b.bytes());
}

}  // namespace

std::string sampleVideo(int channel, int64_t clock, int seconds, int fps,
                        int iFrameInterval, std::vector<uint64_t>* iFrames) {
  std::string stream;
  iFrames->clear();
  const std::string parameters = sequenceParameters(fps) + pictureParameters();
  const int pictures = seconds * fps;
  const int interval = iFrameInterval * fps;
  int frameNum = 0;
  for (int k = 0; k < pictures; ++k) {
    if (k % interval == 0) {
      iFrames->push_back(stream.size());
      stream += parameters;
      stream += idrPicture(k / interval % 2, luma(channel, clock + k / fps));
      frameNum = 0;
    } else {
      stream += skippedPicture(++frameNum);
    }
  }
  return stream;
}

}  // namespace tr
