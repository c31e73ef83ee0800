#include "ovex/vboard/firmware_engine.hpp"

#include <cmath>
#include <stdexcept>
#include <string>

#include "axi_bus.hpp"
#include "boot_loader.hpp"
#include "controller_requests.hpp"
#include "gpio_pins.hpp"
#include "i2c_bus.hpp"
#include "item_requests.hpp"
#include "nobe_requests.hpp"
#include "power_rails.hpp"
#include "request_shape.hpp"
#include "spi_buses.hpp"
#include "tpx3_chip.hpp"

namespace ovex::vboard {
namespace {

// The tables of the application a boot loader started: its kind's, with the version of the
// controller firmware that the image carries.
ItemTables ApplicationTables(const Application& application) {
    ItemTables tables = TablesOf(application.kind);
    for (VersionItem& version : tables.versions) {
        if (version.name == "FX3_FW") {
            version.value = application.firmware_version;
        }
    }
    return tables;
}

}  // namespace

struct FirmwareEngine::Parts {
    Parts(ItemTables tables, std::optional<BootLoader> loader)
        : items(std::move(tables), faults),
          controller(items.Tables()),
          spi(items.Tables().board_id == "NOBE"),
          boot_loader(std::move(loader)) {}

    HardwareFaults faults;  // first: the items refer to it
    ItemRequests items;
    GpioPins gpio;
    I2cBus i2c;
    ControllerRequests controller;
    AxiBus axi;
    SpiBuses spi;
    std::optional<BootLoader> boot_loader;  // while the board waits for an application
};

FirmwareEngine::FirmwareEngine(FirmwareModel& model, ItemTables tables,
                               std::optional<BootLoaderMode> boot_loader)
    : m_model(model) {
    std::optional<BootLoader> loader;
    if (boot_loader) {
        loader.emplace(std::move(*boot_loader), model.Identity().bcd_device);
    }
    m_parts = std::make_unique<Parts>(std::move(tables), std::move(loader));
    model.EnableLastErrorRequest(!boot_loader);

    // Each request runs one part's handler under the engine's lock. The application's requests
    // are unknown to the boot loader; the EEPROMs answer both.
    const auto install = [&](std::uint8_t bRequest, auto part, auto handler,
                             bool boot_loader_answers = false) {
        model.SetVendorRequest(bRequest,
                               [this, part, handler, boot_loader_answers](
                                   const SetupPacket& setup, std::span<const std::uint8_t> out) {
                                   std::lock_guard lock(m_mutex);
                                   CatchUp();
                                   if (m_parts->boot_loader && !boot_loader_answers) {
                                       return ControlReply::Stall(kNotSupported);
                                   }
                                   return (((*m_parts).*part).*handler)(setup, out);
                               });
    };
    // The controller's identity: the boot loader's while it runs, the application's after.
    const auto install_identity = [&](std::uint8_t bRequest, auto application, auto loader) {
        model.SetVendorRequest(bRequest,
                               [this, application, loader](const SetupPacket& setup,
                                                           std::span<const std::uint8_t> out) {
                                   std::lock_guard lock(m_mutex);
                                   CatchUp();
                                   if (m_parts->boot_loader) {
                                       return ((*m_parts->boot_loader).*loader)(setup, out);
                                   }
                                   return (m_parts->controller.*application)(setup, out);
                               });
    };
    install(request::kCommand, &Parts::items, &ItemRequests::Command);
    install(request::kVersion, &Parts::items, &ItemRequests::Version);
    install(request::kState, &Parts::items, &ItemRequests::State);
    install(request::kGpio, &Parts::gpio, &GpioPins::Handle);
    install(request::kMonitor, &Parts::items, &ItemRequests::Monitor);
    install(request::kI2c, &Parts::i2c, &I2cBus::Handle);
    install_identity(request::kGetId, &ControllerRequests::GetId, &BootLoader::GetId);
    install(request::kAxi, &Parts::axi, &AxiBus::Access);
    // The stream start also runs the FPGA's data pump that the Timepix2 chip's loader feeds on.
    model.SetVendorRequest(request::kAxiStreamStart,
                           [this](const SetupPacket& setup, std::span<const std::uint8_t> out) {
                               std::lock_guard lock(m_mutex);
                               CatchUp();
                               if (m_parts->boot_loader) {
                                   return ControlReply::Stall(kNotSupported);
                               }
                               ControlReply reply = m_parts->axi.StreamStart(setup, out);
                               if (reply.kind == ControlReply::Kind::kAnswer) {
                                   ItemRequests& items = m_parts->items;
                                   items.Timepix2().StartPump(items.StateValues());
                               }
                               return reply;
                           });
    install(request::kWriteEeprom, &Parts::controller, &ControllerRequests::WriteEeprom, true);
    install(request::kReadEeprom, &Parts::controller, &ControllerRequests::ReadEeprom, true);
    install_identity(request::kGetVersion, &ControllerRequests::GetVersion,
                     &BootLoader::GetVersion);
    install(request::kSpiInit, &Parts::spi, &SpiBuses::Init);
    install(request::kSpiReset, &Parts::spi, &SpiBuses::Reset);
    install(request::kSpiSelfTest, &Parts::spi, &SpiBuses::SelfTest);
    install(request::kSpiStartStop, &Parts::spi, &SpiBuses::StartStop);
    install(request::kSpiStats, &Parts::spi, &SpiBuses::Stats);
    install(request::kSpiData, &Parts::spi, &SpiBuses::Data);
    // The NoBE's requests; the boards without them refuse them (the configuration load aside).
    for (int bRequest = request::kNobeFirst; bRequest <= request::kNobeLast; ++bRequest) {
        model.SetVendorRequest(static_cast<std::uint8_t>(bRequest),
                               [this](const SetupPacket& setup, std::span<const std::uint8_t> out) {
                                   std::lock_guard lock(m_mutex);
                                   CatchUp();
                                   if (m_parts->boot_loader) {
                                       return ControlReply::Stall(kNotSupported);
                                   }
                                   return NobeRequest(m_parts->items, setup, out);
                               });
    }
    model.SetVendorRequest(request::kRam,
                           [this](const SetupPacket& setup, std::span<const std::uint8_t> out) {
                               return Ram(setup, out);
                           });
    model.SetVendorRequest(
        request::kReset,
        [this](const SetupPacket& setup, std::span<const std::uint8_t>) { return Reset(setup); });
}

FirmwareEngine::~FirmwareEngine() = default;

ControlReply FirmwareEngine::Reset(const SetupPacket& setup) {
    std::lock_guard lock(m_mutex);
    CatchUp();
    if (!setup.IsIn() || m_parts->boot_loader) {
        return ControlReply::Stall(kNotSupported);
    }
    m_parts->items.PowerOn();
    m_parts->gpio.PowerOn();
    m_parts->axi.PowerOn();
    m_parts->spi.PowerOn();
    return ControlReply::Answer();
}

ControlReply FirmwareEngine::Ram(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    std::lock_guard lock(m_mutex);
    CatchUp();
    Parts& parts = *m_parts;
    if (!parts.boot_loader) {
        return parts.controller.Ram(setup, out);
    }
    if (!BootLoader::IsStart(setup)) {
        return parts.boot_loader->Ram(setup, out);
    }
    const auto application = parts.boot_loader->Start(BootLoader::Address(setup));
    if (!application) {
        return ControlReply::Stall(kBadArgument);
    }
    // The application starts on a board whose other parts the boot loader never touched: they
    // are at power-on still. What the monitors measure is the hardware's and stays.
    ItemRequests items(ApplicationTables(*application), parts.faults);
    items.KeepMeasurements(parts.items);
    items.KeepFlash(parts.items);
    parts.items = std::move(items);
    parts.controller.Identify(parts.items.Tables());
    parts.boot_loader.reset();
    m_model.EnableLastErrorRequest(true);
    return ControlReply::Answer();
}

void FirmwareEngine::CatchUp() {
    if (m_real_time) {
        const auto now = std::chrono::steady_clock::now();
        m_parts->items.Advance(std::chrono::duration<double>(now - m_caught_up).count());
        m_caught_up = now;
    }
}

void FirmwareEngine::AdvanceTime(std::chrono::duration<double> elapsed) {
    std::lock_guard lock(m_mutex);
    m_real_time = false;
    m_parts->items.Hits().FollowRealTime(false);
    m_parts->items.Advance(elapsed.count());
}

void FirmwareEngine::FollowRealTime() {
    std::lock_guard lock(m_mutex);
    m_real_time = true;
    m_caught_up = std::chrono::steady_clock::now();
    m_parts->items.Hits().FollowRealTime(true);
}

double FirmwareEngine::BoardTime() const {
    std::lock_guard lock(m_mutex);
    return m_parts->items.BoardTime();
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

void FirmwareEngine::FailRail(std::string_view monitor) {
    std::lock_guard lock(m_mutex);
    if (!m_parts->items.MeasuresRail(monitor)) {
        throw std::out_of_range("Monitor '" + std::string(monitor) +
                                "' measures no switched rail on this board.");
    }
    m_parts->faults.failed_rails.emplace(monitor);
}

void FirmwareEngine::BreakMonitor(std::string_view monitor, std::uint32_t word) {
    std::lock_guard lock(m_mutex);
    if (!m_parts->items.HasMonitor(monitor)) {
        throw std::out_of_range("Monitor '" + std::string(monitor) + "' is not on this board.");
    }
    m_parts->faults.broken_monitors[std::string(monitor)] = word;
}

void FirmwareEngine::ClearPowerFaults() {
    std::lock_guard lock(m_mutex);
    m_parts->faults.failed_rails.clear();
    m_parts->faults.broken_monitors.clear();
}

void FirmwareEngine::StickPixel(std::uint32_t pixel, std::uint8_t bits) {
    std::lock_guard lock(m_mutex);
    // A Timepix2 pixel holds the host's whole byte, a Timepix3 pixel six bits.
    const bool timepix2 = m_parts->items.Timepix2().Present();
    if (pixel >= Tpx3Chip::kPixels || (!timepix2 && bits > Tpx3Chip::kPixelBits)) {
        throw std::out_of_range("Pixel " + std::to_string(pixel) + " can't be stuck at " +
                                std::to_string(bits) + ".");
    }
    m_parts->faults.stuck_pixels[pixel] = bits;
}

void FirmwareEngine::ClearChipFaults() {
    std::lock_guard lock(m_mutex);
    m_parts->faults.stuck_pixels.clear();
    m_parts->faults.refused_prc_bypass.reset();
}

void FirmwareEngine::RefusePrcBypass(std::uint32_t word) {
    std::lock_guard lock(m_mutex);
    m_parts->faults.refused_prc_bypass = word;
}

void FirmwareEngine::SlowFrontEndFlash(std::size_t busy_reads) {
    std::lock_guard lock(m_mutex);
    SpiFlash* flash = m_parts->spi.FrontEndFlash();
    if (flash == nullptr) {
        throw std::out_of_range("This board has no front-end flash.");
    }
    flash->SlowDown(busy_reads);
}

std::vector<std::uint8_t> FirmwareEngine::ChipMatrix() const {
    std::lock_guard lock(m_mutex);
    return m_parts->items.ChipMatrix();
}

std::size_t FirmwareEngine::ReadOut(std::span<std::uint8_t> out) {
    std::lock_guard lock(m_mutex);
    return m_parts->items.ReadOut(out);
}

void FirmwareEngine::SetHitModel(const HitModel& model) {
    const bool finite = std::isfinite(model.spot_x) && std::isfinite(model.spot_y) &&
                        std::isfinite(model.spot_sigma) && std::isfinite(model.spot_rate) &&
                        std::isfinite(model.background_rate);
    if (!finite || model.spot_sigma <= 0.0 || model.spot_rate < 0.0 ||
        model.background_rate < 0.0) {
        throw std::invalid_argument(
            "A hit model needs finite, non-negative rates and a spot wider than 0.");
    }
    std::lock_guard lock(m_mutex);
    m_parts->faults.beam = model;
}

void FirmwareEngine::SetTriggerInput(bool high) {
    std::lock_guard lock(m_mutex);
    CatchUp();
    m_parts->items.SetTriggerInput(high);
}

void FirmwareEngine::PulseTriggerInput(std::chrono::duration<double> width) {
    if (!(width.count() >= 0.0) || !std::isfinite(width.count())) {
        throw std::invalid_argument("A pulse lasts a finite time, not negative.");
    }
    std::lock_guard lock(m_mutex);
    CatchUp();
    m_parts->items.SetTriggerInput(true);
    m_real_time = false;
    m_parts->items.Hits().FollowRealTime(false);
    m_parts->items.Advance(width.count());
    m_parts->items.SetTriggerInput(false);
}

std::vector<ReadoutFrame> FirmwareEngine::FrameLog() const {
    std::lock_guard lock(m_mutex);
    const auto& log = m_parts->items.Frames().Log();
    return {log.begin(), log.end()};
}

FrameCounters FirmwareEngine::FrameCounts() const {
    std::lock_guard lock(m_mutex);
    return m_parts->items.Frames().Counters();
}

void FirmwareEngine::InjectFrameFault(FrameFault fault) {
    std::lock_guard lock(m_mutex);
    m_parts->items.Frames().InjectFault(fault);
}

std::optional<Produced> FirmwareEngine::ReadFrame(std::span<std::uint8_t> out, bool mid_transfer) {
    std::lock_guard lock(m_mutex);
    CatchUp();
    ItemRequests& items = m_parts->items;
    if (auto frame = items.Frames().Send(out, mid_transfer)) {
        return frame;
    }
    // The Timepix2 frames wait in the FPGA while its GPIF or clock is off.
    if (!items.Timepix2().DataPathUp(items.StateValues())) {
        return std::nullopt;
    }
    return items.Timepix2().Frames().Send(out, mid_transfer);
}

std::vector<std::uint8_t> FirmwareEngine::Tpx2Matrix() const {
    std::lock_guard lock(m_mutex);
    return m_parts->items.Timepix2().Matrix();
}

std::vector<Tpx2Frame> FirmwareEngine::Tpx2FrameLog() const {
    std::lock_guard lock(m_mutex);
    const auto& log = m_parts->items.Timepix2().Frames().Log();
    return {log.begin(), log.end()};
}

FrameCounters FirmwareEngine::Tpx2FrameCounts() const {
    std::lock_guard lock(m_mutex);
    return m_parts->items.Timepix2().Frames().Counters();
}

void FirmwareEngine::InjectTpx2FrameFault(Tpx2FrameFault fault) {
    std::lock_guard lock(m_mutex);
    m_parts->items.Timepix2().Frames().InjectFault(fault);
}

void FirmwareEngine::TakeConfiguration(std::span<const std::uint8_t> data) {
    std::lock_guard lock(m_mutex);
    CatchUp();
    if (!m_parts->boot_loader) {
        m_parts->items.Timepix2().TakeConfiguration(data);
    }
}

std::optional<Produced> FirmwareEngine::ReadHits(std::span<std::uint8_t> out, bool mid_transfer) {
    std::lock_guard lock(m_mutex);
    CatchUp();
    return m_parts->items.Hits().Send(out, mid_transfer);
}

DataDrivenCounters FirmwareEngine::StreamCounts() const {
    std::lock_guard lock(m_mutex);
    return m_parts->items.Hits().Counters();
}

StreamTruth FirmwareEngine::TakeStreamTruth() {
    std::lock_guard lock(m_mutex);
    return m_parts->items.Hits().TakeTruth();
}

void FirmwareEngine::KeepStreamTruth(bool keep) {
    std::lock_guard lock(m_mutex);
    m_parts->items.Hits().KeepTruth(keep);
}

void FirmwareEngine::SetReplay(std::optional<ReplayStream> replay) {
    auto shared = replay ? std::make_shared<const ReplayStream>(std::move(*replay)) : nullptr;
    std::lock_guard lock(m_mutex);
    m_parts->items.Hits().SetReplay(std::move(shared));
}

std::vector<std::uint8_t> FirmwareEngine::MonitorRound() {
    std::lock_guard lock(m_mutex);
    CatchUp();
    if (m_parts->boot_loader) {
        return {};
    }
    return m_parts->items.MonitorRecords(++m_monitor_rounds);
}

}  // namespace ovex::vboard
