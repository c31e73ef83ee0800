#pragma once

// What the library asks of a virtual board, as the host's own trace of its control transfers
// tells it: one entry for each item request that the test's thread sends, in order, and the
// waits of the scripts between them. A test can act on an entry before its request reaches the
// board, for example to have the board refuse it.
//
// Entries: "set NAME", "get NAME", "monitor NAME", "version NAME", "invoke NAME" (with or
// without data), each followed by " TIMEOUT" in seconds where that isn't the default of 10;
// "sleep SECONDS".

#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ovex/log/sink.hpp"
#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::sdk::testing {

class BoardJournal final : public ovex::log::Sink {
public:
    using Action = std::function<void(const vboard::RequestMatch& request)>;

    // Only the thread that makes the journal writes entries; it alone may use the journal.
    explicit BoardJournal(const vboard::ItemTables& tables)
        : m_tables(tables), m_thread(std::this_thread::get_id()) {}

    // Runs `action` once, when the request of `entry` is written for the `occurrence`th time
    // since the journal was cleared, before the request is sent.
    void At(std::string entry, int occurrence, Action action) {
        m_actions[{std::move(entry), occurrence}] = std::move(action);
    }

    void Sleep(double seconds) {
        char text[32];
        std::snprintf(text, sizeof text, "sleep %g", seconds);
        Write(text, std::nullopt);
    }

    const std::vector<std::string>& Entries() const { return m_entries; }
    // Starts anew; occurrences count from here.
    void Clear() {
        m_entries.clear();
        m_counts.clear();
    }

    void Receive(const ovex::log::Line& line) override {
        if (std::this_thread::get_id() != m_thread || !line.message.starts_with("Created ")) {
            return;
        }
        unsigned request = 0;
        unsigned value = 0;
        unsigned index = 0;
        unsigned timeout_ms = 0;
        const std::string message(line.message);
        if (std::sscanf(message.c_str(),
                        "Created %*s control transfer %*d on endpoint 0x%*x - bmRequestType: "
                        "0x%*x, bRequest: 0x%x, wValue: 0x%x, wIndex: 0x%x, wLength: 0x%*x, "
                        "timeout: %ums.",
                        &request, &value, &index, &timeout_ms) != 4) {
            return;
        }
        std::string entry = Describe(request, value, index);
        if (entry.empty()) {
            return;
        }
        if (timeout_ms != kDefaultTimeoutMs) {
            entry += " " + std::to_string(timeout_ms / 1000);
        }
        Write(std::move(entry), vboard::RequestMatch(static_cast<std::uint8_t>(request),
                                                     static_cast<std::uint16_t>(value),
                                                     static_cast<std::uint16_t>(index)));
    }

private:
    static constexpr unsigned kDefaultTimeoutMs = 10000;

    // The item request's entry without its timeout; empty for requests of other kinds.
    std::string Describe(unsigned request, unsigned value, unsigned index) const {
        constexpr unsigned kGet = 2;  // also a command's invocation
        constexpr unsigned kSet = 3;
        const auto name = [index](const auto& items) {
            return index < items.size() ? items[index].name : "#" + std::to_string(index);
        };
        switch (request) {
            case 0x01:
                return value == kGet ? "invoke " + name(m_tables.commands) : "";
            case 0x02:
                return value == kGet ? "version " + name(m_tables.versions) : "";
            case 0x03:
                if (value == kGet || value == kSet) {
                    return (value == kGet ? "get " : "set ") + name(m_tables.states);
                }
                return "";
            case 0x05:
                return value == kGet ? "monitor " + name(m_tables.monitors) : "";
            default:
                return "";
        }
    }

    void Write(std::string entry, const std::optional<vboard::RequestMatch>& request) {
        const int occurrence = ++m_counts[entry];
        m_entries.push_back(entry);
        const auto action = m_actions.find({entry, occurrence});
        if (action != m_actions.end() && request) {
            const Action act = std::move(action->second);
            m_actions.erase(action);
            act(*request);
        }
    }

    const vboard::ItemTables& m_tables;
    const std::thread::id m_thread;
    std::vector<std::string> m_entries;
    std::map<std::string, int> m_counts;
    std::map<std::pair<std::string, int>, Action> m_actions;
};

}  // namespace ovex::sdk::testing
