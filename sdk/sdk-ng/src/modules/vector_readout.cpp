#include "modules/vector_readout.hpp"

#include "ovex/log/log.hpp"

namespace ovex::sdk::acquisition {

VectorReadout::VectorReadout(std::shared_ptr<IVectorDataProvider> provider,
                             int abort_wait_verbosity)
    : m_provider(std::move(provider)), m_run(abort_wait_verbosity) {}

VectorReadout::VectorReadout(std::shared_ptr<IVectorDataProvider> provider,
                             ModuleRequirements requirements)
    : IAcquisition(std::move(requirements), false), m_provider(std::move(provider)) {}

std::error_code VectorReadout::Shutdown() {
    std::error_code stopped;
    {
        // The run's end item releases the Consumer's wait.
        std::lock_guard lock(m_mutex);
        stopped = m_run.Stop(*m_provider, m_status);
    }
    m_consumer.Join();
    return stopped;
}

bool VectorReadout::IsRunning() {
    return m_consumer.Active() || (m_run.Owned() && m_provider->IsRunning());
}

std::error_code VectorReadout::AwaitReadoutEnd(double seconds) {
    if (m_consumer.IsCurrent()) {
        OVEX_LOG_ERROR("%s can't await its own end from its data callback.", GetName());
        return std::make_error_code(std::errc::resource_deadlock_would_occur);
    }
    if (m_consumer.Await(JoinLimit(seconds), [&] {
            OVEX_LOG_WARN("%s timed-out after %g seconds.", GetName(), seconds);
            StoreStatus(Abort(kAbortFromInside));
        })) {
        LogReadoutEnd();
    }
    std::lock_guard lock(m_mutex);
    return m_status;
}

std::error_code VectorReadout::Abort(AbortMode mode) {
    std::lock_guard lock(m_mutex);
    return m_run.Abort(mode, *m_provider, m_status);
}

void VectorReadout::StoreStatus(std::error_code status) {
    std::lock_guard lock(m_mutex);
    m_status = status;
}

}  // namespace ovex::sdk::acquisition
