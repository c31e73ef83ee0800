#include "tpx3_pipeline/steps/extend_toas_step.hpp"

#include <stdexcept>
#include <vector>

#include <fmt/format.h>

namespace tpx3_pipeline {

using tpx3_toa_extension::HeaderMask;

ExtendToasStep::ExtendToasStep(tpx3_toa_extension::ArenaAllocator& ring) : m_ring(&ring) {
    std::vector<common::BlockHandle> ready;
    ready.reserve(kBlocksReady);
    for (std::size_t i = 0; i < kBlocksReady; ++i) {
        ready.push_back(TakeBlock());
    }
}  // the blocks go back to the recycler, ready

common::BlockHandle ExtendToasStep::TakeBlock() {
    common::BlockHandle block = m_blocks->Take();
    for (auto& times : block->tdc) {
        times.reserve(kTdcRoom);  // does nothing for a block that comes back with its lists
    }
    return block;
}

std::uint64_t ExtendToasStep::FindLineStart(std::span<const std::uint8_t> bytes) const {
    // Runs off the end with std::invalid_argument when the block holds no CTRL packet.
    for (std::size_t offset = 0;; offset += tpx3_toa_extension::TPX3_PACKET_SIZE) {
        const std::uint64_t packet =
            tpx3_toa_extension::ReadPacket(bytes.subspan(std::min(offset, bytes.size())));
        if (tpx3_toa_extension::MaskOfPacket(packet) == HeaderMask::Ctrl) {
            return tpx3_toa_extension::Extend32(m_last_toa, tpx3_toa_extension::CtrlStamp(packet))
                   << 4;
        }
    }
}

common::ExtendToasOutput ExtendToasStep::Process(common::DataEntry entry) {
    if (IsControl(entry.type)) {
        m_last_toa = 0;
        m_line_start = 0;
        m_need_sync = true;
        return {entry.type, nullptr};
    }
    const std::span<const std::uint8_t> bytes = entry.data.bytes;
    const std::size_t capacity = bytes.size() / tpx3_toa_extension::TPX3_PACKET_SIZE;
    const std::size_t array_bytes = capacity * sizeof(ToaTotRecord);
    common::BlockHandle block = TakeBlock();
    auto* records = static_cast<ToaTotRecord*>(m_ring->Allocate(array_bytes));
    if (records == nullptr) {
        throw std::runtime_error(
            fmt::format("Arena allocator failed to allocate block of size {}", array_bytes));
    }
    block->records = tpx3_toa_extension::RingArray<ToaTotRecord>(records, {m_ring});

    if (m_need_sync) {
        m_line_start = FindLineStart(bytes);
        m_need_sync = false;
    }
    block->start_toa = m_line_start;

    tpx3_toa_extension::ExtensionSink sink{m_last_toa, records, block->tdc};
    tpx3_toa_extension::WalkPackets(bytes.data(), bytes.data() + bytes.size(), sink);
    block->count = static_cast<std::uint64_t>(sink.out - records);

    if (entry.type == EntryType::LastData) {
        m_need_sync = true;
        block->line_end = true;
    }
    return {entry.type, std::move(block)};
}

}  // namespace tpx3_pipeline
