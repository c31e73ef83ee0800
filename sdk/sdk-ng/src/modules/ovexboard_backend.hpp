#pragma once

// The readout board's backend: its trigger inputs, its sync lines and the clock chip that feeds
// the detector.

#include <cstdint>
#include <set>
#include <string>
#include <system_error>

#include "modules/backend.hpp"

namespace ovex::sdk {

// The name of a sync option (1 to 16) as the board's options are known by, such as
// "trigger-out:no"; null for any other value.
const char* SyncOptionName(std::uint8_t option);

class OvexboardBackend final : public IBackend {
public:
    OvexboardBackend(Commands* commands, States* states);

    const char* GetName() const override { return "OvexBoard"; }
    // Configures the sync input for a trigger mode; the internal modes only disable it.
    std::error_code SetTriggerInput(std::uint8_t mode) override;
    std::string GetId() override { return "OVBD"; }
    std::set<std::uint8_t> GetTriggerTypes() override { return {1, 2, 3, 4, 5}; }
    std::set<std::uint8_t> GetSyncOptions() override;
    // What this process has applied since the backend was built, not read from the board.
    SyncRecord GetConfiguredSync() override { return m_sync; }
    // Options 1 to 16; the clock-input options only while the detector is unpowered.
    std::error_code ApplySyncOption(std::uint8_t option) override;
    IBackendPipeline* GetPipeline() override { return nullptr; }

private:
    Commands& CheckedCommands() const;
    States& CheckedStates() const;

    SyncRecord m_sync;
};

}  // namespace ovex::sdk
