#include "ovex/usb/usb_error.hpp"

#include <libusb.h>

#include <optional>

namespace ovex::usb::error {
namespace {

std::optional<std::errc> LibusbCondition(int value) noexcept {
    switch (value) {
        case LIBUSB_ERROR_IO:
            return std::errc::io_error;
        case LIBUSB_ERROR_INVALID_PARAM:
            return std::errc::invalid_argument;
        case LIBUSB_ERROR_ACCESS:
            return std::errc::permission_denied;
        case LIBUSB_ERROR_NO_DEVICE:
            return std::errc::no_such_device;
        case LIBUSB_ERROR_NOT_FOUND:
            return std::errc::argument_out_of_domain;
        case LIBUSB_ERROR_BUSY:
            return std::errc::device_or_resource_busy;
        case LIBUSB_ERROR_TIMEOUT:
            return std::errc::timed_out;
        case LIBUSB_ERROR_OVERFLOW:
            return std::errc::value_too_large;
        case LIBUSB_ERROR_PIPE:
            return std::errc::broken_pipe;
        case LIBUSB_ERROR_INTERRUPTED:
            return std::errc::interrupted;
        case LIBUSB_ERROR_NO_MEM:
            return std::errc::not_enough_memory;
        case LIBUSB_ERROR_NOT_SUPPORTED:
            return std::errc::not_supported;
        default:
            return std::nullopt;
    }
}

std::optional<std::errc> TransferCondition(int status) noexcept {
    switch (status) {
        case LIBUSB_TRANSFER_ERROR:
            return std::errc::io_error;
        case LIBUSB_TRANSFER_TIMED_OUT:
            return std::errc::timed_out;
        case LIBUSB_TRANSFER_CANCELLED:
            return std::errc::operation_canceled;
        case LIBUSB_TRANSFER_STALL:
            return std::errc::io_error;
        case LIBUSB_TRANSFER_NO_DEVICE:
            return std::errc::no_such_device;
        case LIBUSB_TRANSFER_OVERFLOW:
            return std::errc::value_too_large;
        default:
            return std::nullopt;
    }
}

bool Matches(std::optional<std::errc> mapped, const std::error_condition& condition) noexcept {
    return mapped && condition.category() == std::generic_category() &&
           condition.value() == static_cast<int>(*mapped);
}

}  // namespace

std::string LibusbErrCategory::message(int value) const {
    return libusb_strerror(value);
}

bool LibusbErrCategory::equivalent(int value,
                                   const std::error_condition& condition) const noexcept {
    return Matches(LibusbCondition(value), condition);
}

std::string TransferErrCategory::message(int value) const {
    switch (value) {
        case LIBUSB_TRANSFER_COMPLETED:
            return "completed";
        case LIBUSB_TRANSFER_ERROR:
            return "failed";
        case LIBUSB_TRANSFER_TIMED_OUT:
            return "timeout";
        case LIBUSB_TRANSFER_CANCELLED:
            return "cancelled";
        case LIBUSB_TRANSFER_STALL:
            return "halt condition/unsupported request";
        case LIBUSB_TRANSFER_NO_DEVICE:
            return "device was disconnected";
        case LIBUSB_TRANSFER_OVERFLOW:
            return "device sent more data than requested.";
        default:
            return "unknown error";
    }
}

bool TransferErrCategory::equivalent(int value,
                                     const std::error_condition& condition) const noexcept {
    return Matches(TransferCondition(value), condition);
}

const std::error_category& LibusbCategory() noexcept {
    static const LibusbErrCategory category;
    return category;
}

const std::error_category& TransferCategory() noexcept {
    static const TransferErrCategory category;
    return category;
}

std::error_code MakeLibusbError(int value) noexcept {
    return {value < 0 ? value : 0, LibusbCategory()};
}

std::error_code MakeTransferError(int status) noexcept {
    return {status, TransferCategory()};
}

}  // namespace ovex::usb::error
