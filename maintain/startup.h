// Start-up: measures the raw device, computes the layout from its size
// (format/device_layout.h) into `trellisHead` and prints it.
#ifndef TRELLIS_MAINTAIN_STARTUP_H_
#define TRELLIS_MAINTAIN_STARTUP_H_

#include <cstdint>

namespace tr {

// Measures the device and computes trellisHead from its size, printing
// nothing but the diagnostic of a failed measurement. Returns the size; 0
// when the device could not be measured or is empty, and the layout is then
// the one a size of 0 gives (the recorder goes on with it; its commands
// fail at their reads).
uint64_t loadDeviceLayout();
// loadDeviceLayout(), then the nine start-up lines. 0, or -1 when the device
// gave no size.
int _tr_maintainInit();
// The device's size in bytes, or 0 after a diagnostic. A regular file (a
// card image) is measured by its size.
uint64_t _tr_maintainGetDeviceCapacity(const char* path);

}  // namespace tr

#endif  // TRELLIS_MAINTAIN_STARTUP_H_
