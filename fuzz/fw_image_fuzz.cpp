// Any bytes as a boot image: parsed or refused with a code, never a crash; a parsed image's
// identity is read or found missing.

#include <cstddef>
#include <cstdint>
#include <span>

#include "ovex/fx3/app_descriptor.hpp"
#include "ovex/fx3/fw_image.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ovex::fx3::FwImage image;
    if (!ovex::fx3::FwImage::FromMemory({data, size}, image)) {
        (void)ovex::fx3::ReadAppIdentity(image);
    }
    return 0;
}
