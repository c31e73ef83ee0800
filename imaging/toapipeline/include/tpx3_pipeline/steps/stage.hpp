#pragma once

// A pipeline stage as oneTBB runs it. oneTBB copies a stage's body into a filter of its own on
// the thread that starts the run and calls it on its workers, ordering the two through
// synchronisation that a race detector can't see into. The body here states that order openly:
// its copy ends with a release on a flag of its own, and each call begins with an acquire of
// it, which costs a plain load on the platforms we build for.

#include <atomic>
#include <utility>

#include <oneapi/tbb/parallel_pipeline.h>

namespace tpx3_pipeline {

template <typename Body>
class PublishedBody {
public:
    explicit PublishedBody(Body body) : m_body(std::move(body)) {
        m_ready.store(true, std::memory_order_release);
    }
    PublishedBody(const PublishedBody& other) : m_body(other.Get()) {
        m_ready.store(true, std::memory_order_release);
    }
    PublishedBody& operator=(const PublishedBody&) = delete;

    template <typename... Args>
    decltype(auto) operator()(Args&&... args) const {
        return Get()(std::forward<Args>(args)...);
    }

private:
    const Body& Get() const {
        (void)m_ready.load(std::memory_order_acquire);
        return m_body;
    }

    Body m_body;
    std::atomic<bool> m_ready{false};
};

template <typename In, typename Out, typename Body>
tbb::filter<In, Out> MakeStage(tbb::filter_mode mode, Body body) {
    return tbb::make_filter<In, Out>(mode, PublishedBody<Body>(std::move(body)));
}

}  // namespace tpx3_pipeline
