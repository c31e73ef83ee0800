#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include <oneapi/tbb/parallel_pipeline.h>

#include "tpx3_pipeline/steps/step_context.hpp"

namespace tpx3_pipeline {

// Gives one non-decreasing time line: each block is sorted on its own, in parallel, and a
// serial stage holds the newest blocks back until no record can come any more that belongs
// in front of them. The ToA extension can't place a record more than 32767 ticks behind its
// neighbour in the stream, which bounds how long a block must wait.
class SortToasStep {
public:
    static constexpr std::uint64_t FlushWindow = 0x7FFF0;

    template <typename Ctx>
    explicit SortToasStep(Ctx& /*context*/) {}
    SortToasStep() = default;

    // The serial part: takes a block, gives the blocks that are final now, oldest first.
    // Throws std::bad_optional_access on a Data item without a block.
    common::SortToasOutput Process(common::ExtendToasOutput item);

    // Sorts the records of one block; no state, so it runs on all tokens at once.
    static tbb::filter<common::ExtendToasOutput*, common::ExtendToasOutput*> CreatePreSortFilter(
        RunFailure& failure);

    tbb::filter<common::ExtendToasOutput*, common::SortToasOutput*> CreateMainSortFilter(
        RunFailure& failure) {
        return tbb::make_filter<common::ExtendToasOutput*, common::SortToasOutput*>(
            tbb::filter_mode::serial_in_order,
            Guarded<common::ExtendToasOutput, common::SortToasOutput>(
                failure, [this](std::unique_ptr<common::ExtendToasOutput> item) {
                    return std::make_unique<common::SortToasOutput>(Process(std::move(*item)));
                }));
    }

    tbb::filter<common::ExtendToasOutput*, common::SortToasOutput*> CreateFilter(
        RunFailure& failure) {
        return CreatePreSortFilter(failure) & CreateMainSortFilter(failure);
    }

    const std::list<common::ExtendedBlock>& Held() const noexcept { return m_blocks; }

private:
    using BlockIt = std::list<common::ExtendedBlock>::iterator;

    BlockIt FindBoundary();
    void InsertNewest();

    std::list<common::ExtendedBlock> m_blocks;  // oldest first, records sorted across blocks
    // Scratch of the merge, kept so that steady state allocates nothing.
    std::vector<ToaTotRecord> m_tail;
    std::vector<ToaTotRecord> m_merged;
};

// The sort with the push to the out queue behind it: one out item per block.
class SortToasFinalStep : public SortToasStep {
public:
    using OutItem = common::SortedBlockOutput;

    template <typename Ctx>
    explicit SortToasFinalStep(Ctx& context) : SortToasStep(context), m_out(context.out) {}

    // Pushes the blocks in order; the last takes the item's type, the others Data or LastData.
    void PushOut(common::SortToasOutput sorted);

    tbb::filter<common::ExtendToasOutput*, void> CreateFilter(RunFailure& failure) {
        return SortToasStep::CreateFilter(failure) &
               tbb::make_filter<common::SortToasOutput*, void>(
                   tbb::filter_mode::serial_in_order,
                   GuardedSink<common::SortToasOutput>(
                       failure, [this](std::unique_ptr<common::SortToasOutput> sorted) {
                           PushOut(std::move(*sorted));
                       }));
    }

private:
    BlockingQueue<OutItem>& m_out;
};

}  // namespace tpx3_pipeline
