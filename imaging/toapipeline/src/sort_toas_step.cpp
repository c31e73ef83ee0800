#include "tpx3_pipeline/steps/sort_toas_step.hpp"

#include <algorithm>
#include <iterator>
#include <optional>

namespace tpx3_pipeline {

tbb::filter<common::ExtendToasOutput*, common::ExtendToasOutput*> SortToasStep::CreatePreSortFilter(
    RunFailure& failure) {
    return MakeStage<common::ExtendToasOutput*, common::ExtendToasOutput*>(
        tbb::filter_mode::parallel,
        Guarded<common::ExtendToasOutput, common::ExtendToasOutput>(
            failure, [this](Pooled<common::ExtendToasOutput> item) {
                if (item->block) {
                    const Pooled<SortScratch> scratch = m_scratch->Take();
                    SortRecordsByTime(item->block->begin(), item->block->end(), *scratch);
                }
                return item;
            }));
}

std::size_t SortToasStep::FindBoundary() const {
    if (m_blocks.size() < 2) {
        return m_blocks.size();
    }
    const common::ExtendedBlock& newest = *m_blocks.back();
    const std::uint64_t t0 = newest.count > 0 ? newest.begin()->time : newest.start_toa;
    const std::uint64_t threshold = t0 <= FlushWindow ? 0 : t0 - FlushWindow;
    for (std::size_t i = m_blocks.size(); i-- > 0;) {
        const common::ExtendedBlock& block = *m_blocks[i];
        if (block.count > 0 && block.end()[-1].time < threshold) {
            return i;
        }
    }
    return m_blocks.size();
}

bool SortToasStep::StepBack(Place& place) const noexcept {
    while (place.index == 0) {
        if (place.block == 0) {
            return false;
        }
        --place.block;
        place.index = m_blocks[place.block]->count;
    }
    --place.index;
    return true;
}

void SortToasStep::InsertNewest() {
    // Everything in front of the newest block is in order already, and the newest block is
    // sorted in itself. Its records that lie before the last older record are set aside and
    // merged in from the back: each older record behind them moves up by as many places as
    // there are such records, across the block borders, and nothing else moves.
    const std::size_t newest = m_blocks.size() - 1;
    const common::ExtendedBlock& block = *m_blocks[newest];
    Place read{newest, 0};
    if (block.count == 0 || !StepBack(read)) {
        return;
    }
    const std::uint64_t older_last = At(read).time;
    const auto early_end = std::partition_point(
        block.begin(), block.end(),
        [older_last](const ToaTotRecord& record) { return record.time < older_last; });
    if (early_end == block.begin()) {
        return;
    }
    const auto early_count = static_cast<std::size_t>(early_end - block.begin());
    if (m_early.capacity() < early_count) {
        m_early.reserve(2 * early_count);  // a few more next time don't make it grow again
    }
    m_early.assign(block.begin(), early_end);
    Place write{newest, early_count};
    bool older_left = true;
    for (auto early = m_early.end(); early != m_early.begin();) {
        StepBack(write);
        if (older_left && At(read).time > early[-1].time) {
            At(write) = At(read);
            older_left = StepBack(read);
        } else {
            At(write) = *--early;
        }
    }
}

void SortToasStep::Process(common::ExtendToasOutput item, common::SortToasOutput& out) {
    out.type = item.type;
    if (item.type == EntryType::Stop) {
        std::move(m_blocks.begin(), m_blocks.end(), std::back_inserter(out.blocks));
        m_blocks.clear();
        return;
    }
    if (!item.block) {
        throw std::bad_optional_access();
    }
    m_blocks.push_back(std::move(item.block));
    // The boundary is the one that the list had before the newest block's records moved in.
    const std::size_t boundary = FindBoundary();
    InsertNewest();
    if (boundary < m_blocks.size()) {
        const auto end = m_blocks.begin() + static_cast<std::ptrdiff_t>(boundary);
        std::move(m_blocks.begin(), end, std::back_inserter(out.blocks));
        m_blocks.erase(m_blocks.begin(), end);
    }
}

void SortToasFinalStep::PushOut(common::SortToasOutput& sorted) {
    if (sorted.blocks.empty() && sorted.type == EntryType::Stop) {
        m_out.Push({EntryType::Stop, nullptr});
    }
    for (std::size_t i = 0; i < sorted.blocks.size(); ++i) {
        EntryType type = sorted.type;
        if (i + 1 < sorted.blocks.size()) {
            type = sorted.blocks[i]->line_end ? EntryType::LastData : EntryType::Data;
        }
        m_out.Push({type, std::move(sorted.blocks[i])});
    }
    sorted.blocks.clear();
}

}  // namespace tpx3_pipeline
