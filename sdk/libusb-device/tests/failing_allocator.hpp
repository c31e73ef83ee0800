#pragma once

// Makes one chosen allocation fail. This test executable's operator new throws std::bad_alloc at
// the n-th allocation made after arming on the arming thread or on one of the transport's own
// threads ("Endpoint ...", "UsbEvents ...", "ResultAwait"); other threads, the virtual board's
// among them, never see a failure.

#include <cstddef>

namespace ovex::usb::device::testing {

void ArmAllocationFailure(std::size_t nth);
// Disarms; true if the armed allocation came and failed.
bool DisarmAllocationFailure();

}  // namespace ovex::usb::device::testing
