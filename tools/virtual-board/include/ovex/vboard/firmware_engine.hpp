#pragma once

// The board's firmware behind its vendor requests: item lists coupled by the board's rails,
// GPIO, the I2C bus, the USB controller's own requests, the AXI register map and the SPI
// masters, the Timepix3 or Timepix2 chip on the items, and the NoBE's own requests. A board that
// comes up in boot loader mode answers only the boot loader's requests until the host starts a
// sound application image; from then on it is that application. It installs itself on a firmware
// model; all its state is behind one lock, so the host's requests and a test's calls may come from
// different threads.

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "ovex/vboard/boot_loader_mode.hpp"
#include "ovex/vboard/data_driven.hpp"
#include "ovex/vboard/data_source.hpp"
#include "ovex/vboard/error_words.hpp"
#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/frame_readout.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "ovex/vboard/tpx2_frames.hpp"

namespace ovex::vboard {

class FirmwareEngine {
public:
    // Answers the vendor requests on `model`, which must not be used after the engine is gone.
    // With `boot_loader` the board waits for an application; until then `tables` only serve the
    // test-side calls below.
    FirmwareEngine(FirmwareModel& model, ItemTables tables,
                   std::optional<BootLoaderMode> boot_loader = std::nullopt);
    ~FirmwareEngine();
    FirmwareEngine(const FirmwareEngine&) = delete;
    FirmwareEngine& operator=(const FirmwareEngine&) = delete;

    // The board's clock, which moves the monitors' physics (the Peltier loop, the bias ramp,
    // the supplies' noise). It stands still until moved: `AdvanceTime` moves it by exactly
    // `elapsed` with the states as they are (std::invalid_argument if negative or not finite)
    // and takes the clock over from real time for good. `FollowRealTime` makes it catch up with
    // the steady clock before each request and each monitor round, for boards that no test
    // drives.
    void AdvanceTime(std::chrono::duration<double> elapsed);
    void FollowRealTime();
    // Seconds on the board's clock since it came up.
    double BoardTime() const;

    // For tests, by name (the first item of that name); std::out_of_range for an unknown name.
    // What the monitor measures from now on while its rail is on, pinned: the physics no longer
    // moves its reading (it goes on behind it); kept when an application starts.
    void SetMonitorValue(std::string_view name, float value);
    int StateValue(std::string_view name) const;
    // The input of each invocation of the command so far, in order (empty: no input).
    std::vector<std::vector<std::uint8_t>> Invocations(std::string_view name) const;

    // Hardware faults for tests, kept until cleared, also over resets and an application start.
    // The rail that `monitor` measures stays off however it is enabled: its monitors read 0.
    // std::out_of_range if `monitor` measures no switched rail.
    void FailRail(std::string_view monitor);
    // Every read of the monitor's value fails and leaves `word` as the last error (its range
    // still answers). std::out_of_range for an unknown monitor.
    void BreakMonitor(std::string_view monitor, std::uint32_t word = kNoI2cAnswer);
    void ClearPowerFaults();
    // The pixel of the board's chip that the host numbers `pixel` (row · 256 + column, 0..65535)
    // holds `bits` whatever was written: on a Timepix3 the 6 bits its configuration packet
    // carries (0..63), on a Timepix2 the host's pixel byte (its mask bit masks it in frames too);
    // the chip's digital test shows it. std::out_of_range for a pixel or bits beyond those.
    void StickPixel(std::uint32_t pixel, std::uint8_t bits);
    // Every TPX_PRC_BYPASS of the Timepix2 chip is refused with `word`.
    void RefusePrcBypass(std::uint32_t word = kFailure);
    // Ends the stuck pixels and the refused bypass.
    void ClearChipFaults();
    // After each program or erase the NoBE front end's SPI flash keeps its busy flag for
    // `busy_reads` reads of its status register (SIZE_MAX: it never finishes); 0 ends the
    // fault. std::out_of_range on a board without that flash.
    void SlowFrontEndFlash(std::size_t busy_reads);

    // The Timepix3 chip's pixel configuration memory, the bytes in the order they came.
    std::vector<std::uint8_t> ChipMatrix() const;
    // Moves the chip's pending configuration read-back into `out`; the bytes moved. The data
    // endpoint sends these ahead of its stream.
    std::size_t ReadOut(std::span<std::uint8_t> out);

    // The Timepix3 chip's frames (ITEMS.md, the shutter and frame readout). The particles that
    // reach the sensor from now on, kept over resets and an application start;
    // std::invalid_argument for a negative or non-finite rate, or a spot width not above 0.
    void SetHitModel(const HitModel& model);
    // Drives the board's trigger input to `high` now.
    void SetTriggerInput(bool high);
    // A pulse on the trigger input: high now, the board's clock moved on by `width` as by
    // `AdvanceTime` (std::invalid_argument likewise), then low.
    void PulseTriggerInput(std::chrono::duration<double> width);
    // The newest frames the chip read out (at most kFrameLogDepth), oldest first.
    std::vector<ReadoutFrame> FrameLog() const;
    FrameCounters FrameCounts() const;
    // Damages the next frame read out; kNone takes a pending fault back.
    void InjectFrameFault(FrameFault fault);
    // Fills `out` from the oldest frame in the FIFO (either chip's) for the data endpoint; nullopt
    // while none waits. `mid_transfer`: the endpoint's transfer under way holds data already, and a
    // frame waits for the next one.
    std::optional<Produced> ReadFrame(std::span<std::uint8_t> out, bool mid_transfer);

    // The Timepix2 chip (tpx2_frames.hpp): its pixel memory in the host's form (a byte a pixel,
    // row · 256 + column) as the last TPX_WRITE_MATRIX latched it; the newest frames it read out
    // (at most kFrameLogDepth, oldest first; a lost frame has no pixels); the counters; damage
    // to the next frame sent (Kind::kNone takes a pending fault back).
    std::vector<std::uint8_t> Tpx2Matrix() const;
    std::vector<Tpx2Frame> Tpx2FrameLog() const;
    FrameCounters Tpx2FrameCounts() const;
    void InjectTpx2FrameFault(Tpx2FrameFault fault);
    // Bulk OUT data on the configuration endpoint: the Timepix2 chip's loader takes them while
    // a configuration load is armed.
    void TakeConfiguration(std::span<const std::uint8_t> data);

    // The Timepix3 chip's data-driven stream (data_driven.hpp). Fills `out` from the board's
    // FIFO for the data endpoint; nullopt while it holds nothing. `mid_transfer` as above.
    std::optional<Produced> ReadHits(std::span<std::uint8_t> out, bool mid_transfer);
    DataDrivenCounters StreamCounts() const;
    // What the board sent since the last call (or since it came up), in the order it went.
    StreamTruth TakeStreamTruth();
    // Whether the truth is kept (it is unless switched off: a long run's truth fills memory).
    void KeepStreamTruth(bool keep);
    // From the next line on, the recorded stream stands in for the beam; nullopt: the beam again.
    void SetReplay(std::optional<ReplayStream> replay);

    // One round of the monitor stream: a 10-byte record of every monitor (id, flags, value,
    // time stamp), in id order. A monitor is available while its rail is switched on and it
    // answers; the warning flag marks a value outside its range, the error flag a broken
    // monitor. The time stamp is the board's round counter, 1 for the first round after the
    // board came up. A boot loader has no stream: empty.
    std::vector<std::uint8_t> MonitorRound();

private:
    struct Parts;

    // Back to power-on: states, pins, AXI registers and SPI masters; memories keep their data and
    // monitors keep measuring.
    ControlReply Reset(const SetupPacket& setup);
    // The boot loader's RAM access and start; an application refuses it.
    ControlReply Ram(const SetupPacket& setup, std::span<const std::uint8_t> out);
    // Catches the clock up with real time if it follows it; under the lock.
    void CatchUp();

    FirmwareModel& m_model;
    mutable std::mutex m_mutex;
    std::unique_ptr<Parts> m_parts;
    std::uint32_t m_monitor_rounds = 0;
    bool m_real_time = false;
    std::chrono::steady_clock::time_point m_caught_up;
};

}  // namespace ovex::vboard
