#pragma once

// The acquisition of the Timepix4 chip board, which can't take data yet: it serves no chip mode,
// so that no mode selects it, and refuses every operation without changing anything.

#include <memory>

#include "impl/acquisition/data_provider.hpp"
#include "modules/acquisition.hpp"

namespace ovex::sdk::acquisition {

class Tpx4Acquisition final : public IAcquisition {
public:
    explicit Tpx4Acquisition(std::shared_ptr<IVectorDataProvider> provider)
        : m_provider(std::move(provider)) {}

    const char* GetName() const override { return "Timepix 4 acquisition"; }
    std::error_code Start(const ChipInfo&, std::uint32_t, const AcquisitionParams&,
                          Callback) override {
        return Unsupported();
    }
    std::error_code AwaitReadoutEnd(double) override { return Unsupported(); }
    std::error_code SetPixelDepth(std::uint8_t) override { return Unsupported(); }
    std::error_code Abort(AbortMode) override { return Unsupported(); }
    AcquisitionData GetData() override { return {}; }
    std::vector<RawSpan> GetRawData() override { return {}; }
    std::error_code SetFrameCount(std::int64_t) override { return Unsupported(); }
    bool IsRunning() override { return false; }
    std::set<ovexsdk_chip_mode> GetSupportedModes() const override { return {}; }
    ovexsdk_acq_process_mode GetProcessMode() const override { return DefaultProcessing; }

private:
    static std::error_code Unsupported() {
        return std::make_error_code(std::errc::operation_not_supported);
    }

    std::shared_ptr<IVectorDataProvider> m_provider;
};

}  // namespace ovex::sdk::acquisition
