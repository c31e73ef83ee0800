// The NoBE board and the chip boards through the exported interface: what each offers from the
// open on and behind each power unit, the NoBE's two FPGAs and frames, its Timepix2 matrix read
// back short, the Timepix4 board that opens, powers and is monitored but takes no data, a chip
// board whose firmware doesn't list its design, and the chips that the boards refuse.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "context.hpp"
#include "modules/timepix_chip.hpp"
#include "ovex/vboard/data_source.hpp"
#include "support/chip_session.hpp"

namespace ovex::sdk::testing {
namespace {

constexpr std::size_t kHalfMatrix = 32768;  // a Timepix2 matrix's CONF or TRIM half

// The board's data endpoint sending only the first `keep` bytes of each half of the chip's
// matrix that it reads back.
class CutReadBack final : public vboard::IDataSource {
public:
    CutReadBack(vboard::FirmwareEngine& engine, std::size_t keep)
        : m_engine(engine), m_keep(keep) {}

    vboard::Produced Produce(std::span<std::uint8_t> out, vboard::Clock::time_point) override {
        const std::size_t sent = m_engine.ReadOut(out.first(std::min(out.size(), m_keep)));
        if (sent == 0) {
            return {};
        }
        std::vector<std::uint8_t> rest(kHalfMatrix);
        while (m_engine.ReadOut(rest) > 0) {
        }
        return {sent, true};
    }

private:
    vboard::FirmwareEngine& m_engine;
    std::size_t m_keep;
};

// The firmware's versions without the board's design until `listed`: the device reads them at
// its open, the backend's script anew at each power-up.
void ListDesignLate(vboard::FirmwareModel& firmware, std::vector<vboard::VersionItem> versions,
                    const std::atomic<bool>& listed) {
    std::stable_partition(versions.begin(), versions.end(),
                          [](const vboard::VersionItem& item) { return item.name != "Ovexboard"; });
    firmware.SetVendorRequest(
        0x02, [versions, &listed](const vboard::SetupPacket& setup, std::span<const std::uint8_t>) {
            const std::size_t count = versions.size() - (listed ? 0 : 1);
            if (setup.wValue == 0) {
                return vboard::ControlReply::Answer({static_cast<std::uint8_t>(count), 0, 0, 0});
            }
            if (setup.wValue > 2 || setup.wIndex >= count) {
                return vboard::ControlReply::Stall(vboard::kBadIndex);
            }
            const auto& item = versions[setup.wIndex];
            std::vector<std::uint8_t> field(33, 0);  // the text, NUL-padded
            const std::string& text = setup.wValue == 1 ? item.name : item.value;
            std::copy(text.begin(), text.end(), field.begin());
            return vboard::ControlReply::Answer(std::move(field));
        });
}

class OtherBoards : public ChipSession {
protected:
    // The monitor's value by its name; nothing if there is none or it has no value.
    std::optional<float> Monitor(const std::string& name) {
        std::uint32_t count = 0;
        EXPECT_EQ(ovexsdk_mon_get_count(&m_ctx, &count), OVEXSDK_OK);
        for (std::uint32_t index = 0; index < count; ++index) {
            ovexsdk_mon_info info{};
            EXPECT_EQ(ovexsdk_mon_get_info(&m_ctx, index, &info), OVEXSDK_OK);
            ovexsdk_mon_value value{};
            if (name == info.id && ovexsdk_mon_get_value(&m_ctx, index, &value) == OVEXSDK_OK) {
                return value.f;
            }
        }
        return std::nullopt;
    }
    std::uint8_t Chips() {
        std::uint8_t count = 0;
        EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_OK);
        return count;
    }
    std::vector<std::string> Flashes() {
        std::uint8_t count = 0;
        EXPECT_EQ(ovexsdk_flash_get_count(&m_ctx, &count), OVEXSDK_OK);
        std::vector<std::string> ids;
        for (std::uint8_t id = 0; id < count; ++id) {
            ovexsdk_flash_info info{};
            EXPECT_EQ(ovexsdk_flash_get_info(&m_ctx, id, &info), OVEXSDK_OK);
            ids.emplace_back(info.id);
        }
        return ids;
    }
    std::vector<ovexsdk_trigger_mode> Triggers() {
        ovexsdk_trigger_mode modes[8]{};
        std::uint64_t count = 8;
        EXPECT_EQ(ovexsdk_trigger_list(&m_ctx, modes, &count), OVEXSDK_OK);
        return {modes, modes + count};
    }
    // Configures a single internal shutter; answers the result.
    ovexsdk_err_code ConfigureTrigger() {
        const ovexsdk_trigger_config config{InternalStartShutterDuration, 0.01f};
        return ovexsdk_trigger_configure(&m_ctx, &config);
    }
    ITimepixChip& Chip() {
        auto* chip = record::Get(&m_ctx).Device()->GetModule<ITimepixChip>();
        EXPECT_NE(chip, nullptr);
        return *chip;
    }
};

TEST_F(OtherBoards, NobeMonitorsBothFpgasFromTheOpenAndBuildsEachUnitsModulesAtItsPowerUp) {
    ASSERT_EQ(OpenQuiet(vboard::BoardKind::kNobe), OVEXSDK_OK);
    // The monitors run before any power-up; the back end's FPGA is up, the front end's isn't.
    EXPECT_TRUE(Monitor("FPGA_TEMP_0").has_value());
    EXPECT_EQ(Chips(), 0);
    EXPECT_TRUE(Flashes().empty());
    EXPECT_EQ(ConfigureTrigger(), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError, "Backend module is not available."));
    ovexsdk_temp_ctrl_info controllers[3]{};
    std::uint64_t count = 3;
    ASSERT_EQ(ovexsdk_temp_get_info(&m_ctx, controllers, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(controllers[0].unit, 1U);
    EXPECT_EQ(controllers[1].unit, 2U);

    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_EQ(Flashes(), std::vector<std::string>{"flash_fpga_be"});
    EXPECT_EQ(Chips(), 0);
    // The second controller has no monitor: what it achieves is its set point.
    float desired = 0.0F;
    float actual = -1.0F;
    ASSERT_EQ(ovexsdk_temp_get_desired(&m_ctx, 1, &desired), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_temp_get_actual(&m_ctx, 1, &actual), OVEXSDK_OK);
    EXPECT_NE(desired, 0.0F);
    EXPECT_EQ(actual, desired);
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_OK);
    EXPECT_EQ(Chips(), 1);
    EXPECT_EQ(Flashes(), (std::vector<std::string>{"flash_fpga_be", "flash_fpga_fe"}));
    EXPECT_EQ(Triggers(), (std::vector<ovexsdk_trigger_mode>{InternalStartShutterDuration,
                                                             InternalStartContinuous,
                                                             ExternalStartExternalStopEdge}));
    const auto front_fpga = Monitor("FPGA_TEMP_1");
    ASSERT_TRUE(front_fpga.has_value());
    EXPECT_GT(*front_fpga, 0.0F);
    ovexsdk_chip_info info{};
    std::uint8_t chips = 1;
    ASSERT_EQ(ovexsdk_chip_get_info(&m_ctx, &info, &chips), OVEXSDK_OK);
    EXPECT_EQ(std::string(info.chip_id), "D02-W0041");
    EXPECT_EQ(info.width, 256U);

    // Modules stay over a power cycle, and the next power-up adds none.
    ASSERT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(Chips(), 1);
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(Chips(), 1);
    EXPECT_EQ(Flashes().size(), 2U);
    EXPECT_TRUE(Logged("Device frontend already created, skipping."));
}

TEST_F(OtherBoards, NobeTakesTimepix2FramesAsTheBoardReadThemOut) {
    ASSERT_EQ(OpenQuiet(vboard::BoardKind::kNobe), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    vboard::HitModel beam;
    beam.spot_rate = 1e7;
    beam.background_rate = 500;
    Engine().SetHitModel(beam);
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, EvCount14Bit), OVEXSDK_OK);
    const ovexsdk_trigger_config config{InternalStartShutterDuration, 0.005f};
    ASSERT_EQ(ovexsdk_trigger_configure(&m_ctx, &config), OVEXSDK_OK);
    struct Host {
        std::vector<std::uint16_t> pixels;
    } host;
    const auto on_frames = [](ovexsdk_dev_ctx* ctx, void* user) {
        const ovexsdk_acq_tpx2_frame* frames = nullptr;
        std::uint64_t count = 0;
        if (ovexsdk_acq_get_tpx2_frames(ctx, &frames, &count) == OVEXSDK_OK && count == 1) {
            static_cast<Host*>(user)->pixels.assign(frames[0].pixels,
                                                    frames[0].pixels + frames[0].count);
        }
    };
    ASSERT_EQ(ovexsdk_acq_start(&m_ctx, on_frames, OVEXSDK_ACQ_PROCESSED, nullptr, &host),
              OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
    Engine().AdvanceTime(std::chrono::duration<double>(0.005));
    // The readout ends with its single frame: the wait returns once the callback has run.
    ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    const auto board = Engine().Tpx2FrameLog();
    ASSERT_EQ(board.size(), 1U);
    EXPECT_EQ(board[0].depth, vboard::Tpx2Depth::k14Bit);
    EXPECT_TRUE(host.pixels == board[0].pixels);
}

TEST_F(OtherBoards, NobeReadsBothMatrixHalvesEvenIfTheFirstComesShort) {
    ASSERT_EQ(OpenQuiet(vboard::BoardKind::kNobe), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    Board().Firmware().AttachSource(vboard::kDataEndpoint,
                                    std::make_shared<CutReadBack>(Engine(), 100));
    const auto bypasses = Engine().Invocations("TPX_PRC_BYPASS").size();
    std::vector<std::uint8_t> out(3, 1);
    EXPECT_EQ(Chip().ReadMatrix(out), std::errc::no_message_available);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(Engine().Invocations("TPX_READ_MATRIX"),
              (std::vector<std::vector<std::uint8_t>>{{1}, {2}}));
    const auto bypass = Engine().Invocations("TPX_PRC_BYPASS");
    EXPECT_EQ(std::vector(bypass.begin() + static_cast<std::ptrdiff_t>(bypasses), bypass.end()),
              (std::vector<std::vector<std::uint8_t>>{{1}, {0}}));
    for (const char* half : {"CONF", "TRIM"}) {
        EXPECT_TRUE(m_log.Contains(log::kError, std::string("Failed to read ") + half +
                                                    " matrix - got 100 elements instead of "
                                                    "32768."));
    }
}

TEST_F(OtherBoards, Timepix4BoardOpensPowersAndIsMonitoredButTakesNoData) {
    ASSERT_EQ(OpenQuiet(vboard::BoardKind::kTimepix4Cb), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    const auto digital = Monitor("TPX_CURRENT_DIGITAL");
    ASSERT_TRUE(digital.has_value());
    EXPECT_GT(*digital, 0.0F);
    EXPECT_EQ(Chips(), 1);
    ovexsdk_chip_info info{};
    std::uint8_t count = 1;
    ASSERT_EQ(ovexsdk_chip_get_info(&m_ctx, &info, &count), OVEXSDK_OK);
    EXPECT_EQ(info.width, 0U);
    EXPECT_EQ(info.height, 0U);
    EXPECT_EQ(info.modes[0], 0);

    EXPECT_TRUE(Triggers().empty());
    EXPECT_EQ(ConfigureTrigger(), OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Failed to configure trigger - generic: Operation not supported."));
    EXPECT_EQ(ovexsdk_chip_set_mode(&m_ctx, EvCount10Bit), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_acq_start(&m_ctx, nullptr, OVEXSDK_ACQ_PROCESSED, nullptr, nullptr),
              OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Missing acquisition module for selected mode. Is chip and/or "
                               "processing mode selected correctly?"));

    // Modules stay over a power cycle and the next power-up adds none. The frontend's arrival
    // is information, the chip's a detail.
    EXPECT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(Chips(), 1);
    EXPECT_EQ(Flashes(), std::vector<std::string>{"flash_fpga_be"});
    EXPECT_TRUE(
        m_log.Contains(log::kDebug, "Device backend power-up callback already invoked, skipping."));
    EXPECT_TRUE(m_log.Contains(log::kDebug, "Device frontend already created, skipping."));
    EXPECT_EQ(
        m_log.Count(log::kInfo, "Module 'Timepix4 chip board' added to the device (index 0)."), 1);
    EXPECT_EQ(m_log.Count(log::kDebug, "Module 'Timepix4 chip' added to the device (index 0)."), 1);
}

TEST_F(OtherBoards, ChipBoardWithoutItsDesignInTheVersionsKeepsOneFlashAndNoBackend) {
    vboard::VirtualBoard::Settings settings;
    settings.kind = vboard::BoardKind::kTimepix2Cb;
    settings.stream.total_bytes = 0;
    AddBoard(settings);
    std::atomic<bool> listed{false};
    ListDesignLate(Board().Firmware(), vboard::TablesOf(settings.kind).versions, listed);
    Create();
    ASSERT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_OK);
    listed = true;
    for (int cycle = 0; cycle < 2; ++cycle) {
        ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
        EXPECT_EQ(Flashes(), std::vector<std::string>{"flash_fpga_be"}) << "cycle " << cycle;
        ASSERT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
    }
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(ConfigureTrigger(), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError, "Backend module is not available."));
    // The frontend and the chip work without it.
    EXPECT_EQ(Chips(), 1);
    EXPECT_EQ(ovexsdk_chip_set_mode(&m_ctx, EvCount14Bit), OVEXSDK_OK);
    ovexsdk_chip_info info{};
    std::uint8_t count = 1;
    ASSERT_EQ(ovexsdk_chip_get_info(&m_ctx, &info, &count), OVEXSDK_OK);
    EXPECT_EQ(std::string(info.chip_id), "E07-W0025");
}

struct Refusal {
    const char* name;
    vboard::BoardKind kind;
    std::vector<std::uint8_t> chip_info;  // the board's answer to TPX_CHIP_INFO
    std::string line;                     // the device's refusal, an error
    std::string reason;                   // the refusal's error code, as a message
};

void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << refusal.name;
}

class RefusedChip : public OtherBoards, public ::testing::WithParamInterface<Refusal> {};

// The frontend's power-up fails with the device's refusal. Its unit stays on, so that the next
// open runs the device's step at once: that open fails too, naming the power unit. The chip
// boards word their open apart from the NoBE.
TEST_P(RefusedChip, FrontendPowerUpFailsAndSoDoesTheNextOpen) {
    const Refusal& refusal = GetParam();
    const bool nobe = refusal.kind == vboard::BoardKind::kNobe;
    auto tables = vboard::TablesOf(refusal.kind);
    for (auto& command : tables.commands) {
        if (command.name == "TPX_CHIP_INFO") {
            command.answer = refusal.chip_info;
        }
    }
    ASSERT_EQ(OpenQuiet(refusal.kind, tables), OVEXSDK_OK);
    EXPECT_TRUE(m_log.Contains(nobe ? log::kInfo : log::kDebug,
                               "Device items loaded: " + std::to_string(tables.commands.size()) +
                                   " commands, " + std::to_string(tables.states.size()) +
                                   " states, " + std::to_string(tables.monitors.size()) +
                                   " monitors, " + std::to_string(tables.versions.size()) +
                                   " versions."));
    EXPECT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError, refusal.line));
    EXPECT_TRUE(m_log.Contains(log::kError, std::string("Failed to power up unit: 1 ('") +
                                                (nobe ? "TP2FE" : "frontend") +
                                                "'): - generic: " + refusal.reason + "."));
    EXPECT_EQ(Chips(), 0);

    ASSERT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(
        log::kError, std::string("Failed to initialize power module") + (nobe ? " - " : ": ") +
                         "Post power-up callback failed: " + refusal.reason));
}

const std::string kUnsupported = "Failed to set a device. Unknown/unsupported chip type.";
const std::string kNotSupported = "Operation not supported";

INSTANTIATE_TEST_SUITE_P(
    Boards, RefusedChip,
    ::testing::Values(Refusal{"Timepix3BehindTimepix2ChipBoard",
                              vboard::BoardKind::kTimepix2Cb,
                              {3, 1, 0, 1, 0, 1, 0, 0},
                              kUnsupported,
                              kNotSupported},
                      Refusal{"Timepix2BehindTimepix4ChipBoard",
                              vboard::BoardKind::kTimepix4Cb,
                              {2, 1, 0, 1, 0, 1, 0, 0},
                              kUnsupported,
                              kNotSupported},
                      // Six bytes hold no whole record.
                      Refusal{"ChipRecordCutShort",
                              vboard::BoardKind::kTimepix2Cb,
                              {2, 1, 0, 1, 0, 1},
                              "Failed to build a device after power up. Cannot fetch a chip info.",
                              "Invalid argument"},
                      Refusal{"Timepix3BehindNobe",
                              vboard::BoardKind::kNobe,
                              {3, 1, 0, 1, 0, 1, 0, 0},
                              "Unknown/unsupported chip type '3'",
                              kNotSupported},
                      // A type outside 1 to 4 is no type at all.
                      Refusal{"UnknownChipBehindNobe",
                              vboard::BoardKind::kNobe,
                              {7, 1, 0, 1, 0, 1, 0, 0},
                              "Unknown/unsupported chip type '0'",
                              kNotSupported}),
    [](const ::testing::TestParamInfo<Refusal>& info) { return info.param.name; });

TEST_F(OtherBoards, NobeCloseWithoutItsMonitorControlIsRefused) {
    vboard::VirtualBoard::Settings settings;
    settings.kind = vboard::BoardKind::kNobe;
    AddBoard(settings);
    Board().Firmware().StallNext({0x05, 0, std::nullopt});  // the monitors' count
    Create();
    ASSERT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kWarning, "Pointer to monitor control object is not valid."));
    EXPECT_TRUE(
        m_log.Contains(log::kError, "Device epilogue failed: - generic: Invalid argument."));
}

}  // namespace
}  // namespace ovex::sdk::testing
