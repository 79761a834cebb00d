// The sample card's video: H.264 as a decoder reads it (Annex B byte
// stream, Baseline profile), small and quick to make. Each I-frame is an
// IDR picture of raw samples (I_PCM macroblocks need no compression)
// showing the channel and the recorder's clock at that second in large
// digits; between them every picture is a P picture that skips all its
// macroblocks, so a player shows the clock picture until the next one.
// Whoever opens an export sees at once which channel and moment it holds.
#ifndef TRELLIS_MKCARD_SAMPLE_VIDEO_H_
#define TRELLIS_MKCARD_SAMPLE_VIDEO_H_

#include <cstdint>
#include <string>
#include <vector>

namespace tr {

constexpr uint32_t kSampleVideoWidth = 320;   // 20 macroblocks
constexpr uint32_t kSampleVideoHeight = 176;  // 11 macroblocks

// `seconds` of video at `fps` pictures a second, an IDR picture every
// `iFrameInterval` seconds from the first: the stream, and in `iFrames`
// where in it each IDR picture's access unit (its parameter sets first)
// begins. `clock` is the recorder's clock at the first picture, in seconds
// since 1970 (its zone already added).
std::string sampleVideo(int channel, int64_t clock, int seconds, int fps,
                        int iFrameInterval, std::vector<uint64_t>* iFrames);

}  // namespace tr

#endif  // TRELLIS_MKCARD_SAMPLE_VIDEO_H_
