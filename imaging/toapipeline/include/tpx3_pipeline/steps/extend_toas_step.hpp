#pragma once

#include <cstdint>
#include <memory>

#include <oneapi/tbb/parallel_pipeline.h>

#include "tpx3_pipeline/steps/stage.hpp"
#include "tpx3_pipeline/steps/step_context.hpp"

namespace tpx3_pipeline {

// Turns each block of raw packets into records with 64-bit times, cuts the stream into scan
// lines and collects TDC events. The running time carries over from block to block, so the
// step runs as one serial in-order filter.
class ExtendToasStep {
public:
    template <typename Ctx>
    explicit ExtendToasStep(Ctx& context) : ExtendToasStep(*context.options.ring) {}
    explicit ExtendToasStep(tpx3_toa_extension::ArenaAllocator& ring);

    // Throws on a packet of a type that a data-driven stream can't hold, on a block that should
    // start a line but has no CTRL packet, and when the ring has no room for the records.
    common::ExtendToasOutput Process(common::DataEntry entry);

    tbb::filter<common::DataEntry*, common::ExtendToasOutput*> CreateFilter(RunFailure& failure) {
        return MakeStage<common::DataEntry*, common::ExtendToasOutput*>(
            tbb::filter_mode::serial_in_order,
            Guarded<common::DataEntry, common::ExtendToasOutput>(
                failure, [this](Pooled<common::DataEntry> entry) {
                    auto output = m_outputs->Take();
                    *output = Process(std::move(*entry));
                    return output;
                }));
    }

    std::uint64_t LastToa() const noexcept { return m_last_toa; }
    std::uint64_t LineStart() const noexcept { return m_line_start; }
    bool NeedSync() const noexcept { return m_need_sync; }

private:
    // TDC events per channel that a block holds without growing its list, and the blocks made
    // ready at the start: about as many as are out at once in a running acquisition.
    static constexpr std::size_t kTdcRoom = 64;
    static constexpr std::size_t kBlocksReady = 32;

    common::BlockHandle TakeBlock();

    std::uint64_t FindLineStart(std::span<const std::uint8_t> bytes) const;

    tpx3_toa_extension::ArenaAllocator* m_ring;
    std::shared_ptr<Recycler<common::ExtendedBlock>> m_blocks =
        Recycler<common::ExtendedBlock>::Create(&common::ExtendedBlock::ClearForReuse);
    std::shared_ptr<Recycler<common::ExtendToasOutput>> m_outputs =
        Recycler<common::ExtendToasOutput>::Create();
    std::uint64_t m_last_toa = 0;
    std::uint64_t m_line_start = 0;
    bool m_need_sync = true;
};

// The extension with the push to the out queue behind it.
class ExtendToasFinalStep : public ExtendToasStep {
public:
    using OutItem = common::ExtendToasOutput;

    template <typename Ctx>
    explicit ExtendToasFinalStep(Ctx& context) : ExtendToasStep(context), m_out(context.out) {}

    tbb::filter<common::DataEntry*, void> CreateFilter(RunFailure& failure) {
        return ExtendToasStep::CreateFilter(failure) &
               MakeStage<common::ExtendToasOutput*, void>(
                   tbb::filter_mode::serial_in_order,
                   GuardedSink<common::ExtendToasOutput>(
                       failure, [this](Pooled<common::ExtendToasOutput> item) {
                           m_out.Push(std::move(*item));
                       }));
    }

private:
    BlockingQueue<OutItem>& m_out;
};

}  // namespace tpx3_pipeline
