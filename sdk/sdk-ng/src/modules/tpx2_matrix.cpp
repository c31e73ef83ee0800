#include "modules/tpx2_matrix.hpp"

#include <algorithm>
#include <utility>

#include "ovex/log/log.hpp"

namespace ovex::sdk {
namespace tpx2 {
namespace {

std::uint8_t PixelOf(unsigned conf, unsigned trim) noexcept {
    return static_cast<std::uint8_t>((conf & 3) | (trim & 15) << 2 | ((conf >> 3) & 1) << 6);
}

}  // namespace

void MergeConfTrim(std::span<const std::uint8_t> conf, std::span<const std::uint8_t> trim,
                   std::span<std::uint8_t> out) noexcept {
    for (std::size_t i = 0; i < kHalfMatrixSize; ++i) {
        out[2 * i] = PixelOf(conf[i], trim[i]);
        out[2 * i + 1] = PixelOf(conf[i] >> 4u, trim[i] >> 4u);
    }
}

void SwapWordBytes(std::span<std::uint8_t> bytes) noexcept {
    for (std::size_t i = 0; i + 4 <= bytes.size(); i += 4) {
        std::swap(bytes[i], bytes[i + 3]);
        std::swap(bytes[i + 1], bytes[i + 2]);
    }
}

}  // namespace tpx2

usb::device::XferBuffer CfgDataProducer::Acquire(std::uint32_t size) {
    OVEX_CHECK(size <= m_buffer.size(), "BUG: Invalid buffer size requested.");
    if (m_finished.load()) {
        return {};
    }
    return {m_buffer.data(), static_cast<std::uint32_t>(m_buffer.size()), 0};
}

void CfgDataProducer::Deliver(const usb::device::XferBuffer& buffer) {
    OVEX_LOG_DEBUG("Matrix data received: %p, %d bytes.", static_cast<void*>(buffer.buffer),
                   static_cast<int>(buffer.transferred));
    const std::size_t received = std::min<std::size_t>(buffer.transferred, m_buffer.size());
    if (received < m_buffer.size()) {
        OVEX_LOG_ERROR("Matrix data incomplete.");
    }
    tpx2::SwapWordBytes(std::span(m_buffer).first(received));
    {
        const std::lock_guard lock(m_mutex);
        m_received = received;
    }
    m_finished.exchange(true);
    m_delivered.notify_all();
}

bool CfgDataProducer::WaitDelivered(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(m_mutex);
    return m_delivered.wait_until(lock, deadline, [this] { return m_received != 0; });
}

std::vector<std::uint8_t> CfgDataProducer::TakeData() {
    const std::lock_guard lock(m_mutex);
    m_buffer.resize(m_received);
    return std::move(m_buffer);
}

}  // namespace ovex::sdk
