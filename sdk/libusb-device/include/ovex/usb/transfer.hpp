#pragma once

// One-shot transfers: every synchronous call of the transport runs as one of these through
// libusb's asynchronous interface, completed on the endpoint's handler thread.

#include <libusb.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <system_error>

#include "ovex/usb/impl/transfer_handler.hpp"
#include "ovex/usb/impl/transfer_pool.hpp"

namespace ovex::usb::device {

struct UsbResult {
    std::int32_t id = 0;
    std::error_code error;
    std::uint64_t bytes = 0;
};

struct ControlSetup {
    std::uint8_t bmRequestType = 0;
    std::uint8_t bRequest = 0;
    std::uint16_t wValue = 0;
    std::uint16_t wIndex = 0;
    std::uint16_t wLength = 0;
};

// The control buffer: the 8-byte setup packet, then the payload.
inline constexpr std::size_t kControlBufferSize = 1024;
inline constexpr std::size_t kMaxControlPayload = kControlBufferSize - LIBUSB_CONTROL_SETUP_SIZE;

class Transfer {
public:
    Transfer(impl::TransferHandler& handler, std::shared_ptr<impl::TransferPool> pool,
             std::span<std::uint8_t> user_buffer);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    std::int32_t Id() const { return m_id; }
    std::error_code SubmitBulk(libusb_device_handle* handle, std::uint8_t endpoint, double timeout);
    std::error_code SubmitInterrupt(libusb_device_handle* handle, std::uint8_t endpoint,
                                    double timeout);
    std::error_code SubmitControl(libusb_device_handle* handle, const ControlSetup& setup,
                                  double timeout);
    // Cancels and waits until libusb has given the transfer back; the result stays for Wait.
    std::error_code Abort();
    // Blocks until the transfer has completed.
    UsbResult Wait();

private:
    std::error_code Submit(libusb_device_handle* handle, std::uint8_t endpoint, std::uint8_t type,
                           double timeout);
    static void LIBUSB_CALL OnLibusbCallback(libusb_transfer* transfer);
    static void OnCompleted(libusb_transfer* transfer);
    void Completed(libusb_transfer* transfer);

    const std::int32_t m_id;
    impl::PooledTransfer m_transfer;
    std::mutex m_mutex;
    UsbResult m_result;
    int m_status = LIBUSB_TRANSFER_COMPLETED;
    std::atomic_flag m_ready;
    std::span<std::uint8_t> m_user_buffer;
    impl::TransferHandler& m_handler;
    std::shared_ptr<impl::TransferPool> m_pool;
    std::unique_ptr<std::uint8_t[]> m_control;
};

}  // namespace ovex::usb::device
