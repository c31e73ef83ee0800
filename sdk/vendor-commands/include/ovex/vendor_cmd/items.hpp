#pragma once

// The four item families the board publishes: commands, versions, states, monitors. Each has a
// count and a name for every id; an id is the item's place in the board's list.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "ovex/range/range.hpp"
#include "ovex/vendor_cmd/vendor_command.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::usb::vendor_cmd {

namespace command {
std::error_code GetCount(device::UsbDevice& device, unsigned int& count,
                         double timeout = kDefaultTimeout);
std::error_code GetName(device::UsbDevice& device, CmdId id, std::string& name,
                        double timeout = kDefaultTimeout);
std::error_code Invoke(device::UsbDevice& device, CmdId id, double timeout = kDefaultTimeout);
// The command's output lands in `output`; its size is the request's length. `received`, if
// given, gets the number of bytes the board answered, which may be fewer.
std::error_code InvokeWithOutput(device::UsbDevice& device, CmdId id,
                                 std::span<std::uint8_t> output, double timeout = kDefaultTimeout,
                                 std::size_t* received = nullptr);
std::error_code InvokeWithInput(device::UsbDevice& device, CmdId id,
                                std::span<const std::uint8_t> input,
                                double timeout = kDefaultTimeout);
}  // namespace command

namespace version {
std::error_code GetCount(device::UsbDevice& device, unsigned int& count,
                         double timeout = kDefaultTimeout);
std::error_code GetName(device::UsbDevice& device, VersionId id, std::string& name,
                        double timeout = kDefaultTimeout);
std::error_code GetValue(device::UsbDevice& device, VersionId id, std::string& value,
                         double timeout = kDefaultTimeout);
}  // namespace version

namespace state {
std::error_code GetCount(device::UsbDevice& device, unsigned int& count,
                         double timeout = kDefaultTimeout);
std::error_code GetName(device::UsbDevice& device, StateId id, std::string& name,
                        double timeout = kDefaultTimeout);
std::error_code GetValue(device::UsbDevice& device, StateId id, int& value,
                         double timeout = kDefaultTimeout);
std::error_code SetValue(device::UsbDevice& device, StateId id, int value,
                         double timeout = kDefaultTimeout);
std::error_code GetLimits(device::UsbDevice& device, StateId id, range::Range<int>& limits,
                          double timeout = kDefaultTimeout);
}  // namespace state

namespace monitor {
std::error_code GetCount(device::UsbDevice& device, unsigned int& count,
                         double timeout = kDefaultTimeout);
std::error_code GetName(device::UsbDevice& device, MonitorId id, std::string& name,
                        double timeout = kDefaultTimeout);
std::error_code GetValue(device::UsbDevice& device, MonitorId id, float& value,
                         double timeout = kDefaultTimeout);
std::error_code GetRange(device::UsbDevice& device, MonitorId id, range::Range<float>& range,
                         double timeout = kDefaultTimeout);
}  // namespace monitor

}  // namespace ovex::usb::vendor_cmd

namespace ovex::usb::vendor_cmd::impl {

// Reads the length of a family's list (bRequest `family`), then every name in id order. The
// first failing request ends the reading and is returned.
std::error_code ReadItemNames(device::UsbDevice& device, std::uint8_t family,
                              std::vector<std::string>& names, double timeout = kDefaultTimeout);

// The id of the first item of exactly this name: same length, same bytes.
std::optional<std::uint16_t> FindItem(const std::vector<std::string>& names,
                                      std::string_view name) noexcept;

}  // namespace ovex::usb::vendor_cmd::impl
