// Start-up: measures the raw device, computes the layout from its size
// (format/device_layout.h) into `trellisHead` and prints it.
#ifndef TRELLIS_MAINTAIN_STARTUP_H_
#define TRELLIS_MAINTAIN_STARTUP_H_

#include <cstdint>

namespace tr {

// Fills trellisHead and prints the nine start-up lines. Never fails.
int _tr_maintainInit();
// The device's size in bytes, or 0 after a diagnostic. A regular file (a
// card image) is measured by its size.
uint64_t _tr_maintainGetDeviceCapacity(const char* path);

}  // namespace tr

#endif  // TRELLIS_MAINTAIN_STARTUP_H_
