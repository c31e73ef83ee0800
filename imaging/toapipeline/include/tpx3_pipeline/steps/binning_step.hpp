#pragma once

// Cuts the sorted time line of each scan line into bins of one dwell time and lets a writer
// turn each bin into one value. A line that has ended gives exactly bins_per_line values; the
// only link to scan lines is the change of start_toa between blocks.

#include <algorithm>
#include <cstdint>
#include <memory>

#include <oneapi/tbb/parallel_pipeline.h>

#include "tpx3_pipeline/binning/bin_writers.hpp"
#include "tpx3_pipeline/steps/stage.hpp"
#include "tpx3_pipeline/steps/step_context.hpp"

namespace tpx3_pipeline {

template <typename W>
class BinningStep {
public:
    using Value = typename W::ValueType;
    using Output = common::BinnedOutput<Value>;

    template <typename Ctx>
    explicit BinningStep(Ctx& context) : BinningStep(context.options.binning) {}
    explicit BinningStep(const BinningParameters& parameters)
        : m_bin_width(parameters.bin_width), m_bins_per_line(parameters.bins_per_line) {
        StartLine(0);
    }

    // The bins that closed during this item, in an output value that comes recycled; the
    // item's blocks, and their ring blocks, are released behind it.
    void Process(const common::SortToasOutput& sorted, Output& output) {
        output.type = sorted.type;
        output.value = m_values->Take();
        binning::Reserve(*output.value, m_largest);
        for (const common::BlockHandle& block : sorted.blocks) {
            ProcessBlock(*block, *output.value);
        }
        const binning::OutputSize size = binning::SizeOf(*output.value);
        m_largest.bins = std::max(m_largest.bins, size.bins);
        m_largest.pixels = std::max(m_largest.pixels, size.pixels);
    }
    Output Process(const common::SortToasOutput& sorted) {
        Output output;
        Process(sorted, output);
        return output;
    }

    tbb::filter<common::SortToasOutput*, Output*> CreateFilter(RunFailure& failure) {
        return MakeStage<common::SortToasOutput*, Output*>(
            tbb::filter_mode::serial_in_order,
            Guarded<common::SortToasOutput, Output>(failure,
                                                    [this](Pooled<common::SortToasOutput> sorted) {
                                                        auto output = m_outputs->Take();
                                                        Process(*sorted, *output);
                                                        return output;
                                                    }));
    }

    W& Writer() noexcept { return m_writer; }

private:
    enum class Phase : std::uint8_t { LineDone = 1, Running = 2 };

    void StartLine(std::uint64_t start) {
        m_line_start = start;
        m_bin_start = start;
        m_bin_end = start + m_bin_width;
        m_line_end = start + m_bins_per_line * m_bin_width - 1;
        m_phase = Phase::Running;
    }

    void CloseBin(Value& output) {
        m_writer.FlushBin(output);
        m_writer.ResetBin();
        m_bin_start = m_bin_end;
        m_bin_end = m_bin_start + m_bin_width;
        if (m_bin_start > m_line_end) {
            m_phase = Phase::LineDone;
        }
    }

    // Closes bins until t lies in the open one or the line is done.
    void CloseBinsUpTo(std::uint64_t t, Value& output) {
        if (m_bin_start > m_line_end) {
            return;
        }
        while (t < m_bin_start || t >= m_bin_end) {
            CloseBin(output);
            if (m_phase == Phase::LineDone) {
                return;
            }
        }
    }

    void ProcessBlock(const common::ExtendedBlock& block, Value& output) {
        if (block.start_toa != m_line_start) {
            StartLine(block.start_toa);
        }
        for (const ToaTotRecord& record : block.Records()) {
            const std::uint64_t t = record.time;
            if (t < block.start_toa) {
                continue;  // a late record of the line before
            }
            if (t >= m_bin_end || t < m_bin_start) [[unlikely]] {
                CloseBinsUpTo(t, output);
            }
            if (m_phase == Phase::LineDone) {
                break;
            }
            m_writer.AddRecord(record);
        }
        if (block.line_end && m_phase != Phase::LineDone) {
            CloseBinsUpTo(m_line_end + 1, output);
        }
    }

    W m_writer;
    std::shared_ptr<Recycler<Value>> m_values = Recycler<Value>::Create(&binning::ClearOutput);
    binning::OutputSize m_largest;
    std::shared_ptr<Recycler<Output>> m_outputs = Recycler<Output>::Create();
    std::uint64_t m_bin_start = 0;
    std::uint64_t m_bin_end = 0;
    std::uint64_t m_line_start = 0;
    std::uint64_t m_line_end = 0;
    Phase m_phase = Phase::Running;
    std::uint64_t m_bin_width;
    std::uint64_t m_bins_per_line;
};

// The binning with the push to the out queue behind it: every item goes out, with or without
// bins in it.
template <typename W>
class BinningFinalStep : public BinningStep<W> {
public:
    using OutItem = typename BinningStep<W>::Output;

    template <typename Ctx>
    explicit BinningFinalStep(Ctx& context) : BinningStep<W>(context), m_out(context.out) {}

    tbb::filter<common::SortToasOutput*, void> CreateFilter(RunFailure& failure) {
        return BinningStep<W>::CreateFilter(failure) &
               MakeStage<OutItem*, void>(
                   tbb::filter_mode::serial_in_order,
                   GuardedSink<OutItem>(
                       failure, [this](Pooled<OutItem> item) { m_out.Push(std::move(*item)); }));
    }

private:
    BlockingQueue<OutItem>& m_out;
};

}  // namespace tpx3_pipeline
