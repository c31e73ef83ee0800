#include "lua_wrappers.hpp"

#include <lua.hpp>

#include <stdexcept>
#include <string>

#include "lua_observer.hpp"
#include "ovex/log/log.hpp"
#include "ovex/lua/core/values.hpp"
#include "ovex/lua/core/wait_limits.hpp"
#include "ovex/usb/lua_bindings.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vendor_cmd/board_io.hpp"

namespace ovex::usb::vendor_cmd::script {
namespace {

// `request()` on an open device; on a closed one the transport would stop the process.
template <typename Request>
std::error_code OnOpen(device::UsbDevice& device, Request request) {
    if (const auto error = device::RequireOpen(device)) {
        return error;
    }
    return request();
}

// The value that `request(value)` fills, or the error in its place.
template <typename T, typename Request>
Result<T> ValueOf(device::UsbDevice& device, Request request) {
    T value{};
    if (const auto error = OnOpen(device, [&] { return request(value); })) {
        return error;
    }
    return value;
}

// `request(seconds)` on an open device, with the script's timeout or the default one; a timeout
// out of bounds is refused before anything else.
template <typename Request>
std::error_code Within(device::UsbDevice& device, Timeout timeout, Request request) {
    if (const auto error = lua::core::CheckTimeout(timeout)) {
        return error;
    }
    return OnOpen(device, [&] { return request(timeout.value_or(kDefaultTimeout)); });
}

// The value that `request(value, seconds)` fills, as Within; or the error in its place.
template <typename T, typename Request>
Result<T> ValueWithin(device::UsbDevice& device, Timeout timeout, Request request) {
    T value{};
    if (const auto error =
            Within(device, timeout, [&](double seconds) { return request(value, seconds); })) {
        return error;
    }
    return value;
}

device::UsbDevice& OpenForNames(device::UsbDevice& device) {
    if (const auto error = device::RequireOpen(device)) {
        throw std::runtime_error(std::string(error.category().name()) + ": " + error.message());
    }
    return device;
}

std::error_code RequireEeprom(cypress::EepromDevice eeprom) {
    if (eeprom <= cypress::EepromDevice::Device7) {
        return {};
    }
    OVEX_LOG_ERROR("EEPROM device %d is not one of Device0 to Device7.", static_cast<int>(eeprom));
    return std::make_error_code(std::errc::invalid_argument);
}

}  // namespace

Result<std::uint32_t> AxiRead(device::UsbDevice& device, std::uint32_t address) {
    return ValueOf<std::uint32_t>(device, [&](std::uint32_t& value) {
        unsigned int word = 0;
        const auto error = axi_read(device, address, word);
        value = word;
        return error;
    });
}

std::error_code AxiWrite(device::UsbDevice& device, std::uint32_t address, std::uint32_t value) {
    return OnOpen(device, [&] { return axi_write(device, address, value); });
}

std::error_code AxiStreamStart(device::UsbDevice& device) {
    return OnOpen(device, [&] { return axi_stream_start(device); });
}

std::error_code I2cTransfer8(device::UsbDevice& device, std::uint8_t address, std::uint8_t reg,
                             std::span<std::uint8_t> data) {
    return OnOpen(device, [&] { return i2c_transfer_8(device, address, reg, data); });
}

std::error_code I2cTransfer16(device::UsbDevice& device, std::uint8_t address, std::uint16_t reg,
                              std::span<std::uint8_t> data) {
    return OnOpen(device, [&] { return i2c_transfer_16(device, address, reg, data); });
}

std::error_code GpioSet(device::UsbDevice& device, std::uint8_t pin, std::uint8_t value) {
    return OnOpen(device, [&] { return gpio_set(device, pin, value != 0); });
}

Result<bool> GpioGet(device::UsbDevice& device, std::uint8_t pin) {
    return ValueOf<bool>(device, [&](bool& value) { return gpio_get(device, pin, value); });
}

template <typename Items>
ScriptItems<Items>::ScriptItems(SharedDevice device)
    : m_device(std::move(device)), m_items(OpenForNames(*m_device)) {}

template class ScriptItems<impl::Commands>;
template class ScriptItems<impl::States>;
template class ScriptItems<impl::Monitors>;
template class ScriptItems<impl::Versions>;

std::error_code ScriptCommands::invoke(std::string_view name, Timeout timeout) {
    return Within(*m_device, timeout, [&](double s) { return m_items.invoke(name, s); });
}

std::error_code ScriptCommands::invoke_in(std::string_view name, std::span<std::uint8_t> data,
                                          Timeout timeout) {
    return Within(*m_device, timeout, [&](double s) { return m_items.invoke_in(name, data, s); });
}

std::error_code ScriptCommands::invoke_out(std::string_view name,
                                           std::span<const std::uint8_t> data, Timeout timeout) {
    return Within(*m_device, timeout, [&](double s) { return m_items.invoke_out(name, data, s); });
}

Result<int> ScriptStates::get_value(std::string_view name, Timeout timeout) {
    return ValueWithin<int>(*m_device, timeout, [&](int& value, double s) {
        return m_items.get_value(name, value, s);
    });
}

std::error_code ScriptStates::set_value(std::string_view name, std::int32_t value,
                                        Timeout timeout) {
    return Within(*m_device, timeout, [&](double s) { return m_items.set_value(name, value, s); });
}

std::error_code ScriptStates::get_limits(std::string_view name, range::Range<int>& limits,
                                         Timeout timeout) {
    return Within(*m_device, timeout,
                  [&](double s) { return m_items.get_limits(name, limits, s); });
}

Result<float> ScriptMonitors::get_value(std::string_view name, Timeout timeout) {
    return ValueWithin<float>(*m_device, timeout, [&](float& value, double s) {
        return m_items.get_value(name, value, s);
    });
}

std::error_code ScriptMonitors::get_range(std::string_view name, range::Range<float>& range,
                                          Timeout timeout) {
    return Within(*m_device, timeout, [&](double s) { return m_items.get_range(name, range, s); });
}

Result<std::string> ScriptVersions::get_value(std::string_view name, Timeout timeout) {
    return ValueWithin<std::string>(*m_device, timeout, [&](std::string& value, double s) {
        return m_items.get_value(name, value, s);
    });
}

std::error_code ScriptSpiBus::reset() {
    return OnOpen(*m_device, [&] { return spi::Reset(*m_device, m_bus); });
}

std::error_code ScriptSpiBus::self_test() {
    return OnOpen(*m_device, [&] { return spi::SelfTest(*m_device, m_bus); });
}

std::error_code ScriptSpiBus::start() {
    return OnOpen(*m_device, [&] { return spi::Start(*m_device, m_bus); });
}

std::error_code ScriptSpiBus::stop() {
    return OnOpen(*m_device, [&] { return spi::Stop(*m_device, m_bus); });
}

std::error_code ScriptSpiBus::clear_stats() {
    return OnOpen(*m_device, [&] { return spi::ClearStats(*m_device, m_bus); });
}

Result<spi::Stats> ScriptSpiBus::get_stats() {
    return ValueOf<spi::Stats>(
        *m_device, [&](spi::Stats& stats) { return spi::GetStats(*m_device, m_bus, stats); });
}

std::error_code ScriptSpiBus::transmit(std::uint8_t slave, std::span<const std::uint8_t> data) {
    return OnOpen(*m_device, [&] { return spi::Transmit(*m_device, m_bus, slave, data); });
}

std::error_code ScriptSpiBus::receive(std::uint8_t slave, std::span<std::uint8_t> data) {
    return OnOpen(*m_device, [&] { return spi::Receive(*m_device, m_bus, slave, data); });
}

Result<std::string> ScriptCypress::get_id(Timeout timeout) {
    return ValueWithin<std::string>(*m_device, timeout, [&](std::string& id, double s) {
        return cypress::GetId(*m_device, id, s);
    });
}

Result<cypress::Version> ScriptCypress::get_version(Timeout timeout) {
    return ValueWithin<cypress::Version>(*m_device, timeout,
                                         [&](cypress::Version& version, double s) {
                                             return cypress::GetVersion(*m_device, version, s);
                                         });
}

std::error_code ScriptCypress::reset(Timeout timeout) {
    return Within(*m_device, timeout, [&](double s) { return cypress::Reset(*m_device, s); });
}

std::error_code ScriptCypress::read_ram(std::uint32_t address, std::span<std::uint8_t> data,
                                        Timeout timeout) {
    return Within(*m_device, timeout,
                  [&](double s) { return cypress::ReadRam(*m_device, address, data, s); });
}

std::error_code ScriptCypress::write_ram(std::uint32_t address, std::span<const std::uint8_t> data,
                                         Timeout timeout) {
    return Within(*m_device, timeout,
                  [&](double s) { return cypress::WriteRam(*m_device, address, data, s); });
}

std::error_code ScriptCypress::read_eeprom(cypress::EepromDevice eeprom, std::uint16_t address,
                                           std::span<std::uint8_t> data, Timeout timeout) {
    if (const auto error = RequireEeprom(eeprom)) {
        return error;
    }
    return Within(*m_device, timeout, [&](double s) {
        return cypress::ReadEeprom(*m_device, eeprom, address, data, s);
    });
}

std::error_code ScriptCypress::write_eeprom(cypress::EepromDevice eeprom, std::uint16_t address,
                                            std::span<const std::uint8_t> data, Timeout timeout) {
    if (const auto error = RequireEeprom(eeprom)) {
        return error;
    }
    return Within(*m_device, timeout, [&](double s) {
        return cypress::WriteEeprom(*m_device, eeprom, address, data, s);
    });
}

std::error_code ScriptNobe::set_bias(float value) {
    return OnOpen(*m_device, [&] { return nobe::SetBias(*m_device, value); });
}

Result<float> ScriptNobe::get_bias() {
    return ValueOf<float>(*m_device, [&](float& value) { return nobe::GetBias(*m_device, value); });
}

std::error_code ScriptNobe::get_chip_geometry(Geometry& geometry) {
    return OnOpen(*m_device, [&] { return nobe::ReadChipGeometry(*m_device, geometry); });
}

std::error_code ScriptNobe::fsr_read(std::uint8_t chip, std::span<std::uint8_t> data) {
    return OnOpen(*m_device, [&] { return nobe::ReadFsr(*m_device, chip, data); });
}

std::error_code ScriptNobe::fsr_write(std::uint8_t chip, std::span<const std::uint8_t> data) {
    return OnOpen(*m_device, [&] { return nobe::WriteFsr(*m_device, chip, data); });
}

Result<std::string> ScriptNobe::get_chip_id(std::uint8_t chip) {
    return ValueOf<std::string>(
        *m_device, [&](std::string& id) { return nobe::GetChipId(*m_device, chip, id); });
}

std::error_code ScriptNobe::conf_matrix_write() {
    return OnOpen(*m_device, [&] { return nobe::ConfMatrixWrite(*m_device); });
}

std::error_code ScriptNobe::acquire_single(float time) {
    return OnOpen(*m_device, [&] { return nobe::AcquireSingle(*m_device, time); });
}

std::error_code ScriptNobe::acquire_multi(float time) {
    return OnOpen(*m_device, [&] { return nobe::AcquireMulti(*m_device, time); });
}

std::error_code ScriptNobe::acquire_abort() {
    return OnOpen(*m_device, [&] { return nobe::AcquireAbort(*m_device); });
}

namespace {

// The table's field of that name, pushed, without metamethods; its type.
int RawField(lua_State* L, int table, const char* name) {
    lua_pushstring(L, name);
    return lua_rawget(L, table);
}

TypeInfo ParseTypeInfo(lua_State* L, int item) {
    if (!lua_istable(L, item)) {
        throw std::invalid_argument("Type info table value must be a table");
    }
    TypeInfo info;
    if (RawField(L, item, "name") != LUA_TSTRING) {
        lua_pop(L, 1);
        throw std::invalid_argument(
            "Type info table is missing 'name' field, or it has wrong type");
    }
    info.name = lua_tostring(L, -1);
    lua_pop(L, 1);
    if (RawField(L, item, "type") != LUA_TNUMBER) {
        lua_pop(L, 1);
        throw std::invalid_argument(
            "Type info item table is missing 'type' field, or it has wrong type");
    }
    const lua_Number type = lua_tonumber(L, -1);
    if (type != 1 && type != 2) {
        const std::string text = luaL_tolstring(L, -1, nullptr);
        lua_pop(L, 2);
        throw std::invalid_argument(
            "Type info table 'type' field must be either 1 (integer) or 2 (float), but is " + text);
    }
    lua_pop(L, 1);
    info.type = type == 1 ? ValueType::Integer : ValueType::Float;
    return info;
}

}  // namespace

impl::UpdateReceiver::TypeInfos ParseTypeInfos(lua_State* L, int index) {
    index = lua_absindex(L, index);
    if (!lua_istable(L, index)) {
        throw std::invalid_argument("Invalid type information table");
    }
    impl::UpdateReceiver::TypeInfos infos;
    lua_pushnil(L);
    while (lua_next(L, index) != 0) {
        int exact = 0;
        const lua_Integer key = lua_type(L, -2) == LUA_TNUMBER ? lua_tointegerx(L, -2, &exact) : 0;
        if (exact == 0) {
            lua_pop(L, 2);
            throw std::invalid_argument("Type info table key must be a number");
        }
        // Scripts count from 1, the board from 0.
        const auto id = static_cast<std::uint16_t>((key & 0xFFFF) - 1);
        TypeInfo info;
        try {
            info = ParseTypeInfo(L, lua_absindex(L, -1));
        } catch (const std::invalid_argument& error) {
            lua_pop(L, 2);
            throw std::invalid_argument("Error while parsing type info table for ID" +
                                        std::to_string(id) + ": " + error.what());
        }
        if (!infos.emplace(id, std::move(info)).second) {
            OVEX_LOG_ERROR("BUG: Failed to insert type information for monitor ID%d.", id);
        }
        lua_pop(L, 1);
    }
    return infos;
}

ScriptUpdateReceiver::ScriptUpdateReceiver(SharedDevice device, std::uint8_t endpoint)
    : m_receiver(std::make_unique<impl::UpdateReceiver>(std::move(device), endpoint)) {}

ScriptUpdateReceiver::~ScriptUpdateReceiver() {
    // The state may be closing: the functions go first, then the stream stops.
    if (m_observer) {
        m_observer->Detach();
    }
}

std::error_code ScriptUpdateReceiver::start(lua_State* L, int observer, int types, double timeout) {
    if (const auto error = lua::core::CheckTimeout(timeout)) {
        return error;
    }
    if (!m_observer) {
        try {
            m_observer = std::make_shared<impl::LuaObserver>(L, observer);
        } catch (const std::exception& error) {
            OVEX_LOG_ERROR("Error while attempting to create value change observer - %s.",
                           error.what());
            return std::make_error_code(std::errc::invalid_argument);
        }
    }
    impl::UpdateReceiver::TypeInfos infos;
    try {
        infos = ParseTypeInfos(L, types);
    } catch (const std::exception& error) {
        OVEX_LOG_ERROR("Error while parsing type information table - %s.", error.what());
        return std::make_error_code(std::errc::invalid_argument);
    }
    return m_receiver->Start(m_observer, infos, timeout);
}

}  // namespace ovex::usb::vendor_cmd::script
