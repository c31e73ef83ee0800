#include "tpx3_pipeline/steps/sort_toas_step.hpp"

#include <algorithm>
#include <iterator>

#include "tpx3_pipeline/toa_sort.hpp"

namespace tpx3_pipeline {

tbb::filter<common::ExtendToasOutput*, common::ExtendToasOutput*> SortToasStep::CreatePreSortFilter(
    RunFailure& failure) {
    return tbb::make_filter<common::ExtendToasOutput*, common::ExtendToasOutput*>(
        tbb::filter_mode::parallel,
        Guarded<common::ExtendToasOutput, common::ExtendToasOutput>(
            failure, [](std::unique_ptr<common::ExtendToasOutput> item) {
                if (item->block) {
                    SortRecordsByTime(item->block->begin(), item->block->end());
                }
                return item;
            }));
}

SortToasStep::BlockIt SortToasStep::FindBoundary() {
    if (m_blocks.size() < 2) {
        return m_blocks.end();
    }
    const common::ExtendedBlock& newest = m_blocks.back();
    const std::uint64_t t0 = newest.count > 0 ? newest.begin()->time : newest.start_toa;
    const std::uint64_t threshold = t0 <= FlushWindow ? 0 : t0 - FlushWindow;
    for (auto it = m_blocks.end(); it != m_blocks.begin();) {
        --it;
        if (it->count > 0 && it->end()[-1].time < threshold) {
            return it;
        }
    }
    return m_blocks.end();
}

void SortToasStep::InsertNewest() {
    // Everything in front of the newest block is in order already, and the newest block is
    // sorted in itself. Only the older records later than the newest block's first one and
    // the newest records earlier than the older tail are out of place: those two runs are
    // merged and written back over the places that they held, across the block borders.
    common::ExtendedBlock& newest = m_blocks.back();
    if (newest.count == 0 || m_blocks.size() < 2) {
        return;
    }
    const std::uint64_t first_new = newest.begin()->time;
    // The tail of the older records that lies behind first_new, collected from the back.
    m_tail.clear();
    BlockIt tail_block = std::prev(m_blocks.end());
    std::uint64_t tail_index = 0;
    for (BlockIt it = tail_block; it != m_blocks.begin();) {
        --it;
        std::uint64_t i = it->count;
        while (i > 0 && it->begin()[i - 1].time > first_new) {
            m_tail.push_back(it->begin()[--i]);
        }
        if (i < it->count) {
            tail_block = it;
            tail_index = i;
        }
        if (i > 0) {
            break;  // a record at or before first_new: nothing further back moves
        }
    }
    if (m_tail.empty()) {
        return;
    }
    std::reverse(m_tail.begin(), m_tail.end());
    const std::uint64_t tail_last = m_tail.back().time;
    const auto early_end = std::partition_point(
        newest.begin(), newest.end(),
        [tail_last](const ToaTotRecord& record) { return record.time < tail_last; });
    m_merged.clear();
    std::merge(m_tail.begin(), m_tail.end(), newest.begin(), early_end,
               std::back_inserter(m_merged),
               [](const ToaTotRecord& a, const ToaTotRecord& b) { return a.time < b.time; });
    // Write back: first the places of the older tail, block by block, then the newest's front.
    auto source = m_merged.begin();
    for (BlockIt it = tail_block; source != m_merged.end(); ++it) {
        const std::uint64_t from = it == tail_block ? tail_index : 0;
        const std::uint64_t places = std::min<std::uint64_t>(
            it->count - from, static_cast<std::uint64_t>(m_merged.end() - source));
        std::copy(source, source + static_cast<std::ptrdiff_t>(places), it->begin() + from);
        source += static_cast<std::ptrdiff_t>(places);
    }
}

common::SortToasOutput SortToasStep::Process(common::ExtendToasOutput item) {
    common::SortToasOutput result{item.type, {}};
    if (item.type == EntryType::Stop) {
        result.blocks.splice(result.blocks.end(), m_blocks);
        return result;
    }
    m_blocks.push_back(std::move(item.block.value()));
    // The boundary is the one that the list had before the newest block's records moved in.
    const BlockIt boundary = FindBoundary();
    InsertNewest();
    if (boundary != m_blocks.end()) {
        result.blocks.splice(result.blocks.end(), m_blocks, m_blocks.begin(), boundary);
    }
    return result;
}

void SortToasFinalStep::PushOut(common::SortToasOutput sorted) {
    if (sorted.blocks.empty()) {
        if (sorted.type == EntryType::Stop) {
            m_out.Push({EntryType::Stop, std::nullopt});
        }
        return;
    }
    while (!sorted.blocks.empty()) {
        common::ExtendedBlock block = std::move(sorted.blocks.front());
        sorted.blocks.pop_front();
        EntryType type = sorted.type;
        if (!sorted.blocks.empty()) {
            type = block.line_end ? EntryType::LastData : EntryType::Data;
        }
        m_out.Push({type, std::move(block)});
    }
}

}  // namespace tpx3_pipeline
