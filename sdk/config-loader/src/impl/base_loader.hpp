#pragma once

// The key database that every file generation fills, and the checks that end each load.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ovex/config_loader/config_value.hpp"

namespace ovex::configuration::impl {

struct KeyEntry {
    std::string_view name;
    ValueType type;
};
using KeyTable = std::span<const KeyEntry>;

using ChipKeys = KeyMap<ConfigValue>;
using ChipDatabase = KeyMap<ChipKeys>;

class BaseLoader {
public:
    virtual ~BaseLoader() = default;
    virtual bool LoadFile(const std::string& path) = 0;
    virtual bool LoadString(const std::string& text) = 0;
    virtual std::string GetTypeName() const = 0;
    virtual std::vector<std::string> GetChipKeyNames() const;
    virtual std::vector<std::string> GetDeviceKeyNames() const;
    virtual std::string GetSource() const { return m_source; }
    virtual bool IsLoaded() const { return m_loaded; }
    virtual KeyTable GetChipKeyTable() const = 0;
    virtual KeyTable GetDeviceKeyTable() const = 0;
    virtual bool PostProcess() { return true; }

    const ChipDatabase& Chips() const { return m_chips; }
    const ChipKeys& Device() const { return m_device; }

protected:
    // Empties the database before a load.
    void Reset();
    // PostProcess, then every key of every chip and every device key must hold a value; all
    // gaps are logged before the load fails.
    bool Finish();

    ChipDatabase m_chips;
    ChipKeys m_device;
    std::string m_source;
    bool m_loaded = false;
};

}  // namespace ovex::configuration::impl
