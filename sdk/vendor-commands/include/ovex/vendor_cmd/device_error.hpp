#pragma once

// The board's own account of a refused request. A board stalls endpoint 0 and keeps a 32-bit
// word: the top byte names the source, the low 24 bits the code within it. The six categories
// below turn these into error codes that compare equal to generic conditions, which is how the
// rest of the library classifies them.

#include <cstdint>
#include <string>
#include <system_error>

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::usb::vendor_cmd::error {

// How the firmware, i2c, power and timepix categories hold a code of 0 that comes in a non-zero
// word: an error_code of value 0 would read as success. Their `message` and `equivalent` take
// it as code 0.
inline constexpr int kZeroCode = 0x10000;

namespace axi {
// AXI bus response codes; 0 and 1 report a successful access.
class AxiErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "axi"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
};
const std::error_category& Category() noexcept;
}  // namespace axi

namespace i2c {
class I2cErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "i2c"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
};
const std::error_category& Category() noexcept;
}  // namespace i2c

namespace power {
class PowerErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "power"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
};
const std::error_category& Category() noexcept;
}  // namespace power

namespace system {
// The USB controller's firmware return codes.
class SystemErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "firmware"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
};
const std::error_category& Category() noexcept;
}  // namespace system

namespace tpx {
// Detector chip errors; an unknown code shows its number, as in "unknown(80)".
class TpxErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "timepix"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
};
const std::error_category& Category() noexcept;
}  // namespace tpx

namespace xil {
// The FPGA firmware's driver status codes.
class XilinxErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "xilinx"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
};
const std::error_category& Category() noexcept;
}  // namespace xil

// The last-error word into an error code; 0 is success. Sources without a translation give
// std::errc::protocol_error and a log line.
std::error_code TranslateDeviceError(std::uint32_t word);

struct LastError {
    std::error_code query;   // the USB result of the last-error request itself
    std::error_code device;  // the translated word; meaningful only if the query succeeded
};

// Asks the board for the reason of its last refusal (vendor IN request 0x00, 4 bytes).
LastError GetLastError(device::UsbDevice& device, double timeout);

// Completes `request_result`, the result of the request just done: a USB error that is not an
// io_error (a stall is one) passes through; otherwise the board's own answer counts, unless
// asking for it fails.
std::error_code GetLastError(device::UsbDevice& device, std::error_code request_result,
                             double timeout);

}  // namespace ovex::usb::vendor_cmd::error
