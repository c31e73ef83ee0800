#pragma once

// Item sets that record what reaches the board in one shared journal and can refuse items.

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "impl/item_set.hpp"

namespace ovex::sdk::testing {

using Bytes = std::vector<std::uint8_t>;
using Journal = std::vector<std::string>;

// Refuses an item `times` times (always when negative), then lets it through.
struct Refusal {
    std::error_code ec;
    int times = -1;
};

using Refusals = std::map<std::string, Refusal, std::less<>>;

inline std::error_code Consume(Refusals& refusals, std::string_view key) {
    const auto found = refusals.find(key);
    if (found == refusals.end() || found->second.times == 0) {
        return {};
    }
    if (found->second.times > 0) {
        --found->second.times;
    }
    return found->second.ec;
}

// Every call lands in the shared journal, refused ones too, as "<name>"; the input bytes of each
// call, empty without input, in `inputs`.
class FakeCommands final : public Commands {
public:
    FakeCommands(Journal& journal, std::vector<std::string> names)
        : Commands(std::move(names)), m_journal(journal) {}

    std::error_code Invoke(std::string_view name) override { return Record(name, {}); }
    std::error_code Invoke(std::string_view name, std::span<std::uint8_t>) override {
        return Record(name, {});
    }
    std::error_code Invoke(std::string_view name, std::span<const std::uint8_t> input) override {
        return Record(name, Bytes(input.begin(), input.end()));
    }

    Refusals refusals;
    std::vector<Bytes> inputs;

private:
    std::error_code Record(std::string_view name, Bytes input) {
        m_journal.emplace_back(name);
        inputs.push_back(std::move(input));
        return Consume(refusals, name);
    }
    Journal& m_journal;
};

// Journal entries "get <name>" and "set <name> <value>"; refusals keyed the same way.
class FakeStates final : public States {
public:
    FakeStates(Journal& journal, std::vector<std::string> names)
        : States(std::move(names)), m_journal(journal) {}

    std::error_code Get(std::string_view name, int& value) override {
        m_journal.push_back("get " + std::string(name));
        if (const auto ec = Consume(refusals, "get " + std::string(name))) {
            return ec;
        }
        value = values[std::string(name)];
        return {};
    }
    std::error_code Set(std::string_view name, int value) override {
        m_journal.push_back("set " + std::string(name) + " " + std::to_string(value));
        if (const auto ec = Consume(refusals, "set " + std::string(name))) {
            return ec;
        }
        values[std::string(name)] = value;
        return {};
    }
    std::error_code GetRange(std::string_view, range::Range<int>&) override { return {}; }

    std::map<std::string, int> values;
    Refusals refusals;

private:
    Journal& m_journal;
};

// A failure line as "<text> - <category>: <message>.".
inline std::string Failure(const std::string& text, const std::error_code& ec) {
    return text + " - " + ec.category().name() + ": " + ec.message() + ".";
}

}  // namespace ovex::sdk::testing
