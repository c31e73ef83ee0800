#pragma once

// The frontends of the Timepix2 boards: a single and a continuous shutter that the host opens,
// and a shutter that the sync input opens on an edge. The frontend board and the chip board send
// the same commands; the chip board also has a data pipeline.

#include <cstdint>
#include <set>
#include <string>
#include <system_error>

#include "modules/backend.hpp"
#include "modules/pipelines.hpp"
#include "modules/triggers/tp2cb.hpp"
#include "modules/triggers/tp2fe.hpp"

namespace ovex::sdk {

class Tp2fe final : public IFrontend {
public:
    Tp2fe(Commands* commands, States* states);

    const char* GetName() const override { return "Timepix2 frontend"; }
    std::string GetId() override { return "TP2FE"; }
    // The trigger of the type last set; none for any other type.
    TriggerRef GetTrigger() override;
    // Single internal, continuous internal, external edge.
    std::set<std::uint8_t> GetTriggerTypes() override { return {1, 2, 5}; }
    // A duration longer than the 32-bit tick count holds is cut to the longest one, with a
    // warning; the external trigger takes none.
    std::error_code SetTrigger(std::uint8_t type, double duration) override;
    IFrontendPipeline* GetPipeline() override { return nullptr; }

private:
    trigger::IntSingleTp2fe m_single;
    trigger::ExtTp2fe m_external;
    trigger::IntContTp2fe m_continuous;
    std::uint8_t m_type = 0;
};

class Tpx2Chipboard final : public IFrontend {
public:
    Tpx2Chipboard(Commands* commands, States* states);

    const char* GetName() const override { return "Timepix2 chip board"; }
    std::string GetId() override { return "TPX2CB"; }
    TriggerRef GetTrigger() override;
    std::set<std::uint8_t> GetTriggerTypes() override { return {1, 2, 5}; }
    std::error_code SetTrigger(std::uint8_t type, double duration) override;
    IFrontendPipeline* GetPipeline() override { return &m_pipeline; }

private:
    trigger::IntSingleTp2Cb m_single;
    trigger::ExtTp2Cb m_external;
    trigger::IntContTp2Cb m_continuous;
    std::uint8_t m_type = 0;
    Tpx2CbPipeline m_pipeline;
};

}  // namespace ovex::sdk
