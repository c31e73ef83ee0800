#pragma once

#include <cstdint>
#include <memory>
#include <system_error>

#include "modules/device_module.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// Register access on the board's AXI-Lite bus.
class AxiLite final : public IAxiLite {
public:
    explicit AxiLite(std::shared_ptr<usb::device::UsbDevice> device)
        : m_device(std::move(device)) {}

    const char* GetName() const override { return "AXILite bus"; }
    std::error_code Read(std::uint32_t address, std::uint32_t& value) override;
    std::error_code Write(std::uint32_t address, std::uint32_t value) override;

private:
    std::shared_ptr<usb::device::UsbDevice> m_device;
};

}  // namespace ovex::sdk
