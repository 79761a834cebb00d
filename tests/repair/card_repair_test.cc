// --repair on the sample card: its journal kept by default where the
// console runs, none with --no-undo, and a device write failing half-way
// through the fixes: status 8, and a journal that gives the card back.
#include "repair/card_repair.h"

#include <gtest/gtest.h>

#include <regex>

#include "base/platform.h"
#include "repair/journal.h"
#include "repair/restore.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

class CardRepairTest : public testing::Test {
 protected:
  CardRepairTest() {
    EXPECT_EQ(runProgram({TRELLIS_MKCARD_BIN, "--size", "1G", "--time", "1709622489",
                          "--sample", dir_.file("media"), card_},
                         "", {})
                  .status,
              0);
  }
  ~CardRepairTest() override { setJournalPath(""); }

  RunResult repair(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {TRELLIS_MAINTAIN_BIN, "-d", card_, "-m", dir_.file("media"),
                                     "--repair"};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, "", {{"PWD", dir_.path()}});
  }

  TempDir dir_;
  const std::string card_ = dir_.file("card.img");
};

TEST_F(CardRepairTest, KeepsAJournalUnlessToldNot) {
  const Extents before = extents(card_);
  RunResult r = repair({"-p"});
  EXPECT_EQ(r.status, 5) << r.err;
  std::smatch named;
  ASSERT_TRUE(std::regex_search(r.out, named,
                                std::regex("^undo journal: \\./(card\\.img-\\d{8}T\\d{6}Z\\.undo)\n")))
      << r.out;
  const std::string journal = dir_.file(named[1]);
  EXPECT_EQ(readFile(journal).rfind("trellis-undo 1\nrecord 1\n", 0), 0u);
  r = runProgram({TRELLIS_MAINTAIN_BIN, "-d", card_, "--restore", journal}, "", {});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(changes(before, extents(card_)), "");

  ASSERT_EQ(unlink(journal.c_str()), 0);
  r = repair({"-y", "--no-undo"});
  EXPECT_EQ(r.status, 5) << r.err;
  EXPECT_EQ(r.out.find("undo journal"), std::string::npos);
  EXPECT_EQ(runPython("import glob, sys\nsys.exit(len(glob.glob(sys.stdin.read() + '/*.undo')))\n",
                      dir_.path())
                .status,
            0);
}

// The sample's two fixes are two device writes, each after its journal
// record: the second write comes short.
TEST_F(CardRepairTest, AWriteFailingHalfWayEndsWith8AndTheJournalRestores) {
  useDevice(card_);
  setMediaDir(dir_.file("media"));
  const std::string journal = dir_.file("j.undo");
  setJournalPath(journal);
  const Extents before = extents(card_);
  RepairSettings settings;
  settings.mode = RepairMode::kSafe;
  settings.commandLine = "repair";
  {
    SysFaults faults({Call::kWrite, 4, 100, 0});
    const Captured c = capture([&] { EXPECT_EQ(runRepair(settings), kRepairFailed); });
    EXPECT_NE(c.err.find("INCOMPLETE WRITE"), std::string::npos) << c.err;
    EXPECT_NE(c.err.find("--restore " + journal + " puts back"), std::string::npos) << c.err;
    EXPECT_EQ(faults.unreturned(), 0);
  }
  EXPECT_NE(changes(before, extents(card_)), "");
  setJournalPath("");
  const Captured restored = capture([&] { EXPECT_EQ(restoreJournal(journal, {}), 0); });
  EXPECT_NE(restored.out.find("2 restored, 0 skipped"), std::string::npos) << restored.out;
  EXPECT_EQ(changes(before, extents(card_)), "");
}

// The fixes are written, but the device cannot be flushed to disk: the
// repair does not report them made.
TEST_F(CardRepairTest, ADeviceThatCannotBeFlushedEndsWith8) {
  useDevice(card_);
  setMediaDir(dir_.file("media"));
  setJournalPath(dir_.file("j.undo"));
  RepairSettings settings;
  settings.mode = RepairMode::kSafe;
  // Two journal records, the journal's directory, then the device.
  SysFaults faults({Call::kFsync, 4, -1, EIO});
  const Captured c = capture([&] { EXPECT_EQ(runRepair(settings), kRepairFailed); });
  EXPECT_NE(c.err.find("the writes could not be made durable"), std::string::npos) << c.err;
  EXPECT_EQ(c.out.find("repair: "), std::string::npos);
  EXPECT_EQ(faults.calls(Call::kFsync), 4);
}

}  // namespace
}  // namespace test
}  // namespace tr
