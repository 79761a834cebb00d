// Copying media out of the data files when the system fails it: no memory,
// a read error, a write that falls short, an output that fails to close. The
// result, the messages, what is left of the output, and every stream and
// heap block given back. (What a card and its files can do is in the
// session cases.)
#include <gtest/gtest.h>
#include <unistd.h>

#include "extract/picture_extract.h"
#include "extract/segment_extract.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

constexpr uint64_t kChunk = 4194304;

struct CopyFault {
  const char* name;
  Fault fault;
  bool segment;  // segment (5, 9), 4 MiB + 2000 bytes from byte 100 of
                 // TR00005.mp4; else picture 2 (200 bytes from byte 1100)
                 // of a segment of TR00003.picture
  const char* err;
  long kept;  // bytes in the output, from the copy's start; -1: no output
};

const CopyFault kFaults[] = {
    {"NoMemory", {Call::kMalloc, 1}, true,
     "[ERROR] Memory allocation failed (4MB request)\n", 0},
    // The copy stops at the failing chunk and keeps the chunks before it.
    {"ReadError", {Call::kFread, 2, -1, EIO}, true,
     "[ERROR] Read operation failed: Input/output error\n"
     "[ERROR] Incomplete extraction (missing: 2000 bytes)\n", kChunk},
    // Half of the second chunk written still counts as missing.
    {"WriteFallsShort", {Call::kFwrite, 2, 1000, ENOSPC}, true,
     "[ERROR] Write operation failed: No space left on device\n"
     "[ERROR] Incomplete extraction (missing: 2000 bytes)\n", kChunk + 1000},
    {"OutputCloseFails", {Call::kFclose, 2, -1, EIO}, true,
     "[ERROR] Write operation failed: Input/output error\n", kChunk + 2000},
    {"PictureNoMemory", {Call::kMalloc, 1}, false, "[ERROR] Alloc 200 bytes failed\n", -1},
    {"PictureWriteFallsShort", {Call::kFwrite, 1, 150, 0}, false,
     "[ERROR] Write incomplete (150/200 bytes)\n", 150},
    {"PictureOutputCloseFails", {Call::kFclose, 2, -1, EIO}, false,
     "[ERROR] Write incomplete (200/200 bytes)\n", 200},
};

class CopyFaultTest : public testing::TestWithParam<CopyFault> {};

TEST_P(CopyFaultTest, ReportsItAndKeepsWhatWasCopied) {
  const CopyFault& row = GetParam();
  TempDir dir;
  setMediaDir(dir.path());
  const std::string source = dir.file(row.segment ? "TR00005.mp4" : "TR00003.picture");
  const std::string output = dir.file(row.segment ? "00005_0009.mp4" : "00003_0012_02.jpg");
  std::string bytes(row.segment ? 100 + kChunk + 2000 : 1600, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 / 3);
  writeFile(source, bytes);
  tr_RecDataFileInfo rec{};
  rec.inUse = 1;
  rec.dataOffset = 100;
  rec.datalen = kChunk + 2000;
  tr_JPGDataFileInfo pic{};
  pic.inUse = 1;
  pic.fragmentOffset = 1000;
  pic.fragmentSize = 600;
  pic.validNum = 3;
  pic.imageDetails[0].jpgSize = 100;
  pic.imageDetails[1].jpgSize = 200;
  pic.imageDetails[2].jpgSize = 300;
  int result = 0;
  Captured c;
  {
    SysFaults faults(row.fault);
    c = capture([&] {
      result = row.segment ? _tr_maintainGetRecDataToFile(&rec, 5, 9)
                           : _tr_maintainGetOneJpgToFile(&pic, 3, 12, 2);
    });
    EXPECT_EQ(faults.unreturned(), 0);
  }
  setMediaDir(kDefaultMediaDir);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(c.err, row.err);
  if (row.kept < 0) {
    EXPECT_NE(::access(output.c_str(), F_OK), 0);
  } else {
    EXPECT_TRUE(readFile(output) == bytes.substr(row.segment ? 100 : 1100, row.kept));
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, CopyFaultTest, testing::ValuesIn(kFaults),
                         [](const testing::TestParamInfo<CopyFault>& p) {
                           return std::string(p.param.name);
                         });

}  // namespace
}  // namespace test
}  // namespace tr
