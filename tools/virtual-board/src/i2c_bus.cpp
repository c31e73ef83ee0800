#include "i2c_bus.hpp"

#include <algorithm>
#include <iterator>

namespace ovex::vboard {
namespace {

constexpr std::uint16_t kWidthFlag = 0x100;
constexpr std::uint16_t kWideRegisters = 0x200;
constexpr std::uint16_t kTenBitPrefix = 0b11110;

struct Target {
    bool ten_bit;
    std::uint16_t address;
    int register_bytes;
};

// The device a request names, or nullopt when wIndex isn't a bus byte with a width flag, or its
// read bit contradicts the transfer's direction.
std::optional<Target> Decode(const SetupPacket& setup) {
    const std::uint16_t index = setup.wIndex;
    if ((index & kWidthFlag) == 0) {
        return std::nullopt;
    }
    const int register_bytes = (index & kWideRegisters) != 0 ? 2 : 1;
    if ((index >> 11) == kTenBitPrefix) {
        // The read bit is the width flag's bit: the transfer's direction tells.
        const auto address = static_cast<std::uint16_t>(((index >> 9) & 0x3) << 8 | (index & 0xFF));
        return Target{true, address, register_bytes};
    }
    const bool read = (index & 0x01) != 0;
    if ((index & ~(kWidthFlag | kWideRegisters | 0xFF)) != 0 || read != setup.IsIn()) {
        return std::nullopt;
    }
    return Target{false, static_cast<std::uint16_t>((index & 0xFF) >> 1), register_bytes};
}

// The security area's factory-written half: a 128-bit serial number, the rest erased.
std::vector<std::uint8_t> SecurityArea() {
    std::vector<std::uint8_t> area(256, 0xFF);
    const std::uint8_t serial[] = {0x4F, 0x56, 0x58, 0x24, 0xC5, 0x12, 0x00, 0x01,
                                   0x9A, 0x3C, 0x71, 0x0E, 0xD2, 0x48, 0x65, 0xB7};
    std::copy(std::begin(serial), std::end(serial), area.begin());
    return area;
}

}  // namespace

I2cBus::I2cBus() {
    // 24CS512: 64 KiB in 128-byte pages, erased; the security area at 0x0800..0x08FF answers at
    // the address with bit 3 set, its first half read-only.
    m_devices.push_back({0x50, false, 2, std::vector<std::uint8_t>(65536, 0xFF), 0, 128, 0});
    m_devices.push_back({0x58, false, 2, SecurityArea(), 0x0800, 128, 128});
    // Temperature 25 degrees, configuration, hysteresis 75, over-temperature limit 80.
    m_devices.push_back({0x48, false, 1, {0x19, 0x00, 0x4B, 0x50}});
    m_devices.push_back({0x2A5, true, 1, std::vector<std::uint8_t>(256, 0x00)});
}

ControlReply I2cBus::Handle(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const auto target = Decode(setup);
    if (!target || (target->register_bytes == 1 && setup.wValue > 0xFF)) {
        return ControlReply::Stall(kBadArgument);
    }
    const auto device =
        std::find_if(m_devices.begin(), m_devices.end(), [&](const I2cDevice& candidate) {
            return candidate.ten_bit == target->ten_bit && candidate.address == target->address;
        });
    if (device == m_devices.end()) {
        return ControlReply::Stall(I2cNack(0));  // nobody answers the address
    }
    // A device NACKs a register address of the wrong width or beyond its registers.
    const std::size_t offset = std::size_t{setup.wValue} - device->first;
    if (device->register_bytes != target->register_bytes || setup.wValue < device->first ||
        offset >= device->memory.size()) {
        return ControlReply::Stall(I2cNack(1));
    }
    const std::size_t length = setup.IsIn() ? setup.wLength : out.size();
    if (offset + length > device->memory.size() && (setup.IsIn() || device->page_size == 0)) {
        return ControlReply::Stall(kI2cDataNack);
    }
    const auto start = device->memory.begin() + static_cast<std::ptrdiff_t>(offset);
    if (setup.IsIn()) {
        return ControlReply::Answer({start, start + static_cast<std::ptrdiff_t>(length)});
    }
    if (device->page_size == 0) {
        std::copy(out.begin(), out.end(), start);
        return ControlReply::Answer();
    }
    // The page latch takes the bytes, wrapping within the page, and the chip writes it whole.
    const std::size_t page = offset - offset % device->page_size;
    std::vector<std::uint8_t> latch(
        device->memory.begin() + static_cast<std::ptrdiff_t>(page),
        device->memory.begin() + static_cast<std::ptrdiff_t>(page + device->page_size));
    for (std::size_t i = 0; i < out.size(); ++i) {
        const std::size_t place = (offset - page + i) % device->page_size;
        if (page + place < device->read_only) {
            return ControlReply::Stall(kI2cDataNack);  // nothing is written
        }
        latch[place] = out[i];
    }
    std::copy(latch.begin(), latch.end(),
              device->memory.begin() + static_cast<std::ptrdiff_t>(page));
    return ControlReply::Answer();
}

}  // namespace ovex::vboard
