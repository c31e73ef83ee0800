#pragma once

#include <memory>

#include <oneapi/tbb/parallel_pipeline.h>

#include "tpx3_pipeline/steps/stage.hpp"
#include "tpx3_pipeline/steps/step_context.hpp"

namespace tpx3_pipeline {

// The head of the chain: takes entries from the in queue until a Stop has passed, then tells
// oneTBB that the input has ended. Whatever stands behind the Stop is never read.
class DataEntryStep {
public:
    template <typename Ctx>
    explicit DataEntryStep(Ctx& context) : m_in(context.in) {}

    // After a failure of the run the head takes no more entries.
    tbb::filter<void, common::DataEntry*> CreateFilter(RunFailure& failure) {
        return MakeStage<void, common::DataEntry*>(
            tbb::filter_mode::serial_in_order,
            [this, &failure](tbb::flow_control& control) -> common::DataEntry* {
                failure.OrderStages();
                Pooled<common::DataEntry> result;
                if (!m_seen_stop && !failure.Failed()) {
                    result = m_entries->Take();
                    if (!m_in.PopUnless(*result, failure.Flag())) {
                        result.reset();
                    }
                }
                if (result) {
                    m_seen_stop = result->type == EntryType::Stop;
                } else {
                    control.stop();
                }
                failure.OrderStages();
                return result.release();
            });
    }

private:
    BlockingQueue<common::DataEntry>& m_in;
    std::shared_ptr<Recycler<common::DataEntry>> m_entries = Recycler<common::DataEntry>::Create();
    bool m_seen_stop = false;
};

}  // namespace tpx3_pipeline
