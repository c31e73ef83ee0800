// Any bytes as a boot image: parsed or refused with a code, never a crash.

#include <cstddef>
#include <cstdint>
#include <span>

#include "ovex/fx3/fw_image.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ovex::fx3::FwImage image;
    const std::error_code error = ovex::fx3::FwImage::FromMemory({data, size}, image);
    (void)error;
    return 0;
}
