// The card builder: a formatted card byte by byte at offsets worked out by
// hand; what it refuses to write (a layout whose data-file area runs into
// the auxiliary region or a card too small for it, naming the sizes and
// creating nothing; without --force a non-empty image, data files of an
// earlier sample or any block device); and the sample card read back
// through the console: all 38 commands work on it and show its records,
// the damaged ones it carries on purpose included, every segment extracts
// to exactly its source range, and every picture is a distinct JPEG a real
// decoder reads.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// The header of each index file of the 2 GiB card below.
std::string indexHeader(char fileType) {
  return std::string("IDX_01\0", 7) + fileType +
         std::string(8 + 128, '\0') +  // reserved1, no channel writing
         leBytes(16, 4) + leBytes(64, 4) + leBytes(50, 4) + leBytes(1, 4) +
         leBytes(10724586, 8) + std::string(8, '\0') +  // exception flag, gap
         leBytes(1709622489, 8) +                       // 2024-03-05 07:08:09
         std::string(80, '\0');                         // reserved2 and gap
}

TEST(MkcardIndexWriterTest, TwoGigabyteCardAtLiteralOffsets) {
  TempDir dir;
  const std::string image = dir.file("card.img");
  const RunResult r =
      runMkcard({"--size", "2G", "--files", "16", "--segments", "64", "--aux",
                 "50", "--time", "1709622489", image});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  auto at = [&](uint64_t offset, size_t count) {
    return readAt(image, offset, count);
  };
  // Storage head: reserve 42949672, index files of 10724586 bytes.
  EXPECT_EQ(at(51200, 128), std::string("TR_V001\0", 8) + leBytes(51328, 8) +
                                leBytes(10775914, 8) + leBytes(21500500, 8) +
                                leBytes(32225086, 8) + leBytes(10724586, 8) +
                                std::string(80, '\0'));
  EXPECT_EQ(at(51328, 264), indexHeader(1));
  EXPECT_EQ(at(21500500, 264), indexHeader(2));
  // Record blocks of 32 + 64 x 640 = 40992 bytes from 51592.
  const std::string freeHead = std::string("DATA\0\0\1\0", 8);
  const std::string zero20(20, '\0');
  EXPECT_EQ(at(51592, 32), freeHead + leBytes(1, 4) + zero20);
  EXPECT_EQ(at(51624, 640), "DF_INFO" + std::string(633, '\0'));
  EXPECT_EQ(at(666472, 32), freeHead + leBytes(16, 4) + zero20);
  EXPECT_EQ(at(706824, 8), std::string("DF_INFO\0", 8));  // (16, 64)
  EXPECT_EQ(at(707464, 8), std::string(8, '\0'));  // past the data-file area
  // Picture blocks of 32 + 64 x 1680 = 107552 bytes from 21500764.
  EXPECT_EQ(at(23114044, 32), freeHead + leBytes(16, 4) + zero20);
  EXPECT_EQ(at(23219916, 1680), "DF_INFO" + std::string(1673, '\0'));
  EXPECT_EQ(at(23221596, 8), std::string(8, '\0'));
  // The auxiliary region (from 6403786 into each index file) is empty.
  EXPECT_EQ(at(6455114, 43208), std::string(43208, '\0'));
  EXPECT_EQ(at(27904286, 43208), std::string(43208, '\0'));
  EXPECT_TRUE(at(10775914, 10724586) == at(51328, 10724586));
  EXPECT_TRUE(at(32225086, 10724586) == at(21500500, 10724586));
  // A sparse image: the records only, not 2 GiB.
  EXPECT_LT(allocatedBytes(image), uint64_t{16} << 20);
}

// 300 GiB: reserve 6442450944, index files of 1610599904 bytes; the
// picture backup starts at 4831851040, its data file head 16 at
// 4831851040 + 264 + 15 x 107552.
TEST(MkcardIndexWriterTest, OffsetsBeyondFourGigabytes) {
  TempDir dir;
  const std::string image = dir.file("card.img");
  ASSERT_EQ(runMkcard({"--size", "300G", "--segments", "64", "--time",
                       "1709622489", image})
                .status,
            0);
  EXPECT_EQ(readAt(image, 51216, 32),
            leBytes(1610651232, 8) + leBytes(3221251136, 8) +
                leBytes(4831851040, 8) + leBytes(1610599904, 8));
  EXPECT_EQ(readAt(image, 4831851040, 8), std::string("IDX_01\0\2", 8));
  EXPECT_EQ(readAt(image, 4831851040 + 160, 8), leBytes(1610599904, 8));
  EXPECT_EQ(readAt(image, 4833464584 + 8, 4), leBytes(16, 4));
}

// A card that fits records its index file size in the storage head (byte
// 51240).
struct Layout {
  const char* files;
  const char* size;
  const char* segments;
  uint64_t indexFileSize;         // 0: refused
  std::vector<std::string> said;  // parts of the refusal
};

TEST(MkcardLayoutTest, RefusesWhatDoesNotFitNamingTheSizes) {
  // clang-format off
  const Layout cases[] = {
      // 2 GiB: the auxiliary region starts 6403786 bytes into each index
      // file. 238 picture segments: 264 + 16 x (32 + 238 x 1680) = 6398216.
      {"16", "2G", "238", 10724586, {}},
      // 239: 6425096, past it; the record area (2448136) alone would fit.
      {"16", "2G", "239", 0,
       {"16 data files of 239 segments do not fit",
        "picture data-file area (264 + 16 x (32 + 239 x 1680) bytes) would "
        "end at byte 6425096, past the start of the auxiliary region at byte "
        "6403786 (index files of 10724586 bytes on a card of 2147483648 "
        "bytes)",
        "at most 238 segments per file"}},
      // 2^32 - 1 files of 2^32 - 1 segments: the area overflows 64 bits.
      {"4294967295", "2G", "4294967295", 0,
       {"would end beyond byte 18446744073709551615",
        "not one segment per file fits"}},
      // 16 x 64 needs index files of 264 + 1720832 + 4320800 = 6041896
      // bytes: a reserve of 24218912, 2 percent of 1210945600.
      {"16", "1210945599", "64", 0,
       {"auxiliary region at byte 1721095 (index files of 6041895 bytes",
        "at most 63 segments per file fit on this card; 64 segments need a "
        "card of at least 1210945600 bytes"}},
      {"16", "1210945600", "64", 6041896, {}},
      // 800 MiB: reserve 16777216, index files of 4181472 bytes.
      {"16", "800M", "64", 0,
       {"a card of 838860800 bytes is too small",
        "index files would be 4181472 bytes each",
        "needs 4321064 bytes for its header and auxiliary region",
        "need a card of at least 1210945600 bytes"}},
  };
  // clang-format on
  TempDir dir;
  const std::string image = dir.file("card.img");
  for (const Layout& k : cases) {
    SCOPED_TRACE(std::string(k.size) + " " + k.segments);
    const RunResult r = runMkcard({"--size", k.size, "--files", k.files,
                                   "--segments", k.segments, image});
    EXPECT_EQ(r.status, k.indexFileSize == 0 ? 1 : 0) << r.err;
    for (const std::string& part : k.said) {
      EXPECT_NE(r.err.find(part), std::string::npos) << r.err;
    }
    EXPECT_EQ(readAt(image, 51240, 8),
              k.indexFileSize == 0 ? "" : leBytes(k.indexFileSize, 8));
    std::remove(image.c_str());
  }
}

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? uint64_t(st.st_size) : 0;
}

void expectRefused(const std::vector<std::string>& args,
                   const std::string& message) {
  const RunResult r = runMkcard(args);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
}

TEST(MkcardTargetTest, ImagesOnlyWithForceOverData) {
  TempDir dir;
  const std::string image = dir.file("card.img");
  writeFile(image, "precious data");
  expectRefused({"--size", "2G", image},
                "trellis-mkcard: " + image +
                    " exists and holds 13 bytes; use --force to write a new "
                    "card over it\n");
  EXPECT_EQ(readFile(image), "precious data");
  ASSERT_EQ(runMkcard({"--size", "2G", "--force", image}).status, 0);
  EXPECT_EQ(fileSize(image), 2147483648u);
  EXPECT_EQ(readAt(image, 0, 13), std::string(13, '\0'));
  // Forced again without --size, the image keeps its size: index files of
  // 10724586 bytes in the storage head at 51200.
  ASSERT_EQ(runMkcard({"--force", image}).status, 0);
  EXPECT_EQ(readAt(image, 51200, 8), std::string("TR_V001\0", 8));
  EXPECT_EQ(readAt(image, 51240, 8), leBytes(10724586, 8));

  const std::string media = dir.file("media");
  ASSERT_EQ(::mkdir(media.c_str(), 0755), 0);
  writeFile(media + "/TR00002.picture", "older pictures");
  expectRefused({"--size", "2G", "--sample", media, dir.file("new.img")},
                "trellis-mkcard: " + media +
                    "/TR00002.picture exists and holds 14 bytes; use --force "
                    "to write the sample's data files over it\n");
  EXPECT_FALSE(fileExists(dir.file("new.img")));
  EXPECT_FALSE(fileExists(media + "/TR00001.mp4"));
  EXPECT_EQ(runMkcard({"--size", "2G", "--sample", media, "--force",
                       dir.file("new.img")})
                .status,
            0);
  EXPECT_NE(readFile(media + "/TR00002.picture"), "older pictures");
}

// A loop device over a 1 GiB image holding stale records of an earlier
// card: a storage head, an auxiliary head at the start of the record
// auxiliary region (51328 + 5355877 - 4320800), bytes in segment info
// (1, 1). Without --force nothing is written; with it the whole device is
// the card (reserve 21474836, index files of 5355877 bytes), the stale
// records gone.
TEST(MkcardTargetTest, BlockDeviceOnlyWithForceAndUsedWhole) {
  if (::geteuid() != 0) GTEST_SKIP() << "attaching a loop device needs root";
  TempDir dir;
  CardImage backing(dir.file("backing.img"), 1073741824);
  backing.putText(51200, "OLD_HEAD");
  backing.putText(1086405, "STALEAUX");
  backing.putText(51624 + 100, "STALEINFO");
  const RunResult attach =
      runProgram({"losetup", "-f", "--show", backing.path()}, "", {});
  if (attach.status != 0 || attach.out.empty()) {
    GTEST_SKIP() << "no loop device could be attached: " << attach.err;
  }
  const std::string loop = attach.out.substr(0, attach.out.find('\n'));
  struct Detach {
    std::string device;
    ~Detach() { runProgram({"losetup", "-d", device}, "", {}); }
  } detach{loop};

  expectRefused({"--time", "1709622489", loop},
                "trellis-mkcard: " + loop +
                    " is a block device; writing a card layout on it "
                    "destroys the index files there. Use --force to write "
                    "it\n");
  EXPECT_EQ(readAt(loop, 51200, 8), "OLD_HEAD");
  expectRefused({"--size", "1G", "--force", loop},
                "--size applies to image files only");

  const RunResult r = runMkcard({"--force", "--time", "1709622489", loop});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("(1073741824 bytes)"), std::string::npos) << r.out;
  EXPECT_EQ(readAt(loop, 51200, 8), std::string("TR_V001\0", 8));
  EXPECT_EQ(readAt(loop, 51240, 8), leBytes(5355877, 8));
  EXPECT_EQ(readAt(loop, 1086405, 8), std::string(8, '\0'));
  EXPECT_EQ(readAt(loop, 51624, 640), "DF_INFO" + std::string(633, '\0'));
}

std::string field(std::string label, const std::string& value,
                  const char* colour = "\x1b[32m") {
  label.resize(std::max<size_t>(label.size(), 20), ' ');
  return label + ": " + colour + value + "\x1b[0m\n";
}

std::string target(const std::string& offset) {
  return field("targetOffset", offset);
}

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

  // Each command once, in one session: what each must print. A marker is
  // followed by the reader that shows it, then undone by the other marker.
  // Backups are their primaries' copies (the picture backup but for its
  // exception mark), so a backup shows the primary's record. Auxiliary 2's
  // head lies 43208 bytes after auxiliary 1's.
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
  bool undecoded = false;
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
      undecoded = decoded.status == 127;  // no djpeg here: skipped below
      if (undecoded) continue;
      EXPECT_EQ(decoded.status, 0) << saved << ": " << decoded.err;
      EXPECT_EQ(decoded.out.rfind("P6\n256 144\n255\n", 0), 0u) << saved;
    }
    EXPECT_EQ(start, fragment.size());  // the sizes fill the fragment
  }
  EXPECT_EQ(seen.size(), 15u);  // 4 + 3 + 5 + 3 pictures, no two alike
  if (undecoded) GTEST_SKIP() << "djpeg is not installed (libjpeg-turbo-progs)";
}

}  // namespace
}  // namespace test
}  // namespace tr
