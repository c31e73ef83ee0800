#pragma once

// Item sets of a chip board for the chip module tests: each invocation, read and write is
// recorded, and any item can be made to fail.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "impl/item_set.hpp"

namespace ovex::sdk::testing {

inline const std::error_code kBoardError = std::make_error_code(std::errc::io_error);

// TPX_CHIP_INFO and any other invocation with output copies `chip_info` out, and answers as many
// bytes as it holds.
class ScriptedCommands final : public Commands {
public:
    using Bytes = std::vector<std::uint8_t>;
    using Call = std::pair<std::string, Bytes>;

    explicit ScriptedCommands(std::vector<std::string> names) : Commands(std::move(names)) {}

    std::error_code Invoke(std::string_view name) override { return Record(name, {}); }
    std::error_code Invoke(std::string_view name, std::span<std::uint8_t> output) override {
        std::copy_n(chip_info.begin(), std::min(chip_info.size(), output.size()), output.begin());
        return Record(name, {});
    }
    std::error_code Invoke(std::string_view name, std::span<const std::uint8_t> input) override {
        return Record(name, Bytes(input.begin(), input.end()));
    }
    std::error_code Invoke(std::string_view name, std::span<std::uint8_t> output,
                           std::size_t& received) override {
        const auto ec = Invoke(name, output);
        received = ec ? 0 : std::min(chip_info.size(), output.size());
        return ec;
    }

    // The n-th invocation of this command from now on fails (0: the next).
    void Fail(const std::string& name, int nth = 0) { m_failures[name] = m_counts[name] + nth; }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& call : calls) {
            names.push_back(call.first);
        }
        return names;
    }

    std::vector<Call> calls;
    std::vector<std::string> failing;  // these always fail
    Bytes chip_info;

private:
    std::error_code Record(std::string_view name, Bytes input) {
        if (!Lookup(name)) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        const int nth = m_counts[std::string(name)]++;
        calls.emplace_back(std::string(name), std::move(input));
        const auto failure = m_failures.find(std::string(name));
        const bool fails = (failure != m_failures.end() && failure->second == nth) ||
                           std::find(failing.begin(), failing.end(), name) != failing.end();
        return fails ? kBoardError : std::error_code{};
    }
    std::map<std::string, int> m_failures;
    std::map<std::string, int> m_counts;
};

// A DAC without an entry in `ranges` has the limits 0..255.
class ScriptedStates final : public States {
public:
    ScriptedStates(std::vector<std::string> names,
                   std::map<std::string, range::Range<int>> dac_ranges)
        : States(std::move(names)), ranges(std::move(dac_ranges)) {}

    std::error_code Get(std::string_view name, int& value) override {
        ++reads[std::string(name)];
        return Answer(name, failing, [&] { value = values[std::string(name)]; });
    }
    std::error_code Set(std::string_view name, int value) override {
        sets.emplace_back(std::string(name), value);
        return Answer(name, failing, [&] { values[std::string(name)] = value; });
    }
    std::error_code GetRange(std::string_view name, range::Range<int>& range) override {
        return Answer(name, failing_limits, [&] {
            const auto found = ranges.find(std::string(name));
            range = found != ranges.end() ? found->second : range::Range<int>(0, 255);
        });
    }

    std::map<std::string, int> values;
    std::map<std::string, range::Range<int>> ranges;
    std::map<std::string, int> reads;
    std::vector<std::pair<std::string, int>> sets;
    std::vector<std::string> failing;  // reads and writes fail
    std::vector<std::string> failing_limits;

private:
    template <typename Then>
    std::error_code Answer(std::string_view name, const std::vector<std::string>& failures,
                           Then then) {
        if (!Lookup(name)) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        if (std::find(failures.begin(), failures.end(), name) != failures.end()) {
            return kBoardError;
        }
        then();
        return {};
    }
};

}  // namespace ovex::sdk::testing
