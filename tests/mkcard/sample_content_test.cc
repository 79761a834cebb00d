// The sample card read back through the console: all 38 commands succeed on
// it, valid records show their magic words in green, and the damaged
// records it carries on purpose show as such.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// A 2 GiB card, 16 data files of 64 segments: index files of 10724586 bytes
// at 51328, 10775914, 21500500 and 32225086; the auxiliary region starts
// 6403786 bytes into each.
class MkcardSampleContentTest : public testing::Test {
 protected:
  void SetUp() override {
    const RunResult r =
        runMkcard({"--size", "2G", "--files", "16", "--segments", "64",
                   "--time", "1709622489", "--sample", media(), image()});
    ASSERT_EQ(r.status, 0) << r.err;
  }
  std::string image() const { return dir_.file("card.img"); }
  std::string media() const { return dir_.file("media"); }
  RunResult console(const std::string& script) const {
    return runConsole(
        script, {{"TRELLIS_DEVICE", image()}, {"TRELLIS_MEDIA_DIR", media()}});
  }
  std::string at(uint64_t offset, size_t count) const {
    return readAt(image(), offset, count);
  }
  TempDir dir_;
};

struct Step {
  std::string line;
  std::vector<std::string> expected;  // each must appear in its output
};

std::string field(const std::string& label, const std::string& colour,
                  const std::string& value) {
  std::string line = label;
  if (line.size() < 20) line.resize(20, ' ');
  return line + ": " + colour + value + "\x1b[0m\n";
}

const std::string kGreen = "\x1b[32m";
const std::string kRed = "\x1b[31m";

std::string target(const std::string& offset) {
  return field("targetOffset", kGreen, offset);
}

std::string headTarget(const std::string& offset) {
  return field("tr_IndexFileHead targetOffset", kGreen, offset);
}

// Runs `steps` in one console session; checks each command's own output.
void runSteps(const RunResult& r, const std::vector<Step>& steps) {
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), steps.size() + 2);  // start-up ... farewell
  for (size_t i = 0; i < steps.size(); ++i) {
    const std::string& out = parts[i + 1];
    if (steps[i].expected.empty()) {
      EXPECT_EQ(out, "") << steps[i].line;
    }
    for (const std::string& part : steps[i].expected) {
      EXPECT_NE(out.find(part), std::string::npos)
          << "maintain " << steps[i].line << "\nmissing: " << part
          << "\noutput:\n"
          << out;
    }
  }
}

std::string script(const std::vector<Step>& steps) {
  std::string text;
  for (const Step& step : steps) text += "maintain " + step.line + "\n";
  return text + "exit\n";
}

TEST_F(MkcardSampleContentTest, AllThirtyEightCommandsSucceed) {
  const std::string idx = field("Magic Word", kGreen, "IDX_01");
  const std::string data = field("Magic Word", kGreen, "DATA");
  const std::string used = field("isUsed", kGreen, "Yes");
  const std::string info = field("Magic Word", kGreen, "DF_INFO");
  const std::string inUse = field("In Use", kGreen, "Yes");
  const std::string end = "\x1b[35m===========END==========\n\x1b[0m";
  const std::vector<Step> first = {
      {"recIndexFileHead", {target("51328"), idx, end}},
      {"recBackUpIndexFileHead", {target("10775914"), idx, end}},
      {"picIndexFileHead", {target("21500500"), idx, end}},
      {"picBackUpIndexFileHead",
       {target("32225086"), field("Magic Word", kRed, ""),
        field("Exception Flag", kRed, "Abnormal"), end}},
      {"recDataFileHead 1", {target("51592"), data, inUse, end}},
      {"recBackUpDataFileHead 1", {target("10776178"), data, inUse, end}},
      {"picDataFileHead 1", {target("21500764"), data, inUse, end}},
      {"picBackUpDataFileHead 1", {target("32225350"), data, inUse, end}},
      {"recIndexAuxHead 1", {target("6455114"), used, end}},
      {"recBackUpIndexAuxHead 1", {target("17179700"), used, end}},
      {"picIndexAuxHead 1", {target("27904286"), used, end}},
      {"picBackUpIndexAuxHead 1", {target("38628872"), used, end}},
      {"recDataFileInfo 1 1", {target("51624"), info, inUse, end}},
      {"recBackUpDataFileInfo 1 1", {target("10776210"), info, inUse, end}},
      {"picDataFileInfo 1 1", {target("21500796"), info, inUse, end}},
      {"picBackUpDataFileInfo 1 1", {target("32225382"), info, inUse, end}},
      {"recIndexFileAux 1 1", {target("6455122"), used, end}},
      {"recBackUpIndexFileAux 1 1", {target("17179708"), used, end}},
      {"picIndexFileAux 1 1", {target("27904294"), used, end}},
      {"picBackUpIndexFileAux 1 1", {target("38628880"), used, end}},
      {"recIFrameInfo 1 1", {target("51624"), "Frame [1/", end}},
      {"recData 1 1", {"[SUCCESS] Extracted ", media() + "/00001_0001.mp4\n"}},
      {"picData 1 1", {"[SUCCESS] Extracted ", media() + "/00001_0001.jpg\n"}},
      {"onePic 1 1 2", {"[SUCCESS] Saved " + media() + "/00001_0001_02.jpg"}},
      {"TrellisHead", {field("Magic Word", kGreen, "TR_V001"), end}},
      // Auxiliary 2's head lies 43208 bytes after auxiliary 1's.
      {"recChangeAuxCtxNum 2 5",
       {headTarget("51328"),
        field("IndexFileAuxiliaryHead targetOffset", kGreen, "6498322")}},
      {"recBackUpChangeAuxCtxNum 2 5",
       {headTarget("10775914"),
        field("IndexFileAuxiliaryHead targetOffset", kGreen, "17222908")}},
      {"picChangeAuxCtxNum 2 5",
       {headTarget("21500500"),
        field("IndexFileAuxiliaryHead targetOffset", kGreen, "27947494")}},
      {"picBackUpChangeAuxCtxNum 2 5",
       {headTarget("32225086"),
        field("IndexFileAuxiliaryHead targetOffset", kGreen, "38672080")}},
      {"recException", {headTarget("51328")}},
      {"recBackUpException", {headTarget("10775914")}},
      {"picException", {headTarget("21500500")}},
      {"picBackUpNormal", {headTarget("32225086")}},
      {"memsetTrellisHead", {}},
  };
  RunResult r = console(script(first));
  runSteps(r, first);
  const std::string zero7(7, '\0');
  const std::string magic("IDX_01\0", 7);
  EXPECT_EQ(at(51328, 7), zero7);
  EXPECT_EQ(at(10775914, 7), zero7);
  EXPECT_EQ(at(21500500, 7), zero7);
  EXPECT_EQ(at(32225086, 7), magic);
  for (const uint64_t base : {51328u, 10775914u, 21500500u, 32225086u}) {
    EXPECT_EQ(le32(at(base + 156, 4), 0), 2u) << base;
  }
  for (const uint64_t head : {6498322u, 17222908u, 27947494u, 38672080u}) {
    EXPECT_EQ(at(head + 2, 2), std::string("\5\0", 2)) << head;
  }
  EXPECT_EQ(at(51200, 128), std::string(128, '\0'));

  const std::vector<Step> second = {
      {"recNormal", {headTarget("51328")}},
      {"recBackUpNormal", {headTarget("10775914")}},
      {"picNormal", {headTarget("21500500")}},
      {"picBackUpException", {headTarget("32225086")}},
  };
  r = console(script(second));
  runSteps(r, second);
  EXPECT_EQ(at(51328, 7), magic);
  EXPECT_EQ(at(10775914, 7), magic);
  EXPECT_EQ(at(21500500, 7), magic);
  EXPECT_EQ(at(32225086, 7), zero7);
}

TEST_F(MkcardSampleContentTest, SegmentsInUseHaveEveryGroupValid) {
  const char* const kInUse[] = {
      "recDataFileInfo 1 1", "recDataFileInfo 1 2", "recDataFileInfo 1 3",
      "recDataFileInfo 1 4", "recDataFileInfo 2 1", "recDataFileInfo 2 2",
      "recDataFileInfo 2 3", "recDataFileInfo 3 1", "recDataFileInfo 3 2",
      "picDataFileInfo 1 1", "picDataFileInfo 1 2", "picDataFileInfo 1 3",
      "picDataFileInfo 2 1"};
  std::string text;
  for (const char* line : kInUse)
    text += std::string("maintain ") + line + "\n";
  const RunResult r = console(text + "exit\n");
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), std::size(kInUse) + 2);
  for (size_t i = 0; i < std::size(kInUse); ++i) {
    const std::string& out = parts[i + 1];
    EXPECT_NE(out.find(field("In Use", kGreen, "Yes")), std::string::npos)
        << kInUse[i];
    EXPECT_NE(out.find(field("effinfoMask", kGreen, "0x00000000000000FF")),
              std::string::npos)
        << kInUse[i];
    EXPECT_EQ(out.find("invalid]"), std::string::npos) << kInUse[i] << out;
    EXPECT_NE(out.find(field("timeZone", kGreen, "+08:00")), std::string::npos);
  }
}

TEST_F(MkcardSampleContentTest, RecordsAsFoundInTheField) {
  const RunResult r = console(
      "maintain recDataFileHead 1\nmaintain recDataFileHead 4\n"
      "maintain recDataFileInfo 2 3\nmaintain recDataFileInfo 2 4\n"
      "maintain recData 2 4\nexit\n");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), 7u);
  EXPECT_NE(parts[1].find(field("Validity", "\x1b[33m", "Read-Only")),
            std::string::npos);
  EXPECT_NE(parts[2].find(field("Validity", kRed, "Invalid")),
            std::string::npos);
  EXPECT_NE(parts[2].find(field("In Use", kRed, "No")), std::string::npos);
  EXPECT_NE(parts[3].find(field("Is Incomplete", kGreen, "YES")),
            std::string::npos);
  EXPECT_NE(parts[3].find(field("infoEx.position", kGreen, "Tail")),
            std::string::npos);
  EXPECT_NE(parts[4].find(field("Magic Word", kGreen, "DF_INFO")),
            std::string::npos);
  EXPECT_NE(parts[4].find(field("In Use", kRed, "No")), std::string::npos);
  EXPECT_NE(parts[5].find("[ERROR] _tr_maintainGetRecDataToFile This segment "
                          "has no data\n"),
            std::string::npos)
      << parts[5];
}

TEST_F(MkcardSampleContentTest, BackupsEqualTheirPrimariesButTheAbnormalMark) {
  EXPECT_EQ(at(10775914, 10724586), at(51328, 10724586));
  std::string picture = at(21500500, 10724586);
  ASSERT_EQ(picture.size(), 10724586u);
  picture.replace(0, 7, 7, '\0');  // magic word cleared
  picture[168] = 1;                // exception flag set
  EXPECT_EQ(at(32225086, 10724586), picture);
}

}  // namespace
}  // namespace test
}  // namespace tr
