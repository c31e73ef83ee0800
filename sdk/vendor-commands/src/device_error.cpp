#include "ovex/vendor_cmd/device_error.hpp"

#include <algorithm>
#include <array>
#include <optional>

#include "error_texts.hpp"
#include "ovex/log/log.hpp"
#include "ovex/vendor_cmd/board_io.hpp"
#include "ovex/vendor_cmd/codec.hpp"

namespace ovex::usb::vendor_cmd::error {
namespace {

bool Matches(std::optional<std::errc> mapped, const std::error_condition& condition) noexcept {
    return mapped && condition.category() == std::generic_category() &&
           condition.value() == static_cast<int>(*mapped);
}

std::string TextOrUnknown(const char* text) {
    return text != nullptr ? text : "unknown";
}

// A non-zero word whose code field is 0 is still a failure ("chip not ready", a NACK of the
// address byte), but an error_code of value 0 reads as success: such a code is held as
// kZeroCode, outside every code field, and the categories read it back as 0.
int Stored(int code) noexcept {
    return code == 0 ? kZeroCode : code;
}

int CodeOf(int value) noexcept {
    return value == kZeroCode ? 0 : value;
}

// Where the word's top byte says the error comes from.
enum Source : std::uint8_t {
    kSystem = 0,
    kI2c = 1,
    kAxi = 2,
    kFpgaDriver = 3,
    kFlash = 4,
    kPower = 5,
    kTpx = 6,
};

}  // namespace

namespace axi {

std::string AxiErrCategory::message(int value) const {
    static constexpr std::array<const char*, 4> kTexts = {
        "normal access success", "exclusive access success", "slave error", "decode error"};
    return TextOrUnknown(value >= 0 && value < 4 ? kTexts[value] : nullptr);
}

bool AxiErrCategory::equivalent(int value, const std::error_condition& condition) const noexcept {
    const bool failed = value == 2 || value == 3;
    return Matches(failed ? std::optional(std::errc::io_error) : std::nullopt, condition);
}

const std::error_category& Category() noexcept {
    static const AxiErrCategory category;
    return category;
}

}  // namespace axi

namespace i2c {

std::string I2cErrCategory::message(int value) const {
    value = CodeOf(value);
    static constexpr std::array<const char*, 15> kTexts = {
        "slave NACK-ed the zeroth byte of the preamble",
        "slave NACK-ed the first byte of the preamble",
        "slave NACK-ed the second byte of the preamble",
        "slave NACK-ed the third byte of the preamble",
        "slave NACK-ed the fourth byte of the preamble",
        "slave NACK-ed the fifth byte of the preamble",
        "slave NACK-ed the sixth byte of the preamble",
        "slave NACK-ed the seventh byte of the preamble",
        "slave sent a NACK during the data phase of a transfer",
        "poll operation has exited due to the slave returning an ACK or a NACK handshake",
        "poll operation with address repetition timed out",
        "underflow in buffer during transmit/write operation",
        "overflow of buffer during transmit operation",
        "underflow in buffer during receive/read operation",
        "overflow of buffer during receive operation",
    };
    return TextOrUnknown(value >= 0 && value < static_cast<int>(kTexts.size()) ? kTexts[value]
                                                                               : nullptr);
}

bool I2cErrCategory::equivalent(int, const std::error_condition& condition) const noexcept {
    return Matches(std::errc::io_error, condition);
}

const std::error_category& Category() noexcept {
    static const I2cErrCategory category;
    return category;
}

}  // namespace i2c

namespace power {

std::string PowerErrCategory::message(int value) const {
    switch (CodeOf(value)) {
        case 1:
            return " Output voltage has fallen below 0.35-V level during operation or output "
                   "didn't reach 0.35-V level in 1 ms from enable.";
        case 2:
            return "output current limit is active";
        default:
            return "unknown";
    }
}

bool PowerErrCategory::equivalent(int, const std::error_condition& condition) const noexcept {
    return Matches(std::errc::io_error, condition);
}

const std::error_category& Category() noexcept {
    static const PowerErrCategory category;
    return category;
}

}  // namespace power

namespace system {

std::string SystemErrCategory::message(int value) const {
    return TextOrUnknown(texts::SystemErrorText(CodeOf(value)));
}

bool SystemErrCategory::equivalent(int value,
                                   const std::error_condition& condition) const noexcept {
    static constexpr std::array kInvalidArgument = {2,  3,  4,   5,   6,   8,   9,   12,  14, 15,
                                                    19, 21, 22,  24,  28,  64,  71,  75,  76, 77,
                                                    80, 96, 102, 103, 104, 107, 114, 115, 121};
    static_assert(std::ranges::is_sorted(kInvalidArgument));
    value = CodeOf(value);
    std::optional<std::errc> mapped;
    if (std::ranges::binary_search(kInvalidArgument, value)) {
        mapped = std::errc::invalid_argument;
    } else if (value == 32 || value == 124) {
        mapped = std::errc::device_or_resource_busy;
    } else if (value == 69) {
        mapped = std::errc::timed_out;
    } else if (value == 70 || value == 255) {
        mapped = std::errc::not_supported;
    }
    return Matches(mapped, condition);
}

const std::error_category& Category() noexcept {
    static const SystemErrCategory category;
    return category;
}

}  // namespace system

namespace tpx {

std::string TpxErrCategory::message(int value) const {
    value = CodeOf(value);
    switch (value) {
        case 0:
            return "chip not ready";
        case 1:
            return "clock not aligned";
        case 2:
            return "chip is busy";
        case 3:
            return "operation failed";
        case 4:
            return "data channel failure";
        case 5:
            return "data overflow";
        case 69:
            return "operation timed out";
        default:
            return "unknown(" + std::to_string(value) + ")";
    }
}

bool TpxErrCategory::equivalent(int value, const std::error_condition& condition) const noexcept {
    value = CodeOf(value);
    std::optional<std::errc> mapped;
    if (value == 2) {
        mapped = std::errc::device_or_resource_busy;
    } else if (value >= 0 && value <= 5) {
        mapped = std::errc::io_error;
    }
    return Matches(mapped, condition);
}

const std::error_category& Category() noexcept {
    static const TpxErrCategory category;
    return category;
}

}  // namespace tpx

namespace xil {

std::string XilinxErrCategory::message(int value) const {
    return TextOrUnknown(texts::FpgaDriverErrorText(value));
}

bool XilinxErrCategory::equivalent(int, const std::error_condition& condition) const noexcept {
    return Matches(std::errc::io_error, condition);
}

const std::error_category& Category() noexcept {
    static const XilinxErrCategory category;
    return category;
}

}  // namespace xil

std::error_code TranslateDeviceError(std::uint32_t word) {
    if (word == 0) {
        return {};
    }
    const auto source = static_cast<std::uint8_t>(word >> 24);
    const auto code = [word](std::uint32_t mask, unsigned shift = 0) {
        return static_cast<int>((word >> shift) & mask);
    };
    switch (source) {
        case kSystem:
            return {Stored(code(0xFF)), system::Category()};
        case kI2c:
            return {Stored(code(0x0F)), i2c::Category()};
        case kAxi: {
            // Both "normal" and "exclusive" responses report a successful access.
            const int value = code(0x03);
            return value < 2 ? std::error_code() : std::error_code(value, axi::Category());
        }
        case kFpgaDriver:
            return {code(0xFFFF), xil::Category()};
        case kFlash:
            OVEX_LOG_WARN(
                "Translation of device errors from the flash memory category not "
                "implemented yet");
            break;
        case kPower:
            return {Stored(code(0x03, 1)), power::Category()};
        case kTpx:
            return {Stored(code(0xFF)), tpx::Category()};
        default:
            OVEX_LOG_ERROR("BUG: Processing of device error category '%hhu' not implemented",
                           source);
            break;
    }
    return std::make_error_code(std::errc::protocol_error);
}

LastError GetLastError(device::UsbDevice& device, double timeout) {
    std::array<std::uint8_t, 4> field{};
    if (const auto error = VendorIn(device, {request::kLastError, 0, 0}, field, timeout)) {
        return {error, {}};
    }
    // A short answer leaves the missing high bytes zero.
    unsigned int word = 0;
    impl::Decode(field, word);
    return {{}, TranslateDeviceError(word)};
}

std::error_code GetLastError(device::UsbDevice& device, std::error_code request_result,
                             double timeout) {
    // Timeouts, disconnects and cancellations say nothing about the board's last error.
    if (request_result && request_result != std::errc::io_error) {
        return request_result;
    }
    const LastError last = GetLastError(device, timeout);
    if (last.query) {
        OVEX_LOG_EC(log::kWarning, "Failed to retrieve error code of last operation - %s: %s",
                    last.query);
        return last.query;
    }
    return last.device;
}

}  // namespace ovex::usb::vendor_cmd::error
