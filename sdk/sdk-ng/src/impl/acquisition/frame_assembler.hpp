#pragma once

// Cuts the transfers of a frame-based board into frames. The board ends every frame with the end
// of a transfer, and a frame may come in any number of transfers, so a frame is `frame_bytes`
// bytes whose last one ends a transfer. Bytes that can't be part of such a frame (a frame the
// board cut short, padding behind one, a frame of another depth) are dropped and counted. A
// transfer is kept or dropped whole, and so are the pending bytes before it: a caller that holds
// the transfers can tell from the sizes which of them a frame or the pending bytes are made of.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ovex::sdk::acquisition {

class FrameAssembler {
public:
    // Starts anew with frames of `frame_bytes`; what was pending is forgotten.
    void Reset(std::size_t frame_bytes);

    // Takes the next transfer. The bytes of the frame it completes, valid until the next call,
    // or an empty span.
    std::span<const std::byte> Add(std::span<const std::byte> transfer);

    // Bytes of an unfinished frame waiting for the rest.
    std::size_t Pending() const noexcept { return m_pending_done ? 0 : m_pending.size(); }
    // Bytes dropped since the last Reset.
    std::uint64_t Dropped() const noexcept { return m_dropped; }
    // Drops the pending bytes, as a readout ends; the bytes dropped.
    std::size_t DropPending();

private:
    void Drop(std::size_t bytes, const char* what);

    std::size_t m_frame_bytes = 0;
    std::vector<std::byte> m_pending;
    bool m_pending_done = false;  // m_pending holds the frame handed out last
    std::uint64_t m_dropped = 0;
};

}  // namespace ovex::sdk::acquisition
