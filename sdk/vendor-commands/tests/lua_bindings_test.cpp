// Scripts against the virtual board: the Usb and Usb.VendorCmd tables in a state with Std and
// Log, results as values or ErrorCodes, argument errors as Lua errors, and what reaches the wire.

#include <gtest/gtest.h>

#include <lua.hpp>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "board_fixture.hpp"
#include "log_capture.hpp"
#include "ovex/lua/bind/state.hpp"
#include "ovex/lua/core/lua_core.hpp"
#include "ovex/usb/lua_bindings.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "ovex/vendor_cmd/device_error.hpp"
#include "ovex/vendor_cmd/lua_bindings.hpp"
#include "ovex/vendor_cmd/spi.hpp"

namespace ovex::usb::vendor_cmd {
namespace {

using vboard::BoardKind;
using vboard::ControlReply;
using vboard::SetupPacket;

std::string CodeText(std::error_code code) {
    return std::string(code.category().name()) + ": " + code.message();
}

std::string ErrcValue(std::errc code) {
    return std::to_string(static_cast<int>(code));
}

class LuaBindingsTest : public testing::BoardFixture {
protected:
    void SetUp() override {
        BoardFixture::SetUp();
        if (IsSkipped()) {
            return;
        }
        L = luaL_newstate();
        lua_atpanic(L, &lua::bind::Panic);
        luaL_openlibs(L);
        ASSERT_FALSE(lua::core::AddLogBindings(L));
        ASSERT_FALSE(lua::core::AddStdBindings(L));
        ASSERT_FALSE(device::AddLuaBindings(L));
        ASSERT_FALSE(AddLuaBindings(L));
    }

    void TearDown() override {
        if (L != nullptr) {
            lua_close(L);
        }
        m_device.reset();
        m_context.reset();
        BoardFixture::TearDown();
    }

    // Adds a board, opens it and makes it the script's global `device`.
    void ShareBoard(vboard::VirtualBoard::Settings settings = {}) {
        AddBoard(std::move(settings));
        m_context.emplace();
        auto devices = m_context->EnumerateDevices(0x1209, 0xAD0E);
        m_device = std::make_shared<device::UsbDevice>(std::move(devices.at(0)));
        ASSERT_FALSE(m_device->Open());
        device::PushSharedDevice(L, m_device);
        lua_setglobal(L, "device");
        Forget();
    }

    // Runs a chunk: "" on success, else the error value as text.
    std::string Run(const std::string& code) {
        const int top = lua_gettop(L);
        std::string error;
        if (luaL_loadstring(L, code.c_str()) != LUA_OK || lua_pcall(L, 0, 0, 0) != LUA_OK) {
            error = luaL_tolstring(L, -1, nullptr);
        }
        lua_settop(L, top);
        return error;
    }

    // tostring() of what the chunk returns.
    std::string Eval(const std::string& code) {
        const int top = lua_gettop(L);
        std::string text;
        if (luaL_loadstring(L, code.c_str()) != LUA_OK || lua_pcall(L, 0, 1, 0) != LUA_OK) {
            ADD_FAILURE() << code << ": " << lua_tostring(L, -1);
        } else {
            text = luaL_tolstring(L, -1, nullptr);
        }
        lua_settop(L, top);
        return text;
    }

    lua_State* L = nullptr;
    std::optional<device::UsbContext> m_context;
    std::shared_ptr<device::UsbDevice> m_device;
};

TEST_F(LuaBindingsTest, UnknownNamesAreErrorCodesWithoutRequests) {
    ShareBoard();
    ASSERT_EQ(Run("local V = Usb.VendorCmd\n"
                  "cmds, states = V.Commands.new(device), V.States.new(device)\n"
                  "monitors, versions = V.Monitors.new(device), V.Versions.new(device)"),
              "");
    Forget();
    ovex::testing::LogCapture log;
    EXPECT_EQ(Eval("return cmds:invoke('NO_SUCH'):value()"),
              ErrcValue(std::errc::invalid_argument));
    EXPECT_EQ(Eval("return type(states:get_value('NO_SUCH'))"), "userdata");
    EXPECT_EQ(Eval("return states:get_value('NO_SUCH'):value()"),
              ErrcValue(std::errc::invalid_argument));
    EXPECT_EQ(Eval("return monitors:get_value('fpga_temp', 1.0):value()"),
              ErrcValue(std::errc::invalid_argument));
    EXPECT_EQ(Eval("return tostring(versions:get_value(''))"),
              CodeText(std::make_error_code(std::errc::invalid_argument)));
    EXPECT_TRUE(NewRequests().empty());
    EXPECT_TRUE(log.Contains(log::kError, "Command 'NO_SUCH' is not recognized by the device."));
}

TEST_F(LuaBindingsTest, WrongArgumentTypesRaiseTheLayersErrorsAndSendNothing) {
    ShareBoard();
    ASSERT_EQ(Run("states = Usb.VendorCmd.States.new(device)"), "");
    Forget();
    const auto raises = [this](const std::string& code, const std::string& text) {
        const std::string error = Run(code);
        EXPECT_NE(error.find(text), std::string::npos) << code << " raised: " << error;
    };
    raises("states:set_value('BIAS', 1.5)",
           "not a numeric type that fits exactly an integer (number maybe has significant "
           "decimals)");
    raises("states:set_value('BIAS', '7')", "not a numeric type");
    raises("states:get_value('BIAS', 'soon')", "not a numeric type");
    raises("Usb.VendorCmd.gpio_set(device, 256, 1)", "out of range");
    raises("Usb.VendorCmd.Commands.new(device):invoke_out('TUSB322', 'text')", "ByteSpan");
    raises("Usb.VendorCmd.Monitors.ValueType.Integer = 5",
           "sol: cannot modify the elements of an enumeration table");
    raises("Usb.VendorCmd.EepromDevice.Device0 = 5",
           "sol: cannot modify the elements of an enumeration table");
    raises("Usb.VendorCommand.new(Usb.CommandId.new(1), Usb.wValue.new(2), Usb.wIndex.new(3))",
           "sol: no matching function call takes this number of arguments");
    raises("Usb.CommandId.new(256)", "out of range");
    EXPECT_EQ(Eval("return Usb.VendorCmd.Monitors.ValueType.Integer"), "1");
    EXPECT_EQ(Eval("return Usb.VendorCmd.Monitors.ValueType.Float"), "2");
    EXPECT_EQ(Eval("return Usb.UsbDevice.new == nil"), "true");
    // The command collection above read the names; nothing else went out.
    for (const SetupPacket& request : NewRequests()) {
        EXPECT_EQ(request.bRequest, request::kCommand);
        EXPECT_NE(request.wValue, 2) << "a command was invoked";
    }
}

TEST_F(LuaBindingsTest, ItemValuesTravelBothWays) {
    auto tables = vboard::TablesOf(BoardKind::kTimepix3);
    tables.commands = {{"LOAD", {}}, {"INFO", {3, 1, 0, 1}}};
    vboard::VirtualBoard::Settings settings;
    settings.tables = tables;
    ShareBoard(std::move(settings));
    ASSERT_EQ(Run("local V = Usb.VendorCmd\n"
                  "cmds, states = V.Commands.new(device), V.States.new(device)\n"
                  "monitors, versions = V.Monitors.new(device), V.Versions.new(device)"),
              "");

    EXPECT_EQ(Eval("return states:set_value('BIAS', -42, 2.5):value()"), "0");
    EXPECT_EQ(Board().Engine().StateValue("BIAS"), -42);
    EXPECT_EQ(Eval("return math.type(states:get_value('BIAS'))"), "integer");
    EXPECT_EQ(Eval("return states:get_value('BIAS')"), "-42");
    EXPECT_EQ(Eval("local r = Usb.VendorCmd.StateRange.new(0, 0)\n"
                   "local e = states:get_limits('BIAS', r)\n"
                   "return e:value() .. ' ' .. r.min .. ' ' .. r.max"),
              "0 -300 300");
    EXPECT_EQ(Eval("local n = states:names() return #n .. ' ' .. n[1]"),
              std::to_string(tables.states.size()) + " " + tables.states.front().name);

    Board().Engine().SetMonitorValue("FPGA_TEMP", 12.5f);
    EXPECT_EQ(Eval("return monitors:get_value('FPGA_TEMP')"), "12.5");
    EXPECT_EQ(Eval("local r = Usb.VendorCmd.MonitorRange.new(0, 0)\n"
                   "monitors:get_range('FPGA_TEMP', r)\n"
                   "return r.min .. ' ' .. r.max"),
              "-40.0 125.0");
    EXPECT_EQ(Eval("return versions:get_value('FX3_FW')"), "0.24.3-TPX3");
    EXPECT_EQ(Eval("return table.concat(cmds:names(), ',')"), "LOAD,INFO");

    Forget();
    EXPECT_EQ(Eval("return cmds:invoke_out('LOAD', "
                   "Std.MemSlab.new(string.char(9, 0, 255)):as_span()):value()"),
              "0");
    EXPECT_EQ(Board().Engine().Invocations("LOAD"),
              (std::vector<std::vector<std::uint8_t>>{{9, 0, 255}}));
    const auto requests = NewRequests();
    ASSERT_EQ(requests.size(), 2u);  // the invocation, then the last-error word
    EXPECT_EQ(requests[0].bmRequestType, 0x40);
    EXPECT_EQ(requests[0].wLength, 3);
    EXPECT_EQ(requests[1].bRequest, request::kLastError);
    EXPECT_EQ(Eval("local s = Std.MemSlab.new(4)\n"
                   "local e = cmds:invoke_in('INFO', s:as_span())\n"
                   "return e:value() .. ':' .. s[1] .. s[2] .. s[3] .. s[4]"),
              "0:3101");
}

TEST_F(LuaBindingsTest, BoardPeripheralsAnswerThroughTheFreeFunctions) {
    ShareBoard();
    ASSERT_EQ(Run("V = Usb.VendorCmd"), "");
    EXPECT_EQ(Eval("return V.gpio_set(device, 3, 1):value()"), "0");
    EXPECT_EQ(Eval("return tostring(V.gpio_get(device, 3)) .. tostring(V.gpio_get(device, 4))"),
              "truefalse");

    // The sensor at 0x48 with 8-bit registers, and the EEPROM at 0x50 with 16-bit ones.
    EXPECT_EQ(Eval("return V.i2c_transfer_8(device, 0x90, 2, "
                   "Std.MemSlab.new(string.char(0x5A)):as_span()):value()"),
              "0");
    EXPECT_EQ(Eval("local s = Std.MemSlab.new(1)\n"
                   "return V.i2c_transfer_8(device, 0x91, 2, s:as_span()):value() .. ':' .. s[1]"),
              "0:90");
    EXPECT_EQ(Eval("V.i2c_transfer_16(device, 0xA0, 0x0123, "
                   "Std.MemSlab.new(string.char(1, 2)):as_span())\n"
                   "local s = Std.MemSlab.new(3)\n"
                   "local e = V.i2c_transfer_16(device, 0xA1, 0x0123, s:as_span())\n"
                   "return e:value() .. ':' .. s[1] .. ',' .. s[2] .. ',' .. s[3]"),
              "0:1,2,255");
    EXPECT_EQ(
        Eval("return V.i2c_transfer_8(device, 0x31, 0, Std.MemSlab.new(1):as_span()):value()"),
        std::to_string(error::TranslateDeviceError(vboard::I2cNack(0)).value()));

    EXPECT_EQ(Eval("return V.axi_read(device, 0x40000000)"), std::to_string(0x4F565831));
    EXPECT_EQ(Eval("V.axi_write(device, 0x40000004, 0xDEADBEEF)\n"
                   "return V.axi_read(device, 0x40000004)"),
              std::to_string(0xDEADBEEF));
    EXPECT_EQ(Eval("return tostring(V.axi_write(device, 0x40000000, 1))"),
              CodeText(error::TranslateDeviceError(vboard::kAxiSlaveError)));
    EXPECT_EQ(Eval("V.axi_stream_start(device) return V.axi_read(device, 0x4000000C)"), "1");
}

TEST_F(LuaBindingsTest, ControllerAndSpiRequests) {
    ShareBoard();
    ASSERT_EQ(Run("V = Usb.VendorCmd fx3 = V.Cypress.new(device)"), "");
    EXPECT_EQ(Eval("return fx3:get_id()"), "TPX3EFE");
    EXPECT_EQ(Eval("local v = fx3:get_version(5.0)\n"
                   "return v.major .. '.' .. v.minor .. '.' .. v.patch .. '.' .. v.build"),
              "0.24.3.0");
    EXPECT_EQ(Eval("fx3:write_eeprom(V.EepromDevice.Device2, 0x10, "
                   "Std.MemSlab.new('ovex'):as_span())\n"
                   "local s = Std.MemSlab.new(4)\n"
                   "local e = fx3:read_eeprom(V.EepromDevice.Device2, 0x10, s:as_span())\n"
                   "return e:value() .. tostring(s)"),
              "0ovex");
    Forget();
    EXPECT_EQ(Eval("return fx3:read_eeprom(8, 0, Std.MemSlab.new(1):as_span()):value()"),
              ErrcValue(std::errc::invalid_argument));
    EXPECT_TRUE(NewRequests().empty());

    // Scripts have no bus bring-up of their own: a device module does it.
    ASSERT_FALSE(spi::Init(*m_device, spi::SpiBusId(1)));
    ASSERT_EQ(Run("bus = V.SpiBus.new(device, 1)"), "");
    EXPECT_EQ(Eval("return tostring(bus:receive(0, Std.MemSlab.new(1):as_span()))"),
              CodeText(error::TranslateDeviceError(vboard::DriverError(vboard::kDeviceIsStopped))));
    EXPECT_EQ(Eval("bus:start()\n"
                   "bus:transmit(0, Std.MemSlab.new(string.char(2, 0, 8, 7, 6)):as_span())\n"
                   "bus:transmit(0, Std.MemSlab.new(string.char(3, 0, 8)):as_span())\n"
                   "local s = Std.MemSlab.new(2)\n"
                   "local e = bus:receive(0, s:as_span())\n"
                   "return e:value() .. ':' .. s[1] .. ',' .. s[2]"),
              "0:7,6");
    EXPECT_EQ(Eval("local st = bus:get_stats()\n"
                   "return st.transferred .. ' ' .. st.interrupts .. ' ' .. st.mode_faults"),
              "10 3 0");
    EXPECT_EQ(Eval("bus:clear_stats() return bus:get_stats().transferred"), "0");
}

TEST_F(LuaBindingsTest, StalledRequestsCarryTheDevicesReason) {
    ShareBoard();
    ASSERT_EQ(Run("states = Usb.VendorCmd.States.new(device)"), "");
    Firmware().StallNext(request::kState, 1, vboard::kBadIndex);
    EXPECT_EQ(Eval("return tostring(states:set_value('BIAS', 1))"),
              CodeText(error::TranslateDeviceError(vboard::kBadIndex)));
    Firmware().StallNext(request::kState, 1, vboard::kFailure);
    EXPECT_EQ(Eval("local r = states:get_value('BIAS') return type(r) .. ' ' .. tostring(r)"),
              "userdata " + CodeText(error::TranslateDeviceError(vboard::kFailure)));
    EXPECT_EQ(Eval("return states:get_value('BIAS')"), "0");
}

TEST_F(LuaBindingsTest, BareRequestsKeepTheirBufferAlive) {
    ShareBoard();
    EXPECT_EQ(Eval("local slab = Std.MemSlab.new(4)\n"
                   "cmd = Usb.VendorCommand.new(Usb.CommandId.new(0xB1), Usb.wValue.new(0), "
                   "Usb.wIndex.new(0x4000), slab:as_span())\n"
                   "slab = nil collectgarbage()\n"
                   "return Usb.IngressCommand.new(cmd):send_to(device):value()"),
              "0");
    EXPECT_EQ(Eval("collectgarbage()\n"
                   "local b = cmd.buffer\n"
                   "return string.format('%X %X %X %d %02X%02X%02X%02X', cmd.command, cmd.value,"
                   " cmd.index, b:size(), b[4], b[3], b[2], b[1])"),
              "B1 0 4000 4 4F565831");
    auto requests = NewRequests();
    ASSERT_EQ(requests.size(), 1u);  // no last-error request for a bare one
    EXPECT_EQ(requests[0].bmRequestType, 0xC0);
    EXPECT_EQ(requests[0].wLength, 4);

    EXPECT_EQ(Eval("local out = Usb.VendorCommand.new(Usb.CommandId.new(0xB1), Usb.wValue.new(4),"
                   " Usb.wIndex.new(0x4000), Std.MemSlab.new(string.char(1, 0, 0, 0)):as_span())\n"
                   "return Usb.EgressCommand.new(out):send_to(device, 1.0):value()"),
              "0");
    requests = NewRequests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].bmRequestType, 0x40);
    EXPECT_EQ(Eval("return Usb.VendorCmd.axi_read(device, 0x40000004)"), "1");
}

TEST_F(LuaBindingsTest, EnumeratedDevicesOpenAndClose) {
    AddBoard();
    vboard::VirtualBoard::Settings second;
    second.identity.serial = "OVX00002";
    AddBoard(std::move(second));
    ASSERT_EQ(Run("devices = Usb.UsbContext.new():enum_devices(0x1209, 0xAD0E)"), "");
    EXPECT_EQ(Eval("return #devices .. #Usb.UsbContext.new():enum_devices(0x1209, 1)"), "20");
    EXPECT_EQ(Eval("local serials = {}\n"
                   "for i, d in ipairs(devices) do\n"
                   "  local info = Usb.DeviceInfo.new()\n"
                   "  assert(d:get_info(info):value() == 0)\n"
                   "  serials[#serials + 1] = info.serial .. '/' .. info.version\n"
                   "end\n"
                   "table.sort(serials) return table.concat(serials, ' ')"),
              "OVX00001/3.03 OVX00002/3.03");
    EXPECT_EQ(Eval("d = devices[1]\n"
                   "return tostring(d:isOpen()) .. d:open():value() .. tostring(d:isOpen())"),
              "false0true");
    EXPECT_EQ(Eval("fx3 = Usb.VendorCmd.Cypress.new(d) return fx3:get_id()"), "TPX3EFE");
    EXPECT_EQ(Eval("return d:close():value() .. ' ' .. fx3:get_id():value()"),
              "0 " + ErrcValue(std::errc::not_connected));
    EXPECT_NE(Run("Usb.VendorCmd.States.new(d)").find("not connected"), std::string::npos);
    EXPECT_NE(Run("Usb.UsbContext.new():enum_devices(0x10000, 1)").find("out of range"),
              std::string::npos);
}

// 0 and NaN would wait for ever in libusb, -1 and infinity as good as; a day is the most.
TEST_F(LuaBindingsTest, TimeoutsOutOfBoundsAreRefusedWithoutARequest) {
    ShareBoard();
    ASSERT_EQ(Run("local V = Usb.VendorCmd\n"
                  "cmds, states = V.Commands.new(device), V.States.new(device)\n"
                  "monitors, versions = V.Monitors.new(device), V.Versions.new(device)\n"
                  "fx3, slab = V.Cypress.new(device), Std.MemSlab.new(4)\n"
                  "local bare = Usb.VendorCommand.new(Usb.CommandId.new(0xB1), Usb.wValue.new(0),"
                  " Usb.wIndex.new(0x4000), slab:as_span())\n"
                  "out, into = Usb.EgressCommand.new(bare), Usb.IngressCommand.new(bare)\n"
                  "requests = {\n"
                  "  function(t) return out:send_to(device, t) end,\n"
                  "  function(t) return into:send_to(device, t) end,\n"
                  "  function(t) return cmds:invoke('TUSB322', t) end,\n"
                  "  function(t) return cmds:invoke_in('TUSB322', slab:as_span(), t) end,\n"
                  "  function(t) return cmds:invoke_out('TUSB322', slab:as_span(), t) end,\n"
                  "  function(t) return states:get_value('BIAS', t) end,\n"
                  "  function(t) return states:set_value('BIAS', 1, t) end,\n"
                  "  function(t) return states:get_limits('BIAS', V.StateRange.new(), t) end,\n"
                  "  function(t) return monitors:get_value('FPGA_TEMP', t) end,\n"
                  "  function(t) return monitors:get_range('FPGA_TEMP', V.MonitorRange.new(), t)"
                  " end,\n"
                  "  function(t) return versions:get_value('FX3_FW', t) end,\n"
                  "  function(t) return fx3:get_id(t) end,\n"
                  "  function(t) return fx3:get_version(t) end,\n"
                  "  function(t) return fx3:read_ram(0, slab:as_span(), t) end,\n"
                  "  function(t) return fx3:write_ram(0, slab:as_span(), t) end,\n"
                  "  function(t) return fx3:read_eeprom(0, 0, slab:as_span(), t) end,\n"
                  "  function(t) return fx3:write_eeprom(0, 0, slab:as_span(), t) end,\n"
                  "  function(t) return fx3:reset(t) end,\n"
                  "}"),
              "");
    Forget();
    ovex::testing::LogCapture log;
    EXPECT_EQ(Eval("local refused = {}\n"
                   "for _, t in ipairs({-1, 0, 0/0, math.huge, 86400.5}) do\n"
                   "  for i, request in ipairs(requests) do\n"
                   "    local r = request(t)\n"
                   "    if type(r) ~= 'userdata' or r:value() ~= Std.Errc.invalid_argument then\n"
                   "      refused[#refused + 1] = tostring(t) .. ' went through #' .. i\n"
                   "    end\n"
                   "  end\n"
                   "end\n"
                   "return #requests .. ' ' .. table.concat(refused, ', ')"),
              "18 ");
    EXPECT_TRUE(NewRequests().empty());
    EXPECT_EQ(log.StartingWith("Timeout of ").size(), 5u * 18u);
    EXPECT_TRUE(log.Contains(
        log::kError,
        "Timeout of -1 seconds refused: a request waits more than 0 and at most 86400."));
    EXPECT_EQ(Eval("return states:get_value('BIAS', 86400)"), "0");
}

// Each context of a script has an event thread and file descriptors; libusb would end the
// process long before a thousand of them.
TEST_F(LuaBindingsTest, ScriptsHoldALimitedNumberOfUsbContexts) {
    AddBoard();
    ovex::testing::LogCapture log;
    const std::string limit = std::to_string(device::kMaxScriptContexts);
    ASSERT_EQ(Run("held = {}\n"
                  "for i = 1, " +
                  limit +
                  " - 1 do held[i] = Usb.UsbContext.new() end\n"
                  // The devices of a dropped context hold its place.
                  "devices = Usb.UsbContext.new():enum_devices(0x1209, 0xAD0E)\n"
                  "collectgarbage()"),
              "");
    EXPECT_EQ(Eval("local refused = Usb.UsbContext.new()\n"
                   "return tostring(refused)"),
              CodeText(std::make_error_code(std::errc::resource_unavailable_try_again)));
    EXPECT_TRUE(log.Contains(log::kError, "Scripts hold " + limit +
                                              " USB contexts, the most they may; release one to "
                                              "make another."));
    // Dropped, a context or its devices make room at once: the collector runs at the limit.
    EXPECT_EQ(Eval("devices = nil\n"
                   "local context = Usb.UsbContext.new()\n"
                   "held[1] = nil\n"
                   "return #Usb.UsbContext.new():enum_devices(0x1209, 0xAD0E) .. "
                   "#context:enum_devices(0x1209, 0xAD0E)"),
              "11");
}

TEST_F(LuaBindingsTest, UnpluggedBoardGivesErrorCodes) {
    ShareBoard();
    ASSERT_EQ(Run("V = Usb.VendorCmd\n"
                  "cmds, states = V.Commands.new(device), V.States.new(device)\n"
                  "monitors = V.Monitors.new(device)"),
              "");
    // From here on the script's values are the only owners of the device.
    m_device.reset();
    EXPECT_EQ(Eval("return states:get_value('BIAS')"), "0");

    Board().Usb().Unplug();
    EXPECT_EQ(Eval("return type(states:get_value('BIAS'))"), "userdata");
    EXPECT_NE(Eval("return cmds:invoke('TUSB322'):value()"), "0");
    EXPECT_NE(Eval("return monitors:get_value('FPGA_TEMP'):value()"), "0");
    EXPECT_NE(Run("V.Versions.new(device)"), "");
    // The collections hold the device after the global is gone.
    ASSERT_EQ(Run("device = nil collectgarbage()"), "");
    EXPECT_NE(Eval("return states:set_value('BIAS', 1):value()"), "0");
}

// The NoBE requests are the board's own: the test answers them.
TEST_F(LuaBindingsTest, NobeRequests) {
    ShareBoard();
    std::vector<std::uint8_t> geometry(256, 0);
    geometry[0] = 2;
    geometry[4] = 3;
    for (std::uint8_t cell = 1; cell <= 6; ++cell) {
        geometry[7 + cell] = cell;
    }
    // The board answers on its own thread: each handler holds its own copy of what it answers.
    const auto answer_geometry = [this](std::vector<std::uint8_t> field) {
        Firmware().SetVendorRequest(
            0x15, [field](const SetupPacket&, auto) { return ControlReply::Answer(field); });
    };
    answer_geometry(geometry);
    Firmware().SetVendorRequest(0x16, [](const SetupPacket& setup, auto) {
        return ControlReply::Answer(std::vector<std::uint8_t>(setup.IsIn() ? 32 : 0, 0xA5));
    });
    Firmware().SetVendorRequest(0x18, [](const SetupPacket&, auto) {
        return ControlReply::Answer({'D', '0', '2', 0});
    });
    std::mutex acquired_mutex;
    std::vector<std::uint8_t> acquired;
    Firmware().SetVendorRequest(0x19, [&](const SetupPacket&, auto out) {
        std::lock_guard lock(acquired_mutex);
        acquired.assign(out.begin(), out.end());
        return ControlReply::Answer();
    });
    ASSERT_EQ(Run("nobe = Usb.VendorCmd.Nobe.new(device)"), "");

    EXPECT_EQ(Eval("g = Usb.VendorCmd.ChipGeometry.new()\n"
                   "local e = nobe:get_chip_geometry(g)\n"
                   "local rows = {}\n"
                   "for row in g:iter() do rows[#rows + 1] = table.concat(row, ',') end\n"
                   "local d = g:dimensions()\n"
                   "return e:value() .. ' ' .. #g .. ' ' .. d.rows .. 'x' .. d.columns .. ' ' .. "
                   "table.concat(rows, ';')"),
              "0 2 2x3 1,2,3;4,5,6");
    geometry[0] = 16;
    geometry[4] = 16;
    answer_geometry(geometry);
    ovex::testing::LogCapture log;
    EXPECT_EQ(Eval("local e = nobe:get_chip_geometry(g)\n"
                   "return e:value() .. ' ' .. g:dimensions().rows"),
              "0 2");
    EXPECT_TRUE(
        log.Contains(log::kError, "Received invalid chip count from the device: 256 > 248"));
    EXPECT_EQ(Eval("local d = Usb.VendorCmd.ChipGeometry.new(3, 0):dimensions()\n"
                   "return d.rows .. 'x' .. d.columns"),
              "3x0");

    Forget();
    EXPECT_EQ(Eval("local s = Std.MemSlab.new(32)\n"
                   "return nobe:fsr_read(2, s:as_span()):value() .. ' ' .. s[32]"),
              "0 165");
    auto requests = NewRequests();
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests[0].wIndex, 0x0200);
    EXPECT_EQ(Eval("return nobe:fsr_write(0, Std.MemSlab.new(31):as_span()):value()"),
              ErrcValue(std::errc::invalid_argument));
    EXPECT_TRUE(NewRequests().empty());

    EXPECT_EQ(Eval("return nobe:get_chip_id(1)"), "D02");
    EXPECT_EQ(Eval("return nobe:acquire_single(1.5):value()"), "0");
    std::lock_guard lock(acquired_mutex);
    EXPECT_EQ(acquired, (std::vector<std::uint8_t>{0x00, 0x00, 0xC0, 0x3F}));
    EXPECT_EQ(Eval("return tostring(nobe:acquire_abort())"),
              CodeText(error::TranslateDeviceError(vboard::kNotSupported)));
}

// What the observer functions of a script hand to `record(...)`: their arguments as text, joined
// by spaces. They run on the receiver's tasks, so the test waits here.
struct ScriptRecord {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;

    bool Has(const std::string& line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    void WaitFor(const std::string& line) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return Has(line); });
    }
};

ScriptRecord g_script_record;

int Record(lua_State* L) {
    std::string line;
    for (int i = 1; i <= lua_gettop(L); ++i) {
        if (i > 1) {
            line += ' ';
        }
        line += luaL_tolstring(L, i, nullptr);
        lua_pop(L, 1);
    }
    std::lock_guard lock(g_script_record.mutex);
    g_script_record.lines.push_back(line);
    g_script_record.changed.notify_all();
    return 0;
}

// Three monitors, which the board sends in one frame: A a float, B an integer, C a float above
// its range.
vboard::VirtualBoard::Settings ThreeMonitors() {
    auto tables = vboard::TablesOf(BoardKind::kTimepix3);
    tables.monitors = {
        {"A", 1.5F, 0.0F, 10.0F}, {"B", 30.7F, 0.0F, 100.0F}, {"C", 1.8F, 0.0F, 1.0F}};
    vboard::VirtualBoard::Settings settings;
    settings.tables = std::move(tables);
    return settings;
}

TEST_F(LuaBindingsTest, MonitorStreamCallsTheScriptsFunctions) {
    ovex::testing::LogCapture log(log::kWarning);
    ShareBoard(ThreeMonitors());
    {
        std::lock_guard lock(g_script_record.mutex);
        g_script_record.lines.clear();
    }
    lua_register(L, "record", &Record);
    ASSERT_EQ(Run("local M = Usb.VendorCmd.Monitors\n"
                  "rx = M.UpdateReceiver.new(device, 0x82)\n"
                  "observer = {\n"
                  "  on_avail_change = function(name, flags, ts)\n"
                  "    if name == 'C' then error('no news') end\n"
                  "    return record('avail', name, flags.is_available, flags.is_error, ts)\n"
                  "  end,\n"
                  "  on_float_update = function(name, flags, value, ts)\n"
                  "    return record('float', name, flags.is_warning, value, ts)\n"
                  "  end,\n"
                  "  on_int_update = function(name, flags, value, ts)\n"
                  "    return record('int', name, value, ts)\n"
                  "  end}\n"
                  "types = {[1] = {name = 'A', type = M.ValueType.Float},\n"
                  "         [2] = {name = 'B', type = M.ValueType.Integer}}\n"
                  "assert(rx:start(observer, types, 5.0):value() == 0)\n"
                  "assert(rx:is_running())"),
              "");
    ASSERT_EQ(Board().PushMonitorRound(), 1u);
    // Every call of the round has come, the failing one included, before the script runs again:
    // the interpreter has no lock.
    {
        std::unique_lock lock(g_script_record.mutex);
        g_script_record.changed.wait(lock, [] { return g_script_record.lines.size() == 5; });
    }
    while (log.StartingWith("Exception thrown during value change notification: ").empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(Eval("return rx:stop():value() .. ' ' .. tostring(rx:is_running())"), "0 false");

    std::lock_guard lock(g_script_record.mutex);
    EXPECT_TRUE(g_script_record.Has("avail A true false 1"));
    EXPECT_TRUE(g_script_record.Has("float A false 1.5 1"));
    EXPECT_TRUE(g_script_record.Has("avail B true false 1"));
    EXPECT_TRUE(g_script_record.Has("int B 30 1"));
    EXPECT_TRUE(g_script_record.Has("float C true 1.7999999523163 1"));
    const auto failures = log.StartingWith("Exception thrown during value change notification: ");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_NE(failures[0].message.find("no news"), std::string::npos);
}

TEST_F(LuaBindingsTest, MonitorStreamRefusesTablesItCantUse) {
    ovex::testing::LogCapture log;
    ShareBoard();
    const std::string refused = ErrcValue(std::errc::invalid_argument);
    ASSERT_EQ(Run("rx = Usb.VendorCmd.Monitors.UpdateReceiver.new(device, 0x82)"), "");
    EXPECT_EQ(Eval("return rx:start({}, {}, 5.0):value()"), refused);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Error while attempting to create value change observer - No "
                             "callback functions were found in the observer table.."));
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Missing 'on_int_update' callback in observer table, no callback will "
                             "be invoked."));

    const auto parse_error = [&](const std::string& types) {
        log.Clear();
        EXPECT_EQ(Eval("return rx:start({on_int_update = print}, " + types + ", 5.0):value()"),
                  refused)
            << types;
        const auto lines = log.StartingWith("Error while parsing type information table - ");
        return lines.size() == 1 ? lines[0].message : "";
    };
    const std::string prefix = "Error while parsing type information table - ";
    EXPECT_EQ(parse_error("5"), prefix + "Invalid type information table.");
    EXPECT_EQ(parse_error("{x = {name = 'A', type = 1}}"),
              prefix + "Type info table key must be a number.");
    EXPECT_EQ(parse_error("{[3] = 5}"), prefix +
                                            "Error while parsing type info table for ID2: Type "
                                            "info table value must be a table.");
    EXPECT_EQ(parse_error("{[1] = {type = 1}}"),
              prefix +
                  "Error while parsing type info table for ID0: Type info table is missing "
                  "'name' field, or it has wrong type.");
    EXPECT_EQ(parse_error("{[1] = {name = 'A', type = '1'}}"),
              prefix +
                  "Error while parsing type info table for ID0: Type info item table is missing "
                  "'type' field, or it has wrong type.");
    EXPECT_EQ(parse_error("{[1] = {name = 'A', type = 3}}"),
              prefix +
                  "Error while parsing type info table for ID0: Type info table 'type' field "
                  "must be either 1 (integer) or 2 (float), but is 3.");
    EXPECT_EQ(Eval("return tostring(rx:is_running())"), "false");

    // The first observer made stays, whatever table a later start gives.
    EXPECT_EQ(Eval("return rx:start({}, {}, 5.0):value()"), "0");
    EXPECT_EQ(Eval("return rx:start({}, {}, 5.0):value()"),
              ErrcValue(std::errc::operation_not_permitted));
    EXPECT_EQ(Eval("return rx:stop():value()"), "0");
    EXPECT_EQ(Eval("return rx:stop():value()"), ErrcValue(std::errc::operation_not_permitted));

    EXPECT_NE(Run("Usb.VendorCmd.Monitors.UpdateReceiver.new(device, 0x83)")
                  .find("Device doesn't have interrupt endpoint with address 0x83"),
              std::string::npos);
    EXPECT_EQ(Eval("return tostring(Usb.VendorCmd.Monitors.Flags.new)"), "nil");
}

}  // namespace
}  // namespace ovex::usb::vendor_cmd
