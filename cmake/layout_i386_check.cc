// Compiled, never linked: every on-device record under the 32-bit x86 rule
// that 8-byte members align to 4 bytes inside a struct (ARM and x86-64
// align them to 8). Each record's static_asserts then fail the build if a
// layout leans on padding that only 8-byte alignment would insert, so the
// check holds on any host without a 32-bit x86 toolchain.
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#pragma pack(push, 4)
namespace tr {
// The rule above is really in force for the records below.
struct LayoutCheckProbe {
  uint32_t before;
  uint64_t wide;
};
static_assert(offsetof(LayoutCheckProbe, wide) == 4, "pack(4) not applied");
}  // namespace tr

// Every header of format/, listed at configure time.
#include "layout_i386_records.inc"
#pragma pack(pop)
