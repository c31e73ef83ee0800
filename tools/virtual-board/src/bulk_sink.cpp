#include "ovex/vboard/bulk_sink.hpp"

namespace ovex::vboard {

void BulkSink::Consume(std::span<const std::uint8_t> data) {
    std::lock_guard lock(m_mutex);
    m_received.insert(m_received.end(), data.begin(), data.end());
}

std::vector<std::uint8_t> BulkSink::Received() const {
    std::lock_guard lock(m_mutex);
    return m_received;
}

}  // namespace ovex::vboard
