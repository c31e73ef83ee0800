#include "usb_locator.hpp"

#include <algorithm>
#include <stdexcept>

#include <fmt/format.h>

#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

constexpr std::string_view kIndexPrefix = "usb:ix:";
constexpr std::string_view kSerialPrefix = "usb:sn:";
constexpr std::size_t kPrefixLength = 7;
constexpr std::size_t kMaxIndexDigits = 2;

bool IsDecimal(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

UsbLocator Parse(std::string_view text) {
    const auto invalid = [text] {
        return std::invalid_argument(fmt::format("string '{}' is not a valid USB locator", text));
    };
    if (text.size() < kPrefixLength) {
        throw invalid();
    }
    if (text.starts_with(kSerialPrefix) && text.size() == kPrefixLength + kLocatorSerialLength) {
        return UsbLocator(std::string(text), UsbLocator::Kind::SerialNumber);
    }
    if (text.starts_with(kIndexPrefix)) {
        const std::string_view value = text.substr(kPrefixLength);
        if (value.size() > kMaxIndexDigits || !IsDecimal(value)) {
            throw invalid();
        }
        return UsbLocator(std::string(text), UsbLocator::Kind::Index);
    }
    throw invalid();
}

}  // namespace

UsbLocator::UsbLocator(std::string text, Kind kind)
    : m_text(std::move(text)),
      m_value(std::string_view(m_text).substr(kPrefixLength)),
      m_kind(kind) {}

UsbLocator& UsbLocator::operator=(const UsbLocator& other) {
    if (this != &other) {
        m_text = other.m_text;
        m_value = std::string_view(m_text).substr(kPrefixLength);
        m_kind = other.m_kind;
    }
    return *this;
}

std::optional<UsbLocator> ParseUsbLocator(std::string_view text) {
    try {
        return Parse(text);
    } catch (const std::exception& e) {
        OVEX_LOG_ERROR("Locator string parsing failed - %s.", e.what());
        return std::nullopt;
    }
}

}  // namespace ovex::sdk
