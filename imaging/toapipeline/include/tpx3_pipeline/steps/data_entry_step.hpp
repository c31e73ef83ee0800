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
    tbb::filter<void, std::unique_ptr<common::DataEntry>> CreateFilter(RunFailure& failure) {
        return tbb::make_filter<void, std::unique_ptr<common::DataEntry>>(
            tbb::filter_mode::serial_in_order,
            [this, &failure](tbb::flow_control& control) -> std::unique_ptr<common::DataEntry> {
                common::DataEntry entry;
                if (m_seen_stop || failure.Failed() || !m_in.PopUnless(entry, failure.Flag())) {
                    control.stop();
                    return nullptr;
                }
                m_seen_stop = entry.type == EntryType::Stop;
                return std::make_unique<common::DataEntry>(std::move(entry));
            });
    }

private:
    BlockingQueue<common::DataEntry>& m_in;
    bool m_seen_stop = false;
};

}  // namespace tpx3_pipeline
