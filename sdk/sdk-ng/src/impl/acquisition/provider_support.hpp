#pragma once

// What both data providers share: finding the data endpoint, and telling when a run of
// transfers has ended, so that the consumer gets exactly one end item per run.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <system_error>

#include "ovex/usb/async_state.hpp"
#include "ovex/usb/usb_device.hpp"

namespace ovex::sdk::acquisition::detail {

// The bulk IN endpoint with `address`, or an error (logged) if the device has none.
std::error_code FindDataEndpoint(usb::device::UsbDevice& device, std::uint8_t address,
                                 usb::device::UsbBulkEp*& bulk);

// The words in which a provider reports its stop.
struct StopTexts {
    const char* invalid_future;  // a fatal check
    const char* received;        // what stands before the bytes the run received
};

// Aborts a run's transfers and waits for them to end, logging as a provider's Stop does; the
// result of the run, or why the abort failed. `queued`: items the consumer has not taken.
std::error_code StopTransfers(usb::device::AsyncState& state, std::size_t queued,
                              const StopTexts& texts);

// Counts the buffers lent to the transfers of one run. The run has ended once its transfers
// have started and the last lent buffer has come back: whether it was stopped, the device went
// away, a transfer failed or no buffer could be lent. Whoever learns it first, the transfer
// handler or the thread that started or stops the run, ends it; the other one does not.
class RunEnd {
public:
    // Before the transfers start.
    void Begin() {
        m_lent.store(0);
        m_started.store(false);
        m_ended.store(false);
    }
    void Lent() { m_lent.fetch_add(1); }
    // True if the caller must end the run.
    bool Returned() { return m_lent.fetch_sub(1) == 1 && m_started.load() && Claim(); }
    // The transfers are running; true if the caller must end the run, which ended already.
    bool Started() {
        m_started.store(true);
        return m_lent.load() == 0 && Claim();
    }
    // True for the first caller of a run only.
    bool Claim() { return !m_ended.exchange(true); }
    bool Ended() const { return m_ended.load(); }

private:
    std::atomic<std::int64_t> m_lent{0};
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_ended{false};
};

}  // namespace ovex::sdk::acquisition::detail
