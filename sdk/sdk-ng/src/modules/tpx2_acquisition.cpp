#include "modules/tpx2_acquisition.hpp"

#include <exception>
#include <new>

#include "ovex/log/log.hpp"

namespace ovex::sdk::acquisition {

namespace {

// Transfers in flight: one for a single frame, so that nothing of a next shutter is taken, and
// enough for an endless readout to ride out a slow callback.
constexpr std::uint16_t kSingleFrameTransfers = 1;
constexpr std::uint16_t kEndlessTransfers = 32;

}  // namespace

// A client's abort is routine here: its wait is logged for tracing only.
Tpx2Acquisition::Tpx2Acquisition(std::shared_ptr<IVectorDataProvider> provider)
    : VectorReadout(std::move(provider), log::kDebug) {}

Tpx2Acquisition::~Tpx2Acquisition() {
    if (const auto ec = Shutdown()) {
        OVEX_LOG_EC(log::kError, "Failed to abort the data readout - %s: %s", ec);
    }
}

std::error_code Tpx2Acquisition::SetPixelDepth(std::uint8_t depth) {
    if (IsRunning()) {
        OVEX_LOG_ERROR("Unable to change descrambler while acquisition is running.");
        return std::make_error_code(std::errc::device_or_resource_busy);
    }
    auto descrambler = MakeDescrambler(depth);
    if (!descrambler) {
        OVEX_LOG_ERROR("Unknown/unrecognized pixel depth setting.");
        return std::make_error_code(std::errc::not_supported);
    }
    m_descrambler = std::move(descrambler);
    return {};
}

std::error_code Tpx2Acquisition::SetFrameCount(std::int64_t count) {
    if (IsRunning()) {
        OVEX_LOG_ERROR(
            "Unable to change number of expected frames while the acquisition is running.");
        return std::make_error_code(std::errc::operation_in_progress);
    }
    m_frame_count.store(count);
    return m_provider->Configure(count == 1 ? kSingleFrameTransfers : kEndlessTransfers);
}

std::error_code Tpx2Acquisition::Start(const ChipInfo& chip_info, std::uint32_t flags,
                                       const AcquisitionParams& /*params*/, Callback callback) {
    if (IsRunning()) {
        OVEX_LOG_WARN("Acquisition already in progress.");
        return std::make_error_code(std::errc::operation_in_progress);
    }
    if (m_frame_count.load() == 0) {
        OVEX_LOG_ERROR("Expected number of frames not configured. Trigger not configured?");
        return std::make_error_code(std::errc::operation_not_supported);
    }
    if (!m_descrambler) {
        OVEX_LOG_ERROR("Data descrambler not selected. Chip mode not configured?");
        return std::make_error_code(std::errc::operation_not_supported);
    }
    const std::uint32_t frame_bytes =
        FrameBytes(m_descrambler->BitsPerPixel(), chip_info.pixel_count);
    if (frame_bytes == 0) {
        OVEX_LOG_ERROR("Cannot start %s: the chip has no pixels.", GetName());
        return std::make_error_code(std::errc::invalid_argument);
    }
    // The readout ends as the module stops the run, at the last frame or an abort: a run that
    // isn't its own would never end.
    if (m_provider->IsRunning()) {
        OVEX_LOG_ERROR("Data provider already running: %s can't start a readout of its own.",
                       GetName());
        return std::make_error_code(std::errc::device_or_resource_busy);
    }
    m_consumer.Join();  // a Consumer that ended with its readout
    // What an aborted readout left of an unfinished frame went with it.
    m_store = {};
    m_assembler.Reset(frame_bytes);
    m_dropped.store(0);
    m_remaining = m_frame_count.load();
    StoreStatus({});

    // The provider runs before the Consumer: a start that fails never leaves a Consumer waiting,
    // and the provider's queue holds what arrives meanwhile.
    if (const auto ec = m_provider->Start(frame_bytes)) {
        OVEX_LOG_EC(log::kError, "Data provider not started - %s: %s.", ec);
        return ec;
    }
    m_run.Started();
    OVEX_LOG_INFO("Data provider started.");
    try {
        m_callback = std::move(callback);
        m_consumer.Start([this, flags, pixels = chip_info.pixel_count] { Consume(flags, pixels); });
    } catch (const std::system_error& error) {
        OVEX_LOG_ERROR("Failed to start the %s data consumer: %s.", GetName(), error.what());
        std::lock_guard lock(m_mutex);
        m_run.Stop(*m_provider, m_status);
        return error.code();
    }
    return {};
}

void Tpx2Acquisition::LogReadoutEnd() const {
    OVEX_LOG_INFO("%s successfully terminated.", GetName());
}

void Tpx2Acquisition::Consume(std::uint32_t flags, std::uint64_t pixels) {
    OVEX_LOG_INFO("Timepix 2 frame consumer started.");
    try {
        ConsumeRun(flags, pixels);
    } catch (const std::bad_alloc&) {
        EndAfterFailure("out of memory", std::errc::not_enough_memory);
    } catch (const std::exception& error) {
        EndAfterFailure(error.what(), std::errc::state_not_recoverable);
    } catch (...) {
        EndAfterFailure("unknown exception", std::errc::state_not_recoverable);
    }
    m_assembler.DropPending();
    m_dropped.store(m_assembler.Dropped());
    m_store = {};
    OVEX_LOG_INFO("Timepix 2 frame consumer terminated.");
}

void Tpx2Acquisition::ConsumeRun(std::uint32_t flags, std::uint64_t pixels) {
    bool complete = false;
    for (;;) {
        Buffer buffer;
        if (const auto ec = m_provider->GetData(buffer)) {
            OVEX_LOG_EC(log::kError, "Failed to obtain data from provider - %s: %s", ec);
            continue;
        }
        if (!buffer) {
            // The run's end item: a run still owned ended by itself, and its result is the
            // readout's.
            std::lock_guard lock(m_mutex);
            m_run.CollectEnded(*m_provider, GetName(), m_status);
            return;
        }
        if (buffer->empty()) {
            OVEX_LOG_DEBUG("Empty buffer received.");
            continue;
        }
        if (complete) {
            continue;  // behind the last frame, until the stop takes effect
        }
        complete = ConsumeBuffer(buffer, flags, pixels);
        if (complete) {
            std::lock_guard lock(m_mutex);
            m_run.Stop(*m_provider, m_status, "Failed to stop acquisition data provider");
        }
    }
}

// The run stops without waiting for its end item: the next start drops what is left queued.
void Tpx2Acquisition::EndAfterFailure(const char* what, std::errc status) {
    OVEX_LOG_ERROR("The %s data consumer failed: %s.", GetName(), what);
    std::lock_guard lock(m_mutex);
    m_run.Stop(*m_provider, m_status);
    m_status = std::make_error_code(status);
}

bool Tpx2Acquisition::ConsumeBuffer(const Buffer& buffer, std::uint32_t flags,
                                    std::uint64_t pixels) {
    const auto frame = m_assembler.Add(*buffer);
    m_dropped.store(m_assembler.Dropped());
    KeepRaw(buffer, frame.empty() ? m_assembler.Pending() : frame.size());
    if (frame.empty()) {
        return false;
    }
    if ((flags & kDescrambleFrames) != 0) {
        Unpack(frame, pixels);
    }
    if (m_remaining > 0) {
        --m_remaining;
    }
    DeliverStore();
    return m_remaining == 0;
}

// The store held the pending transfers; the assembler keeps or drops them whole, and `buffer`
// too. So the raw data are a frame's own transfers, and what is dropped is freed at once.
void Tpx2Acquisition::KeepRaw(const Buffer& buffer, std::size_t held) {
    if (held <= buffer->size()) {
        m_store.raw_spans.clear();
        m_store.raw_buffers.clear();
    }
    if (held == 0) {
        return;
    }
    m_store.raw_spans.push_back({buffer->data(), buffer->size()});
    m_store.raw_buffers.push_back(buffer);
}

void Tpx2Acquisition::Unpack(std::span<const std::byte> frame, std::uint64_t pixels) {
    auto pixels_of_frame = std::make_unique<std::vector<std::uint16_t>>(pixels);
    const std::span<std::uint16_t> output(*pixels_of_frame);
    if (m_descrambler->BitsPerPixel() == 14) {
        // The low bits of every pixel, then their high bits.
        const std::size_t low = FrameBytes(10, pixels);
        m_descrambler->Descramble(frame.first(low), output);
        m_descrambler->Descramble(frame.subspan(low), output);
    } else {
        m_descrambler->Descramble(frame, output);
    }
    m_store.frames.emplace_back(pixels_of_frame->data(), pixels_of_frame->size());
    m_store.frame_buffers.push_back(std::move(pixels_of_frame));
}

// The frames and the raw buffers are valid only during the callback.
void Tpx2Acquisition::DeliverStore() {
    acquisition::CallClient(m_callback, *this);
    m_store = {};
}

}  // namespace ovex::sdk::acquisition
