#include "mkcard/sample_pictures.h"

#include <ctime>

#include "base/platform.h"
#include "mkcard/jpeg_encoder.h"

namespace tr {
namespace {

constexpr int kQuality = 85;
constexpr int kGlyphScale = 2;

struct Glyph {
  char c;
  uint16_t bits;  // 3x5 pixels, top row in the highest three bits
};

constexpr Glyph kGlyphs[] = {
    {'0', 0x7B6F}, {'1', 0x2C97}, {'2', 0x73E7}, {'3', 0x73CF}, {'4', 0x5BC9},
    {'5', 0x79CF}, {'6', 0x79EF}, {'7', 0x7292}, {'8', 0x7BEF}, {'9', 0x7BCF},
    {':', 0x0410}, {'-', 0x01C0}, {'C', 0x7927}, {'H', 0x5BED}};

// Blank for any character without a glyph, the space included.
uint16_t glyph(char c) {
  for (const Glyph& g : kGlyphs) {
    if (g.c == c) return g.bits;
  }
  return 0;
}

void setPixel(RgbImage* image, int x, int y, uint8_t r, uint8_t g, uint8_t b) {
  if (x < 0 || y < 0 || x >= image->width || y >= image->height) return;
  const size_t at = (static_cast<size_t>(y) * image->width + x) * 3;
  image->pixels[at] = r;
  image->pixels[at + 1] = g;
  image->pixels[at + 2] = b;
}

void drawText(RgbImage* image, int x, int y, const std::string& text) {
  for (const char c : text) {
    const uint16_t bits = glyph(c);
    for (int row = 0; row < 5; ++row) {
      for (int col = 0; col < 3; ++col) {
        if ((bits >> (14 - row * 3 - col) & 1) == 0) continue;
        for (int dy = 0; dy < kGlyphScale; ++dy) {
          for (int dx = 0; dx < kGlyphScale; ++dx) {
            const int px = x + col * kGlyphScale + dx;
            const int py = y + row * kGlyphScale + dy;
            setPixel(image, px + 1, py + 1, 0, 0, 0);  // shadow
            setPixel(image, px, py, 255, 255, 255);
          }
        }
      }
    }
    x += 4 * kGlyphScale;
  }
}

// Sky over a lawn, tinted by channel, with a red box (a parked car, say)
// that stands further right in every later picture.
void drawScene(RgbImage* image, uint32_t channel, uint32_t number) {
  const int w = image->width;
  const int h = image->height;
  const int horizon = h * 2 / 3;
  const int tint = static_cast<int>(channel * 40 % 120);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      if (y < horizon) {
        setPixel(image, x, y, static_cast<uint8_t>(90 + y / 2),
                 static_cast<uint8_t>(140 + y / 3),
                 static_cast<uint8_t>(255 - tint / 2 - y / 4));
      } else {
        setPixel(image, x, y, static_cast<uint8_t>(40 + tint / 3),
                 static_cast<uint8_t>(120 + (x + y) % 16),
                 static_cast<uint8_t>(40));
      }
    }
  }
  const int box = h / 5;
  const int left = static_cast<int>(8 + number * 37 % (w - box - 16));
  const int top = horizon - box / 2;
  for (int y = top; y < top + box; ++y) {
    for (int x = left; x < left + box * 3 / 2; ++x) {
      setPixel(image, x, y, 200, static_cast<uint8_t>(30 + number * 11 % 60),
               40);
    }
  }
}

std::string timeText(int64_t localTime) {
  const time_t seconds = static_cast<time_t>(localTime);
  struct tm parts;
  if (gmtime_r(&seconds, &parts) == nullptr) return std::string();
  return formatString("%04d-%02d-%02d %02d:%02d:%02d", parts.tm_year + 1900,
                      parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
                      parts.tm_min, parts.tm_sec);
}

}  // namespace

std::string sampleJpeg(uint32_t channel, uint32_t number, int64_t localTime) {
  RgbImage image;
  image.width = kSamplePictureWidth;
  image.height = kSamplePictureHeight;
  image.pixels.resize(static_cast<size_t>(image.width) * image.height * 3);
  drawScene(&image, channel, number);
  drawText(&image, 6, 6,
           formatString("CH%u %s", channel, timeText(localTime).c_str()));
  return encodeJpeg(
      image, kQuality,
      formatString("Trellis sample picture %u, channel %u", number, channel));
}

}  // namespace tr
