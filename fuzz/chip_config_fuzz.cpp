// Any bytes as a chip configuration text: every parser is tried, and the loader answers every
// question about what it found, never with an exception or a crash.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "ovex/config_loader/config_loader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        using ovex::configuration::ConfigLoader;
        const ConfigLoader loader(ovex::configuration::kFromText,
                                  std::string_view(reinterpret_cast<const char*>(data), size));
        for (std::int32_t i = 0; i <= loader.GetChipCount(); ++i) {
            const std::string chip = loader.GetChipSignature(i);
            for (const std::string& key : loader.GetChipKeys()) {
                (void)loader.GetChipValue(chip, key);
            }
        }
        for (const std::string& key : loader.GetDeviceKeys()) {
            (void)loader.GetDeviceValue(key);
        }
        (void)loader.GetParserName();
    } catch (...) {
        std::abort();  // a configuration file must never throw out of the loader
    }
    return 0;
}
