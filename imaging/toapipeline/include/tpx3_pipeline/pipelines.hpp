#pragma once

// The five chains of the data-driven modes.

#include "tpx3_pipeline/data_pipeline.hpp"
#include "tpx3_pipeline/steps/binning_step.hpp"
#include "tpx3_pipeline/steps/data_entry_step.hpp"
#include "tpx3_pipeline/steps/extend_toas_step.hpp"
#include "tpx3_pipeline/steps/sort_toas_step.hpp"

namespace tpx3_pipeline {

// Records with extended times, block by block, in arrival order.
using ExtendedPipeline = DataPipeline<DataEntryStep, ExtendToasFinalStep>;
// Records in time order, block by block.
using SortedPipeline = DataPipeline<DataEntryStep, ExtendToasStep, SortToasFinalStep>;
// Scan lines cut into bins; one value per bin.
template <typename Writer>
using BinnedPipeline =
    DataPipeline<DataEntryStep, ExtendToasStep, SortToasStep, BinningFinalStep<Writer>>;
using CountSumsPipeline = BinnedPipeline<binning::BinWriterCountSums>;
using ItotSumsPipeline = BinnedPipeline<binning::BinWriterItotSums>;
using BinnedPacketsPipeline = BinnedPipeline<binning::BinWriterPackets>;

extern template class DataPipeline<DataEntryStep, ExtendToasFinalStep>;
extern template class DataPipeline<DataEntryStep, ExtendToasStep, SortToasFinalStep>;
extern template class DataPipeline<DataEntryStep, ExtendToasStep, SortToasStep,
                                   BinningFinalStep<binning::BinWriterCountSums>>;
extern template class DataPipeline<DataEntryStep, ExtendToasStep, SortToasStep,
                                   BinningFinalStep<binning::BinWriterItotSums>>;
extern template class DataPipeline<DataEntryStep, ExtendToasStep, SortToasStep,
                                   BinningFinalStep<binning::BinWriterPackets>>;

}  // namespace tpx3_pipeline
