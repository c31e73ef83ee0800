#pragma once

// A thread-safe observer of the monitor stream that keeps every call, and lets a test wait until
// the calls it expects have come.

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "ovex/vendor_cmd/monitor_stream.hpp"

namespace ovex::usb::vendor_cmd::testing {

struct Notice {
    enum Kind { kAvailability, kInt, kFloat };
    Kind kind;
    std::string name;
    std::uint8_t flags;
    std::variant<std::monostate, std::int32_t, float> value;
    std::uint32_t timestamp;
};

class RecordingObserver : public monitor::IValueObserver {
public:
    void OnAvailabilityChange(std::string_view name, monitor::Flags flags,
                              std::uint32_t timestamp) override {
        Record({Notice::kAvailability, std::string(name), flags.bits, {}, timestamp});
    }
    void OnIntUpdate(std::string_view name, monitor::Flags flags, std::int32_t value,
                     std::uint32_t timestamp) override {
        Record({Notice::kInt, std::string(name), flags.bits, value, timestamp});
    }
    void OnFloatUpdate(std::string_view name, monitor::Flags flags, float value,
                       std::uint32_t timestamp) override {
        Record({Notice::kFloat, std::string(name), flags.bits, value, timestamp});
    }

    std::vector<Notice> Notices() const {
        std::lock_guard lock(m_mutex);
        return m_notices;
    }

    // The notices of one monitor and kind, in the order they came.
    std::vector<Notice> Of(const std::string& name, Notice::Kind kind) const {
        std::vector<Notice> found;
        for (const Notice& notice : Notices()) {
            if (notice.name == name && notice.kind == kind) {
                found.push_back(notice);
            }
        }
        return found;
    }

    // Blocks until `done(notices)` holds.
    void WaitUntil(const std::function<bool(const std::vector<Notice>&)>& done) const {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return done(m_notices); });
    }

private:
    void Record(Notice notice) {
        std::lock_guard lock(m_mutex);
        m_notices.push_back(std::move(notice));
        m_changed.notify_all();
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<Notice> m_notices;
};

}  // namespace ovex::usb::vendor_cmd::testing
