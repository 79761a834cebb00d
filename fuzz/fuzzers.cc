// The libFuzzer harnesses; TRELLIS_FUZZER picks the one a target builds.
//
// console_fuzzer: any bytes given to the console as its standard input,
// against a sparse 2 GiB card whose index files have 4 data files, 8
// segments and 3 auxiliaries, record and picture segment 1/1 holding data
// in TR00001.mp4 and TR00001.picture. What an input writes on the card is
// undone, and the files it extracts removed, before the next.
//
// printer_fuzzer: a record printer fed arbitrary record bytes. Byte 0
// picks the printer (its top bit switches colour off); two numbers follow;
// the rest fills the record, which lives in a heap block of exactly its
// own size, so a read past it is caught.
//
// image_fuzzer: start-up on a sparse image of a size the input picks, then
// one of the 38 commands with numbers from the input, or (a command byte of
// 0xF0 and above) the whole-card inventory or check, as text or JSON. Every
// byte read from the device or a data file is replaced by the input's next
// bytes, so the records hold anything; the input may also make one system
// call fail.
// Input: device size class, command row, data file size class, fault (0xC0
// and above: bits 0-2 the call, bits 3-5 which of its calls), three
// numbers, then the bytes the reads return.
//
// After every input each descriptor, stream and heap block taken through
// tr::sys must have been given back; heap requests above 64 MiB fail, as on
// the recorder.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "base/output.h"
#include "check/check.h"
#include "console/console.h"
#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"
#include "format/trellis_head.h"
#include "maintain/commands.h"
#include "maintain/startup.h"
#include "tests/support/test_support.h"

namespace tr {
namespace fuzz {
namespace {

using test::Call;
using test::SysFaults;

// Takes values from the front of the input; past its end, zeros.
struct Bytes {
  const uint8_t* data;
  size_t size;

  size_t copy(void* dest, size_t count) {
    const size_t n = std::min(count, size);
    if (n != 0) std::memcpy(dest, data, n);
    data += n;
    size -= n;
    return n;
  }
  template <typename T>
  T take() {
    T value{};
    copy(&value, sizeof value);
    return value;
  }
};

const test::TempDir& scratch() {
  static const test::TempDir dir;
  return dir;
}

void checkReturned(const SysFaults& ledger, const char* after) {
  if (ledger.unreturned() == 0) return;
  std::fprintf(stderr, "fuzz harness: after %s, %d descriptors, streams or "
               "heap blocks were not given back\n", after, ledger.unreturned());
  std::abort();
}

void* boundedMalloc(size_t size) {
  return size > (64u << 20) ? nullptr : kSystemCalls.malloc(size);
}

// --- console_fuzzer
void put(const std::string& path, uint64_t offset, const std::string& bytes) {
  if (!test::poke(path, offset, bytes)) std::abort();
}

// Set when the console wrote the card: the next input gets a fresh one.
bool gCardWritten = true;

ssize_t noteWrite(int fd, const void* buf, size_t count) {
  gCardWritten = true;
  return kSystemCalls.write(fd, buf, count);
}

void makeCard() {
  const std::string card = scratch().file("card.img");
  if (!test::sizeFile(card, 0) || !test::sizeFile(card, 2147483648ULL)) std::abort();
  const uint64_t bases[4] = {51328, 10775914, 21500500, 32225086};
  for (int k = 0; k < 4; ++k) {
    put(card, bases[k], std::string("IDX_01\0", 7) + char(k < 2 ? 1 : 2));
    put(card, bases[k] + 144, test::le(4, 4) + test::le(8, 4) + test::le(3, 4));
    put(card, bases[k] + 296 + 7, "\x01");  // segment 1/1 in use
  }
  // Record 1/1: 64 bytes at 16, three I-frame entries at 100. Picture 1/1:
  // two pictures of 100 and 200 bytes from 0.
  put(card, 51328 + 296 + 8, test::le(16, 8) + test::le(64, 8) +
                                 test::le(100, 8) + test::le(96, 8));
  put(card, 21500500 + 296 + 24, test::le(300, 8));
  put(card, 21500500 + 296 + 48, test::le(100, 4));
  put(card, 21500500 + 296 + 72, test::le(200, 4));
  put(card, 21500500 + 296 + 1632, "\x02");
}

void makeDataFiles() {
  std::string bytes(300, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 13 + 7);
  put(scratch().file("TR00001.mp4"), 0, bytes);
  put(scratch().file("TR00001.picture"), 0, bytes);
}

void consoleInput(const uint8_t* data, size_t size) {
  if (gCardWritten) makeCard();
  gCardWritten = false;
  SysFaults ledger;
  test::writeFile(scratch().file("input"), std::string(data, data + size));
  if (std::freopen(scratch().file("input").c_str(), "rb", stdin) == nullptr) {
    std::abort();
  }
  char name[] = "trellis-maintain";
  char* argv[] = {name, nullptr};
  consoleMain(1, argv);
  checkReturned(ledger, "the console");
  // Only segment 1/1 is in use: its extractions are all the files made.
  for (const char* made : {"input", "00001_0001.mp4", "00001_0001.jpg",
                           "00001_0001_01.jpg", "00001_0001_02.jpg"}) {
    std::remove(scratch().file(made).c_str());
  }
}

// --- printer_fuzzer
template <typename Record>
std::unique_ptr<Record> recordFrom(Bytes& in) {
  std::unique_ptr<Record> record(new Record);
  std::memset(record.get(), 0, sizeof(Record));
  in.copy(record.get(), sizeof(Record));
  return record;
}

void printerInput(Bytes& in) {
  const uint8_t selector = in.take<uint8_t>();
  setColourEnabled((selector & 0x80) == 0);
  const int32_t first = in.take<int32_t>();
  const int32_t second = in.take<int32_t>();
  switch (selector & 0x7F) {
    case 0: _tr_maintainPrintTrellisHead(recordFrom<tr_TrellisHead>(in).get()); break;
    case 1: _tr_maintainPrintIndexFileHeader(recordFrom<tr_IndexFileHead>(in).get()); break;
    case 2: _tr_maintainPrintDataFileHeader(recordFrom<tr_DataFileHead>(in).get(), first); break;
    case 3: _tr_maintainPrintRecDataInfo(recordFrom<tr_RecDataFileInfo>(in).get(), first, second); break;
    case 4: _tr_maintainPrintJpgDataInfo(recordFrom<tr_JPGDataFileInfo>(in).get(), first, second); break;
    case 5: _tr_maintainPrintIndexAuxHeader(recordFrom<IndexFileAuxiliaryHead>(in).get(), first); break;
    case 6:
      _tr_maintainPrintIndexAuxContext(recordFrom<IndexFileAuxiliaryContext>(in).get(), first, second);
      break;
    case 7: printFileTypeInfo(*recordFrom<tr_FileTypeInfo>(in), in.take<uint64_t>()); break;
    default: break;
  }
  setColourEnabled(true);
}

// --- image_fuzzer
// Device sizes around the layout's edges: no room for the storage head,
// the head and nothing more, index files too small for their auxiliary
// region (below about 870 MB), common cards, offsets beyond 4 GiB.
constexpr uint64_t kDeviceSizes[] = {
    0, 1, 51200, 51328, 51592, 4194304, 67108864, 866000000, 1073741824,
    2147483648ULL, 8589934592ULL, 68719476736ULL, 1099511627776ULL};
// Data file sizes: missing, empty, less than one I-frame entry, one entry,
// one copy chunk, one chunk and a byte.
constexpr int64_t kDataSizes[] = {-1, 0, 16, 31, 32, 100, 4096, 4194304, 4194305};

Bytes* gReads = nullptr;  // what the reads return
std::string gDataFile;    // every source opened; empty: none

ssize_t overlayRead(int fd, void* buf, size_t count) {
  const ssize_t got = kSystemCalls.read(fd, buf, count);
  if (got > 0) gReads->copy(buf, static_cast<size_t>(got));
  return got;
}

size_t overlayFread(void* buf, size_t size, size_t count, FILE* stream) {
  const size_t got = kSystemCalls.fread(buf, size, count, stream);
  gReads->copy(buf, got * size);
  return got;
}

// Sources are the input's one data file, whatever their name; every output
// is one scratch file.
int redirectOpenFile(const char*, int flags, mode_t mode) {
  const bool output = (flags & O_ACCMODE) != O_RDONLY;
  if (!output && gDataFile.empty()) return -1;
  const std::string outputFile = scratch().file("output.bin");
  return kSystemCalls.openFile(output ? outputFile.c_str() : gDataFile.c_str(), flags, mode);
}

void imageInput(Bytes& in) {
  const uint8_t sizeClass = in.take<uint8_t>();
  const uint8_t command = in.take<uint8_t>();
  // The whole-card modes read every index region whole: cards up to 1 GiB
  // keep one run in milliseconds.
  const size_t classes = command < 0xF0 ? std::size(kDeviceSizes) : 9;
  const uint64_t deviceSize = kDeviceSizes[sizeClass % classes];
  const CommandRow& row = kCommands[command % kCommandCount];
  const int64_t dataSize = kDataSizes[in.take<uint8_t>() % std::size(kDataSizes)];
  const uint8_t fault = in.take<uint8_t>();
  std::vector<std::string> words(1, row.word);
  for (int i = 1; i < wordCount(row.args); ++i) {
    words.push_back(std::to_string(in.take<int32_t>()));
  }
  const std::string card = scratch().file("card.img");
  gDataFile = dataSize < 0 ? "" : scratch().file("data.bin");
  if (!test::sizeFile(card, 0) || !test::sizeFile(card, deviceSize) ||
      (dataSize >= 0 && (!test::sizeFile(gDataFile, 0) ||
                         !test::sizeFile(gDataFile, static_cast<uint64_t>(dataSize))))) {
    std::abort();
  }
  setDevicePath(card);
  gReads = &in;
  SysFaults ledger;
  _tr_maintainInit();
  checkReturned(ledger, "start-up");
  if (fault >= 0xC0) ledger.fail({static_cast<Call>(1 + (fault & 7)), 1 + ((fault >> 3) & 7)});
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  if (command < 0xF0) {
    tr_maintain(static_cast<int>(argv.size()), argv.data());
    checkReturned(ledger, row.word);
    return;
  }
  CheckSettings settings;
  settings.json = (command & 1) != 0;
  const int status = (command & 2) != 0 ? runCheck(settings)
                                        : runInventory(settings);
  if (status < kCardClean || status > kCardUnreadable) std::abort();
  checkReturned(ledger, "the whole-card commands");
}

}  // namespace
}  // namespace fuzz
}  // namespace tr

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  using namespace tr;
  if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
  sys.malloc = fuzz::boundedMalloc;
  setenv("TRELLIS_DEVICE", fuzz::scratch().file("card.img").c_str(), 1);
  setenv("TRELLIS_MEDIA_DIR", fuzz::scratch().path().c_str(), 1);
  unsetenv("NO_COLOR");
  fuzz::makeDataFiles();
  if (TRELLIS_FUZZER == 0) sys.write = fuzz::noteWrite;
  if (TRELLIS_FUZZER == 2) {
    sys.read = fuzz::overlayRead;
    sys.fread = fuzz::overlayFread;
    sys.openFile = fuzz::redirectOpenFile;
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tr::fuzz::Bytes in{data, size};
  if (TRELLIS_FUZZER == 0) tr::fuzz::consoleInput(data, size);
  if (TRELLIS_FUZZER == 1) tr::fuzz::printerInput(in);
  if (TRELLIS_FUZZER == 2) tr::fuzz::imageInput(in);
  return 0;
}
