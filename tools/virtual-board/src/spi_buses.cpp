#include "spi_buses.hpp"

#include "request_shape.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

enum StartStopValue : std::uint16_t { kStop = 0, kStart = 1 };

std::uint32_t NoData(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    return CheckShape(setup, out, Direction::kOut, 0);
}

}  // namespace

SpiBuses::SpiBuses(bool front_end_flash) {
    for (Bus& bus : m_buses) {
        bus.slaves[0] = SpiMemory{};
    }
    if (front_end_flash) {
        m_buses[1].slaves[0] = SpiFlash{};
    }
}

SpiFlash* SpiBuses::FrontEndFlash() {
    return std::get_if<SpiFlash>(&m_buses[1].slaves[0]);
}

void SpiBuses::PowerOn() {
    for (Bus& bus : m_buses) {
        bus.initialised = false;
        bus.started = false;
        bus.counters = {};
        for (auto& [number, slave] : bus.slaves) {
            std::visit([](auto& device) { device.Deselect(); }, slave);
        }
    }
}

SpiBuses::Selected SpiBuses::Select(const SetupPacket& setup, std::uint32_t shape_error,
                                    bool needs_init) {
    if (shape_error != kNoError) {
        return {nullptr, shape_error};
    }
    if (setup.wIndex >= kBusCount) {
        return {nullptr, DriverError(kDeviceNotFound)};
    }
    Bus& bus = m_buses[setup.wIndex];
    if (needs_init && !bus.initialised) {
        return {nullptr, DriverError(kNotEnabled)};
    }
    return {&bus, kNoError};
}

ControlReply SpiBuses::Init(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const auto [bus, error] = Select(setup, NoData(setup, out), false);
    if (error != kNoError) {
        return ControlReply::Stall(error);
    }
    if (bus->started) {
        return ControlReply::Stall(DriverError(kDeviceIsStarted));
    }
    bus->initialised = true;
    bus->counters = {};
    return ControlReply::Answer();
}

ControlReply SpiBuses::Reset(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const auto [bus, error] = Select(setup, NoData(setup, out), false);
    if (error != kNoError) {
        return ControlReply::Stall(error);
    }
    bus->started = false;
    for (auto& [number, slave] : bus->slaves) {
        std::visit([](auto& device) { device.Deselect(); }, slave);
    }
    return ControlReply::Answer();
}

ControlReply SpiBuses::SelfTest(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const auto [bus, error] = Select(setup, NoData(setup, out), true);
    if (error != kNoError) {
        return ControlReply::Stall(error);
    }
    // The test resets the master, which it can't while it is running.
    if (bus->started) {
        return ControlReply::Stall(DriverError(kDeviceIsStarted));
    }
    return ControlReply::Answer();
}

ControlReply SpiBuses::StartStop(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const auto [bus, error] = Select(setup, NoData(setup, out), true);
    if (error != kNoError) {
        return ControlReply::Stall(error);
    }
    if (setup.wValue == kStop) {
        bus->started = false;
        return ControlReply::Answer();
    }
    if (setup.wValue != kStart) {
        return ControlReply::Stall(kBadArgument);
    }
    if (bus->started) {
        return ControlReply::Stall(DriverError(kDeviceIsStarted));
    }
    bus->started = true;
    return ControlReply::Answer();
}

ControlReply SpiBuses::Stats(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const std::uint32_t shape =
        setup.IsIn() ? CheckShape(setup, out, Direction::kIn, 24) : NoData(setup, out);
    const auto [bus, error] = Select(setup, shape, true);
    if (error != kNoError) {
        return ControlReply::Stall(error);
    }
    if (!setup.IsIn()) {
        bus->counters = {};
        return ControlReply::Answer();
    }
    const Counters& counters = bus->counters;
    std::vector<std::uint8_t> answer;
    for (const std::uint32_t value :
         {counters.mode_faults, counters.tx_underruns, counters.rx_overruns,
          counters.slave_mode_faults, counters.transferred, counters.interrupts}) {
        wire::PutU32(answer, value);
    }
    return ControlReply::Answer(std::move(answer));
}

ControlReply SpiBuses::Data(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const auto [bus, error] = Select(setup, kNoError, true);
    if (error != kNoError) {
        return ControlReply::Stall(error);
    }
    if (!bus->started) {
        return ControlReply::Stall(DriverError(kDeviceIsStopped));
    }
    const auto slave = bus->slaves.find(setup.wValue);
    if (slave == bus->slaves.end()) {
        return ControlReply::Stall(DriverError(kSpiNoSlave));
    }
    const std::size_t count = setup.IsIn() ? setup.wLength : out.size();
    std::vector<std::uint8_t> answer;
    if (setup.IsIn()) {
        answer = std::visit([&](auto& device) { return device.Receive(count); }, slave->second);
    } else {
        std::visit([&](auto& device) { device.Transmit(out); }, slave->second);
    }
    if (count > 0) {
        bus->counters.transferred += static_cast<std::uint32_t>(count);
        ++bus->counters.interrupts;  // one at the end of each transfer
    }
    return ControlReply::Answer(std::move(answer));
}

}  // namespace ovex::vboard
