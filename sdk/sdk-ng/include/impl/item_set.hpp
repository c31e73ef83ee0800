#pragma once

// The board's published items: commands, states, monitors and versions, each known by name.
// An item's id on the wire is its position in the board's list.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "ovex/range/range.hpp"

namespace ovex::sdk {

class ItemSet {
public:
    explicit ItemSet(std::vector<std::string> names) : m_names(std::move(names)) {}
    virtual ~ItemSet() = default;

    // "command", "state", "monitor" or "component": used in messages.
    virtual const char* ItemTypeName() const = 0;

    const std::vector<std::string>& Names() const noexcept { return m_names; }

    // The index of the first item of exactly this name.
    std::optional<std::uint16_t> IndexOf(std::string_view name) const noexcept;

    // As IndexOf, and logs "<type> '<name>' is not recognized by the device." on a miss.
    std::optional<std::uint16_t> Lookup(std::string_view name) const;

    // Seconds allowed for each request to the board.
    static constexpr double kTimeout = 10.0;

private:
    std::vector<std::string> m_names;
};

class Commands : public ItemSet {
public:
    using ItemSet::ItemSet;
    const char* ItemTypeName() const override { return "command"; }

    virtual std::error_code Invoke(std::string_view name) = 0;
    virtual std::error_code Invoke(std::string_view name, std::span<std::uint8_t> output) = 0;
    virtual std::error_code Invoke(std::string_view name, std::span<const std::uint8_t> input) = 0;
    // As above, and `received` gets the number of bytes the board answered, which may be fewer
    // than the output holds. A set that can't tell reports the whole output.
    virtual std::error_code Invoke(std::string_view name, std::span<std::uint8_t> output,
                                   std::size_t& received) {
        const auto ec = Invoke(name, output);
        received = ec ? 0 : output.size();
        return ec;
    }
};

class States : public ItemSet {
public:
    using ItemSet::ItemSet;
    const char* ItemTypeName() const override { return "state"; }

    virtual std::error_code Get(std::string_view name, int& value) = 0;
    virtual std::error_code Set(std::string_view name, int value) = 0;
    virtual std::error_code GetRange(std::string_view name, range::Range<int>& range) = 0;
};

class Monitors : public ItemSet {
public:
    using ItemSet::ItemSet;
    const char* ItemTypeName() const override { return "monitor"; }

    virtual std::error_code Get(std::string_view name, int& value) = 0;
    virtual std::error_code Get(std::string_view name, float& value) = 0;
    virtual std::error_code GetRange(std::string_view name, range::Range<int>& range) = 0;
    virtual std::error_code GetRange(std::string_view name, range::Range<float>& range) = 0;
};

class Versions : public ItemSet {
public:
    using ItemSet::ItemSet;
    const char* ItemTypeName() const override { return "component"; }

    virtual std::error_code Get(std::string_view name, std::string& version) = 0;
};

}  // namespace ovex::sdk
