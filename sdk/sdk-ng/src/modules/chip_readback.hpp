#pragma once

// A chip's configuration read back over the data endpoint: the endpoint's halt cleared, one
// perpetual read of a single transfer into the caller's producer, the board told to send, at most
// a second's wait for the data, then the transfer collected. Both chips read their pixel
// memories this way; they differ in the producer, the command and the texts.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include "ovex/usb/data_producer.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/usb/usb_endpoint.hpp"

namespace ovex::sdk {

// The device's bulk endpoint at `address`; null, logged as a bug, on a device without it.
usb::device::UsbBulkEp* FindBulkEndpoint(usb::device::UsbDevice* device, std::uint8_t address);

struct ChipReadback {
    usb::device::UsbBulkEp& endpoint;
    std::shared_ptr<usb::device::IUsbDataProducer> producer;
    // What a failed start names, such as "Failed to start the CONF matrix data readout".
    std::string start_failure;
    // Makes the board send; logs its own failure.
    std::function<std::error_code()> trigger;
    // Waits until the producer has its data or the deadline passes; false on the deadline.
    std::function<bool(std::chrono::steady_clock::time_point)> wait;
};

// The first failure, logged; success once the transfer ended without error, whatever it brought.
std::error_code ReadBackChip(const ChipReadback& readback);

}  // namespace ovex::sdk
