#pragma once

// The two large message tables of the device error categories, each sorted by code.

#include <algorithm>
#include <span>

namespace ovex::usb::vendor_cmd::error::texts {

struct CodeText {
    int code;
    const char* text;
};

constexpr bool IsSortedByCode(std::span<const CodeText> table) {
    return std::is_sorted(table.begin(), table.end(),
                          [](const CodeText& a, const CodeText& b) { return a.code < b.code; });
}

// The text of `code`, or null if the table doesn't list it.
constexpr const char* FindText(std::span<const CodeText> table, int code) noexcept {
    const auto found =
        std::lower_bound(table.begin(), table.end(), code,
                         [](const CodeText& entry, int wanted) { return entry.code < wanted; });
    return found != table.end() && found->code == code ? found->text : nullptr;
}

// The USB controller's firmware return codes.
const char* SystemErrorText(int code) noexcept;
// The FPGA firmware's driver status codes.
const char* FpgaDriverErrorText(int code) noexcept;

}  // namespace ovex::usb::vendor_cmd::error::texts
