#include "ovex/vendor_cmd/lua_bindings.hpp"

#include <string>

#include "lua_wrappers.hpp"
#include "ovex/log/log.hpp"
#include "ovex/lua/bind/bind.hpp"
#include "ovex/lua/core/lua_core.hpp"
#include "ovex/lua/core/values.hpp"
#include "ovex/usb/usb_device.hpp"

namespace ovex::usb::vendor_cmd {
namespace {

namespace bind = ovex::lua::bind;
using script::Geometry;
using script::SharedDevice;
using ChipDimensions = struct Geometry::dimensions;

// Values of Monitors.ValueType, the types of the monitor stream's values.
constexpr bind::EnumEntry kValueTypes[] = {{"Integer", 1}, {"Float", 2}};
constexpr bind::EnumEntry kEepromDevices[] = {
    {"Device0", 0}, {"Device1", 1}, {"Device2", 2}, {"Device3", 3},
    {"Device4", 4}, {"Device5", 5}, {"Device6", 6}, {"Device7", 7},
};

template <typename T>
T WithDevice(SharedDevice device) {
    return T(std::move(device));
}

script::ScriptSpiBus SpiBusOn(SharedDevice device, std::uint8_t bus) {
    return {std::move(device), bus};
}

// The item names in the board's order, a Lua sequence.
template <typename Items>
std::vector<std::string> NamesOf(const Items& items) {
    return items.names();
}

template <typename T>
T Empty() {
    return T{};
}

template <typename T>
range::Range<T> RangeOf(T min, T max) {
    return {min, max};
}

Geometry GeometryOf(std::uint16_t rows, std::uint16_t columns) {
    return {rows, columns};
}

ChipDimensions DimensionsOf(const Geometry& geometry) {
    return geometry.dimensions();
}

std::size_t RowCount(const Geometry& geometry) {
    return geometry.rows().size();
}

// Iterator closure over the rows; upvalues: the geometry and the next 1-based row.
int NextRow(lua_State* L) {
    const Geometry& geometry = bind::Check<Geometry>(L, lua_upvalueindex(1));
    const lua_Integer position = lua_tointeger(L, lua_upvalueindex(2));
    if (position > static_cast<lua_Integer>(geometry.rows().size())) {
        return 0;
    }
    lua_pushinteger(L, position + 1);
    lua_replace(L, lua_upvalueindex(2));
    return bind::Convert<std::vector<unsigned char>>::Push(
        L, geometry.rows()[static_cast<std::size_t>(position - 1)]);
}

// for row in geometry:iter() do ... end; each row a sequence of its bytes.
int RowIterator(lua_State* L) {
    bind::Check<Geometry>(L, 1);
    lua_settop(L, 1);
    lua_pushinteger(L, 1);
    lua_pushcclosure(L, bind::Raw<&NextRow>, 2);
    return 1;
}

void SetFunction(lua_State* L, int table, const char* name, lua_CFunction function) {
    lua_pushcfunction(L, function);
    lua_setfield(L, table, name);
}

void AddFreeFunctions(lua_State* L, int vendor) {
    SetFunction(L, vendor, "axi_read", bind::Fn<&script::AxiRead>);
    SetFunction(L, vendor, "axi_write", bind::Fn<&script::AxiWrite>);
    SetFunction(L, vendor, "axi_stream_start", bind::Fn<&script::AxiStreamStart>);
    SetFunction(L, vendor, "i2c_transfer_8", bind::Fn<&script::I2cTransfer8>);
    SetFunction(L, vendor, "i2c_transfer_16", bind::Fn<&script::I2cTransfer16>);
    SetFunction(L, vendor, "gpio_set", bind::Fn<&script::GpioSet>);
    SetFunction(L, vendor, "gpio_get", bind::Fn<&script::GpioGet>);
}

script::ScriptUpdateReceiver ReceiverOn(SharedDevice device, std::uint8_t endpoint) {
    return {std::move(device), endpoint};
}

// receiver:start(observer, types, timeout)
int StartReceiver(lua_State* L) {
    auto& receiver = bind::Check<script::ScriptUpdateReceiver>(L, 1);
    luaL_checktype(L, 2, LUA_TTABLE);
    const double timeout = bind::detail::CheckNumber(L, 4);
    return bind::Convert<std::error_code>::Push(L, receiver.start(L, 2, 3, timeout));
}

// Monitors.Flags, what an observer is given, and Monitors.UpdateReceiver.
void AddMonitorStream(lua_State* L, int monitors) {
    using script::ScriptUpdateReceiver;
    bind::UserType<monitor::Flags>(L, "Flags")
        .Getter("is_available", bind::Fn<&monitor::Flags::is_available>)
        .Getter("is_error", bind::Fn<&monitor::Flags::is_error>)
        .Getter("is_warning", bind::Fn<&monitor::Flags::is_warning>)
        .SetIn(monitors);
    bind::UserType<ScriptUpdateReceiver>(L, "UpdateReceiver")
        .Constructor(bind::Fn<&ReceiverOn>)
        .Method("start", bind::Raw<&StartReceiver>)
        .Method("stop", bind::Fn<&ScriptUpdateReceiver::stop>)
        .Method("is_running", bind::Fn<&ScriptUpdateReceiver::is_running>)
        .SetIn(monitors);
}

void AddCollections(lua_State* L, int vendor) {
    using script::ScriptCommands;
    using script::ScriptMonitors;
    using script::ScriptStates;
    using script::ScriptVersions;
    bind::UserType<ScriptCommands>(L, "Commands")
        .Constructor(bind::Fn<&WithDevice<ScriptCommands>>)
        .Method("invoke", bind::Fn<&ScriptCommands::invoke>)
        .Method("invoke_in", bind::Fn<&ScriptCommands::invoke_in>)
        .Method("invoke_out", bind::Fn<&ScriptCommands::invoke_out>)
        .Method("names", bind::Fn<&NamesOf<ScriptCommands>>)
        .SetIn(vendor);
    bind::UserType<range::Range<int>>(L, "StateRange")
        .Constructor(bind::Overloads<&Empty<range::Range<int>>, &RangeOf<std::int32_t>>)
        .Getter("min", bind::Fn<&range::Range<int>::min>)
        .Getter("max", bind::Fn<&range::Range<int>::max>)
        .SetIn(vendor);
    bind::UserType<ScriptStates>(L, "States")
        .Constructor(bind::Fn<&WithDevice<ScriptStates>>)
        .Method("get_value", bind::Fn<&ScriptStates::get_value>)
        .Method("set_value", bind::Fn<&ScriptStates::set_value>)
        .Method("get_limits", bind::Fn<&ScriptStates::get_limits>)
        .Method("names", bind::Fn<&NamesOf<ScriptStates>>)
        .SetIn(vendor);
    bind::UserType<range::Range<float>>(L, "MonitorRange")
        .Constructor(bind::Overloads<&Empty<range::Range<float>>, &RangeOf<float>>)
        .Getter("min", bind::Fn<&range::Range<float>::min>)
        .Getter("max", bind::Fn<&range::Range<float>::max>)
        .SetIn(vendor);
    bind::UserType<ScriptMonitors> monitors(L, "Monitors");
    monitors.Constructor(bind::Fn<&WithDevice<ScriptMonitors>>)
        .Method("get_value", bind::Fn<&ScriptMonitors::get_value>)
        .Method("get_range", bind::Fn<&ScriptMonitors::get_range>)
        .Method("names", bind::Fn<&NamesOf<ScriptMonitors>>)
        .SetIn(vendor);
    monitors.PushTable();
    bind::PushEnumTable(L, kValueTypes);
    lua_setfield(L, -2, "ValueType");
    AddMonitorStream(L, lua_gettop(L));
    lua_pop(L, 1);
    bind::UserType<ScriptVersions>(L, "Versions")
        .Constructor(bind::Fn<&WithDevice<ScriptVersions>>)
        .Method("get_value", bind::Fn<&ScriptVersions::get_value>)
        .Method("names", bind::Fn<&NamesOf<ScriptVersions>>)
        .SetIn(vendor);
}

void AddSpi(lua_State* L, int vendor) {
    using script::ScriptSpiBus;
    bind::UserType<spi::Stats>(L, "SpiStats")
        .Constructor(bind::Fn<&Empty<spi::Stats>>)
        .Getter("interrupts", bind::Field<&spi::Stats::interrupts>)
        .Getter("transferred", bind::Field<&spi::Stats::transferred>)
        .Getter("slave_mode_faults", bind::Field<&spi::Stats::slave_mode_faults>)
        .Getter("rx_overruns", bind::Field<&spi::Stats::rx_overruns>)
        .Getter("tx_underruns", bind::Field<&spi::Stats::tx_underruns>)
        .Getter("mode_faults", bind::Field<&spi::Stats::mode_faults>)
        .SetIn(vendor);
    bind::UserType<ScriptSpiBus>(L, "SpiBus")
        .Constructor(bind::Fn<&SpiBusOn>)
        .Method("reset", bind::Fn<&ScriptSpiBus::reset>)
        .Method("self_test", bind::Fn<&ScriptSpiBus::self_test>)
        .Method("start", bind::Fn<&ScriptSpiBus::start>)
        .Method("stop", bind::Fn<&ScriptSpiBus::stop>)
        .Method("clear_stats", bind::Fn<&ScriptSpiBus::clear_stats>)
        .Method("get_stats", bind::Fn<&ScriptSpiBus::get_stats>)
        .Method("transmit", bind::Fn<&ScriptSpiBus::transmit>)
        .Method("receive", bind::Fn<&ScriptSpiBus::receive>)
        .SetIn(vendor);
}

void AddCypress(lua_State* L, int vendor) {
    using script::ScriptCypress;
    bind::UserType<cypress::Version>(L, "CypressVersion")
        .Constructor(bind::Fn<&Empty<cypress::Version>>)
        .Getter("major", bind::Field<&cypress::Version::major>)
        .Getter("minor", bind::Field<&cypress::Version::minor>)
        .Getter("patch", bind::Field<&cypress::Version::patch>)
        .Getter("build", bind::Field<&cypress::Version::build>)
        .SetIn(vendor);
    bind::PushEnumTable(L, kEepromDevices);
    lua_setfield(L, vendor, "EepromDevice");
    bind::UserType<ScriptCypress>(L, "Cypress")
        .Constructor(bind::Fn<&WithDevice<ScriptCypress>>)
        .Method("get_id", bind::Fn<&ScriptCypress::get_id>)
        .Method("get_version", bind::Fn<&ScriptCypress::get_version>)
        .Method("reset", bind::Fn<&ScriptCypress::reset>)
        .Method("read_ram", bind::Fn<&ScriptCypress::read_ram>)
        .Method("write_ram", bind::Fn<&ScriptCypress::write_ram>)
        .Method("read_eeprom", bind::Fn<&ScriptCypress::read_eeprom>)
        .Method("write_eeprom", bind::Fn<&ScriptCypress::write_eeprom>)
        .SetIn(vendor);
}

void AddNobe(lua_State* L, int vendor) {
    using script::ScriptNobe;
    bind::UserType<ChipDimensions>(L, "ChipDimensions")
        .Getter("rows", bind::Field<&ChipDimensions::rows>)
        .Getter("columns", bind::Field<&ChipDimensions::columns>)
        .SetIn(vendor);
    bind::UserType<Geometry>(L, "ChipGeometry")
        .Constructor(bind::Overloads<&Empty<Geometry>, &GeometryOf>)
        .Method("dimensions", bind::Fn<&DimensionsOf>)
        .Method("iter", bind::Raw<&RowIterator>)
        .Meta("__len", bind::Fn<&RowCount>)
        .SetIn(vendor);
    bind::UserType<ScriptNobe>(L, "Nobe")
        .Constructor(bind::Fn<&WithDevice<ScriptNobe>>)
        .Method("set_bias", bind::Fn<&ScriptNobe::set_bias>)
        .Method("get_bias", bind::Fn<&ScriptNobe::get_bias>)
        .Method("get_chip_geometry", bind::Fn<&ScriptNobe::get_chip_geometry>)
        .Method("fsr_read", bind::Fn<&ScriptNobe::fsr_read>)
        .Method("fsr_write", bind::Fn<&ScriptNobe::fsr_write>)
        .Method("get_chip_id", bind::Fn<&ScriptNobe::get_chip_id>)
        .Method("conf_matrix_write", bind::Fn<&ScriptNobe::conf_matrix_write>)
        .Method("acquire_single", bind::Fn<&ScriptNobe::acquire_single>)
        .Method("acquire_multi", bind::Fn<&ScriptNobe::acquire_multi>)
        .Method("acquire_abort", bind::Fn<&ScriptNobe::acquire_abort>)
        .SetIn(vendor);
}

int AddVendorCmd(lua_State* L) {
    if (lua_getglobal(L, "Usb") != LUA_TTABLE) {
        return luaL_error(L, "the table Usb is missing: the USB device bindings come first");
    }
    const int usb = lua_gettop(L);
    lua_newtable(L);
    const int vendor = lua_gettop(L);
    AddFreeFunctions(L, vendor);
    AddCollections(L, vendor);
    AddSpi(L, vendor);
    AddCypress(L, vendor);
    AddNobe(L, vendor);
    // Only a complete table becomes visible.
    lua_setfield(L, usb, "VendorCmd");
    return 0;
}

}  // namespace

std::error_code AddLuaBindings(lua_State* L) {
    return lua::core::AddTable(L, &AddVendorCmd, "Usb.VendorCmd");
}

}  // namespace ovex::usb::vendor_cmd
