#pragma once

// A data consumer for perpetual transfers in tests: lends a fixed set of buffers, checks that
// the delivered bytes continue the board's counting stream, and can run dry after n buffers.
// Calls that overlap, which the transport must never make, count as faults.
// Lending allocates nothing, so that it never fails where the transport's allocations are made
// to fail.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "ovex/usb/data_producer.hpp"
#include "ovex/vboard/counting_source.hpp"

namespace ovex::usb::device::testing {

class CountingProducer final : public IUsbDataProducer {
public:
    CountingProducer(std::size_t buffers, std::uint32_t size,
                     std::optional<std::size_t> acquire_limit = std::nullopt)
        : m_storage(buffers, std::vector<std::uint8_t>(size)), m_acquire_limit(acquire_limit) {
        for (auto& buffer : m_storage) {
            m_free.push_back(buffer.data());
        }
        m_lent.reserve(buffers);
    }

    XferBuffer Acquire(std::uint32_t size) override {
        const Call call(*this);
        std::lock_guard lock(m_mutex);
        if (m_free.empty() || size > m_storage.front().size() ||
            (m_acquire_limit && m_acquired == *m_acquire_limit)) {
            return {};
        }
        ++m_acquired;
        std::uint8_t* buffer = m_free.back();
        m_free.pop_back();
        m_lent.push_back(buffer);
        return {buffer, static_cast<std::uint32_t>(m_storage.front().size()), 0};
    }

    void Deliver(const XferBuffer& buffer) override {
        const Call call(*this);
        std::lock_guard lock(m_mutex);
        ++m_deliveries;
        if (std::find(m_lent.begin(), m_lent.end(), buffer.buffer) == m_lent.end()) {
            ++m_faults;
            return;
        }
        const std::uint8_t* data = buffer.buffer;
        std::uint32_t done = 0;
        // Whole words where the stream offset is aligned, single bytes elsewhere.
        while (done < buffer.transferred) {
            if (m_offset % 8 == 0 && buffer.transferred - done >= 8) {
                std::uint64_t word;
                std::memcpy(&word, data + done, 8);
                if (word != m_offset / 8) {
                    ++m_faults;
                }
                done += 8;
                m_offset += 8;
            } else {
                if (data[done] != vboard::CountingSource::ByteAt(m_offset)) {
                    ++m_faults;
                }
                ++done;
                ++m_offset;
            }
        }
    }

    void Release(const XferBuffer& buffer) override {
        const Call call(*this);
        std::lock_guard lock(m_mutex);
        const auto lent = std::find(m_lent.begin(), m_lent.end(), buffer.buffer);
        if (lent == m_lent.end()) {
            ++m_faults;  // released twice, or never lent
            return;
        }
        m_lent.erase(lent);
        m_free.push_back(buffer.buffer);
    }

    std::uint64_t Received() const {
        std::lock_guard lock(m_mutex);
        return m_offset;
    }
    std::size_t Deliveries() const {
        std::lock_guard lock(m_mutex);
        return m_deliveries;
    }
    // Bytes out of sequence, unknown buffers, double releases, overlapping calls.
    std::size_t Faults() const {
        std::lock_guard lock(m_mutex);
        return m_faults + m_overlaps.load();
    }
    std::size_t Overlaps() const { return m_overlaps.load(); }
    std::size_t Lent() const {
        std::lock_guard lock(m_mutex);
        return m_lent.size();
    }

private:
    // Marks a call as running; another call that comes meanwhile is a fault.
    class Call {
    public:
        explicit Call(CountingProducer& producer) : m_producer(producer) {
            if (m_producer.m_calls.fetch_add(1) != 0) {
                m_producer.m_overlaps.fetch_add(1);
            }
            std::this_thread::yield();  // gives a concurrent call its chance to show
        }
        ~Call() { m_producer.m_calls.fetch_sub(1); }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        CountingProducer& m_producer;
    };

    std::atomic<int> m_calls{0};
    std::atomic<std::size_t> m_overlaps{0};
    mutable std::mutex m_mutex;
    std::vector<std::vector<std::uint8_t>> m_storage;
    std::vector<std::uint8_t*> m_free;
    std::vector<std::uint8_t*> m_lent;
    std::optional<std::size_t> m_acquire_limit;
    std::size_t m_acquired = 0;
    std::size_t m_deliveries = 0;
    std::size_t m_faults = 0;
    std::uint64_t m_offset = 0;
};

}  // namespace ovex::usb::device::testing
