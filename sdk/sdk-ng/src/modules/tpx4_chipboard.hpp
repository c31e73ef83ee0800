#pragma once

// The frontend of the Timepix4 chip board. Its shutter can't be driven yet: the triggers refuse
// every operation and the frontend offers no trigger mode.

#include <cstdint>
#include <set>
#include <string>
#include <system_error>

#include "modules/backend.hpp"
#include "modules/pipelines.hpp"
#include "modules/triggers/trigger.hpp"

namespace ovex::sdk {

namespace trigger {

// Fire, Stop and Configure answer errc::operation_not_supported and touch nothing.
class IntSingleTp4Cb final : public InternalTrigger {
public:
    IntSingleTp4Cb(Commands* commands, States* states) noexcept;

    std::error_code Fire() override;
    std::error_code Stop() override;
    std::error_code Configure() override;
};

class IntContTp4Cb final : public InternalTrigger {
public:
    IntContTp4Cb(Commands* commands, States* states) noexcept;

    std::error_code Fire() override;
    std::error_code Stop() override;
    std::error_code Configure() override;
    // Keeps no duration at all.
    void SetDuration(double) override {}
};

class ExtTp4Cb final : public ExternalTrigger {
public:
    ExtTp4Cb(Commands* commands, States* states) noexcept;

    std::error_code Stop() override;
    std::error_code Configure() override;
};

}  // namespace trigger

class Tpx4Chipboard final : public IFrontend {
public:
    Tpx4Chipboard(Commands* commands, States* states);

    const char* GetName() const override { return "Timepix4 chip board"; }
    std::string GetId() override { return "TPX4CB"; }
    TriggerRef GetTrigger() override { return {}; }
    std::set<std::uint8_t> GetTriggerTypes() override { return {}; }
    // No trigger type is supported.
    std::error_code SetTrigger(std::uint8_t type, double duration) override;
    IFrontendPipeline* GetPipeline() override { return &m_pipeline; }

private:
    trigger::IntSingleTp4Cb m_single;
    trigger::ExtTp4Cb m_external;
    trigger::IntContTp4Cb m_continuous;
    Tpx4CbPipeline m_pipeline;
};

}  // namespace ovex::sdk
