#pragma once

// The 24CS512 I2C EEPROM: 64 KiB in 128-byte pages, reached through the board's I2C requests
// with 16-bit register addresses. The chip's security area answers at a second bus address.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "modules/eeprom_ctrl.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

class Eeprom24CS512 : public IEepromControl {
public:
    // `i2c_address` is the chip's 7-bit bus address.
    Eeprom24CS512(std::shared_ptr<usb::device::UsbDevice> device, std::uint8_t i2c_address,
                  std::string id);

    const char* GetName() const override { return "24CS512 EEPROM memory controller"; }
    std::error_code Read(std::uint16_t address, std::span<std::uint8_t> data,
                         std::uint64_t& count) override;
    std::error_code Write(std::uint16_t address, std::span<const std::uint8_t> data,
                          std::uint64_t& count) override;
    // Writes 0xFF over the range, with the rules of a write.
    std::error_code Erase(std::uint16_t address, std::uint64_t length,
                          std::uint64_t& count) override;
    std::error_code GetInfo(EepromInfo& info) override;

protected:
    Eeprom24CS512(std::shared_ptr<usb::device::UsbDevice> device, std::uint8_t i2c_address,
                  std::string id, std::vector<EepromRegion> regions);

private:
    // The region that holds the whole range, or nullptr.
    const EepromRegion* RegionOf(std::uint32_t address, std::size_t length) const;
    std::error_code Transfer(std::uint16_t bus_byte, std::uint16_t address,
                             std::span<std::uint8_t> data, std::uint64_t& count);

    std::shared_ptr<usb::device::UsbDevice> m_device;
    std::uint8_t m_i2c_address;
    std::string m_id;
    std::vector<EepromRegion> m_regions;
};

// The security area: a factory-written read-only half with the serial number, and a half the
// host may write.
class Eeprom24CS512Secure final : public Eeprom24CS512 {
public:
    Eeprom24CS512Secure(std::shared_ptr<usb::device::UsbDevice> device, std::uint8_t i2c_address,
                        std::string id);
};

}  // namespace ovex::sdk
