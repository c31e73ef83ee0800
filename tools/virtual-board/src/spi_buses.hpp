#pragma once

// The FPGA's SPI masters as the firmware drives them, one per bus (wIndex). A bus must be
// initialised before anything else and started before it transfers; it counts what it does.
// Each bus has an SPI memory as slave 0, except bus 1 of a NoBE, where the front end's S25FL128S
// flash is; other slaves are not connected.

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <variant>

#include "ovex/vboard/firmware_model.hpp"
#include "spi_flash.hpp"
#include "spi_memory.hpp"

namespace ovex::vboard {

class SpiBuses {
public:
    static constexpr std::size_t kBusCount = 2;

    explicit SpiBuses(bool front_end_flash);

    ControlReply Init(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply Reset(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply SelfTest(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply StartStop(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply Stats(const SetupPacket& setup, std::span<const std::uint8_t> out);
    // Transmit (OUT) or receive (IN) with the slave in wValue.
    ControlReply Data(const SetupPacket& setup, std::span<const std::uint8_t> out);

    // Every bus uninitialised, stopped and with clear counters; the memories keep their data.
    void PowerOn();
    // The front end's flash, if the board has one.
    SpiFlash* FrontEndFlash();

private:
    struct Counters {
        std::uint32_t mode_faults = 0;
        std::uint32_t tx_underruns = 0;
        std::uint32_t rx_overruns = 0;
        std::uint32_t slave_mode_faults = 0;
        std::uint32_t transferred = 0;
        std::uint32_t interrupts = 0;
    };
    struct Bus {
        bool initialised = false;
        bool started = false;
        Counters counters;
        std::map<std::uint16_t, std::variant<SpiMemory, SpiFlash>> slaves;
    };

    struct Selected {
        Bus* bus;
        std::uint32_t error;  // kNoError when `bus` may take the request
    };
    // The bus in wIndex, after the request's shape error (kNoError when it has none), and
    // whether the bus must have been initialised.
    Selected Select(const SetupPacket& setup, std::uint32_t shape_error, bool needs_init);

    std::array<Bus, kBusCount> m_buses;
};

}  // namespace ovex::vboard
