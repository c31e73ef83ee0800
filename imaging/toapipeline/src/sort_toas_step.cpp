#include "tpx3_pipeline/steps/sort_toas_step.hpp"

#include <iterator>

#include "tpx3_pipeline/toa_sort.hpp"

namespace tpx3_pipeline {

tbb::filter<std::unique_ptr<common::ExtendToasOutput>, std::unique_ptr<common::ExtendToasOutput>>
SortToasStep::CreatePreSortFilter() {
    return tbb::make_filter<std::unique_ptr<common::ExtendToasOutput>,
                            std::unique_ptr<common::ExtendToasOutput>>(
        tbb::filter_mode::parallel, [](std::unique_ptr<common::ExtendToasOutput> item) {
            if (item->block) {
                SortRecordsByTime(item->block->begin(), item->block->end());
            }
            return item;
        });
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
    // sorted in itself: an insertion of its records from the front, across the block borders,
    // moves only those that stand behind the tail of the older blocks, and each a short way.
    common::ExtendedBlock& newest = m_blocks.back();
    const BlockIt newest_it = std::prev(m_blocks.end());
    for (std::uint64_t i = 0; i < newest.count; ++i) {
        const ToaTotRecord record = newest.begin()[i];
        BlockIt hole_block = newest_it;
        std::uint64_t hole = i;
        for (;;) {
            // The place in front of the hole, passing over blocks without records.
            BlockIt prev_block = hole_block;
            std::uint64_t prev = hole;
            if (prev == 0) {
                do {
                    if (prev_block == m_blocks.begin()) {
                        prev_block = m_blocks.end();
                        break;
                    }
                    --prev_block;
                } while (prev_block->count == 0);
                if (prev_block == m_blocks.end()) {
                    break;
                }
                prev = prev_block->count;
            }
            ToaTotRecord& before = prev_block->begin()[prev - 1];
            if (before.time <= record.time) {
                break;
            }
            hole_block->begin()[hole] = before;
            hole_block = prev_block;
            hole = prev - 1;
        }
        if (hole_block == newest_it && hole == i) {
            return;  // this record stays, and all behind it are later still
        }
        hole_block->begin()[hole] = record;
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
