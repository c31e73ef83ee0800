#include "tpx3_pipeline/pipelines.hpp"

namespace tpx3_pipeline {

template class DataPipeline<DataEntryStep, ExtendToasFinalStep>;
template class DataPipeline<DataEntryStep, ExtendToasStep, SortToasFinalStep>;
template class DataPipeline<DataEntryStep, ExtendToasStep, SortToasStep,
                            BinningFinalStep<binning::BinWriterCountSums>>;
template class DataPipeline<DataEntryStep, ExtendToasStep, SortToasStep,
                            BinningFinalStep<binning::BinWriterItotSums>>;
template class DataPipeline<DataEntryStep, ExtendToasStep, SortToasStep,
                            BinningFinalStep<binning::BinWriterPackets>>;

}  // namespace tpx3_pipeline
