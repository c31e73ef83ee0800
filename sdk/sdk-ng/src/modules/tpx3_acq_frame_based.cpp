#include "modules/tpx3_acq_frame_based.hpp"

#include <exception>
#include <thread>

#include "ovex/log/log.hpp"

namespace ovex::sdk::acquisition {

Tpx3AcqFrameBased::Tpx3AcqFrameBased(Commands* commands,
                                     std::shared_ptr<IVectorDataProvider> provider)
    : VectorReadout(std::move(provider),
                    ModuleRequirements{
                        .commands = {{commands, {"TPX_T0_SYNC"}}}, .states = {}, .monitors = {}}) {}

Tpx3AcqFrameBased::~Tpx3AcqFrameBased() {
    Shutdown();
}

std::error_code Tpx3AcqFrameBased::Start(const ChipInfo& /*chip_info*/, std::uint32_t flags,
                                         const AcquisitionParams& /*params*/, Callback callback) {
    if (IsRunning()) {
        OVEX_LOG_WARN("%s already in progress.", GetName());
        return std::make_error_code(std::errc::operation_in_progress);
    }
    m_consumer.Join();  // a Consumer that ended with its readout
    m_keep_raw = (flags & kKeepRawData) != 0;
    m_raw.clear();
    m_raw_buffers.clear();
    StoreStatus({});
    OVEX_LOG_INFO("Starting %s.", GetName());

    // The provider runs before the sync, so that nothing after it is lost, and the Consumer only
    // once the sync has succeeded: a start that fails never calls the client. Meanwhile the
    // provider's queue holds what arrives.
    if (const auto ec = m_provider->Start(FrameBufferSize)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Unable to start data provider");
        return ec;
    }
    m_run.Started();
    OVEX_LOG_INFO("Data provider started.");

    if (const auto synced = SyncToaClock(GetCommands())) {
        // A readout whose time base is unknown is not left running behind the client's back.
        std::lock_guard lock(m_mutex);
        m_run.Stop(*m_provider, m_status);
        return synced;
    }
    try {
        m_callback = std::move(callback);
        m_consumer.Start([this] { Consume(); });
    } catch (const std::system_error& error) {
        OVEX_LOG_ERROR("Failed to start the %s data consumer: %s.", GetName(), error.what());
        std::lock_guard lock(m_mutex);
        m_run.Stop(*m_provider, m_status);
        return error.code();
    }
    return {};
}

std::error_code Tpx3AcqFrameBased::SetPixelDepth(std::uint8_t depth) {
    return CheckTimepix3Depth(depth, GetName());
}

std::error_code Tpx3AcqFrameBased::SetFrameCount(std::int64_t count) {
    m_continuous.store(count == -1);
    return {};
}

std::vector<RawSpan> Tpx3AcqFrameBased::GetRawData() {
    return m_raw;
}

bool Tpx3AcqFrameBased::IsMoreDataExpected(std::span<const std::byte> buffer) {
    return buffer.size() >= FrameBufferSize || m_continuous.load();
}

void Tpx3AcqFrameBased::LogReadoutEnd() const {
    OVEX_LOG_INFO("All data received for %s.", GetName());
}

void Tpx3AcqFrameBased::Consume() {
    OVEX_LOG_INFO("%s data consumer started.", GetName());
    for (;;) {
        Buffer buffer;
        if (const auto ec = m_provider->GetData(buffer)) {
            OVEX_LOG_EC(log::kError, "Failed to obtain data from provider - %s: %s.", ec);
            continue;
        }
        if (!buffer || buffer->empty()) {
            OVEX_LOG_DEBUG("Consumer termination requested by provider.");
            // The run's end item: a run still owned ended by itself, whether or not a stop was
            // asked for meanwhile, and its result is the readout's.
            std::lock_guard lock(m_mutex);
            m_run.CollectEnded(*m_provider, GetName(), m_status);
            break;
        }
        ConsumeBuffer(buffer);
    }
    OVEX_LOG_INFO("%s data consumer terminated.", GetName());
}

void Tpx3AcqFrameBased::ConsumeBuffer(const Buffer& buffer) {
    if (m_keep_raw) {
        m_raw.push_back({buffer->data(), buffer->size()});
        m_raw_buffers.push_back(buffer);
    }
    if (!IsMoreDataExpected(*buffer)) {
        OVEX_LOG_INFO("End of readout reached.");
        if (const auto ec = Abort(kAbortFromInside)) {
            OVEX_LOG_EC(log::kError, "Unable to stop the acquisition - %s: %s.", ec);
        }
    }
    bool callback_due = false;
    try {
        callback_due = ProcessBuffer(*buffer);
    } catch (const std::exception& error) {
        // A block the board garbled ends the readout with an error; what came before it reached
        // the client.
        OVEX_LOG_ERROR("%s failed to process a block of %zu bytes: %s", GetName(), buffer->size(),
                       error.what());
        StoreStatus(std::make_error_code(std::errc::bad_message));
        Abort(kAbortFromInside);
        m_raw.clear();
        m_raw_buffers.clear();
        return;  // the provider's end item follows
    }
    if (callback_due) {
        CallClient(m_callback, *this);
        m_raw.clear();
        m_raw_buffers.clear();
    }
}

}  // namespace ovex::sdk::acquisition
