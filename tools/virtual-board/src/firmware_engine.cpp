#include "ovex/vboard/firmware_engine.hpp"

#include "axi_bus.hpp"
#include "controller_requests.hpp"
#include "gpio_pins.hpp"
#include "i2c_bus.hpp"
#include "item_requests.hpp"
#include "request_shape.hpp"
#include "spi_buses.hpp"

namespace ovex::vboard {

struct FirmwareEngine::Parts {
    explicit Parts(ItemTables tables) : items(std::move(tables)), controller(items.Tables()) {}

    ItemRequests items;
    GpioPins gpio;
    I2cBus i2c;
    ControllerRequests controller;
    AxiBus axi;
    SpiBuses spi;
};

FirmwareEngine::FirmwareEngine(FirmwareModel& model, ItemTables tables)
    : m_parts(std::make_unique<Parts>(std::move(tables))) {
    // Each request runs one part's handler under the engine's lock.
    const auto install = [&](std::uint8_t bRequest, auto part, auto handler) {
        model.SetVendorRequest(bRequest, [this, part, handler](const SetupPacket& setup,
                                                               std::span<const std::uint8_t> out) {
            std::lock_guard lock(m_mutex);
            return (((*m_parts).*part).*handler)(setup, out);
        });
    };
    install(request::kCommand, &Parts::items, &ItemRequests::Command);
    install(request::kVersion, &Parts::items, &ItemRequests::Version);
    install(request::kState, &Parts::items, &ItemRequests::State);
    install(request::kGpio, &Parts::gpio, &GpioPins::Handle);
    install(request::kMonitor, &Parts::items, &ItemRequests::Monitor);
    install(request::kI2c, &Parts::i2c, &I2cBus::Handle);
    install(request::kRam, &Parts::controller, &ControllerRequests::Ram);
    install(request::kGetId, &Parts::controller, &ControllerRequests::GetId);
    install(request::kAxi, &Parts::axi, &AxiBus::Access);
    install(request::kAxiStreamStart, &Parts::axi, &AxiBus::StreamStart);
    install(request::kWriteEeprom, &Parts::controller, &ControllerRequests::WriteEeprom);
    install(request::kReadEeprom, &Parts::controller, &ControllerRequests::ReadEeprom);
    install(request::kGetVersion, &Parts::controller, &ControllerRequests::GetVersion);
    install(request::kSpiInit, &Parts::spi, &SpiBuses::Init);
    install(request::kSpiReset, &Parts::spi, &SpiBuses::Reset);
    install(request::kSpiSelfTest, &Parts::spi, &SpiBuses::SelfTest);
    install(request::kSpiStartStop, &Parts::spi, &SpiBuses::StartStop);
    install(request::kSpiStats, &Parts::spi, &SpiBuses::Stats);
    install(request::kSpiData, &Parts::spi, &SpiBuses::Data);
    model.SetVendorRequest(
        request::kReset,
        [this](const SetupPacket& setup, std::span<const std::uint8_t>) { return Reset(setup); });
}

FirmwareEngine::~FirmwareEngine() = default;

ControlReply FirmwareEngine::Reset(const SetupPacket& setup) {
    if (!setup.IsIn()) {
        return ControlReply::Stall(kNotSupported);
    }
    std::lock_guard lock(m_mutex);
    m_parts->items.PowerOn();
    m_parts->gpio.PowerOn();
    m_parts->axi.PowerOn();
    m_parts->spi.PowerOn();
    return ControlReply::Answer();
}

void FirmwareEngine::SetMonitorValue(std::string_view name, float value) {
    std::lock_guard lock(m_mutex);
    m_parts->items.SetMonitorValue(name, value);
}

int FirmwareEngine::StateValue(std::string_view name) const {
    std::lock_guard lock(m_mutex);
    return m_parts->items.StateValue(name);
}

std::vector<std::vector<std::uint8_t>> FirmwareEngine::Invocations(std::string_view name) const {
    std::lock_guard lock(m_mutex);
    return m_parts->items.Invocations(name);
}

}  // namespace ovex::vboard
