// The sample's data files agree with its index: every segment extracts to
// exactly its source range, every I-frame entry points at an I-frame of its
// segment, and every picture is a distinct JPEG a real decoder reads.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

struct SegmentAt {
  int file;
  int segment;
  uint64_t info;  // the segment info's offset on the 2 GiB card
};

// Record blocks of 40992 bytes from 51592, picture blocks of 107552 bytes
// from 21500764; segment infos of 640 and 1680 bytes after each 32-byte head.
constexpr SegmentAt kRecSegments[] = {
    {1, 1, 51624}, {1, 2, 52264}, {1, 3, 52904},  {1, 4, 53544}, {2, 1, 92616},
    {2, 2, 93256}, {2, 3, 93896}, {3, 1, 133608}, {3, 2, 134248}};
constexpr SegmentAt kPicSegments[] = {
    {1, 1, 21500796}, {1, 2, 21502476}, {1, 3, 21504156}, {2, 1, 21608348}};

class MkcardSampleMediaTest : public testing::Test {
 protected:
  void SetUp() override { build(dir_); }
  static void build(const TempDir& dir) {
    const RunResult r = runMkcard(
        {"--size", "2G", "--files", "16", "--segments", "64", "--time",
         "1709622489", "--sample", dir.file("media"), dir.file("card.img")});
    ASSERT_EQ(r.status, 0) << r.err;
  }
  std::string media(const std::string& name) const {
    return dir_.file("media/" + name);
  }
  std::string info(const SegmentAt& s, size_t size) const {
    return readAt(dir_.file("card.img"), s.info, size);
  }
  RunResult console(const std::string& script) const {
    return runConsole(script, {{"TRELLIS_DEVICE", dir_.file("card.img")},
                               {"TRELLIS_MEDIA_DIR", dir_.file("media")}});
  }
  TempDir dir_;
};

TEST_F(MkcardSampleMediaTest, RecordSegmentsExtractToTheirSourceRanges) {
  std::string script;
  for (const SegmentAt& s : kRecSegments) {
    script += formatString("maintain recData %d %d\n", s.file, s.segment);
  }
  const RunResult r = console(script + "exit\n");
  EXPECT_EQ(r.err, "");
  for (const SegmentAt& s : kRecSegments) {
    const std::string record = info(s, 640);
    const uint64_t length = le64(record, 16);
    EXPECT_GT(length, 1024u);
    const std::string source = readAt(media(formatString("TR%05d.mp4", s.file)),
                                      le64(record, 8), length);
    EXPECT_EQ(source.size(), length);
    EXPECT_TRUE(readFile(media(formatString("%05d_%04d.mp4", s.file,
                                            s.segment))) == source)
        << s.file << "/" << s.segment;
  }
}

TEST_F(MkcardSampleMediaTest, IFrameEntriesPointAtIFramesOfTheirSegment) {
  for (const SegmentAt& s : kRecSegments) {
    const std::string record = info(s, 640);
    const uint64_t dataOffset = le64(record, 8);
    const uint64_t dataEnd = dataOffset + le64(record, 16);
    const uint64_t tableSize = le64(record, 32);
    const std::string path = media(formatString("TR%05d.mp4", s.file));
    const std::string table = readAt(path, le64(record, 24), tableSize);
    ASSERT_EQ(table.size(), tableSize);
    ASSERT_GE(tableSize, 64u);
    EXPECT_EQ(tableSize % 32, 0u);
    uint64_t previous = le64(record, 48);  // the segment's start
    for (size_t at = 0; at < table.size(); at += 32) {
      const uint64_t time = le64(table, at);
      EXPECT_GE(time, previous);
      EXPECT_LE(time, le64(record, 56));  // the segment's end
      previous = time;
      const uint32_t frame = le32(table, at + 8);
      EXPECT_GE(frame, dataOffset);
      EXPECT_LT(frame, dataEnd);
      EXPECT_EQ(readAt(path, frame, 5), std::string("\0\0\0\1\x65", 5))
          << s.file << "/" << s.segment << " entry " << at / 32;
    }
  }
  // The incomplete segment 2/3 lists its entries through the console too.
  const std::string count =
      std::to_string(le64(info(kRecSegments[6], 640), 32) / 32);
  const std::string out =
      commandOutput(console("maintain recIFrameInfo 2 3\n").out);
  EXPECT_NE(out.find("Frame [" + count + "/" + count + "]:\n"),
            std::string::npos)
      << out;
}

TEST_F(MkcardSampleMediaTest, PicturesAreDistinctJpegsADecoderReads) {
  std::string script;
  for (const SegmentAt& s : kPicSegments) {
    script += formatString("maintain picData %d %d\n", s.file, s.segment);
    const int pictures = static_cast<unsigned char>(info(s, 1680)[1632]);
    for (int n = 1; n <= pictures; ++n) {
      script +=
          formatString("maintain onePic %d %d %d\n", s.file, s.segment, n);
    }
  }
  const RunResult r = console(script + "exit\n");
  EXPECT_EQ(r.err, "");

  std::set<std::string> seen;
  for (const SegmentAt& s : kPicSegments) {
    const std::string record = info(s, 1680);
    const int pictures = static_cast<unsigned char>(record[1632]);
    EXPECT_GE(pictures, 3);
    const std::string path = media(formatString("TR%05d.picture", s.file));
    const std::string fragment =
        readAt(path, le64(record, 16), le64(record, 24));
    EXPECT_EQ(fragment.size(), le64(record, 24));
    EXPECT_TRUE(readFile(media(formatString("%05d_%04d.jpg", s.file,
                                            s.segment))) == fragment);
    size_t start = 0;
    for (int n = 1; n <= pictures; ++n) {
      const uint32_t size = le32(record, 32 + 24 * (n - 1) + 16);
      const std::string picture = fragment.substr(start, size);
      start += size;
      const std::string saved =
          media(formatString("%05d_%04d_%02d.jpg", s.file, s.segment, n));
      EXPECT_TRUE(readFile(saved) == picture) << saved;
      seen.insert(picture);
      const RunResult decoded = runProgram({"djpeg", saved}, "", {});
      ASSERT_NE(decoded.status, 127)
          << "djpeg not found: install libjpeg-turbo-progs";
      EXPECT_EQ(decoded.status, 0) << saved << ": " << decoded.err;
      EXPECT_EQ(decoded.out.rfind("P6\n256 144\n255\n", 0), 0u) << saved;
    }
    EXPECT_EQ(start, fragment.size());  // the sizes fill the fragment
  }
  EXPECT_EQ(seen.size(), 15u);  // 4 + 3 + 5 + 3 pictures, no two alike
}

TEST_F(MkcardSampleMediaTest, SameStartTimeGivesTheSameCard) {
  TempDir other;
  build(other);
  for (const char* file : {"TR00001.mp4", "TR00002.mp4", "TR00003.mp4",
                           "TR00001.picture", "TR00002.picture"}) {
    EXPECT_TRUE(readFile(media(file)) == readFile(other.file("media/") + file))
        << file;
  }
  // The storage head and the four index files, 51200 to 42949672.
  for (uint64_t at = 51200; at < 42949672; at += 10724586) {
    EXPECT_TRUE(readAt(dir_.file("card.img"), at, 10724586) ==
                readAt(other.file("card.img"), at, 10724586))
        << at;
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
