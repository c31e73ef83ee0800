#include "modules/tpx3_chip.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <new>
#include <variant>

#include "modules/chip_readback.hpp"
#include "modules/chip_support.hpp"
#include "modules/tpx3_matrix.hpp"
#include "modules/tpx3_thld_ctrl.hpp"
#include "ovex/log/log.hpp"
#include "ovex/usb/data_producer.hpp"
#include "ovex/usb/usb_device.hpp"

namespace ovex::sdk {
namespace {

constexpr std::uint8_t kDataEndpoint = 0x81;
constexpr std::size_t kDoubleColumns = 128;
constexpr std::size_t kDoubleColumnSize = tpx3::kPackedSize / kDoubleColumns;
constexpr std::uint8_t kDefaultPixel = 0x10;  // unmasked, trim 8, test bit off

ModuleRequirements ChipItems(Commands* commands, States* states) {
    OVEX_CHECK(commands != nullptr, "BUG: Device commands are unavailable.");
    OVEX_CHECK(states != nullptr, "BUG: Device states are unavailable.");
    ModuleRequirements requirements;
    requirements.commands = {
        {commands,
         {"TPX_INIT", "TPX_ALIGN_CLK", "TPX_DEFAULT_DAC", "TPX_RESET_SEQ", "TPX_LOAD_PXCONF",
          "TPX_READ_PXCONF", "TPX_OPMODE", "TPX_CHIP_INFO"}}};
    requirements.states = {{states, {"TPX_CHAN_EN", "TPX_CHIP_POLARITY", "TPX_CHIP_ID"}}};
    return requirements;
}

// Lends the one buffer that the whole read-back fills, once: the transfer then finds no buffer
// for a second pass and ends.
class ReadbackProducer final : public usb::device::IUsbDataProducer {
public:
    ReadbackProducer() : m_buffer(tpx3::kReadbackSize) {}

    usb::device::XferBuffer Acquire(std::uint32_t) override {
        if (m_finished.exchange(true)) {
            return {};
        }
        return {m_buffer.data(), static_cast<std::uint32_t>(m_buffer.size()), 0};
    }
    void Deliver(const usb::device::XferBuffer& buffer) override {
        OVEX_LOG_DEBUG("Configuration data received: %p, %d bytes.",
                       static_cast<void*>(buffer.buffer), static_cast<int>(buffer.transferred));
        if (buffer.transferred < tpx3::kReadbackSize) {
            OVEX_LOG_ERROR("Configuration data incomplete.");
        }
        {
            const std::lock_guard lock(m_mutex);
            m_received = buffer.transferred;
        }
        m_delivered.notify_all();
    }
    void Release(const usb::device::XferBuffer&) override {}

    // Only a whole read-back ends the wait early: a transfer that times out on a silent board
    // delivers too, and the wait must still end as a timeout then, whichever comes first.
    bool WaitComplete(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock lock(m_mutex);
        return m_delivered.wait_until(lock, deadline,
                                      [this] { return m_received == tpx3::kReadbackSize; });
    }
    // Valid once the transfer has been collected.
    std::span<const std::uint8_t> Received() const { return {m_buffer.data(), m_received}; }

private:
    std::vector<std::uint8_t> m_buffer;
    std::atomic<bool> m_finished{false};
    std::mutex m_mutex;
    std::condition_variable m_delivered;
    std::size_t m_received = 0;
};

}  // namespace

Timepix3::Timepix3(Commands* commands, States* states, Monitors*, usb::device::UsbDevice* device)
    : ITimepixChip(ChipItems(commands, states), false),
      m_dacs(states),
      m_chip_id(kUnknownChipId),
      m_mask(tpx3::kPixelCount, 0),
      m_device(device) {
    m_threshold = std::make_unique<Tpx3ThresholdCtlr>(m_dacs, nullptr, m_chip_id);
}

Commands& Timepix3::BoardCommands() const {
    return CheckedCommands(GetCommands());
}

States& Timepix3::BoardStates() const {
    return CheckedStates(GetStates());
}

std::error_code Timepix3::GetPolarity(std::uint8_t& polarity) {
    int value = 0;
    const auto ec = BoardStates().Get("TPX_CHIP_POLARITY", value);
    if (!ec) {
        polarity = value == 0 ? 1 : 2;
    }
    return ec;
}

std::optional<ChipInfo> Timepix3::GetInfo() {
    ChipInfo info;
    if (const auto ec = ReadChipRecord(BoardCommands(), info)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to read the chip information");
        return std::nullopt;
    }
    info.pixel_count = tpx3::kPixelCount;
    info.width = tpx3::kMatrixSide;
    info.height = tpx3::kMatrixSide;
    info.config_depth_class = 1;
    info.modes = {ToAToTDD, ToAToTFBZS, IToTEvCountFBZS};
    info.polarities = {1, 2};
    return info;
}

std::error_code Timepix3::Reset() {
    if (const auto ec = BoardCommands().Invoke("TPX_INIT")) {
        LogChipStepFailure(ec, "Failed to reset the Timepix3 chip", m_chip_id);
        return ec;
    }
    // All eight data channels on.
    if (const auto ec = BoardStates().Set("TPX_CHAN_EN", 255)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to enable chip data channels");
        return ec;
    }
    if (const auto ec = BoardCommands().Invoke("TPX_ALIGN_CLK")) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to align chip clock");
        return ec;
    }
    if (const auto ec = BoardCommands().Invoke("TPX_DEFAULT_DAC")) {
        LogChipStepFailure(ec, "Failed to initialize DACs of Timepix3 chip", m_chip_id);
        return ec;
    }
    if (const auto ec = BoardCommands().Invoke("TPX_RESET_SEQ")) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Chip sequential reset failed");
        return ec;
    }
    return {};
}

std::vector<std::uint8_t> Timepix3::GetDefaultMatrix() {
    return std::vector<std::uint8_t>(tpx3::kPixelCount, kDefaultPixel);
}

std::error_code Timepix3::WriteMatrix(std::span<const std::uint8_t> data) {
    if (data.size() != tpx3::kPixelCount && data.size() != tpx3::kPackedSize) {
        OVEX_LOG_ERROR("Provided configuration matrix has incorrect size (%zu)", data.size());
        return std::make_error_code(std::errc::invalid_argument);
    }
    const std::vector<std::uint8_t> stream = tpx3::MakeDeviceStream(data);

    // Four zero bytes restart the chip's column index.
    constexpr std::array<std::uint8_t, 4> kRestart{};
    if (const auto ec =
            BoardCommands().Invoke("TPX_LOAD_PXCONF", std::span<const std::uint8_t>(kRestart))) {
        OVEX_LOG_EC(log::kError, "Failed to write reset configuration column index - %s: %s", ec);
        return ec;
    }
    std::error_code result;
    const std::span<const std::uint8_t> columns(stream);
    for (std::size_t i = 0; i < kDoubleColumns; ++i) {
        result = BoardCommands().Invoke("TPX_LOAD_PXCONF",
                                        columns.subspan(i * kDoubleColumnSize, kDoubleColumnSize));
        if (result) {
            OVEX_LOG_EC(log::kError,
                        "Failed to write configuration data at double column %d - %s: %s", result,
                        static_cast<int>(2 * i));
            break;
        }
    }

    // Kept for the mask, also when the chip took only part of it.
    if (data.size() == tpx3::kPackedSize) {
        m_matrix.resize(tpx3::kPixelCount);
        tpx3::Unpack(data, m_matrix);
    } else {
        m_matrix.assign(data.begin(), data.end());
    }
    return result;
}

std::error_code Timepix3::ReadMatrix(std::vector<std::uint8_t>& out) {
    auto* endpoint = FindBulkEndpoint(m_device, kDataEndpoint);
    if (endpoint == nullptr) {
        return std::make_error_code(std::errc::no_such_device);
    }
    const auto producer = std::make_shared<ReadbackProducer>();
    const auto trigger = [&]() -> std::error_code {
        const auto ec = BoardCommands().Invoke("TPX_READ_PXCONF");
        if (ec) {
            OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec,
                        "Failed to trigger configuration matrix readout");
        }
        return ec;
    };
    if (const auto ec = ReadBackChip(
            {*endpoint, producer, "Failed to start the configuration matrix data readout", trigger,
             [&](auto deadline) { return producer->WaitComplete(deadline); }})) {
        return ec;
    }
    const auto received = producer->Received();
    if (received.size() != tpx3::kReadbackSize) {
        OVEX_LOG_ERROR("Failed to read configuration matrix - got %zu elements instead of %zu.",
                       received.size(), tpx3::kReadbackSize);
    }
    out.assign(received.begin(), received.end());
    return {};
}

std::error_code Timepix3::SetMask(std::span<const std::uint8_t> mask) {
    std::vector<std::uint8_t> merged;
    if (const auto ec = MergeUserMask(mask, tpx3::kPixelCount, 0, m_mask, m_matrix, merged)) {
        return ec;
    }
    return WriteMatrix(merged);
}

std::error_code Timepix3::GetMask(std::vector<std::uint8_t>& mask) {
    mask = m_mask;
    return {};
}

std::error_code Timepix3::DigitalTest(std::vector<std::uint32_t>& bad) {
    const std::vector<std::uint8_t> expected = GetDefaultMatrix();
    if (const auto ec = WriteMatrix(expected)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to load default configuration matrix");
        return ec;
    }
    std::vector<std::uint8_t> readback;
    if (const auto ec = ReadMatrix(readback)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to read back configuration matrix");
        return ec;
    }
    const std::vector<std::uint8_t> decoded = tpx3::DecodeReadback(readback);
    bad.clear();
    for (std::size_t i = 0; i < tpx3::kPixelCount; ++i) {
        if (((expected[i] ^ decoded[i]) & tpx3::kPixelBits) != 0) {
            bad.push_back(static_cast<std::uint32_t>(i));
        }
    }
    const std::string id = GetChipId();
    LogDigitalTest(id, tpx3::kPixelCount, bad.size());
    return {};
}

std::error_code Timepix3::CreateThresholdControl(const configuration::ConfigLoader* config) {
    try {
        m_threshold = std::make_unique<Tpx3ThresholdCtlr>(m_dacs, config, GetChipId());
    } catch (const std::bad_alloc&) {
        OVEX_LOG_ERROR("Failed to create the threshold controller - allocation failed.");
        return std::make_error_code(std::errc::not_enough_memory);
    }
    return {};
}

std::error_code Timepix3::SetPolarity(std::uint8_t polarity) {
    if (polarity != 1 && polarity != 2) {
        OVEX_LOG_ERROR("Unsupported polarity: %d", polarity);
        return std::make_error_code(std::errc::not_supported);
    }
    return BoardStates().Set("TPX_CHIP_POLARITY", polarity == 1 ? 0 : 1);
}

std::string Timepix3::GetChipId() {
    return ReadChipId(BoardStates(), m_chip_id);
}

std::error_code Timepix3::SetMode(ovexsdk_chip_mode mode) {
    std::uint8_t byte = 0;
    switch (mode) {
        case ToAToTDD:
            byte = 1;
            break;
        case ToAToTFBZS:
            byte = 0;
            break;
        case IToTEvCountFBZS:
            byte = 2;
            break;
        default:
            OVEX_LOG_ERROR("Unsupported operational mode: %d", static_cast<int>(mode));
            return std::make_error_code(std::errc::not_supported);
    }
    return SendOperationMode(BoardCommands(), mode, byte, "Failed to configure chip operation mode",
                             m_mode);
}

}  // namespace ovex::sdk
