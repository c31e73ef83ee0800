#include "modules/axi_lite.hpp"

#include "ovex/vendor_cmd/board_io.hpp"

namespace ovex::sdk {

std::error_code AxiLite::Read(std::uint32_t address, std::uint32_t& value) {
    unsigned int read = 0;
    const auto ec = usb::vendor_cmd::axi_read(*m_device, address, read);
    if (!ec) {
        value = read;
    }
    return ec;
}

std::error_code AxiLite::Write(std::uint32_t address, std::uint32_t value) {
    return usb::vendor_cmd::axi_write(*m_device, address, value);
}

}  // namespace ovex::sdk
