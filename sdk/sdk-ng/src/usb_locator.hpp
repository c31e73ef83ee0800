#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ovex::sdk {

// The length of the serial number in a "usb:sn:" locator.
inline constexpr std::size_t kLocatorSerialLength = 8;

// A parsed device locator: "usb:ix:<0-99>" or "usb:sn:<8 characters>".
class UsbLocator {
public:
    enum class Kind : std::uint8_t { Index = 0, SerialNumber = 1 };

    UsbLocator(std::string text, Kind kind);
    UsbLocator(const UsbLocator& other) : UsbLocator(other.m_text, other.m_kind) {}
    UsbLocator& operator=(const UsbLocator& other);

    const std::string& Text() const noexcept { return m_text; }
    // What follows the seven-character prefix.
    std::string_view Value() const noexcept { return m_value; }
    Kind GetKind() const noexcept { return m_kind; }

private:
    std::string m_text;
    std::string_view m_value;  // a view into m_text
    Kind m_kind;
};

// Parses a locator; logs "Locator string parsing failed - ..." and answers empty if it is not
// valid.
std::optional<UsbLocator> ParseUsbLocator(std::string_view text);

}  // namespace ovex::sdk
