// The sample card read back through the console: all 38 commands work on
// it and show its records, the damaged ones it carries on purpose
// included; every segment extracts to exactly its source range, and every
// picture is a distinct JPEG a real decoder reads.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

std::string field(std::string label, const std::string& value,
                  const char* colour = "\x1b[32m") {
  label.resize(std::max<size_t>(label.size(), 20), ' ');
  return label + ": " + colour + value + "\x1b[0m\n";
}

std::string target(const std::string& offset) {
  return field("targetOffset", offset);
}

// Each command once, in one session: what each must print. A marker is
// followed by the reader that shows it, then undone by the other marker.
// Backups are their primaries' copies (the picture backup but for its
// exception mark), so a backup shows the primary's record. Auxiliary 2's
// head lies 43208 bytes after auxiliary 1's.
// A 2 GiB card, 16 data files of 64 segments: index files of 10724586 bytes
// at 51328, 10775914, 21500500 and 32225086; the auxiliary region starts
// 6403786 bytes into each. Record blocks of 40992 bytes from 51592, picture
// blocks of 107552 bytes from 21500764; segment infos of 640 and 1680 bytes
// after each 32-byte head.
struct SegmentAt {
  int file;
  int segment;
  uint64_t info;  // the segment info's offset
};

TEST(MkcardSampleTest, AllThirtyEightCommandsAndEveryExtraction) {
  TempDir dir;
  const std::string card = dir.file("card.img");
  auto media = [&](const std::string& name) {
    return dir.file("media/" + name);
  };
  auto at = [&](uint64_t offset, size_t count) {
    return readAt(card, offset, count);
  };
  auto console = [&](const std::string& script) {
    return runConsole(script, {{"TRELLIS_DEVICE", card},
                               {"TRELLIS_MEDIA_DIR", dir.file("media")}});
  };
  ASSERT_EQ(
      runMkcard({"--size", "2G", "--files", "16", "--segments", "64", "--time",
                 "1709622489", "--sample", dir.file("media"), card})
          .status,
      0);

  const char* red = "\x1b[31m";
  const std::string emptyMagic = field("Magic Word", "", red);
  const std::string idx = field("Magic Word", "IDX_01");
  const std::string used = field("isUsed", "Yes");
  const std::string info = field("Magic Word", "DF_INFO");
  const std::string data = field("Magic Word", "DATA");
  const std::string unused = field("In Use", "No", red);
  auto head = [](const char* base) {
    return field("tr_IndexFileHead targetOffset", base);
  };
  auto aux = [](const char* offset) {
    return field("IndexFileAuxiliaryHead targetOffset", offset);
  };
  const std::vector<std::vector<std::string>> steps = {
      {"TrellisHead", field("Magic Word", "TR_V001")},
      {"recException", head("51328")},
      {"recIndexFileHead", target("51328"), emptyMagic},
      {"recNormal", head("51328")},
      {"recBackUpException", head("10775914")},
      {"recBackUpIndexFileHead", target("10775914"), emptyMagic},
      {"recBackUpNormal", head("10775914")},
      {"picException", head("21500500")},
      {"picIndexFileHead", target("21500500"), emptyMagic},
      {"picNormal", head("21500500")},
      {"picBackUpNormal", head("32225086")},
      {"picBackUpIndexFileHead", target("32225086"), idx,
       field("Exception Flag", "Abnormal", red)},
      {"picBackUpException", head("32225086")},
      {"recDataFileHead 1", target("51592"), data,
       field("Validity", "Read-Only", "\x1b[33m")},
      {"recBackUpDataFileHead 4", target("10899154"),
       field("Validity", "Invalid", red), unused},
      {"picDataFileHead 1", target("21500764"), data},
      {"picBackUpDataFileHead 1", target("32225350"), data},
      {"recIndexAuxHead 1", target("6455114"), used},
      {"recBackUpIndexAuxHead 1", target("17179700"), used},
      {"picIndexAuxHead 1", target("27904286"), used},
      {"picBackUpIndexAuxHead 1", target("38628872"), used},
      {"recDataFileInfo 2 3", target("93896"), info,
       field("Is Incomplete", "YES"), field("infoEx.position", "Tail")},
      {"recBackUpDataFileInfo 2 4", target("10819122"), info, unused},
      {"picDataFileInfo 1 1", target("21500796"), info, field("In Use", "Yes")},
      // The last segment of the last data file.
      {"picBackUpDataFileInfo 16 64", target("33944502"), info, unused},
      {"recIndexFileAux 1 1", target("6455122"), used},
      {"recBackUpIndexFileAux 1 1", target("17179708"), used},
      {"picIndexFileAux 1 1", target("27904294"), used},
      {"picBackUpIndexFileAux 1 1", target("38628880"), used},
      {"recIFrameInfo 1 1", target("51624"), "Frame [1/"},
      {"recData 2 4",
       "[ERROR] _tr_maintainGetRecDataToFile This segment has no data\n"},
      {"picData 1 1", "[SUCCESS] Extracted ", media("00001_0001.jpg\n")},
      {"onePic 1 1 2", "[SUCCESS] Saved " + media("00001_0001_02.jpg")},
      {"recChangeAuxCtxNum 2 5", head("51328"), aux("6498322")},
      {"recBackUpChangeAuxCtxNum 2 5", head("10775914"), aux("17222908")},
      {"picChangeAuxCtxNum 2 5", head("21500500"), aux("27947494")},
      {"picBackUpChangeAuxCtxNum 2 5", head("32225086"), aux("38672080")},
      {"memsetTrellisHead"},
      // One past the last data file; -1 is picture 4294967295.
      {"recDataFileHead 17"},
      {"onePic 1 1 -1", target("21500796")},
  };
  std::string script;
  for (const auto& step : steps) script += "maintain " + step[0] + "\n";
  const RunResult r = console(script);
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: 17\n"
            " maxFileNum: 16\n"
            "[ERROR] Invalid picNum 4294967295 (valid range: 1-4)\n");
  const std::vector<std::string> out = splitAtPrompts(r.out);
  ASSERT_EQ(out.size(), steps.size() + 2);  // start-up ... farewell
  for (size_t i = 0; i < steps.size(); ++i) {
    if (steps[i].size() == 1) {
      EXPECT_EQ(out[i + 1], "") << steps[i][0];
    }
    for (size_t k = 1; k < steps[i].size(); ++k) {
      EXPECT_NE(out[i + 1].find(steps[i][k]), std::string::npos)
          << steps[i][0] << "\nmissing: " << steps[i][k] << "\nin:\n"
          << out[i + 1];
    }
  }
  const uint64_t bases[] = {51328, 10775914, 21500500, 32225086};
  const uint64_t heads[] = {6498322, 17222908, 27947494, 38672080};
  const std::string magic[] = {std::string("IDX_01\0", 7), std::string(7, 0)};
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(at(bases[k], 7), magic[k == 3]) << bases[k];
    EXPECT_EQ(at(bases[k] + 156, 4), leBytes(2, 4)) << bases[k];
    EXPECT_EQ(at(heads[k] + 2, 2), leBytes(5, 2)) << heads[k];
  }
  EXPECT_EQ(at(51200, 128), std::string(128, '\0'));

  // Every segment in use, every picture.
  const SegmentAt records[] = {{1, 1, 51624}, {1, 2, 52264},  {1, 3, 52904},
                               {1, 4, 53544}, {2, 1, 92616},  {2, 2, 93256},
                               {2, 3, 93896}, {3, 1, 133608}, {3, 2, 134248}};
  const SegmentAt pictures[] = {
      {1, 1, 21500796}, {1, 2, 21502476}, {1, 3, 21504156}, {2, 1, 21608348}};
  std::string text;
  for (const SegmentAt& s : records) {
    text += formatString("maintain recData %d %d\n", s.file, s.segment);
  }
  for (const SegmentAt& s : pictures) {
    text += formatString("maintain picData %d %d\n", s.file, s.segment);
    for (int n = 1; n <= static_cast<unsigned char>(at(s.info + 1632, 1)[0]);
         ++n) {
      text += formatString("maintain onePic %d %d %d\n", s.file, s.segment, n);
    }
  }
  EXPECT_EQ(console(text + "exit\n").err, "");

  for (const SegmentAt& s : records) {
    const std::string record = at(s.info, 640);
    const uint64_t length = le(record, 16);
    EXPECT_GT(length, 1024u);
    const std::string source = readAt(media(formatString("TR%05d.mp4", s.file)),
                                      le(record, 8), length);
    EXPECT_EQ(source.size(), length);
    EXPECT_TRUE(readFile(media(formatString("%05d_%04d.mp4", s.file,
                                            s.segment))) == source)
        << s.file << "/" << s.segment;
  }
  std::set<std::string> seen;
  for (const SegmentAt& s : pictures) {
    const std::string record = at(s.info, 1680);
    const int count = static_cast<unsigned char>(record[1632]);
    EXPECT_GE(count, 3);
    const std::string fragment =
        readAt(media(formatString("TR%05d.picture", s.file)), le(record, 16),
               le(record, 24));
    EXPECT_EQ(fragment.size(), le(record, 24));
    EXPECT_TRUE(readFile(media(formatString("%05d_%04d.jpg", s.file,
                                            s.segment))) == fragment);
    size_t start = 0;
    for (int n = 1; n <= count; ++n) {
      const uint32_t size = le(record, 32 + 24 * (n - 1) + 16, 4);
      const std::string saved =
          media(formatString("%05d_%04d_%02d.jpg", s.file, s.segment, n));
      EXPECT_TRUE(readFile(saved) == fragment.substr(start, size)) << saved;
      seen.insert(fragment.substr(start, size));
      start += size;
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

}  // namespace
}  // namespace test
}  // namespace tr
