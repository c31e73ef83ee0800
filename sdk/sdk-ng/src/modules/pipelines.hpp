#pragma once

// The data processing pipelines of the boards: the number of bits that each pixel's count takes
// in the data the board sends.

#include <cstdint>
#include <system_error>

#include "modules/backend.hpp"

namespace ovex::sdk {

// The text of a bit depth, "<UNKNOWN>" for a value outside 0 to 3.
const char* BitDepthName(std::uint8_t depth) noexcept;

class NobePipeline final : public IBackendPipeline {
public:
    explicit NobePipeline(Commands* commands);

    const char* GetName() const override { return "NoBE data processing pipeline"; }
    std::error_code SetBitDepth(std::uint8_t depth) override;
};

class Tpx2CbPipeline final : public IFrontendPipeline {
public:
    explicit Tpx2CbPipeline(Commands* commands);

    const char* GetName() const override { return "Tpx2 Chipboard data processing pipeline"; }
    std::error_code SetBitDepth(std::uint8_t depth) override;
};

// The Timepix4 chip board has nothing to configure: every depth succeeds.
class Tpx4CbPipeline final : public IFrontendPipeline {
public:
    const char* GetName() const override { return "Tpx4 Chipboard data processing pipeline"; }
    std::error_code SetBitDepth(std::uint8_t) override { return {}; }
};

}  // namespace ovex::sdk
