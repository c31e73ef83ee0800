#pragma once

// The owner's handle of a running perpetual transfer: abort it, and collect its result.

#include <future>
#include <memory>
#include <system_error>
#include <variant>

#include "ovex/usb/transfer.hpp"

namespace ovex::usb::device {

class TransferEndless;
class UsbBulkEp;
class UsbInterruptEp;

class AsyncState {
public:
    using Endpoint = std::variant<UsbBulkEp*, UsbInterruptEp*>;

    AsyncState(std::shared_ptr<TransferEndless> transfer, Endpoint endpoint);
    // A state whose result was never collected aborts the transfer and collects it here, so the
    // endpoint is always freed.
    ~AsyncState();
    AsyncState(AsyncState&& other) noexcept;
    AsyncState& operator=(AsyncState&& other) noexcept;
    AsyncState(const AsyncState&) = delete;
    AsyncState& operator=(const AsyncState&) = delete;

    // Cancels every transfer in flight; returns at once.
    std::error_code Abort();
    // The result, once the last transfer has left and the endpoint is free again. Call once.
    // Throws what starting the collecting task throws; the state then still collects by itself.
    std::future<UsbResult> Future();

private:
    std::shared_ptr<TransferEndless> m_transfer;
    Endpoint m_endpoint;
    bool m_collected = false;
};

// Either a running perpetual transfer or the reason it did not start.
using PerpetualResult = std::variant<AsyncState, std::error_code>;

}  // namespace ovex::usb::device
