#pragma once

// A free list of reusable objects. Objects in use are held by std::shared_ptr whose deleter
// resets them and hands them back, from whichever thread drops the last reference; if the pool
// is gone by then, the object is destroyed instead.

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace ovex::alloc {

template <typename T>
class Pool {
public:
    using Factory = std::function<std::unique_ptr<T>()>;

    class Deleter {
    public:
        explicit Deleter(std::weak_ptr<Pool> pool) noexcept : m_pool(std::move(pool)) {}
        void operator()(T* object) const noexcept {
            std::unique_ptr<T> owned(object);
            if (auto pool = m_pool.lock()) {
                pool->Return(std::move(owned));
            }
        }

    private:
        std::weak_ptr<Pool> m_pool;
    };

    // A pool whose factory builds objects from a copy of the settings.
    static std::shared_ptr<Pool> Create(const typename T::Settings& settings) {
        return Create([settings] { return std::make_unique<T>(settings); });
    }

    static std::shared_ptr<Pool> Create(Factory factory) {
        std::shared_ptr<Pool> pool(new Pool(std::move(factory)));
        pool->m_self = pool;
        return pool;
    }

    // An object from the free list, or a new one. May throw what the factory throws.
    std::shared_ptr<T> Acquire() {
        std::unique_ptr<T> object;
        {
            std::lock_guard lock(m_mutex);
            if (!m_free.empty()) {
                object = std::move(m_free.back());
                m_free.pop_back();
            }
        }
        if (!object) {
            object = m_factory();
        }
        return std::shared_ptr<T>(object.release(), Deleter(m_self));
    }

    // Afterwards at least `count` objects stand in the free list.
    void Reserve(std::size_t count) {
        const std::size_t have = FreeCount();
        if (have >= count) {
            return;
        }
        // New objects only: taking the free ones out first would leave fewer behind.
        std::vector<std::unique_ptr<T>> made;
        made.reserve(count - have);
        for (std::size_t i = have; i < count; ++i) {
            made.push_back(m_factory());
        }
        std::lock_guard lock(m_mutex);
        for (auto& object : made) {
            m_free.push_back(std::move(object));
        }
    }

    std::size_t FreeCount() const {
        std::lock_guard lock(m_mutex);
        return m_free.size();
    }

private:
    explicit Pool(Factory factory) : m_factory(std::move(factory)) {}

    void Return(std::unique_ptr<T> object) noexcept {
        try {
            object->Reset();  // outside the lock: it may be a slow system call
        } catch (...) {
            return;  // an object that can't be made new again is destroyed
        }
        std::lock_guard lock(m_mutex);
        m_free.push_back(std::move(object));
    }

    std::weak_ptr<Pool> m_self;
    Factory m_factory;
    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<T>> m_free;
};

}  // namespace ovex::alloc
