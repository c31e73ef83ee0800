#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <oneapi/tbb/parallel_pipeline.h>

#include "tpx3_pipeline/steps/stage.hpp"
#include "tpx3_pipeline/steps/step_context.hpp"
#include "tpx3_pipeline/toa_sort.hpp"

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

    // The serial part: takes a block, gives the blocks that are final now, oldest first, into
    // `out`, which comes empty. Throws std::bad_optional_access on a Data item without a block.
    void Process(common::ExtendToasOutput item, common::SortToasOutput& out);
    common::SortToasOutput Process(common::ExtendToasOutput item) {
        common::SortToasOutput out;
        Process(std::move(item), out);
        return out;
    }

    // Sorts the records of one block; it touches nothing but its item and a scratch space of
    // its own, so it runs on all tokens at once.
    tbb::filter<common::ExtendToasOutput*, common::ExtendToasOutput*> CreatePreSortFilter(
        RunFailure& failure);

    tbb::filter<common::ExtendToasOutput*, common::SortToasOutput*> CreateMainSortFilter(
        RunFailure& failure) {
        return MakeStage<common::ExtendToasOutput*, common::SortToasOutput*>(
            tbb::filter_mode::serial_in_order,
            Guarded<common::ExtendToasOutput, common::SortToasOutput>(
                failure, [this](Pooled<common::ExtendToasOutput> item) {
                    auto out = m_outputs->Take();
                    out->blocks.reserve(kBlocksPerOutput);
                    Process(std::move(*item), *out);
                    return out;
                }));
    }

    tbb::filter<common::ExtendToasOutput*, common::SortToasOutput*> CreateFilter(
        RunFailure& failure) {
        return CreatePreSortFilter(failure) & CreateMainSortFilter(failure);
    }

    const std::vector<common::BlockHandle>& Held() const noexcept { return m_blocks; }

private:
    // A place between two records of the held blocks, in their common order.
    struct Place {
        std::size_t block;
        std::uint64_t index;
    };

    std::size_t FindBoundary() const;
    void InsertNewest();
    bool StepBack(Place& place) const noexcept;
    ToaTotRecord& At(Place place) const noexcept {
        return m_blocks[place.block]->records[place.index];
    }

    // Room for the blocks of one output from the start; more seldom leave at once.
    static constexpr std::size_t kBlocksPerOutput = 16;

    std::vector<common::BlockHandle> m_blocks;  // oldest first, records sorted across blocks
    std::vector<ToaTotRecord>
        m_early;  // scratch of the merge, kept: steady state allocates nothing
    std::shared_ptr<Recycler<SortScratch>> m_scratch =
        Recycler<SortScratch>::Create([](SortScratch&) noexcept {});
    std::shared_ptr<Recycler<common::SortToasOutput>> m_outputs =
        Recycler<common::SortToasOutput>::Create(&common::SortToasOutput::ClearForReuse);
};

// The sort with the push to the out queue behind it: one out item per block.
class SortToasFinalStep : public SortToasStep {
public:
    using OutItem = common::SortedBlockOutput;

    template <typename Ctx>
    explicit SortToasFinalStep(Ctx& context) : SortToasStep(context), m_out(context.out) {}

    // Pushes the blocks in order; the last takes the item's type, the others Data or LastData.
    void PushOut(common::SortToasOutput& sorted);

    tbb::filter<common::ExtendToasOutput*, void> CreateFilter(RunFailure& failure) {
        return SortToasStep::CreateFilter(failure) &
               MakeStage<common::SortToasOutput*, void>(
                   tbb::filter_mode::serial_in_order,
                   GuardedSink<common::SortToasOutput>(
                       failure,
                       [this](Pooled<common::SortToasOutput> sorted) { PushOut(*sorted); }));
    }

private:
    BlockingQueue<OutItem>& m_out;
};

}  // namespace tpx3_pipeline
