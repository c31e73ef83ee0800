#pragma once

// The objects behind the names of Usb.VendorCmd. Each shares the ownership of its device, so a
// script can't outlive the device it talks to, and checks that the device is open before a
// request. A failure is a result, never an exception: an error code, or in place of a value.

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <variant>
#include <vector>

#include "ovex/range/range.hpp"
#include "ovex/vendor_cmd/cypress.hpp"
#include "ovex/vendor_cmd/item_collection.hpp"
#include "ovex/vendor_cmd/monitor_stream.hpp"
#include "ovex/vendor_cmd/nobe.hpp"
#include "ovex/vendor_cmd/spi.hpp"

struct lua_State;

namespace ovex::usb::vendor_cmd::impl {
class LuaObserver;
}

namespace ovex::usb::vendor_cmd::script {

using SharedDevice = std::shared_ptr<device::UsbDevice>;
// A trailing number of seconds; absent means the default of every request. One outside the
// bounds of lua::core::CheckTimeout is refused with invalid_argument, without a request.
using Timeout = std::optional<double>;
template <typename T>
using Result = std::variant<T, std::error_code>;
using Geometry = Matrix<unsigned char>;

Result<std::uint32_t> AxiRead(device::UsbDevice& device, std::uint32_t address);
std::error_code AxiWrite(device::UsbDevice& device, std::uint32_t address, std::uint32_t value);
std::error_code AxiStreamStart(device::UsbDevice& device);
std::error_code I2cTransfer8(device::UsbDevice& device, std::uint8_t address, std::uint8_t reg,
                             std::span<std::uint8_t> data);
std::error_code I2cTransfer16(device::UsbDevice& device, std::uint8_t address, std::uint16_t reg,
                              std::span<std::uint8_t> data);
std::error_code GpioSet(device::UsbDevice& device, std::uint8_t pin, std::uint8_t value);
Result<bool> GpioGet(device::UsbDevice& device, std::uint8_t pin);

// An item collection together with the owner of its device. Making one reads the names from
// the board: a closed device or a failed request throws, and no object is made.
template <typename Items>
class ScriptItems {
public:
    explicit ScriptItems(SharedDevice device);

    std::vector<std::string> names() const { return m_items.names(); }

protected:
    SharedDevice m_device;
    Items m_items;
};

class ScriptCommands : public ScriptItems<impl::Commands> {
public:
    using ScriptItems::ScriptItems;
    std::error_code invoke(std::string_view name, Timeout timeout);
    std::error_code invoke_in(std::string_view name, std::span<std::uint8_t> data, Timeout timeout);
    std::error_code invoke_out(std::string_view name, std::span<const std::uint8_t> data,
                               Timeout timeout);
};

class ScriptStates : public ScriptItems<impl::States> {
public:
    using ScriptItems::ScriptItems;
    Result<int> get_value(std::string_view name, Timeout timeout);
    std::error_code set_value(std::string_view name, std::int32_t value, Timeout timeout);
    std::error_code get_limits(std::string_view name, range::Range<int>& limits, Timeout timeout);
};

class ScriptMonitors : public ScriptItems<impl::Monitors> {
public:
    using ScriptItems::ScriptItems;
    Result<float> get_value(std::string_view name, Timeout timeout);
    std::error_code get_range(std::string_view name, range::Range<float>& range, Timeout timeout);
};

class ScriptVersions : public ScriptItems<impl::Versions> {
public:
    using ScriptItems::ScriptItems;
    Result<std::string> get_value(std::string_view name, Timeout timeout);
};

class ScriptSpiBus {
public:
    ScriptSpiBus(SharedDevice device, std::uint8_t bus) : m_device(std::move(device)), m_bus(bus) {}

    std::error_code reset();
    std::error_code self_test();
    std::error_code start();
    std::error_code stop();
    std::error_code clear_stats();
    Result<spi::Stats> get_stats();
    std::error_code transmit(std::uint8_t slave, std::span<const std::uint8_t> data);
    std::error_code receive(std::uint8_t slave, std::span<std::uint8_t> data);

private:
    SharedDevice m_device;
    spi::SpiBusId m_bus;
};

class ScriptCypress {
public:
    explicit ScriptCypress(SharedDevice device) : m_device(std::move(device)) {}

    Result<std::string> get_id(Timeout timeout);
    Result<cypress::Version> get_version(Timeout timeout);
    std::error_code reset(Timeout timeout);
    std::error_code read_ram(std::uint32_t address, std::span<std::uint8_t> data, Timeout timeout);
    std::error_code write_ram(std::uint32_t address, std::span<const std::uint8_t> data,
                              Timeout timeout);
    // Devices beyond Device7 are refused with invalid_argument, without a request.
    std::error_code read_eeprom(cypress::EepromDevice eeprom, std::uint16_t address,
                                std::span<std::uint8_t> data, Timeout timeout);
    std::error_code write_eeprom(cypress::EepromDevice eeprom, std::uint16_t address,
                                 std::span<const std::uint8_t> data, Timeout timeout);

private:
    SharedDevice m_device;
};

class ScriptNobe {
public:
    explicit ScriptNobe(SharedDevice device) : m_device(std::move(device)) {}

    std::error_code set_bias(float value);
    Result<float> get_bias();
    std::error_code get_chip_geometry(Geometry& geometry);
    std::error_code fsr_read(std::uint8_t chip, std::span<std::uint8_t> data);
    std::error_code fsr_write(std::uint8_t chip, std::span<const std::uint8_t> data);
    Result<std::string> get_chip_id(std::uint8_t chip);
    std::error_code conf_matrix_write();
    std::error_code acquire_single(float time);
    std::error_code acquire_multi(float time);
    std::error_code acquire_abort();

private:
    SharedDevice m_device;
};

// The monitor stream for scripts. The first start makes the observer from its table and keeps
// it for every later start.
class ScriptUpdateReceiver {
public:
    // Throws std::invalid_argument for a device without an interrupt endpoint of this address.
    ScriptUpdateReceiver(SharedDevice device, std::uint8_t endpoint);
    // Stops a running stream; no notification reaches the script after it began.
    ~ScriptUpdateReceiver();
    ScriptUpdateReceiver(ScriptUpdateReceiver&&) noexcept = default;
    ScriptUpdateReceiver& operator=(ScriptUpdateReceiver&&) = delete;

    // `observer` and `types` are stack indices of tables in L. A table that can't be used is
    // refused with invalid_argument and a log line.
    std::error_code start(lua_State* L, int observer, int types, double timeout);
    std::error_code stop() { return m_receiver->Stop(); }
    bool is_running() const { return m_receiver->IsRunning(); }

private:
    std::shared_ptr<impl::LuaObserver> m_observer;
    std::unique_ptr<impl::UpdateReceiver> m_receiver;
};

// The type information of a script's table: monitor id + 1 to {name, type}. Throws
// std::invalid_argument with the reason.
impl::UpdateReceiver::TypeInfos ParseTypeInfos(lua_State* L, int index);

}  // namespace ovex::usb::vendor_cmd::script
