#pragma once

// Objects that the pipeline makes for every block (the items between stages, the blocks of
// records, the output vectors) come from a recycler and go back to it when their handle lets
// them go, from whatever thread that happens on. A returned object is cleared but keeps its
// storage, so that once the pipeline runs steadily no block costs a heap allocation. A handle
// is one pointer wide and finds its recycler by itself; an object that comes back after its
// recycler has gone is destroyed.

#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

namespace tpx3_pipeline {

template <typename T>
class Recycler {
    // The object with its way home. A handle holds the T part; the node is what was allocated.
    struct Node : T {
        std::weak_ptr<Recycler> home;
    };

public:
    using Clear = void (*)(T&) noexcept;

    struct GiveBack {
        void operator()(T* object) const noexcept {
            auto* node = static_cast<Node*>(object);
            if (auto recycler = node->home.lock()) {
                recycler->Keep(node);
            } else {
                delete node;
            }
        }
    };
    using Handle = std::unique_ptr<T, GiveBack>;

    // `clear` makes a returned object ready for reuse; by default it is assigned a new T.
    static std::shared_ptr<Recycler> Create(Clear clear = &AssignNew) {
        std::shared_ptr<Recycler> recycler(new Recycler(clear));
        recycler->m_self = recycler;
        return recycler;
    }

    ~Recycler() {
        for (Node* node : m_free) {
            delete node;
        }
    }
    Recycler(const Recycler&) = delete;
    Recycler& operator=(const Recycler&) = delete;

    // A returned object, or a new one. Throws std::bad_alloc.
    Handle Take() {
        {
            std::lock_guard lock(m_mutex);
            if (!m_free.empty()) {
                Node* node = m_free.back();
                m_free.pop_back();
                return Handle(node);
            }
        }
        auto node = std::make_unique<Node>();
        node->home = m_self;
        return Handle(node.release());
    }

    std::size_t FreeCount() const {
        std::lock_guard lock(m_mutex);
        return m_free.size();
    }

private:
    explicit Recycler(Clear clear) : m_clear(clear) { m_free.reserve(kFreeListStart); }

    // Room in the free list from the start: more objects than this are seldom out at once.
    static constexpr std::size_t kFreeListStart = 64;

    static void AssignNew(T& object) noexcept { object = T{}; }

    void Keep(Node* node) noexcept {
        m_clear(*node);
        std::lock_guard lock(m_mutex);
        try {
            m_free.push_back(node);
        } catch (const std::bad_alloc&) {
            delete node;  // no room to keep it: it is simply made anew next time
        }
    }

    Clear m_clear;
    std::weak_ptr<Recycler> m_self;
    mutable std::mutex m_mutex;
    std::vector<Node*> m_free;
};

template <typename T>
using Pooled = typename Recycler<T>::Handle;

}  // namespace tpx3_pipeline
