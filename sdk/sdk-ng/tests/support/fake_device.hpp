#pragma once

// A device recipe made of scripted modules, for the exported layer's algorithms.

#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "modules/device_module.hpp"
#include "modules/usb_device_props.hpp"
#include "sdk_device.hpp"

namespace ovex::sdk::testing {

struct ConnectionScript {
    bool open = false;
    std::error_code is_open_error;
    std::error_code open_error;
    std::error_code close_error;
    int open_calls = 0;
    int close_calls = 0;
};

class FakeConnection final : public IDeviceConnection {
public:
    explicit FakeConnection(ConnectionScript& script) : m_script(script) {}
    const char* GetName() const override { return "Fake USB link"; }
    std::error_code Open() override {
        ++m_script.open_calls;
        if (!m_script.open_error) {
            m_script.open = true;
        }
        return m_script.open_error;
    }
    std::error_code Close() override {
        ++m_script.close_calls;
        if (!m_script.close_error) {
            m_script.open = false;
        }
        return m_script.close_error;
    }
    std::error_code IsOpen(bool& is_open) override {
        is_open = m_script.open;
        return m_script.is_open_error;
    }

private:
    ConnectionScript& m_script;
};

struct UnitScript {
    std::string name;
    bool powered = false;
    std::error_code is_powered_error;
    std::error_code switch_error;
    int queries = 0;
    int switches = 0;
};

inline UnitScript Unit(std::string name, bool powered = false) {
    UnitScript unit;
    unit.name = std::move(name);
    unit.powered = powered;
    return unit;
}

class FakePowerUnit final : public IPowerControl {
public:
    explicit FakePowerUnit(UnitScript& script) : m_script(script) {}
    const char* GetName() const override { return m_script.name.c_str(); }
    std::error_code PowerUp() override { return Switch(true); }
    std::error_code PowerDown() override { return Switch(false); }
    std::error_code IsPowered(bool& is_powered) override {
        ++m_script.queries;
        is_powered = m_script.powered;
        return m_script.is_powered_error;
    }

private:
    std::error_code Switch(bool on) {
        ++m_script.switches;
        if (!m_script.switch_error) {
            m_script.powered = on;
        }
        return m_script.switch_error;
    }
    UnitScript& m_script;
};

class FakeProperties final : public UsbDeviceProperties {
public:
    FakeProperties(usb::device::DeviceInfo info, std::error_code error)
        : UsbDeviceProperties(nullptr), m_info(std::move(info)), m_error(error) {}
    std::error_code ReadInfo(usb::device::DeviceInfo& info) override {
        if (!m_error) {
            info = m_info;
        }
        return m_error;
    }

private:
    usb::device::DeviceInfo m_info;
    std::error_code m_error;
};

struct DeviceScript {
    bool with_connection = true;
    ConnectionScript connection;
    std::vector<UnitScript> units;
    std::error_code load_items_error;
    std::error_code prologue_error;
    std::error_code epilogue_error;
    int load_items_calls = 0;
    int epilogue_calls = 0;
    bool* destroyed = nullptr;
};

class FakeDevice final : public SdkDevice {
public:
    explicit FakeDevice(DeviceScript& script) : SdkDevice(nullptr, {}), m_script(script) {
        if (script.with_connection) {
            AddModule<IDeviceConnection>(std::make_unique<FakeConnection>(script.connection));
        }
        for (auto& unit : script.units) {
            AddModule<IPowerControl>(std::make_unique<FakePowerUnit>(unit));
        }
    }
    ~FakeDevice() override {
        if (m_script.destroyed) {
            *m_script.destroyed = true;
        }
    }
    std::error_code LoadItems(LuaState&) override {
        ++m_script.load_items_calls;
        return m_script.load_items_error;
    }
    std::error_code Prologue() override { return m_script.prologue_error; }
    std::error_code Epilogue() override {
        ++m_script.epilogue_calls;
        return m_script.epilogue_error;
    }

private:
    DeviceScript& m_script;
};

}  // namespace ovex::sdk::testing
