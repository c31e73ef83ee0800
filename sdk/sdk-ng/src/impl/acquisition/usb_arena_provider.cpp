#include "impl/acquisition/usb_arena_provider.hpp"

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <stdexcept>
#include <thread>
#include <variant>

#include "ovex/log/log.hpp"
#include "ovex/usb/usb_endpoint.hpp"

namespace ovex::sdk::acquisition {

using tpx3_pipeline::Arena;

namespace detail {

void UsbArenaBufferProvider::Configure(const Arena::Settings& settings) {
    m_settings = settings;
    try {
        if (m_pool) {
            // One arena tells whether the pool's arenas fit; it goes straight back.
            const std::shared_ptr<Arena> probe = m_pool->Acquire();
            if (probe->BlockSize() == settings.block_size &&
                probe->Size() - Arena::kHeadRoom == settings.capacity) {
                return;
            }
        }
        OVEX_LOG_DEBUG("Arena settings have been changed, initializing a new arena pool.");
        m_pool = m_make_arena
                     ? ArenaPool::Create([make = m_make_arena, settings] { return make(settings); })
                     : ArenaPool::Create(settings);
        m_pool->Reserve(kReservedArenas);
    } catch (...) {
        m_pool.reset();
        throw;
    }
}

usb::device::XferBuffer UsbArenaBufferProvider::Acquire(std::uint32_t /*size*/) {
    const std::uint64_t block = m_settings.block_size;
    if (!m_pool) {
        OVEX_LOG_ERROR("BUG: USB transfer buffer requested from an arena provider without arenas.");
        return {};
    }
    try {
        if (m_arenas.empty() || block + m_arenas.back()->Used() > m_arenas.back()->Size()) {
            m_arenas.push_back(m_pool->Acquire());
        }
        const std::span<std::uint8_t> span = m_arenas.back()->Allocate(block);
        m_run.Lent();
        return {span.data(), static_cast<std::uint32_t>(block), 0};
    } catch (const std::exception& error) {
        // A null buffer ends the transfers in order; what was delivered still reaches the
        // consumer.
        OVEX_LOG_ERROR("No arena block of %llu bytes for a USB transfer - %s.",
                       static_cast<unsigned long long>(block), error.what());
        return {};
    }
}

void UsbArenaBufferProvider::Deliver(const usb::device::XferBuffer& buffer) {
    if (m_arenas.empty() || !Awaited(buffer.buffer)) {
        OVEX_LOG_ERROR("BUG: Unknown buffer received from the device.");
        return;
    }
    // Transfers lent before this one that delivered nothing (cancelled, or lost when a
    // transfer failed) count as empty short transfers: the gap in the data ends the span.
    while (Expected() != buffer.buffer) {
        DeliverBlock(m_settings.block_size, 0, true);
    }
    DeliverBlock(buffer.size, std::min(buffer.transferred, buffer.size), false);
}

const std::uint8_t* UsbArenaBufferProvider::Expected() const {
    return m_arenas.front()->Base() + Arena::kHeadRoom + m_span_start + m_span_bytes;
}

bool UsbArenaBufferProvider::Awaited(const std::uint8_t* buffer) const {
    const auto at = reinterpret_cast<std::uintptr_t>(buffer);
    auto from = reinterpret_cast<std::uintptr_t>(Expected());
    for (const std::shared_ptr<Arena>& arena : m_arenas) {
        const auto payload = reinterpret_cast<std::uintptr_t>(arena->Base() + Arena::kHeadRoom);
        if (arena != m_arenas.front()) {
            from = payload;
        }
        if (at >= from && at < payload - Arena::kHeadRoom + arena->Used()) {
            return (at - payload) % m_settings.block_size == 0;
        }
    }
    return false;
}

void UsbArenaBufferProvider::DeliverBlock(std::uint64_t requested, std::uint64_t actual,
                                          bool lost) {
    const std::shared_ptr<Arena>& arena = m_arenas.front();
    std::uint8_t* const payload = arena->Base() + Arena::kHeadRoom;
    const std::uint64_t block = m_settings.block_size;
    m_span_bytes += actual;
    if (arena->FilledEnd() + block <= arena->Size()) {
        arena->SetFilledEnd(arena->FilledEnd() + block);
    }
    const bool full = arena->FilledEnd() + block > arena->Size();
    if (actual == requested && full) {
        const std::uint64_t length = arena->FilledEnd() - m_span_start - Arena::kHeadRoom;
        Push({arena, {payload + m_span_start, length}, false});
        m_span_bytes = 0;
    }
    if (actual < requested) {
        // The short transfer marks a boundary that the consumer must see; the next span starts
        // at the next block, behind the unwritten rest of this one. A gap needs one mark only.
        if (!lost || m_span_bytes != 0) {
            Push({arena, {payload + m_span_start, m_span_bytes}, true});
        }
        m_span_start += requested - actual + m_span_bytes;
        m_span_bytes = 0;
    }
    if (full) {
        m_span_start = 0;
        m_span_bytes = 0;
        m_arenas.pop_front();
    }
}

void UsbArenaBufferProvider::Release(const usb::device::XferBuffer& /*buffer*/) {
    if (m_run.Returned()) {
        EndRun();
    }
}

void UsbArenaBufferProvider::Begin() {
    DropSpan();
    m_run.Begin();
}

void UsbArenaBufferProvider::Started() {
    if (m_run.Started()) {
        EndRun();
    }
}

bool UsbArenaBufferProvider::PushEnd() {
    return !m_run.Claim() || EndRun();
}

bool UsbArenaBufferProvider::EndRun() {
    // Whole blocks delivered since the last span would otherwise wait for a run that never
    // comes.
    if (!m_arenas.empty() && m_span_bytes != 0) {
        Push({m_arenas.front(),
              {m_arenas.front()->Base() + Arena::kHeadRoom + m_span_start, m_span_bytes},
              false});
    }
    DropSpan();
    // A full queue holds items for the consumer anyway, and the end item follows them.
    return m_queue.PushEnd();
}

void UsbArenaBufferProvider::DropSpan() {
    m_arenas.clear();
    m_span_start = 0;
    m_span_bytes = 0;
}

void UsbArenaBufferProvider::Push(ArenaData span) {
    const std::size_t bytes = span.data.size();
    std::unique_ptr<ArenaData> item;
    try {
        item = std::make_unique<ArenaData>(std::move(span));
    } catch (const std::bad_alloc&) {
        m_refused.fetch_add(1, std::memory_order_relaxed);
        OVEX_LOG_ERROR("Out of memory for the consumer's item, dropped a span of %zu bytes.",
                       bytes);
        return;
    }
    // A full queue must not make the transfer callback wait: the span is refused, counted and
    // logged instead.
    if (!m_queue.TryPush(item)) {
        m_refused.fetch_add(1, std::memory_order_relaxed);
        OVEX_LOG_ERROR("Consumer queue full, dropped a span of %zu bytes.", bytes);
    }
}

std::size_t UsbArenaBufferProvider::Discard() {
    std::size_t bytes = 0;
    std::unique_ptr<ArenaData> item;
    while (m_queue.TryPop(item)) {
        if (!item || !item->arena) {
            OVEX_LOG_DEBUG("Discarding empty buffer.");
        } else {
            bytes += item->data.size();
        }
    }
    DropSpan();
    return bytes;
}

}  // namespace detail

UsbArenaProvider::UsbArenaProvider(std::shared_ptr<usb::device::UsbDevice> device,
                                   detail::UsbArenaBufferProvider::ArenaFactory make_arena)
    : m_buffers(std::make_shared<detail::UsbArenaBufferProvider>(std::move(make_arena))),
      m_device(std::move(device)) {}

UsbArenaProvider::~UsbArenaProvider() {
    if (m_state) {
        Stop();
    }
    Discard();
    OVEX_LOG_DEBUG("Provider destroyed.");
}

bool UsbArenaProvider::Running() const {
    return m_device && m_device->IsOpen() && m_state.has_value() && !m_buffers->Ended();
}

std::error_code UsbArenaProvider::Start(std::uint64_t /*size*/) {
    std::lock_guard lock(m_mutex);
    if (!m_device) {
        OVEX_LOG_ERROR("BUG: Starting USB data provider without a device.");
        return std::make_error_code(std::errc::no_such_device);
    }
    if (!m_device->IsOpen()) {
        OVEX_LOG_ERROR("BUG: The USB device is present, but not open.");
        return std::make_error_code(std::errc::no_such_device);
    }
    if (Running()) {
        return std::make_error_code(std::errc::device_or_resource_busy);
    }
    // Transfers that ended by themselves are collected now.
    m_state.reset();
    if (!m_buffers->Configured()) {
        OVEX_LOG_ERROR("BUG: Starting the arena data provider before its arenas are configured.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    usb::device::UsbBulkEp* bulk = nullptr;
    if (const std::error_code error = detail::FindDataEndpoint(*m_device, kDataEndpoint, bulk)) {
        return error;
    }
    ResetEndpoint(*bulk);
    m_buffers->Begin();
    auto started = bulk->ReadPerpetual(kTransfersInFlight, static_cast<std::uint32_t>(m_block_size),
                                       m_buffers, 0.0);
    if (auto* error = std::get_if<std::error_code>(&started)) {
        return *error;
    }
    m_state.emplace(std::move(std::get<usb::device::AsyncState>(started)));
    m_buffers->Started();
    return {};
}

void UsbArenaProvider::ResetEndpoint(usb::device::UsbBulkEp& bulk) {
    for (int attempt = 1; attempt <= kResetAttempts; ++attempt) {
        OVEX_LOG_DEBUG("Reset bulk endpoint, attempt %d of %d.", attempt, kResetAttempts);
        if (const std::error_code error = bulk.ClearHalt()) {
            OVEX_LOG_EC(log::kError, "Failed to reset the bulk endpoint 0x%02X - %s: %s.", error,
                        kDataEndpoint);
        } else {
            bool halted = true;
            if (const std::error_code status = m_device->IsEndpointHalted(bulk, halted)) {
                OVEX_LOG_EC(log::kError, "Failed to obtain status of endpoint 0x%02X - %s: %s.",
                            status, kDataEndpoint);
            } else if (!halted) {
                return;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    // The transfers are tried all the same: they tell whether the endpoint works.
}

std::error_code UsbArenaProvider::Stop() {
    std::lock_guard lock(m_mutex);
    if (!m_state) {
        OVEX_LOG_WARN("Already stopped, skipping USB transfer abort.");
        return std::make_error_code(std::errc::operation_canceled);
    }
    const std::error_code result = detail::StopTransfers(
        *m_state, m_buffers->Queued(),
        {"BUG: Transfer future is invalid.", "Total received raw bytes of data"});
    m_state.reset();
    m_buffers->PushEnd();
    OVEX_LOG_INFO("USB data provider stopped.");
    return result;
}

bool UsbArenaProvider::IsRunning() {
    std::lock_guard lock(m_mutex);
    return Running();
}

std::error_code UsbArenaProvider::Configure(std::any settings) {
    const auto* arena = std::any_cast<Arena::Settings>(&settings);
    if (arena == nullptr) {
        OVEX_LOG_ERROR("BUG: Invalid configuration parameter type.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    std::lock_guard lock(m_mutex);
    if (Running()) {
        OVEX_LOG_WARN("BUG: Attempted to configure running provider.");
        return std::make_error_code(std::errc::device_or_resource_busy);
    }
    m_state.reset();  // an ended run still hands on its last span from the arenas in use
    const auto refuse = [&](const char* reason, std::errc code) {
        OVEX_LOG_ERROR("Invalid arena settings (block size %llu, capacity %llu): %s",
                       static_cast<unsigned long long>(arena->block_size),
                       static_cast<unsigned long long>(arena->capacity), reason);
        return std::make_error_code(code);
    };
    // Settings that no transfer can take change nothing.
    if (arena->block_size > UINT32_MAX) {
        return refuse("a USB transfer holds less than 4 GiB", std::errc::invalid_argument);
    }
    // Settings that no arena can be made of leave the provider without arenas.
    m_block_size = 0;
    try {
        m_buffers->Configure(*arena);
    } catch (const std::invalid_argument& error) {
        return refuse(error.what(), std::errc::invalid_argument);
    } catch (const std::bad_alloc&) {
        return refuse("out of memory", std::errc::not_enough_memory);
    }
    m_block_size = arena->block_size;
    return {};
}

std::error_code UsbArenaProvider::GetData(std::unique_ptr<ArenaData>& data) {
    data = m_buffers->Pop();
    return {};
}

void UsbArenaProvider::Reset() {
    std::lock_guard lock(m_mutex);
    if (Running()) {
        OVEX_LOG_WARN("BUG: Attempted to reset running provider.");
        return;
    }
    // A run that has ended may still be handing on its last span: it is collected first.
    m_state.reset();
    Discard();
}

void UsbArenaProvider::Discard() {
    if (const std::size_t bytes = m_buffers->Discard(); bytes != 0) {
        OVEX_LOG_WARN("Discarded %zu bytes of unclaimed data.", bytes);
    }
}

}  // namespace ovex::sdk::acquisition
