#pragma once

// What the frame modules share: the vector provider and the run of it that the module started,
// the Consumer thread that takes its transfers, the readout's status, and the wait and the abort
// over them. The join is never made under the mutex: the Consumer itself stops the run at the
// readout's end, and the run's end item ends the Consumer.

#include <memory>
#include <mutex>
#include <system_error>

#include "impl/acquisition/consumer_thread.hpp"
#include "impl/acquisition/data_provider.hpp"
#include "impl/acquisition/owned_run.hpp"
#include "modules/acquisition.hpp"

namespace ovex::sdk::acquisition {

class VectorReadout : public IAcquisition {
public:
    // Waits up to `seconds` for the Consumer's end, then aborts the readout; its status. Refused
    // from the data callback, which would wait for its own thread.
    std::error_code AwaitReadoutEnd(double seconds) override;
    std::error_code Abort(AbortMode mode) override;
    bool IsRunning() override;

protected:
    // A module that needs no items of the board, logging the wait of a client's abort at
    // `abort_wait_verbosity`.
    VectorReadout(std::shared_ptr<IVectorDataProvider> provider, int abort_wait_verbosity);
    VectorReadout(std::shared_ptr<IVectorDataProvider> provider, ModuleRequirements requirements);

    // The line of a readout that ended within the wait.
    virtual void LogReadoutEnd() const = 0;
    void StoreStatus(std::error_code status);
    // Stops this module's run and joins the Consumer: the final classes call it first thing in
    // their destructors, while the Consumer can still reach what they hold. The stop's error.
    std::error_code Shutdown();

    std::mutex m_mutex;  // guards Abort, the stored status and the run's stop
    std::error_code m_status;
    std::shared_ptr<IVectorDataProvider> m_provider;
    ConsumerThread m_consumer;
    OwnedRun m_run;
};

}  // namespace ovex::sdk::acquisition
