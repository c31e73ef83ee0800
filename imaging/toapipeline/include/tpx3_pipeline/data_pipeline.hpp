#pragma once

// The frame in which raw packets become results: a blocking queue in front, one behind, and
// between them a chain of steps run by oneTBB. The Consumer thread feeds the front, the
// Processing thread empties the back. Nothing in the chain drops data: a full out queue holds
// the last serial stage, the tokens stop coming back, and the in queue fills.

#include <atomic>
#include <cstddef>
#include <exception>
#include <future>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <type_traits>

#include <oneapi/tbb/parallel_pipeline.h>
#include <oneapi/tbb/task_group.h>

#include "tpx3_pipeline/blocking_queue.hpp"
#include "tpx3_pipeline/common.hpp"
#include "tpx3_pipeline/steps/step_context.hpp"

namespace tpx3_pipeline {

// The tokens of a run: one per hardware thread, or 8 when the machine doesn't say.
inline std::size_t TokenCount(unsigned hardware_threads) noexcept {
    return hardware_threads == 0 ? 8 : hardware_threads;
}

template <typename... Steps>
class DataPipeline {
    using LastStep = std::tuple_element_t<sizeof...(Steps) - 1, std::tuple<Steps...>>;

public:
    using OutItem = typename LastStep::OutItem;

    explicit DataPipeline(PipelineOptions options = {})
        : m_options(WithDefaults(options)),
          m_context{m_in, m_out, m_options, m_failure},
          m_steps(((void)sizeof(Steps*), m_context)...) {}

    // Ends a run that is still under way, so that no stage outlives the queues and steps. By
    // now nobody reads the out queue, so this thread drains it while it waits.
    ~DataPipeline() {
        if (!m_future.valid()) {
            return;
        }
        auto stop = common::DataEntry::Control(EntryType::Stop);
        bool stop_sent = false;
        OutItem dropped;
        while (m_future.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            stop_sent = stop_sent || m_in.TryPush(stop);
            while (m_out.TryPop(dropped)) {
                dropped = OutItem{};
            }
            std::this_thread::yield();
        }
    }

    DataPipeline(const DataPipeline&) = delete;
    DataPipeline& operator=(const DataPipeline&) = delete;

    // Starts a run unless one is under way. A stage that throws ends the run: the reader of
    // the out queue gets a Terminate item once the items before the failure are gone, and the
    // future holds a std::exception with the failure's text.
    void Start() {
        if (m_future.valid() &&
            m_future.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            return;
        }
        m_failure.Clear();
        m_future = std::async(std::launch::async, [this] { Run(); });
    }

    // Puts a Terminate entry on the in queue.
    bool Terminate() { return PushEntry(common::DataEntry::Control(EntryType::Terminate)); }

    // The Consumer's way in; spins while the in queue is full. Once a run has failed nothing
    // reads the in queue any more, and the entry is released at once: the answer is false.
    bool PushEntry(common::DataEntry entry) {
        while (!m_in.TryPush(entry)) {
            if (m_failure.Failed()) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    // The Processing thread's way out; blocks until an item is there, or answers a Terminate
    // item once a failed run has nothing more to give.
    OutItem PopResult() {
        OutItem item;
        if (!m_out.PopUnless(item, m_failure.Flag())) {
            item = OutItem{};
            item.type = EntryType::Terminate;
        }
        return item;
    }

    // Waits for the run to end and rethrows its failure, if any.
    void Wait() {
        if (m_future.valid()) {
            m_future.get();
        }
    }

    BlockingQueue<common::DataEntry>& InQueue() noexcept { return m_in; }
    BlockingQueue<OutItem>& OutQueue() noexcept { return m_out; }
    template <typename Step>
    Step& GetStep() noexcept {
        return std::get<Step>(m_steps);
    }

private:
    static PipelineOptions WithDefaults(PipelineOptions options) {
        if (options.ring == nullptr) {
            options.ring = &tpx3_toa_extension::ArenaAllocator::Instance();
        }
        return options;
    }

    auto ComposeFilters() {
        return std::apply([this](auto&... steps) { return (steps.CreateFilter(m_failure) & ...); },
                          m_steps);
    }

    void Run() {
        try {
            tbb::task_group_context context;
            tbb::parallel_pipeline(TokenCount(std::thread::hardware_concurrency()),
                                   ComposeFilters(), context);
        } catch (const std::exception& error) {
            m_failure.Note(error.what());
        }
        m_failure.OrderStages();  // the stages' last steps happen before the run's end
        if (m_failure.Failed()) {
            throw std::runtime_error(m_failure.What());
        }
    }

    PipelineOptions m_options;
    std::future<void> m_future;
    RunFailure m_failure;
    BlockingQueue<common::DataEntry> m_in;
    BlockingQueue<OutItem> m_out;
    StepContext<OutItem> m_context;
    std::tuple<Steps...> m_steps;
};

}  // namespace tpx3_pipeline
