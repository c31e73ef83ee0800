#include "modules/tpx2_chip.hpp"

#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <thread>
#include <utility>
#include <variant>

#include "modules/chip_readback.hpp"
#include "modules/chip_support.hpp"
#include "modules/tpx2_matrix.hpp"
#include "ovex/log/log.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vendor_cmd/board_io.hpp"
#include "ovex/vendor_cmd/nobe.hpp"

namespace ovex::sdk {
namespace {

constexpr std::uint8_t kEgressEndpoint = 0x01;
constexpr std::uint8_t kIngressEndpoint = 0x81;
// The data pump and the configuration load answer within this time.
constexpr double kPumpTimeout = 10.0;
constexpr double kBlockWriteTimeout = 1.0;
// The board takes this long to move a block between the endpoint and the chip.
constexpr std::chrono::milliseconds kMatrixSettle{10};
constexpr std::uint8_t kWriteMatrixCode = 3;

struct HalfMatrix {
    std::uint8_t id;  // the byte of TPX_READ_MATRIX
    const char* name;
};
constexpr HalfMatrix kConf{1, "CONF"};
constexpr HalfMatrix kTrim{2, "TRIM"};

ModuleRequirements ChipItems(Commands* commands, States* states) {
    OVEX_CHECK(commands != nullptr, "BUG: Device commands are unavailable.");
    ModuleRequirements requirements;
    requirements.commands = {{commands,
                              {"TPX_INIT", "TPX_DEFAULT_DAC", "TPX_READ_MATRIX", "TPX_WRITE_MATRIX",
                               "TPX_PRC_BYPASS", "TPX_OPMODE"}}};
    requirements.states = {{states, {"TPX_CHIP_ID", "TPX_SHUT_DUR"}}};
    return requirements;
}

}  // namespace

Timepix2::Timepix2(Commands* commands, States* states, Monitors*, usb::device::UsbDevice* device)
    : ITimepixChip(ChipItems(commands, states), false),
      m_dacs(commands, states),
      m_threshold(m_dacs, nullptr, kUnknownChipId),
      m_chip_id(kUnknownChipId),
      m_mask(TPX2_CHIP_NPIXELS, 0),
      m_device(device) {}

Commands& Timepix2::BoardCommands() const {
    return CheckedCommands(GetCommands());
}

States& Timepix2::BoardStates() const {
    return CheckedStates(GetStates());
}

std::error_code Timepix2::GetPolarity(std::uint8_t& polarity) {
    polarity = 2;
    return {};
}

std::optional<ChipInfo> Timepix2::GetInfo() {
    ChipInfo info;
    if (const auto ec = ReadChipRecord(BoardCommands(), info)) {
        OVEX_LOG_EC(log::kError, "Failed to obtain chip information from the device - %s: %s.", ec);
        return std::nullopt;
    }
    info.pixel_count = TPX2_CHIP_NPIXELS;
    info.width = tpx2::kMatrixSide;
    info.height = tpx2::kMatrixSide;
    info.config_depth_class = 0;
    info.modes = {EvCount10Bit, EvCount14Bit, IToT10Bit, IToT14Bit};
    info.polarities = {2, 1};
    return info;
}

std::error_code Timepix2::Reset() {
    if (const auto ec = BoardCommands().Invoke("TPX_INIT")) {
        LogChipStepFailure(ec, "Failed to reset the Timepix2 chip", m_chip_id);
        return ec;
    }
    if (const auto ec = BoardCommands().Invoke("TPX_DEFAULT_DAC")) {
        LogChipStepFailure(ec, "Failed to initialize DACs of Timepix2 chip", m_chip_id);
        return ec;
    }
    return {};
}

std::vector<std::uint8_t> Timepix2::GetDefaultMatrix() {
    return std::vector<std::uint8_t>(TPX2_CHIP_NPIXELS, tpx2::kDefaultPixel);
}

std::error_code Timepix2::SetPrcBypass(bool enable) {
    const std::uint8_t byte = enable ? 1 : 0;
    const auto ec =
        BoardCommands().Invoke("TPX_PRC_BYPASS", std::span<const std::uint8_t>(&byte, 1));
    if (ec) {
        OVEX_LOG_EC(log::kError, "Failed to %s PRC bypass - %s: %s.", ec,
                    enable ? "enable" : "disable");
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "PRC bypass configuration failure");
    }
    return ec;
}

// A failure after the bypass was enabled leaves it on: the next transfer sets it again.
std::error_code Timepix2::WriteMatrix(std::span<const std::uint8_t> data) {
    if (data.size() != TPX2_CHIP_NPIXELS) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    auto* endpoint = FindBulkEndpoint(m_device, kEgressEndpoint);
    if (endpoint == nullptr) {
        return std::make_error_code(std::errc::no_such_device_or_address);
    }
    if (const auto ec = usb::vendor_cmd::axi_stream_start(*m_device, kPumpTimeout)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to start AXI data pump");
        return ec;
    }
    if (const auto ec = usb::vendor_cmd::nobe::ConfMatrixWrite(*m_device, kPumpTimeout)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec,
                    "Failed to enable configuration load to device");
        return ec;
    }
    if (const auto ec = SetPrcBypass(true)) {
        return ec;
    }
    if (const auto ec = endpoint->ClearHalt()) {
        OVEX_LOG_EC(log::kWarning, "Failed to reset the data egress endpoint - %s: %s.", ec);
    }
    // The host form is what the board takes; the block becomes the stored matrix.
    std::vector<std::uint8_t> block(data.begin(), data.end());
    if (const auto ec = endpoint->Write(block, kBlockWriteTimeout)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec,
                    "Failed to write configuration data to the device");
        return ec;
    }
    std::this_thread::sleep_for(kMatrixSettle);
    if (const auto ec = BoardCommands().Invoke(
            "TPX_WRITE_MATRIX", std::span<const std::uint8_t>(&kWriteMatrixCode, 1))) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Configuration matrix write failed");
        return ec;
    }
    std::this_thread::sleep_for(kMatrixSettle);
    m_matrix = std::move(block);
    return SetPrcBypass(false);
}

std::error_code Timepix2::ReadHalfMatrix(std::uint8_t id, const char* name,
                                         std::vector<std::uint8_t>& data) {
    auto* endpoint = FindBulkEndpoint(m_device, kIngressEndpoint);
    if (endpoint == nullptr) {
        return std::make_error_code(std::errc::no_such_device_or_address);
    }
    const auto producer = std::make_shared<CfgDataProducer>(tpx2::kHalfMatrixSize);
    const auto trigger = [&]() -> std::error_code {
        const auto ec =
            BoardCommands().Invoke("TPX_READ_MATRIX", std::span<const std::uint8_t>(&id, 1));
        if (ec) {
            const auto what = fmt::format("Failed to trigger {} matrix readout", name);
            OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, what.c_str());
        }
        return ec;
    };
    if (const auto ec = ReadBackChip(
            {*endpoint, producer, fmt::format("Failed to start the {} matrix data readout", name),
             trigger, [&](auto deadline) { return producer->WaitDelivered(deadline); }})) {
        return ec;
    }
    data = producer->TakeData();
    if (data.size() != tpx2::kHalfMatrixSize) {
        OVEX_LOG_ERROR("Failed to read %s matrix - got %zu elements instead of %d.", name,
                       data.size(), static_cast<int>(tpx2::kHalfMatrixSize));
    }
    return {};
}

std::error_code Timepix2::ReadMatrix(std::vector<std::uint8_t>& out) {
    if (const auto ec = SetPrcBypass(true)) {
        return ec;
    }
    std::vector<std::uint8_t> conf;
    std::vector<std::uint8_t> trim;
    if (const auto ec = ReadHalfMatrix(kConf.id, kConf.name, conf)) {
        return ec;
    }
    if (const auto ec = ReadHalfMatrix(kTrim.id, kTrim.name, trim)) {
        return ec;
    }
    if (const auto ec = SetPrcBypass(false)) {
        return ec;
    }
    // The merge needs both halves whole.
    if (conf.size() != tpx2::kHalfMatrixSize || trim.size() != tpx2::kHalfMatrixSize) {
        out.clear();
        return std::make_error_code(std::errc::no_message_available);
    }
    out.resize(TPX2_CHIP_NPIXELS);
    tpx2::MergeConfTrim(conf, trim, out);
    return {};
}

std::error_code Timepix2::SetMask(std::span<const std::uint8_t> mask) {
    std::vector<std::uint8_t> merged;
    if (const auto ec =
            MergeUserMask(mask, TPX2_CHIP_NPIXELS, tpx2::kMaskBit, m_mask, m_matrix, merged)) {
        return ec;
    }
    return WriteMatrix(merged);
}

std::error_code Timepix2::GetMask(std::vector<std::uint8_t>& mask) {
    mask = m_mask;
    return {};
}

std::error_code Timepix2::DigitalTest(std::vector<std::uint32_t>& bad) {
    bad.clear();
    const std::vector<std::uint8_t> expected = GetDefaultMatrix();
    if (const auto ec = WriteMatrix(expected)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to load default configuration matrix");
        return ec;
    }
    std::vector<std::uint8_t> readback;
    if (const auto ec = ReadMatrix(readback)) {
        return ec;
    }
    for (std::size_t i = 0; i < TPX2_CHIP_NPIXELS; ++i) {
        if (expected[i] != readback[i]) {
            bad.push_back(static_cast<std::uint32_t>(i));
        }
    }
    const std::string id = GetChipId();
    LogDigitalTest(id, TPX2_CHIP_NPIXELS, bad.size());
    return {};
}

std::error_code Timepix2::CreateThresholdControl(const configuration::ConfigLoader* config) {
    m_threshold = Tpx2ThresholdCtlr(m_dacs, config, GetChipId());
    return {};
}

std::error_code Timepix2::SetPolarity(std::uint8_t) {
    return std::make_error_code(std::errc::not_supported);
}

std::string Timepix2::GetChipId() {
    return ReadChipId(BoardStates(), m_chip_id);
}

std::error_code Timepix2::SetMode(ovexsdk_chip_mode mode) {
    std::uint8_t byte = 0;
    switch (mode) {
        case EvCount8Bit:
        case EvCount10Bit:
            byte = 6;
            break;
        case EvCount14Bit:
            byte = 7;
            break;
        case IToT10Bit:
            byte = 10;
            break;
        case IToT14Bit:
            byte = 11;
            break;
        default:
            OVEX_LOG_ERROR("Uknown operational mode: %d", static_cast<int>(mode));
            return std::make_error_code(std::errc::not_supported);
    }
    return SendOperationMode(BoardCommands(), mode, byte, "Failed to configure operation mode",
                             m_mode);
}

}  // namespace ovex::sdk
