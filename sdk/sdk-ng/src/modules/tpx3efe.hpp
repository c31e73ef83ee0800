#pragma once

// The frontend of the Timepix3 board: a single shutter that the host opens, and the shutters
// that the board's sync input opens.

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <system_error>

#include "modules/backend.hpp"
#include "modules/triggers/tpx3efe.hpp"

namespace ovex::sdk {

class Tpx3efe final : public IFrontend {
public:
    Tpx3efe(Commands* commands, States* states);

    const char* GetName() const override { return "Timepix3 extended frontend"; }
    std::string GetId() override { return "TP3EFE"; }
    // The trigger of the type last set; none for a type that was refused.
    TriggerRef GetTrigger() override;
    // Single internal, external start with shutter duration, external level, external edge.
    std::set<std::uint8_t> GetTriggerTypes() override { return {1, 3, 4, 5}; }
    // The duration counts for types 1 and 3 only; the others end on the hardware stop.
    std::error_code SetTrigger(std::uint8_t type, double duration) override;
    IFrontendPipeline* GetPipeline() override { return nullptr; }

private:
    trigger::IntSingleTpx3efe m_internal;
    // Made anew by each SetTrigger of an external type.
    std::unique_ptr<trigger::ExtTpx3efe> m_external;
    std::uint8_t m_type = 0;
};

}  // namespace ovex::sdk
