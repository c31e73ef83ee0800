#pragma once

// The two error categories of the USB layer: libusb return values ("libusb") and the states in
// which a transfer ends ("transfer"). Both compare equal to the generic conditions below, which
// is how higher layers read them.

#include <system_error>

namespace ovex::usb::error {

class LibusbErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "libusb"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
    bool equivalent(const std::error_code&, int) const noexcept override { return false; }
};

class TransferErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "transfer"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
    bool equivalent(const std::error_code&, int) const noexcept override { return false; }
};

const std::error_category& LibusbCategory() noexcept;
const std::error_category& TransferCategory() noexcept;

// From a libusb return value; 0 and positive counts are success.
std::error_code MakeLibusbError(int value) noexcept;
// From a libusb_transfer_status; "completed" is success.
std::error_code MakeTransferError(int status) noexcept;

}  // namespace ovex::usb::error
