#pragma once

// The device's item sets over its USB device: each reads its names from the board once, when it
// is made, and sends every access to the board under the item's id.

#include "impl/item_set.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// Each constructor throws std::runtime_error with "<message>: <category>" when a count or name
// can't be read. The USB device must outlive the set.
class UsbCommands final : public Commands {
public:
    explicit UsbCommands(usb::device::UsbDevice& device);

    std::error_code Invoke(std::string_view name) override;
    std::error_code Invoke(std::string_view name, std::span<std::uint8_t> output) override;
    std::error_code Invoke(std::string_view name, std::span<const std::uint8_t> input) override;
    std::error_code Invoke(std::string_view name, std::span<std::uint8_t> output,
                           std::size_t& received) override;

private:
    usb::device::UsbDevice* m_device;
};

class UsbStates final : public States {
public:
    explicit UsbStates(usb::device::UsbDevice& device);

    std::error_code Get(std::string_view name, int& value) override;
    std::error_code Set(std::string_view name, int value) override;
    std::error_code GetRange(std::string_view name, range::Range<int>& range) override;

private:
    usb::device::UsbDevice* m_device;
};

// Monitors are floats on the wire; the integer forms truncate towards zero.
class UsbMonitors final : public Monitors {
public:
    explicit UsbMonitors(usb::device::UsbDevice& device);

    std::error_code Get(std::string_view name, int& value) override;
    std::error_code Get(std::string_view name, float& value) override;
    std::error_code GetRange(std::string_view name, range::Range<int>& range) override;
    std::error_code GetRange(std::string_view name, range::Range<float>& range) override;

private:
    usb::device::UsbDevice* m_device;
};

class UsbVersions final : public Versions {
public:
    explicit UsbVersions(usb::device::UsbDevice& device);

    std::error_code Get(std::string_view name, std::string& version) override;

private:
    usb::device::UsbDevice* m_device;
};

// A float as an int, truncated towards zero and held inside int's range; NaN gives 0.
int TruncateToInt(float value) noexcept;

}  // namespace ovex::sdk
