// The export: where a segment is cut, what other tools make of its output
// (sha256sum, a JSON parser, a video decoder), and what a failed write or
// Ctrl-C leaves in the directory. What it exports, skips and refuses on
// the sample card is in tests/cases/export.case.
#include "export/export.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <tuple>

#include "export/cut.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// A segment of 60 s from t = 1000 with media at [4096, 8096) and I-frames
// every 20 s; the window's ends, -1 for none, against the bytes and times
// of the cut.
TEST(ExportTest, ASegmentIsCutAtItsIFrames) {
  const SegmentFacts facts = {true, 1, true, 1000, 1060, 0, 4096, 4000, -1,
                              false, true, 4, 320, 176, 25.0f, 0};
  const std::vector<IFrame> frames = {{1000, 4096}, {1020, 5000}, {1040, 6000}};
  const struct {
    int64_t from, to;
    Cut cut;
  } cases[] = {
      {-1, -1, {4096, 8096, 1000, 1060, false}},
      {990, 1070, {4096, 8096, 1000, 1060, false}},   // around it
      {1010, 1030, {4096, 6000, 1000, 1040, true}},   // between I-frames
      {1020, 1040, {5000, 6000, 1020, 1040, true}},   // exactly on them
      {1045, 1059, {6000, 8096, 1040, 1060, true}},   // after the last
      {1001, 1001, {4096, 5000, 1000, 1020, true}},
  };
  for (const auto& c : cases) {
    SegmentFilter window;
    window.hasFrom = c.from >= 0;
    window.hasTo = c.to >= 0;
    window.from.seconds = c.from;
    window.to.seconds = c.to;
    const Cut cut = cutSegment(facts, frames, window);
    const auto fields = [](const Cut& x) {
      return std::make_tuple(x.start, x.end, x.startTime, x.endTime, x.atIFrames);
    };
    EXPECT_EQ(fields(cut), fields(c.cut))
        << c.from << " " << c.to;
  }
}

class SampleExportTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(runProgram({TRELLIS_MKCARD_BIN, "--size", "1G", "--time", "1709622489",
                          "--sample", dir_.file("media"), dir_.file("card.img")},
                         "", {})
                  .status,
              0);
  }
  RunResult exportWindow(const std::string& out) {
    return runProgram({TRELLIS_MAINTAIN_BIN, "-d", dir_.file("card.img"), "-m",
                       dir_.file("media"), "--export", dir_.file(out), "--from",
                       "2024-03-05T15:10:30", "--to", "2024-03-05T15:13:00"},
                      "", {});
  }
  TempDir dir_;
};

// sha256sum accepts the proof, Python's parser the manifest, and a decoder
// finds in the clip the pictures of its span: from the I-frame of 15:10:25
// to the one of 15:13:05, 25 a second.
TEST_F(SampleExportTest, OtherToolsReadTheExport) {
  ASSERT_EQ(exportWindow("out").status, 0);
  const RunResult sums = runPython(
      "import subprocess, sys\n"
      "sys.exit(subprocess.run(['sha256sum', '--quiet', '-c', 'SHA256SUMS'],"
      " cwd=sys.stdin.read()).returncode)\n",
      dir_.file("out"));
  if (sums.status == 127) GTEST_SKIP() << "python3 is not installed";
  EXPECT_EQ(sums.status, 0) << sums.err;
  if (runPython("import shutil, sys\nsys.exit(0 if shutil.which('ffprobe') else 3)\n", "")
          .status == 3) {
    GTEST_SKIP() << "ffprobe is not installed (apt-get install ffmpeg)";
  }
  const RunResult clips = runPython(
      "import json, subprocess, sys\n"
      "out = sys.stdin.read()\n"
      "for f in json.load(open(out + '/manifest.json'))['files']:\n"
      "  if f['type'] != 'video': continue\n"
      "  n = subprocess.run(['ffprobe', '-v', 'error', '-count_frames', '-show_entries',"
      " 'stream=nb_read_frames', '-of', 'csv=p=0', out + '/' + f['name']],"
      " capture_output=True, text=True).stdout.strip()\n"
      "  print(f['channel'], f['start'], f['end'], n)\n",
      dir_.file("out"));
  EXPECT_EQ(clips.out,
            "1 2024-03-05T07:10:25Z 2024-03-05T07:13:05Z 4000\n") << clips.err;
}

// A write failing halfway through a file, and Ctrl-C, end the export: the
// file being written is gone, the files before it are in the proof.
TEST_F(SampleExportTest, AFailedWriteOrCtrlCLeavesNoPartFile) {
  useDevice(dir_.file("card.img"));
  setMediaDir(dir_.file("media"));
  const struct {
    const char* out;
    Fault fault;
    int status;
  } cases[] = {{"full", {Call::kWrite, 3, -1, ENOSPC}, 2},
               {"stopped", {}, 130}};
  for (const auto& c : cases) {
    SegmentFilter filter;
    filter.channels = {1};
    int status = 0;
    Captured said;
    {
      SysFaults faults(c.fault);
      static SysCalls withFault;
      withFault = sys;
      if (c.status == 130) {
        sys.write = [](int fd, const void* buf, size_t count) {
          raise(SIGINT);
          return withFault.write(fd, buf, count);
        };
      }
      said = capture([&] { status = runExport({dir_.file(c.out), filter}); });
      sys.write = withFault.write;
      EXPECT_EQ(faults.unreturned(), 0) << c.out;
    }
    EXPECT_EQ(status, c.status) << said.err;
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir_.file(c.out))) {
      names.push_back(e.path().filename());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"SHA256SUMS", "manifest.json"}))
        << c.out;
  }
  setMediaDir(kDefaultMediaDir);
}

}  // namespace
}  // namespace test
}  // namespace tr
