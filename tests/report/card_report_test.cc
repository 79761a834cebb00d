// --report on the sample card, read by parsers and a browser of other
// origins: well-formed XML holding every problem --check finds and every
// channel; card text that never reaches the file raw; a page a browser
// draws.
#include <gtest/gtest.h>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

class CardReportTest : public testing::Test {
 protected:
  CardReportTest() {
    EXPECT_EQ(runProgram({TRELLIS_MKCARD_BIN, "--size", "1G", "--time", "1709622489",
                          "--sample", dir_.file("media"), card_},
                         "", {})
                  .status,
              0);
  }

  RunResult console(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {TRELLIS_MAINTAIN_BIN, "-d", card_, "-m",
                                     dir_.file("media")};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, "", {});
  }

  TempDir dir_;
  const std::string card_ = dir_.file("card.img");
  const std::string html_ = dir_.file("report.html");
};

// Python's XML parser reads the page; every problem of --check --json is
// in its table, each channel has its lane, the cut-short segment its mark.
TEST_F(CardReportTest, HoldsWhatTheCheckAndTheInventoryFind) {
  const RunResult made = console({"--report", html_});
  ASSERT_EQ(made.status, 1) << made.err;
  const RunResult check = console({"--check", "--json"});
  const RunResult read = runPython(
      "import json, sys, xml.etree.ElementTree as ET\n"
      "html, problems = sys.stdin.read().split('\\n', 1)\n"
      "ns = {'h': 'http://www.w3.org/1999/xhtml', 's': 'http://www.w3.org/2000/svg'}\n"
      "page = ET.parse(html).getroot()\n"
      "rows = [[''.join(td.itertext()) for td in tr.findall('h:td', ns)]\n"
      "        for tr in page.iter('{%s}tr' % ns['h']) if tr.get('id')]\n"
      "for line in problems.splitlines():\n"
      "  p = json.loads(line)\n"
      "  if p['type'] != 'problem': continue\n"
      "  if [p['where'], p['problem'], p['command']] not in [r[1:] for r in rows]:\n"
      "    print('missing', p['where'], p['problem'])\n"
      "lanes = [t.text for t in page.iter('{%s}text' % ns['s']) if t.get('class') == 'lane']\n"
      "marks = [p for p in page.iter('{%s}path' % ns['s']) if p.get('class') == 'cut']\n"
      "print(len(rows), sorted(set(lanes)), len(marks))\n",
      html_ + "\n" + check.out);
  if (read.status == 127) GTEST_SKIP() << "python3 is not installed";
  EXPECT_EQ(read.out, "6 ['channel 1', 'channel 2'] 1\n") << read.err;
  EXPECT_NE(readFile(html_).find("abnormal: magic word not IDX_01: exception flag set"),
            std::string::npos);
}

// Record data file 4's magic word (in both index files) holds markup
// characters, an escape and a byte past ASCII: none reaches the file raw.
TEST_F(CardReportTest, CardTextIsEscaped) {
  ASSERT_TRUE(poke(card_, 113128, "<&\x1b\xff>") && poke(card_, 5469005, "<&\x1b\xff>"));
  ASSERT_EQ(console({"--report", html_}).status, 1);
  const std::string page = readFile(html_);
  EXPECT_NE(page.find("magicWord &quot;&lt;&amp;\\x1b\\xff&gt;&quot; (expected"),
            std::string::npos);
  EXPECT_EQ(page.find_first_of(std::string("\x1b\xff", 2)), std::string::npos);
  // Nothing but a regular file off the card is written.
  EXPECT_EQ(console({"--report", dir_.path()}).status, 2);
  EXPECT_EQ(console({"--report", dir_.file("media/r.html")}).status, 2);
  EXPECT_NE(access(dir_.file("media/r.html").c_str(), F_OK), 0);
}

// The browser draws it: a page that is not blank.
TEST_F(CardReportTest, ABrowserDrawsIt) {
  ASSERT_EQ(console({"--report", html_}).status, 1);
  const RunResult drawn = runPython(
      "import subprocess, sys, zlib\n"
      "html, png, tool = sys.stdin.read().split()\n"
      "r = subprocess.run([tool, html, png])\n"
      "if r.returncode == 127: sys.exit(127)\n"
      "data = open(png, 'rb').read()\n"
      "at, idat = 8, b''\n"
      "while at < len(data):\n"
      "  n = int.from_bytes(data[at:at + 4], 'big')\n"
      "  if data[at + 4:at + 8] == b'IDAT': idat += data[at + 8:at + 8 + n]\n"
      "  at += n + 12\n"
      "pixels = zlib.decompress(idat)\n"
      "print(len(set(pixels)) > 32, sum(b < 0xf0 for b in pixels) * 100 > len(pixels))\n",
      html_ + " " + dir_.file("report.png") + " " + sourceFile("../tools", "render-report.sh"));
  if (drawn.status == 127) GTEST_SKIP() << "python3 or chromium is not installed";
  EXPECT_EQ(drawn.out, "True True\n") << drawn.err;
}

}  // namespace
}  // namespace test
}  // namespace tr
