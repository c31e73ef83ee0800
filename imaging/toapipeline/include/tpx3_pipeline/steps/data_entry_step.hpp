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

    tbb::filter<void, std::unique_ptr<common::DataEntry>> CreateFilter() {
        return tbb::make_filter<void, std::unique_ptr<common::DataEntry>>(
            tbb::filter_mode::serial_in_order,
            [this](tbb::flow_control& control) -> std::unique_ptr<common::DataEntry> {
                if (m_seen_stop) {
                    control.stop();
                    return nullptr;
                }
                auto entry = std::make_unique<common::DataEntry>(m_in.Pop());
                m_seen_stop = entry->type == EntryType::Stop;
                return entry;
            });
    }

private:
    BlockingQueue<common::DataEntry>& m_in;
    bool m_seen_stop = false;
};

}  // namespace tpx3_pipeline
