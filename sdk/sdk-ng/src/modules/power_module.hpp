#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <system_error>

#include "modules/device_module.hpp"

struct lua_State;

namespace ovex::sdk {

class LuaState;

// One power unit of a board, driven by a power script. The script, run once, hands back a table
// with `powerup_unit`, `powerdown_unit` and `is_unit_powered`; the module keeps references to
// them in the context's Lua state, which must outlive it. The module knows nothing of rails and
// holds no power state: every question goes to the board through the script.
class PowerModule final : public IPowerControl {
public:
    // What the device does once the unit is really on; may be empty.
    using PostPowerUp = std::function<std::error_code()>;

    // Runs the script and takes its three functions, then asks whether the unit is on; a unit
    // already on gets the callback at once. Throws std::runtime_error for a script that lacks a
    // function or raises an error, std::system_error when the first check or the callback fails.
    // The device's `connection`, if given, tells a board that has left the bus from a fault of
    // the script when a script function raises an error.
    PowerModule(std::string_view script_name, std::string_view script_text, LuaState& lua,
                std::string unit_name, PostPowerUp post_power_up,
                IDeviceConnection* connection = nullptr);
    ~PowerModule() override;

    const char* GetName() const override { return m_name.c_str(); }
    std::error_code PowerUp() override;
    std::error_code PowerDown() override;
    std::error_code IsPowered(bool& is_powered) override;

private:
    // Calls a function that answers an ErrorCode; a failed call is invalid_argument.
    std::error_code CallScriptFunction(int function, const char* function_name);
    bool Disconnected();

    lua_State* m_lua;
    int m_powerup_unit;
    int m_powerdown_unit;
    int m_is_unit_powered;
    std::string m_name;
    PostPowerUp m_post_power_up;
    IDeviceConnection* m_connection;
};

}  // namespace ovex::sdk
