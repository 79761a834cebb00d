// Every record printer, and the output helpers they are built from, fed
// arbitrary record bytes. Byte 0 picks the printer (its top bit switches
// colour off, so the escape stripping runs too); the numbers the command
// line would give follow; the rest fills the record. Each record lives in a
// heap block of exactly its own size, so a printer that reads one byte past
// it is caught.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "base/output.h"
#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"
#include "format/trellis_head.h"
#include "fuzz/fuzz_support.h"

namespace tr {
namespace fuzz {
namespace {

// The record bytes, in a block of exactly sizeof(Record).
template <typename Record>
std::unique_ptr<Record> recordFrom(Bytes& in) {
  std::unique_ptr<Record> record(new Record);
  std::memset(record.get(), 0, sizeof(Record));
  in.copy(record.get(), sizeof(Record));
  return record;
}

void printHelpers(Bytes& in) {
  const uint64_t value = in.u64();
  const int32_t zone = in.i32();
  const uint8_t bufferSize = in.u8() % 40;
  sizeText(value);
  timeZoneText(zone);
  std::unique_ptr<char[]> text(new char[bufferSize == 0 ? 1 : bufferSize]);
  _tr_maintainFormatUnixTime(static_cast<int64_t>(value), text.get(),
                             bufferSize);
  _tr_maintainGetColoredTimestamp(text.get(), bufferSize);
  tableWord(kValidityNames, 3, value);
  _tr_maintainVideoEncodeTypeToStr(static_cast<uint32_t>(value));
  _tr_maintainAudioEncodeTypeToStr(static_cast<int>(value));
  hex64Text(value);
  const size_t dumpSize = in.left();
  std::unique_ptr<uint8_t[]> dump(new uint8_t[dumpSize + 1]);
  in.copy(dump.get(), dumpSize);
  _tr_maintainHexDump(dump.get(), dumpSize);
  // Text with stray escape bytes, printed as a field value.
  dump[dumpSize] = 0;
  _tr_maintainPrintColoredField(reinterpret_cast<const char*>(dump.get()),
                                reinterpret_cast<const char*>(dump.get()),
                                kRed);
}

void printPositions(Bytes& in) {
  const int32_t start = in.i32();
  const int32_t count = in.i32();
  const int32_t n = in.i32();
  // The array on its own, 100 entries and no more.
  std::unique_ptr<uint32_t[]> positions(new uint32_t[kPositionsPerContext]());
  in.copy(positions.get(), sizeof(uint32_t) * kPositionsPerContext);
  _tr_maintainPrintPositionChunk(positions.get(), start, count, "Positions");
  // The count is the caller's array length: at most the 100 there are.
  _tr_maintainCountValidPositions(positions.get(),
                                  n < 0 ? n : n % (kPositionsPerContext + 1));
}

}  // namespace
}  // namespace fuzz
}  // namespace tr

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tr::fuzz::silenceStdout();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tr;
  using fuzz::recordFrom;
  fuzz::Bytes in(data, size);
  const uint8_t selector = in.u8();
  setColourEnabled((selector & 0x80) == 0);
  const int32_t first = in.i32();
  const int32_t second = in.i32();
  switch (selector & 0x7F) {
    case 0:
      _tr_maintainPrintTrellisHead(recordFrom<tr_TrellisHead>(in).get());
      break;
    case 1:
      _tr_maintainPrintIndexFileHeader(recordFrom<tr_IndexFileHead>(in).get());
      break;
    case 2:
      _tr_maintainPrintDataFileHeader(recordFrom<tr_DataFileHead>(in).get(),
                                      first);
      break;
    case 3:
      _tr_maintainPrintRecDataInfo(recordFrom<tr_RecDataFileInfo>(in).get(),
                                   first, second);
      break;
    case 4:
      _tr_maintainPrintJpgDataInfo(recordFrom<tr_JPGDataFileInfo>(in).get(),
                                   first, second);
      break;
    case 5:
      _tr_maintainPrintIndexAuxHeader(
          recordFrom<IndexFileAuxiliaryHead>(in).get(), first);
      break;
    case 6:
      _tr_maintainPrintIndexAuxContext(
          recordFrom<IndexFileAuxiliaryContext>(in).get(), first, second);
      break;
    case 7: {
      std::unique_ptr<tr_FileTypeInfo> info = recordFrom<tr_FileTypeInfo>(in);
      printFileTypeInfo(*info, in.u64());
      break;
    }
    case 8:
      fuzz::printPositions(in);
      break;
    default:
      fuzz::printHelpers(in);
      break;
  }
  setColourEnabled(true);
  return 0;
}
