#pragma once

namespace ovex::usb::device {

// Time-outs are seconds everywhere in the transport. At libusb they are whole milliseconds,
// 0 meaning none; a value past 32 bits is cut to the largest with a warning, and a negative one
// counts as 0.
unsigned int ToLibusbTimeout(double seconds);

}  // namespace ovex::usb::device
