#include "modules/acquisition.hpp"

#include <algorithm>

#include "ovex/log/log.hpp"

namespace ovex::sdk::acquisition {

const char* PixelDepthName(std::uint8_t depth) noexcept {
    static constexpr const char* kNames[] = {"Bit8Depth", "Bit10Depth", "Bit14Depth", "Bit48Depth",
                                             "UnknownDepth"};
    return kNames[std::min<std::uint8_t>(depth, UnknownDepth)];
}

std::error_code CheckTimepix3Depth(std::uint8_t depth, const char* module) {
    if (depth != Bit48Depth) {
        OVEX_LOG_ERROR("BUG: Pixel depth %s is not valid for %s.", PixelDepthName(depth), module);
        return std::make_error_code(std::errc::invalid_argument);
    }
    return {};
}

void CallClient(const IAcquisition::Callback& callback, IAcquisition& module) noexcept {
    try {
        callback(module);
    } catch (const std::exception& error) {
        OVEX_LOG_ERROR("The %s callback failed: %s", module.GetName(), error.what());
    } catch (...) {
        OVEX_LOG_ERROR("The %s callback failed with an unknown exception.", module.GetName());
    }
}

std::error_code SyncToaClock(Commands* commands) {
    const std::error_code synced = commands != nullptr
                                       ? commands->Invoke("TPX_T0_SYNC")
                                       : std::make_error_code(std::errc::invalid_argument);
    if (synced) {
        OVEX_LOG_ERROR("Failed to invoke TPX_T0_SYNC");
    }
    return synced;
}

std::chrono::milliseconds JoinLimit(double seconds) noexcept {
    if (!(seconds > 0.0)) {
        return std::chrono::milliseconds{0};
    }
    constexpr double kLongest = 1e12;  // the join treats it as forever
    return std::chrono::milliseconds{static_cast<std::int64_t>(std::min(seconds, kLongest) * 1e3)};
}

}  // namespace ovex::sdk::acquisition
