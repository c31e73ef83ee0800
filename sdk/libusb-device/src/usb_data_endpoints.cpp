#include "ovex/log/log.hpp"
#include "ovex/usb/timeout.hpp"
#include "ovex/usb/usb_endpoint.hpp"
#include "ovex/usb/usb_error.hpp"

namespace ovex::usb::device {
namespace {

// RAW_IO lifts the host's size limit on bulk IN transfers where the platform offers it.
std::int32_t MaxTransferSize(libusb_device_handle* handle, std::uint8_t address) {
#if OVEX_HAVE_LIBUSB_RAW_IO
    const int supported = libusb_endpoint_supports_raw_io(handle, address);
    if (supported < 0) {
        OVEX_LOG_ERROR("Unable to check RAW_IO support for endpoint 0x%02X: %s.", address,
                       libusb_strerror(supported));
        return kUnlimitedTransferSize;
    }
    if (supported == 0) {
        OVEX_LOG_DEBUG("RAW_IO not supported for endpoint 0x%02X.", address);
        return kUnlimitedTransferSize;
    }
    if (const int result = libusb_endpoint_set_raw_io(handle, address, 1); result != 0) {
        OVEX_LOG_ERROR("Failed to enable RAW_IO for endpoint 0x%02X: %s.", address,
                       libusb_strerror(result));
        return kUnlimitedTransferSize;
    }
    OVEX_LOG_DEBUG("RAW_IO enabled for endpoint 0x%02X.", address);
    const int limit = libusb_get_max_raw_io_transfer_size(handle, address);
    if (limit < 0) {
        OVEX_LOG_ERROR("Unable to obtain max. transfer size for endpoint 0x%02X: %s.", address,
                       libusb_strerror(limit));
        return kUnlimitedTransferSize;
    }
    return limit;
#else
    (void)handle;
    OVEX_LOG_DEBUG("RAW_IO not supported for endpoint 0x%02X.", address);
    return kUnlimitedTransferSize;
#endif
}

std::span<std::uint8_t> Writable(std::span<const std::uint8_t> data) {
    // OUT data is only read by libusb.
    return {const_cast<std::uint8_t*>(data.data()), data.size()};
}

}  // namespace

UsbBulkEp::UsbBulkEp(libusb_device_handle* handle, const libusb_endpoint_descriptor& descriptor,
                     std::shared_ptr<const void> context_owner)
    : UsbEndpoint(handle, descriptor, std::move(context_owner)),
      m_max_transfer_size(kUnlimitedTransferSize) {
    if (IsIngress()) {
        m_max_transfer_size = MaxTransferSize(handle, m_address);
    }
}

std::error_code UsbBulkEp::CheckReadSize(std::size_t size) const {
    if (!IsIngress()) {
        return std::make_error_code(std::errc::not_supported);
    }
    if (size > static_cast<std::size_t>(m_max_transfer_size)) {
        OVEX_LOG_ERROR("Input data size too large for the transfer: %zu > %d.", size,
                       m_max_transfer_size);
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (m_max_transfer_size != kUnlimitedTransferSize && m_max_packet_size != 0 &&
        size % m_max_packet_size != 0) {
        OVEX_LOG_ERROR("Buffer size must be multiple of endpoint max packet size (%d).",
                       m_max_packet_size);
        return std::make_error_code(std::errc::invalid_argument);
    }
    return {};
}

std::error_code UsbBulkEp::Read(std::span<std::uint8_t> data, double timeout,
                                std::size_t* transferred) {
    if (const auto error = CheckReadSize(data.size())) {
        return error;
    }
    return RunTransfer(
        data, timeout, transferred, true,
        [&](const Transfer& transfer) {
            OVEX_LOG_DEBUG(
                "Created ingress bulk transfer n.%d on endpoint 0x%02X - buffer size: %zu bytes, "
                "timeout: %ums.",
                transfer.Id(), m_address, data.size(), ToLibusbTimeout(timeout));
        },
        [&](Transfer& transfer) { return transfer.SubmitBulk(m_handle, m_address, timeout); });
}

std::error_code UsbBulkEp::Write(std::span<const std::uint8_t> data, double timeout) {
    if (IsIngress()) {
        return std::make_error_code(std::errc::not_supported);
    }
    return RunTransfer(
        Writable(data), timeout, nullptr, true,
        [&](const Transfer& transfer) {
            OVEX_LOG_DEBUG(
                "Created egress bulk transfer n.%d on endpoint 0x%02X - data length: %zu bytes, "
                "timeout: %ums.",
                transfer.Id(), m_address, data.size(), ToLibusbTimeout(timeout));
        },
        [&](Transfer& transfer) { return transfer.SubmitBulk(m_handle, m_address, timeout); });
}

PerpetualResult UsbBulkEp::ReadPerpetual(std::uint32_t queue_size, std::uint32_t transfer_size,
                                         std::shared_ptr<IUsbDataProducer> producer,
                                         double timeout) {
    if (const auto error = CheckReadSize(transfer_size)) {
        return error;
    }
    return ReadPerpetualOf(this, LIBUSB_TRANSFER_TYPE_BULK, queue_size, transfer_size,
                           std::move(producer), timeout);
}

std::error_code UsbInterruptEp::Read(std::span<std::uint8_t> data, double timeout,
                                     std::size_t* transferred) {
    if (!IsIngress()) {
        return std::make_error_code(std::errc::not_supported);
    }
    return RunTransfer(
        data, timeout, transferred, false,
        [&](const Transfer& transfer) {
            OVEX_LOG_DEBUG(
                "Created ingress interrupt transfer %d on endpoint 0x%02X - buffer size: %zu "
                "bytes, "
                "timeout: %ums.",
                transfer.Id(), m_address, data.size(), ToLibusbTimeout(timeout));
        },
        [&](Transfer& transfer) { return transfer.SubmitInterrupt(m_handle, m_address, timeout); });
}

std::error_code UsbInterruptEp::Write(std::span<const std::uint8_t> data, double timeout) {
    if (IsIngress()) {
        return std::make_error_code(std::errc::not_supported);
    }
    return RunTransfer(
        Writable(data), timeout, nullptr, false,
        [&](const Transfer& transfer) {
            OVEX_LOG_DEBUG(
                "Created egress interrupt transfer %d on endpoint 0x%02X - data length: %zu bytes, "
                "timeout: %ums.",
                transfer.Id(), m_address, data.size(), ToLibusbTimeout(timeout));
        },
        [&](Transfer& transfer) { return transfer.SubmitInterrupt(m_handle, m_address, timeout); });
}

PerpetualResult UsbInterruptEp::ReadPerpetual(std::uint32_t queue_size, std::uint32_t transfer_size,
                                              std::shared_ptr<IUsbDataProducer> producer,
                                              double timeout) {
    if (!IsIngress()) {
        return std::make_error_code(std::errc::not_supported);
    }
    return ReadPerpetualOf(this, LIBUSB_TRANSFER_TYPE_INTERRUPT, queue_size, transfer_size,
                           std::move(producer), timeout);
}

}  // namespace ovex::usb::device
