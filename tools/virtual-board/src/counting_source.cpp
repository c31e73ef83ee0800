#include "ovex/vboard/counting_source.hpp"

#include <algorithm>
#include <cstring>

namespace ovex::vboard {

Produced CountingSource::Produce(std::span<std::uint8_t> out, Clock::time_point now) {
    std::lock_guard lock(m_mutex);
    if (!m_start) {
        m_start = now;
    }
    std::uint64_t limit = UINT64_MAX;
    if (m_settings.bytes_per_second > 0.0) {
        const double elapsed = std::chrono::duration<double>(now - *m_start).count();
        limit = static_cast<std::uint64_t>(elapsed * m_settings.bytes_per_second);
    }
    if (m_settings.total_bytes) {
        limit = std::min(limit, *m_settings.total_bytes);
    }
    const std::uint64_t available = limit > m_offset ? limit - m_offset : 0;
    const std::size_t count =
        static_cast<std::size_t>(std::min<std::uint64_t>(available, out.size()));

    std::size_t done = 0;
    // Unaligned head byte by byte, then whole words.
    while (done < count && (m_offset + done) % 8 != 0) {
        out[done] = ByteAt(m_offset + done);
        ++done;
    }
    std::uint64_t word = (m_offset + done) / 8;
    for (; done + 8 <= count; done += 8, ++word) {
        std::uint8_t bytes[8];
        for (int i = 0; i < 8; ++i) {
            bytes[i] = static_cast<std::uint8_t>(word >> (8 * i));
        }
        std::memcpy(out.data() + done, bytes, 8);
    }
    for (; done < count; ++done) {
        out[done] = ByteAt(m_offset + done);
    }
    m_offset += count;
    // The transfer that carries the last bytes of a finite stream ends short, as the firmware's
    // short packet does, so that the host gets them without waiting for more.
    return {count, count != 0 && m_settings.total_bytes && m_offset == *m_settings.total_bytes};
}

std::uint64_t CountingSource::BytesSent() const {
    std::lock_guard lock(m_mutex);
    return m_offset;
}

}  // namespace ovex::vboard
