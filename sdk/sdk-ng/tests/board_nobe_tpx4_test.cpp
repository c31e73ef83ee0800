// The NoBE board and the Timepix4 chip board through the exported interface: what each offers
// from the open on and behind each power unit, the NoBE's two FPGAs and frames, and the
// Timepix4 board that opens, powers and is monitored but takes no data.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/chip_session.hpp"

namespace ovex::sdk::testing {
namespace {

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
};

TEST_F(OtherBoards, NobeMonitorsBothFpgasFromTheOpenAndBuildsEachUnitsModulesAtItsPowerUp) {
    ASSERT_EQ(OpenQuiet(vboard::BoardKind::kNobe), OVEXSDK_OK);
    // The monitors run before any power-up; the back end's FPGA is up, the front end's isn't.
    EXPECT_TRUE(Monitor("FPGA_TEMP_0").has_value());
    EXPECT_EQ(Chips(), 0);
    std::uint8_t controllers = 0;
    ASSERT_EQ(ovexsdk_temp_get_count(&m_ctx, &controllers), OVEXSDK_OK);
    EXPECT_EQ(controllers, 2);

    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_EQ(Flashes(), std::vector<std::string>{"flash_fpga_be"});
    EXPECT_EQ(Chips(), 0);
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
    std::uint8_t count = 1;
    ASSERT_EQ(ovexsdk_chip_get_info(&m_ctx, &info, &count), OVEXSDK_OK);
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

TEST_F(OtherBoards, NobeRefusesAnotherChipBehindItsFrontEndNamingItsType) {
    auto tables = vboard::TablesOf(vboard::BoardKind::kNobe);
    for (auto& command : tables.commands) {
        if (command.name == "TPX_CHIP_INFO") {
            command.answer[0] = 3;
        }
    }
    ASSERT_EQ(OpenQuiet(vboard::BoardKind::kNobe, tables), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_NE(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_OK);
    EXPECT_TRUE(m_log.Contains(log::kError, "Unknown/unsupported chip type '3'"));
    EXPECT_EQ(Chips(), 0);
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
    const ovexsdk_trigger_config config{InternalStartShutterDuration, 0.01f};
    EXPECT_EQ(ovexsdk_trigger_configure(&m_ctx, &config), OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Failed to configure trigger - generic: Operation not supported."));
    EXPECT_EQ(ovexsdk_chip_set_mode(&m_ctx, EvCount10Bit), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_acq_start(&m_ctx, nullptr, OVEXSDK_ACQ_PROCESSED, nullptr, nullptr),
              OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Missing acquisition module for selected mode. Is chip and/or "
                               "processing mode selected correctly?"));
    EXPECT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
}

TEST_F(OtherBoards, ChipBoardsRefuseTheOtherGenerationsChip) {
    auto tables = vboard::TablesOf(vboard::BoardKind::kTimepix4Cb);
    for (auto& command : tables.commands) {
        if (command.name == "TPX_CHIP_INFO") {
            command.answer[0] = 2;
        }
    }
    ASSERT_EQ(OpenQuiet(vboard::BoardKind::kTimepix4Cb, tables), OVEXSDK_OK);
    EXPECT_NE(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    EXPECT_TRUE(
        m_log.Contains(log::kError, "Failed to set a device. Unknown/unsupported chip type."));
    EXPECT_EQ(Chips(), 0);
}

}  // namespace
}  // namespace ovex::sdk::testing
