#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "impl/item_set.hpp"

namespace ovex::sdk {

// The items a module works with, by set. The sets belong to the device, which outlives its
// modules.
struct ModuleRequirements {
    std::optional<std::pair<Commands*, std::vector<std::string>>> commands;
    std::optional<std::pair<States*, std::vector<std::string>>> states;
    std::optional<std::pair<Monitors*, std::vector<std::string>>> monitors;
};

// One capability of a device. A device is a bag of modules; the exported layer asks it for the
// module that implements an interface.
class DeviceModule {
public:
    // Checks that every required item exists on the board. Without `strict` a missing item is
    // only logged, so that firmware lacking an item still opens and the item fails on first use.
    DeviceModule(ModuleRequirements requirements, bool strict);
    // A module that reaches the board through its USB device alone needs no items.
    DeviceModule() = default;
    virtual ~DeviceModule() = default;

    DeviceModule(const DeviceModule&) = delete;
    DeviceModule& operator=(const DeviceModule&) = delete;

    // A human-readable name such as "Timepix3 extended frontend", used in log lines.
    virtual const char* GetName() const = 0;

protected:
    Commands* GetCommands() const noexcept;
    States* GetStates() const noexcept;
    Monitors* GetMonitors() const noexcept;

private:
    std::unique_ptr<ModuleRequirements> m_requirements;
};

class IDeviceConnection : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code Open() = 0;
    virtual std::error_code Close() = 0;
    virtual std::error_code IsOpen(bool& is_open) = 0;
};

class IPowerControl : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code PowerUp() = 0;
    virtual std::error_code PowerDown() = 0;
    virtual std::error_code IsPowered(bool& is_powered) = 0;
};

class IAxiLite : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code Read(std::uint32_t address, std::uint32_t& value) = 0;
    virtual std::error_code Write(std::uint32_t address, std::uint32_t value) = 0;
};

}  // namespace ovex::sdk
