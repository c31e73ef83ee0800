#include "modules/acquisition.hpp"

#include <algorithm>

namespace ovex::sdk::acquisition {

const char* PixelDepthName(std::uint8_t depth) noexcept {
    static constexpr const char* kNames[] = {"Bit8Depth", "Bit10Depth", "Bit14Depth", "Bit48Depth",
                                             "UnknownDepth"};
    return kNames[std::min<std::uint8_t>(depth, UnknownDepth)];
}

}  // namespace ovex::sdk::acquisition
