// The checks of each index record on its own. Every problem found is one
// report line naming the field, what it holds and what it should hold; a
// problem never stops the walk through the card.
//
// What is a problem: a wrong magic word; a storage head that does not match
// the layout computed from the device's size; an index file marked
// abnormal, of the wrong kind, with dimensions its region cannot hold or a
// current auxiliary or channel write index out of range; a data file marked
// invalid or with unknown flag values, whose number is not its place or
// whose count of valid segments is not the count of segment infos in use; a
// segment in use that was cut short, ends before it starts, or whose media,
// I-frame table or pictures do not fit where they should; an auxiliary whose
// current context, or a context whose positions or span, is out of bounds.
// What is only a state: a full (read-only) data file, a data file or
// segment not in use, an auxiliary or context not used.
#ifndef TRELLIS_CHECK_RECORD_CHECKS_H_
#define TRELLIS_CHECK_RECORD_CHECKS_H_

#include <cstdint>

#include "format/card.h"
#include "check/report.h"
#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"
#include "format/trellis_head.h"

namespace tr {

// The storage head on the device against the layout start-up computes from
// the device's size: the magic word, the four offsets and the file size.
void checkStorageHead(const tr_TrellisHead& found, const CardSession& card,
                      Report* report);

// The abnormal mark, each index file's own: magic word and exception flag.
void checkIndexFileMark(const Place& where, const tr_IndexFileHead& head,
                        Report* report);
// The rest of the header: its kind, whether its data-file area fits before
// the auxiliary region, the auxiliary numbers and the channels' data files.
void checkIndexFileHead(const Place& where, const tr_IndexFileHead& head,
                        uint64_t idxFileSize, Report* report);

void checkDataFileHead(const Place& where, const tr_DataFileHead& head,
                       Report* report);
// After the data file's segment infos: its validSegments against the number
// of them in use.
void checkValidSegments(const Place& where, const tr_DataFileHead& head,
                        uint32_t inUse, Report* report);

// Segment infos in use; the extents are checked against the data file's
// size when the media directory holds it.
void checkRecSegment(const Place& where, const tr_RecDataFileInfo& info,
                     DataFileSizes* sizes, Report* report);
void checkJpgSegment(const Place& where, const tr_JPGDataFileInfo& info,
                     DataFileSizes* sizes, Report* report);

void checkAuxHead(const Place& where, const IndexFileAuxiliaryHead& head,
                  Report* report);
// Positions are checked against the dimensions of `head`, the index file's
// header.
void checkAuxContext(const Place& where, const IndexFileAuxiliaryContext& ctx,
                     const tr_IndexFileHead& head, Report* report);

}  // namespace tr

#endif  // TRELLIS_CHECK_RECORD_CHECKS_H_
