#pragma once

// A chip's read-back waiting for the data endpoint: the bytes go out in order, over as many
// transfers as they need, ahead of the chip's frames.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace ovex::vboard {

class ReadbackQueue {
public:
    // Replaces whatever waited.
    void Load(std::vector<std::uint8_t> bytes) {
        m_bytes = std::move(bytes);
        m_sent = 0;
    }
    void Clear() { Load({}); }
    // Bytes are still on their way out.
    bool Pending() const { return m_sent < m_bytes.size(); }
    // Moves the next bytes into `out`; the bytes moved.
    std::size_t Take(std::span<std::uint8_t> out) {
        const std::size_t count = std::min(out.size(), m_bytes.size() - m_sent);
        std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(m_sent), count, out.begin());
        m_sent += count;
        if (m_sent == m_bytes.size()) {
            Clear();
        }
        return count;
    }

private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_sent = 0;
};

}  // namespace ovex::vboard
