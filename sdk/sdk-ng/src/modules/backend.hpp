#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <system_error>
#include <variant>

#include "modules/device_module.hpp"

namespace ovex::sdk {

namespace trigger {
class InternalTrigger;
class ExternalTrigger;
}  // namespace trigger

// Bit depths of a board's data processing pipeline: 0 "4 bits per pixel", 1 "8 bits per pixel",
// 2 "10 bits per pixel", 3 "14 bits per pixel".
class IBackendPipeline : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code SetBitDepth(std::uint8_t depth) = 0;
};

class IFrontendPipeline : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code SetBitDepth(std::uint8_t depth) = 0;
};

// One direction of the board's synchronisation lines, as this process last configured it.
struct SyncBlock {
    std::uint8_t type = 0;           // 0 none, 1 edge, 2 level, 3 single pulse
    std::uint8_t polarity = 0;       // 0 active high, 1 active low
    std::uint8_t hardware_stop = 0;  // input: the signal also ends the shutter; output: spare
    std::uint8_t enabled = 0;
    std::uint8_t ready = 0;
};

struct SyncRecord {
    SyncBlock input;
    SyncBlock output;
};

// The readout board's side: its trigger inputs and synchronisation options. Trigger modes and
// sync options are the numbers of the exported interface.
class IBackend : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code SetTriggerInput(std::uint8_t mode) = 0;
    virtual std::string GetId() = 0;
    virtual std::set<std::uint8_t> GetTriggerTypes() = 0;
    virtual std::set<std::uint8_t> GetSyncOptions() = 0;
    virtual SyncRecord GetConfiguredSync() = 0;
    virtual std::error_code ApplySyncOption(std::uint8_t option) = 0;
    // Null when the board's pipeline needs no configuration.
    virtual IBackendPipeline* GetPipeline() = 0;
};

// The active trigger of a frontend: none, or one that the frontend owns.
using TriggerRef =
    std::variant<std::monostate, trigger::ExternalTrigger*, trigger::InternalTrigger*>;

// The chip's side: which trigger types exist and how a shutter starts.
class IFrontend : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::string GetId() = 0;
    virtual TriggerRef GetTrigger() = 0;
    virtual std::set<std::uint8_t> GetTriggerTypes() = 0;
    // `duration` in seconds, for the types that have one.
    virtual std::error_code SetTrigger(std::uint8_t type, double duration) = 0;
    virtual IFrontendPipeline* GetPipeline() = 0;
};

}  // namespace ovex::sdk
