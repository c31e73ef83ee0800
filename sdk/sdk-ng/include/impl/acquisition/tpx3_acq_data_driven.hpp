#pragma once

// The Timepix3 data-driven modes: the chip sends every hit as it happens, a stream that may run
// long and fast. The arena provider lands the transfers side by side in pooled arenas; a
// Consumer thread hands each span to a pipeline of the mode, and a Processing thread hands its
// results to the client. The final classes choose the pipeline and when a readout is over.
//
// Only the Consumer feeds the pipeline: once a stop is asked for, it puts the Stop and Terminate
// entries in and drops whatever comes behind them, and it always does so before it ends, so
// that the pipeline and the Processing thread end with it.

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "impl/acquisition/data_provider.hpp"
#include "impl/acquisition/owned_run.hpp"
#include "modules/acquisition.hpp"
#include "ovex/log/log.hpp"
#include "thread_mgmt/thread_mgmt.hpp"
#include "tpx3_pipeline/arena.hpp"
#include "tpx3_pipeline/common.hpp"

namespace ovex::sdk::acquisition {

template <typename Pipeline>
class Tpx3AcqDataDriven : public IAcquisition {
public:
    using OutItem = typename Pipeline::OutItem;

    // The USB transfer size: 163840 packets.
    static constexpr std::uint64_t ArenaBlockSize = 0xF0000;

    Tpx3AcqDataDriven(Commands* commands, std::shared_ptr<IArenaDataProvider> provider)
        : IAcquisition(
              ModuleRequirements{
                  .commands = {{commands, {"TPX_T0_SYNC"}}}, .states = {}, .monitors = {}},
              false),
          m_provider(std::move(provider)) {}

    std::error_code Start(const ChipInfo& /*chip_info*/, std::uint32_t flags,
                          const AcquisitionParams& params, Callback callback) override {
        if (IsRunning()) {
            OVEX_LOG_WARN("%s already in progress.", GetName());
            return std::make_error_code(std::errc::operation_in_progress);
        }
        if (const auto ec = SetParameters(params)) {
            OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Invalid acquisition arguments");
            return ec;
        }
        m_keep_raw = (flags & kKeepRawData) != 0;
        OVEX_LOG_INFO("Starting %s.", GetName());
        {
            std::lock_guard lock(m_mutex);
            m_status = {};
        }
        m_stop.store(false);
        m_raw.clear();
        m_raw_arenas.clear();
        m_pipeline = CreatePipeline();
        m_active.store(true);

        // The provider runs before the sync, so that nothing after it is lost, and the threads
        // only once the sync has succeeded: a start that fails leaves nothing behind and never
        // calls the client. Meanwhile the provider's queue holds what arrives.
        const tpx3_pipeline::Arena::Settings arenas{
            ArenaBlockSize, (GetArenaBytes() / ArenaBlockSize + 1) * ArenaBlockSize};
        if (const auto ec = m_provider->Configure(arenas)) {
            OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Cannot configure provider");
            return Undo(ec);
        }
        if (const auto ec = m_provider->Start(ArenaBlockSize)) {
            OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Unable to start data provider");
            return Undo(ec);
        }
        m_run.Started();
        OVEX_LOG_INFO("Data provider started.");
        if (const auto synced = SyncToaClock(GetCommands())) {
            return Undo(synced);
        }
        // The run starts here, before the threads that feed and empty it, so that the wait
        // never meets a run that is still being started.
        m_pipeline->Start();
        try {
            std::lock_guard join(m_join_mutex);
            m_callback = std::move(callback);
            thread::ThreadParams consumer;
            consumer.name = "Consumer";
            m_consumer = thread::WrappedThread<>(consumer, [this](std::stop_token) { Consume(); });
            thread::ThreadParams processing;
            processing.name = "Processing";
            m_processing =
                thread::WrappedThread<>(processing, [this](std::stop_token) { Process(); });
        } catch (const std::system_error& error) {
            OVEX_LOG_ERROR("Failed to start the %s threads: %s.", GetName(), error.what());
            // A Consumer that did start ends with the provider's run, and takes the pipeline
            // with it.
            Abort(kAbortFromInside);
            AwaitReadoutEnd(kNoLimit);
            return error.code();
        }
        return {};
    }

    // The join is never made under m_mutex: the Consumer itself aborts at the end of a readout.
    std::error_code AwaitReadoutEnd(double seconds) override {
        if (OnOwnThread()) {
            OVEX_LOG_ERROR("%s can't await its own end from its data callback.", GetName());
            return std::make_error_code(std::errc::resource_deadlock_would_occur);
        }
        std::lock_guard join(m_join_mutex);
        if (m_consumer.JoinFor(JoinLimit(seconds))) {
            OVEX_LOG_INFO("All data received for %s.", GetName());
        } else {
            OVEX_LOG_WARN("%s timed-out after %g seconds.", GetName(), seconds);
            const std::error_code aborted = Abort(kAbortFromInside);
            {
                std::lock_guard lock(m_mutex);
                m_status = aborted;
            }
            m_consumer.Join();
        }
        std::lock_guard lock(m_mutex);
        if (m_active.load()) {
            if (m_pipeline) {
                try {
                    m_pipeline->Wait();
                } catch (const std::exception& error) {
                    // A stage failed: what came before it reached the client; the status
                    // stays.
                    OVEX_LOG_ERROR("Pipeline terminated with exception: %s.", error.what());
                }
            }
            m_processing.Join();
            m_pipeline.reset();
            m_provider->Reset();  // what nobody took is discarded
            m_active.store(false);
        }
        return m_status;
    }

    std::error_code SetPixelDepth(std::uint8_t depth) override {
        return CheckTimepix3Depth(depth, GetName());
    }

    std::error_code Abort(AbortMode mode) override {
        std::lock_guard lock(m_mutex);
        m_stop.store(true);
        // The run's end item then brings the Consumer to the pipeline's end entries.
        return m_run.Abort(mode, *m_provider, m_status);
    }

    AcquisitionData GetData() override {
        if (m_current == nullptr) {
            throw std::runtime_error("BUG: Data requested before they are available.");
        }
        return {m_current, Kind()};
    }

    std::vector<RawSpan> GetRawData() override { return m_raw; }

    std::error_code SetFrameCount(std::int64_t count) override {
        m_continuous.store(count == -1);
        return {};
    }

    bool IsRunning() override { return m_active.load(); }

    std::set<ovexsdk_chip_mode> GetSupportedModes() const override { return {ToAToTDD}; }

    // Checks and keeps the mode's parameters.
    virtual std::error_code SetParameters(const AcquisitionParams& params) = 0;
    // The pipeline of a readout, with its queues.
    virtual std::unique_ptr<Pipeline> CreatePipeline() { return std::make_unique<Pipeline>(); }
    // The arena capacity the mode wants, before it is rounded to whole blocks.
    virtual std::uint64_t GetArenaBytes() const = 0;
    // Points GetData at what `item` holds; true if the client is to be called with it.
    virtual bool StoreResult(OutItem& item) = 0;
    // Called per block the Consumer hands on; false ends the readout.
    virtual bool OnBlock(bool ended_short) = 0;

protected:
    virtual AcquisitionDataKind Kind() const = 0;
    // The result GetData answers with, during the callback; null outside it.
    void SetCurrent(const void* data) { m_current = data; }
    bool Continuous() const { return m_continuous.load(); }

    // Ends a readout that still runs and joins its threads. The final classes call it first
    // thing in their destructors, while the threads can still reach their results.
    void Shutdown() {
        if (!m_active.load()) {
            return;
        }
        Abort(kAbortFromInside);
        AwaitReadoutEnd(kNoLimit);
    }

private:
    static constexpr double kNoLimit = 1e12;

    bool OnOwnThread() const {
        const auto self = std::this_thread::get_id();
        return self == m_consumer_id.load() || self == m_processing_id.load();
    }

    // A start that failed after the pipeline was made: nothing of it stays.
    std::error_code Undo(std::error_code ec) {
        {
            std::lock_guard lock(m_mutex);
            m_run.Stop(*m_provider, m_status);
        }
        m_provider->Reset();
        m_pipeline.reset();
        m_active.store(false);
        return ec;
    }

    void Consume() {
        m_consumer_id.store(std::this_thread::get_id());
        OVEX_LOG_INFO("%s data consumer started.", GetName());
        bool ends_sent = false;
        const auto send_ends = [&] {
            if (!ends_sent) {
                ends_sent = true;
                m_pipeline->PushEntry(
                    tpx3_pipeline::common::DataEntry::Control(tpx3_pipeline::EntryType::Stop));
                m_pipeline->Terminate();
            }
        };
        for (;;) {
            std::unique_ptr<ArenaData> data;
            if (const auto ec = m_provider->GetData(data)) {
                OVEX_LOG_EC(log::kError, "Failed to obtain data from provider - %s: %s.", ec);
                continue;
            }
            if (!data) {
                // The run's end item: a run still owned ended by itself, whether or not a stop
                // was asked for meanwhile, and its result is the readout's.
                OVEX_LOG_DEBUG("Consumer termination requested by provider.");
                std::lock_guard lock(m_mutex);
                m_run.CollectEnded(*m_provider, GetName(), m_status);
                break;
            }
            if (m_stop.load()) {
                send_ends();  // what comes behind the stop doesn't reach the pipeline
                continue;
            }
            if (data->data.empty()) {
                // A short transfer without data is no scan line.
                OVEX_LOG_DEBUG("Consumer termination requested by provider.");
                continue;
            }
            ConsumeSpan(std::move(data));
        }
        send_ends();
        OVEX_LOG_INFO("%s data consumer terminated.", GetName());
        m_consumer_id.store({});
    }

    void ConsumeSpan(std::unique_ptr<ArenaData> data) {
        const bool ended_short = data->ended_short;
        if (m_keep_raw) {
            std::unique_lock raw(m_raw_lock);
            m_raw_arenas.push_back(data->arena);
            m_raw.push_back(
                {reinterpret_cast<const std::byte*>(data->data.data()), data->data.size()});
        }
        tpx3_pipeline::common::DataEntry entry;
        entry.type =
            ended_short ? tpx3_pipeline::EntryType::LastData : tpx3_pipeline::EntryType::Data;
        entry.data = {std::move(data->arena), data->data};
        // A pipeline that failed takes nothing more; its failure reaches the wait.
        m_pipeline->PushEntry(std::move(entry));
        if (!OnBlock(ended_short)) {
            OVEX_LOG_INFO("End of readout reached.");
            if (const auto ec = Abort(kAbortFromInside)) {
                OVEX_LOG_EC(log::kError, "Unable to stop the acquisition - %s: %s.", ec);
            }
        }
    }

    void Process() {
        m_processing_id.store(std::this_thread::get_id());
        OVEX_LOG_INFO("%s data processing started.", GetName());
        for (;;) {
            OutItem item = m_pipeline->PopResult();
            const bool terminal = tpx3_pipeline::IsControl(item.type);
            if (terminal) {
                OVEX_LOG_DEBUG("Pipeline stopped or terminated.");
            }
            if (StoreResult(item)) {
                // Raw spans aren't appended while the client reads them.
                std::unique_lock raw(m_raw_lock);
                CallClient(m_callback, *this);
                m_current = nullptr;
                m_raw.clear();
                m_raw_arenas.clear();
            }
            if (terminal) {
                break;
            }
        }
        OVEX_LOG_INFO("%s data processing terminated.", GetName());
        m_processing_id.store({});
    }

    // The raw spans of the blocks pushed since the last callback, and the arenas behind them.
    std::vector<std::shared_ptr<tpx3_pipeline::Arena>> m_raw_arenas;
    std::vector<RawSpan> m_raw;
    std::shared_mutex m_raw_lock;
    // The thread objects are touched by Start, the wait and the destructor, under m_join_mutex.
    std::mutex m_join_mutex;
    thread::WrappedThread<> m_consumer;
    thread::WrappedThread<> m_processing;
    std::unique_ptr<Pipeline> m_pipeline;
    std::error_code m_status;
    std::shared_ptr<IArenaDataProvider> m_provider;
    std::mutex m_mutex;  // guards Abort, the wait's end and the stored status
    Callback m_callback;
    bool m_keep_raw = false;
    const void* m_current = nullptr;  // Processing's alone
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_active{false};  // from a start until the wait has joined everything
    std::atomic<bool> m_continuous{false};
    OwnedRun m_run;  // the provider is shared by the data-driven modes
    std::atomic<std::thread::id> m_consumer_id;
    std::atomic<std::thread::id> m_processing_id;
};

}  // namespace ovex::sdk::acquisition
