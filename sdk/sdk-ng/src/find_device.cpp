#include "find_device.hpp"

#include <stdexcept>
#include <string>

namespace ovex::sdk {

namespace {

unsigned long ParseIndex(std::string_view value) {
    if (value.empty()) {
        throw std::invalid_argument("invalid stoul argument");
    }
    return std::stoul(std::string(value), nullptr, 10);
}

}  // namespace

std::error_code FindDevice(const UsbLocator& locator, std::shared_ptr<usb::device::UsbDevice>&) {
    // The library has no USB transport yet, so no board is ever attached: every index lies
    // beyond the list and no serial number matches.
    if (locator.GetKind() == UsbLocator::Kind::Index) {
        ParseIndex(locator.Value());
    }
    return std::make_error_code(std::errc::no_such_device);
}

}  // namespace ovex::sdk
