// Any text as a locator: a parsed locator reads back the text it came from.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "usb_locator.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto locator = ovex::sdk::ParseUsbLocator(text)) {
        const ovex::sdk::UsbLocator copy = *locator;
        if (copy.Text() != text || copy.Value() != text.substr(7)) {
            std::abort();
        }
    }
    return 0;
}
