#include "find_device.hpp"

#include <stdexcept>
#include <string>

#include "ovex/log/log.hpp"
#include "ovex/usb/usb_context.hpp"

namespace ovex::sdk {

namespace {

unsigned long ParseIndex(std::string_view value) {
    if (value.empty()) {
        throw std::invalid_argument("invalid stoul argument");
    }
    return std::stoul(std::string(value), nullptr, 10);
}

std::shared_ptr<usb::device::UsbDevice> Take(usb::device::UsbDevice& device) {
    return std::make_shared<usb::device::UsbDevice>(std::move(device));
}

}  // namespace

std::vector<usb::device::UsbDevice> ListBoards() {
    const usb::device::UsbContext context;
    return context.EnumerateDevices(kBoardVendorId, kBoardProductId);
}

std::error_code FindDevice(const UsbLocator& locator,
                           std::shared_ptr<usb::device::UsbDevice>& device) {
    if (locator.GetKind() == UsbLocator::Kind::Index) {
        const auto index = ParseIndex(locator.Value());
        auto boards = ListBoards();
        if (index >= boards.size()) {
            return std::make_error_code(std::errc::no_such_device);
        }
        device = Take(boards[index]);
        return {};
    }
    auto boards = ListBoards();
    for (auto& board : boards) {
        usb::device::DeviceInfo info;
        if (const auto error = board.GetInfo(info)) {
            OVEX_LOG_EC(ovex::log::kWarning, "Failed to read device information - %s: %s.", error);
            continue;
        }
        if (info.serial == locator.Value()) {
            device = Take(board);
            return {};
        }
    }
    return std::make_error_code(std::errc::no_such_device);
}

}  // namespace ovex::sdk
