#include "modules/pipelines.hpp"

#include <span>

#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

ModuleRequirements BitDepthCommand(Commands* commands) {
    return ModuleRequirements{
        .commands = {{commands, {"PIPELINE_BPP"}}}, .states = {}, .monitors = {}};
}

// The board takes the depth as one byte of "PIPELINE_BPP".
std::error_code SendBitDepth(Commands* commands, std::uint8_t depth) {
    OVEX_CHECK(commands != nullptr, "BUG: Commands object is invalid.");
    const std::uint8_t payload[] = {depth};
    if (const auto ec = commands->Invoke("PIPELINE_BPP", std::span<const std::uint8_t>(payload))) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to configure the pipeline bit depth");
        return ec;
    }
    OVEX_LOG_DEBUG("Pipeline configured for %s.", BitDepthName(depth));
    return {};
}

}  // namespace

const char* BitDepthName(std::uint8_t depth) noexcept {
    switch (depth) {
        case 0:
            return "4 bits per pixel";
        case 1:
            return "8 bits per pixel";
        case 2:
            return "10 bits per pixel";
        case 3:
            return "14 bits per pixel";
        default:
            return "<UNKNOWN>";
    }
}

NobePipeline::NobePipeline(Commands* commands)
    : IBackendPipeline(BitDepthCommand(commands), false) {}

std::error_code NobePipeline::SetBitDepth(std::uint8_t depth) {
    return SendBitDepth(GetCommands(), depth);
}

Tpx2CbPipeline::Tpx2CbPipeline(Commands* commands)
    : IFrontendPipeline(BitDepthCommand(commands), false) {}

std::error_code Tpx2CbPipeline::SetBitDepth(std::uint8_t depth) {
    return SendBitDepth(GetCommands(), depth);
}

}  // namespace ovex::sdk
