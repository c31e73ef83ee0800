#pragma once

// The backend of the boards without sync lines of their own: the trigger inputs that their
// chip offers and a data pipeline whose bit depth is set.

#include <cstdint>
#include <set>
#include <string>
#include <system_error>

#include "modules/backend.hpp"
#include "modules/pipelines.hpp"

namespace ovex::sdk {

class NobeBackend final : public IBackend {
public:
    // The commands go to the pipeline; the backend itself sends nothing.
    explicit NobeBackend(Commands* commands);

    const char* GetName() const override { return "Digital BackEnd"; }
    // Only records the input: the edge mode enables it, any other disables it.
    std::error_code SetTriggerInput(std::uint8_t mode) override;
    std::string GetId() override { return "NoBE"; }
    std::set<std::uint8_t> GetTriggerTypes() override { return {1, 2, 3, 5}; }
    std::set<std::uint8_t> GetSyncOptions() override { return {}; }
    SyncRecord GetConfiguredSync() override { return m_sync; }
    // There are no options to apply: every one succeeds and changes nothing.
    std::error_code ApplySyncOption(std::uint8_t) override { return {}; }
    IBackendPipeline* GetPipeline() override { return &m_pipeline; }

private:
    NobePipeline m_pipeline;
    SyncRecord m_sync;
};

}  // namespace ovex::sdk
