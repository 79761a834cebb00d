// trellis-mkcard: lays out a Trellis card on an image file or a card's block
// device, optionally filled with sample recordings. Everything is checked
// before the first byte is written: the options, the force rule, the
// layout's fit and the sample's data files.
#include <ctime>
#include <memory>

#include "base/output.h"
#include "base/platform.h"
#include "base/version.h"
#include "format/index_layout.h"
#include "mkcard/card_content.h"
#include "mkcard/index_writer.h"
#include "mkcard/layout.h"
#include "mkcard/options.h"
#include "mkcard/sample_content.h"
#include "mkcard/sample_media.h"
#include "mkcard/sample_plan.h"
#include "mkcard/target.h"

namespace tr {
namespace {

constexpr int kRefused = 1;
constexpr int kBadCommandLine = 2;

unsigned long long ull(uint64_t value) {
  return static_cast<unsigned long long>(value);
}

void printSummary(const MkcardOptions& options, const CardLayout& layout,
                  const SamplePlan* plan) {
  out("Wrote a Trellis card on %s (%llu bytes):\n", options.target.c_str(),
      ull(layout.capacity));
  out("  storage head at byte %llu; index files of %llu bytes each\n",
      ull(kTrellisHeadOffset), ull(layout.head.idxFileSize));
  for (const IndexFilePlace& file : layout.files) {
    const std::string name =
        std::string(file.def->kind == kRecordKind ? "record" : "picture") +
        (file.def->backup ? " backup" : "");
    out("  %-15s at byte %llu\n", name.c_str(), ull(file.base));
  }
  out("  %u data files of %u segments, %u auxiliaries; in each index file "
      "the data files end at byte %llu (record) and %llu (picture), the "
      "auxiliary region starts at byte %llu\n",
      layout.dims.files, layout.dims.segments, layout.dims.aux,
      ull(dataAreaEnd(kRecordKind, layout.dims)),
      ull(dataAreaEnd(kPictureKind, layout.dims)),
      ull(auxRegionStart(0, layout.head.idxFileSize)));
  if (plan != nullptr) {
    out("Sample recordings: %zu record and %zu picture data files in %s\n",
        plan->recFiles.size(), plan->picFiles.size(), options.mediaDir.c_str());
  }
}

int run(int argc, char** argv) {
  MkcardOptions options;
  if (parseOptions(argc, argv, &options) == -1) return kBadCommandLine;
  if (options.help) {
    printUsage();
    return 0;
  }
  if (options.version) {
    out("trellis-mkcard %s\n", kVersion);
    return 0;
  }
  if (options.sample && (options.files < kSampleMinFiles ||
                         options.segments < kSampleMinSegments)) {
    err("trellis-mkcard: the sample needs --files and --segments of at least "
        "%u and %u; got %u and %u\n",
        kSampleMinFiles, kSampleMinSegments, options.files, options.segments);
    return kBadCommandLine;
  }
  if (!options.timeGiven) options.startTime = std::time(nullptr);

  TargetInfo info;
  if (inspectTarget(options, &info) == -1) return kRefused;
  CardLayout layout;
  const CardDimensions dims = {options.files, options.segments, options.aux};
  if (planCard(info.capacity, dims, &layout) == -1) return kRefused;

  std::unique_ptr<SamplePlan> plan;
  std::unique_ptr<CardContent> content;
  if (options.sample) {
    plan = std::make_unique<SamplePlan>(makeSamplePlan(options.startTime));
    if (checkMediaDir(options.mediaDir, *plan, options.force) == -1) {
      return kRefused;
    }
    content = std::make_unique<SampleContent>(layout, *plan);
  } else {
    content = std::make_unique<CardContent>(layout, options.startTime);
  }

  CardTarget target;
  if (target.open(info) == -1 || writeCard(&target, layout, *content) == -1) {
    return kRefused;
  }
  if (plan != nullptr && writeSampleMedia(options.mediaDir, *plan) == -1) {
    return kRefused;
  }
  if (target.commit() == -1) return kRefused;
  printSummary(options, layout, plan.get());
  return 0;
}

}  // namespace
}  // namespace tr

int main(int argc, char** argv) {
  // Before anything is opened: the card's descriptor must never be one that
  // the builder's messages are printed to.
  if (tr::guardStandardDescriptors() == -1) return tr::kRefused;
  return tr::run(argc, argv);
}
