#pragma once

#include <memory>

#include <oneapi/tbb/parallel_pipeline.h>

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
        return tbb::make_filter<void, common::DataEntry*>(
            tbb::filter_mode::serial_in_order,
            [this, &failure](tbb::flow_control& control) -> common::DataEntry* {
                failure.OrderStages();
                common::DataEntry entry;
                std::unique_ptr<common::DataEntry> result;
                if (m_seen_stop || failure.Failed() || !m_in.PopUnless(entry, failure.Flag())) {
                    control.stop();
                } else {
                    m_seen_stop = entry.type == EntryType::Stop;
                    result = std::make_unique<common::DataEntry>(std::move(entry));
                }
                failure.OrderStages();
                return result.release();
            });
    }

private:
    BlockingQueue<common::DataEntry>& m_in;
    bool m_seen_stop = false;
};

}  // namespace tpx3_pipeline
