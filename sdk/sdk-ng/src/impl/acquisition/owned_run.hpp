#pragma once

// The run of a data provider that an acquisition module started. A board's modes of one kind
// share their provider, so a module stops and counts only the run it started itself.

#include <atomic>
#include <system_error>
#include <thread>

#include "impl/acquisition/data_provider.hpp"
#include "modules/acquisition.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk::acquisition {

class OwnedRun {
public:
    // `wait_verbosity`: that of the line of a client's abort, which a module may keep for tracing.
    explicit OwnedRun(int wait_verbosity = log::kInfo) noexcept
        : m_wait_verbosity(wait_verbosity) {}

    void Started() noexcept { m_owned.store(true); }
    bool Owned() const noexcept { return m_owned.load(); }

    // Stops the run if it is this module's; a run that ended by itself is collected too. Its
    // error, logged as "`failure` - category: message.", is the answer and becomes the readout's
    // `status`: transfers that failed or a board gone fail the readout.
    std::error_code Stop(IDataProvider& provider, std::error_code& status,
                         const char* failure = "Unable to stop acquisition data provider") {
        if (!m_owned.exchange(false)) {
            return {};
        }
        const std::error_code ec = provider.Stop();
        if (ec) {
            OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, failure);
            status = ec;
        }
        return ec;
    }

    // A readout's abort: the client's first gives the data on their way a grace period; then
    // the run stops as above. The readout's `status` is the answer unless the stop failed.
    std::error_code Abort(IAcquisition::AbortMode mode, IDataProvider& provider,
                          std::error_code& status) {
        if (mode == IAcquisition::kAbortByClient) {
            OVEX_LOG(m_wait_verbosity, "Waiting for abort acquisition data.");
            std::this_thread::sleep_for(kAbortGrace);
        }
        if (const auto ec = Stop(provider, status)) {
            return ec;
        }
        return status;
    }

    // The run, if it is this module's, ended without a stop: only a board that went away or a
    // transfer that failed does that. Its error, or io_error if it has none, is logged for
    // `module` and becomes the readout's `status`.
    void CollectEnded(IDataProvider& provider, const char* module, std::error_code& status) {
        if (!m_owned.exchange(false)) {
            return;
        }
        std::error_code ended = provider.Stop();
        if (!ended) {
            ended = std::make_error_code(std::errc::io_error);
        }
        OVEX_LOG_EC(log::kError, "%s ended without a stop - %s: %s.", ended, module);
        status = ended;
    }

private:
    const int m_wait_verbosity;
    std::atomic<bool> m_owned{false};
};

}  // namespace ovex::sdk::acquisition
