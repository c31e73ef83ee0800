#pragma once

// Runs a pipeline as an acquisition does: a feeding thread in front, the test's thread behind.

#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "ovex/log/log.hpp"
#include "tpx3_pipeline/pipelines.hpp"

namespace tpx3_test {

template <typename Pipeline>
struct RunResult {
    std::vector<typename Pipeline::OutItem> items;  // up to and with the terminal item
    std::string failure;                            // what the run threw, if anything
};

template <typename Pipeline>
RunResult<Pipeline> RunPipeline(Pipeline& pipeline,
                                std::vector<tpx3_pipeline::common::DataEntry> entries) {
    using tpx3_pipeline::EntryType;
    using tpx3_pipeline::common::DataEntry;
    RunResult<Pipeline> result;
    pipeline.Start();
    std::thread feeder([&pipeline, &entries] {
        ovex::log::SetThreadName("Consumer");
        for (DataEntry& entry : entries) {
            if (!pipeline.PushEntry(std::move(entry))) {
                break;
            }
        }
        entries.clear();
        pipeline.PushEntry(DataEntry::Control(EntryType::Stop));
        pipeline.Terminate();
    });
    for (;;) {
        auto item = pipeline.PopResult();
        const EntryType type = item.type;
        result.items.push_back(std::move(item));
        if (type == EntryType::Stop || type == EntryType::Terminate) {
            break;
        }
    }
    feeder.join();
    try {
        pipeline.Wait();
    } catch (const std::exception& error) {
        result.failure = error.what();
    }
    return result;
}

}  // namespace tpx3_test
