// A board's peripherals through the exported interface: component versions, bias supply,
// temperature control, monitors, EEPROMs and flash memories.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "api_internal.hpp"
#include "support/power_session.hpp"

namespace ovex::sdk {
namespace {

class BoardPeripherals : public testing::PowerSession {};

TEST_F(BoardPeripherals, ComponentVersionsFillWhatCanBeReadAndSkipTheRest) {
    Create();
    std::uint8_t count = 0;
    EXPECT_EQ(ovexsdk_comp_get_ver_count(&m_ctx, &count), OVEXSDK_ERR_NO_DEVICE);
    Release();

    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_comp_get_ver_count(&m_ctx, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 2);

    // A component that doesn't answer keeps the host's element; the rest is filled.
    RefuseAt("version Ovexboard");
    ovexsdk_comp_info infos[3];
    for (auto& info : infos) {
        info = {"host's", "own"};
    }
    count = 3;
    ASSERT_EQ(ovexsdk_comp_get_info(&m_ctx, infos, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 2);
    EXPECT_STREQ(infos[0].name, "FX3_FW");
    EXPECT_STREQ(infos[0].version, "0.24.3-TPX3");
    EXPECT_STREQ(infos[1].name, "host's");
    EXPECT_TRUE(
        Logged("Failed to obtain version string for component 'Ovexboard' - firmware: "
               "failure due to a non-specific system error."));

    count = 1;
    ASSERT_EQ(ovexsdk_comp_get_info(&m_ctx, infos + 1, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 1);
    EXPECT_STREQ(infos[1].version, "0.24.3-TPX3");
    EXPECT_TRUE(
        Logged("Cannot fit all component information structs into the array: provided array of "
               "size 1, got 2 elements"));
    count = 3;
    ASSERT_EQ(ovexsdk_comp_get_info(&m_ctx, infos, &count), OVEXSDK_OK);
    EXPECT_STREQ(infos[1].name, "Ovexboard");
    EXPECT_STREQ(infos[1].version, "2.7.4");
}

TEST_F(BoardPeripherals, BiasAndTemperatureGoToTheirStatesAndMeasureThroughTheirMonitors) {
    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    std::uint8_t count = 0;
    ASSERT_EQ(ovexsdk_bias_get_count(&m_ctx, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 1);
    ovexsdk_bias_info bias{};
    ASSERT_EQ(ovexsdk_bias_get_info(&m_ctx, &bias, &count), OVEXSDK_OK);
    EXPECT_EQ(bias.minimum, -300.0f);
    EXPECT_EQ(bias.maximum, 300.0f);
    ASSERT_EQ(ovexsdk_bias_set_desired(&m_ctx, 0, 50.5f), OVEXSDK_OK);
    EXPECT_EQ(Engine().StateValue("BIAS"), 51);
    float value = 0;
    ASSERT_EQ(ovexsdk_bias_get_desired(&m_ctx, 0, &value), OVEXSDK_OK);
    EXPECT_EQ(value, 51.0f);
    Engine().SetMonitorValue("U_BIAS", 50.75f);
    ASSERT_EQ(ovexsdk_bias_get_actual(&m_ctx, 0, &value), OVEXSDK_OK);
    EXPECT_EQ(value, 50.75f);
    EXPECT_EQ(ovexsdk_bias_set_desired(&m_ctx, 0, 301.0f), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_bias_get_desired(&m_ctx, 1, &value), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Value '1' is not a valid bias controller ID."));

    ASSERT_EQ(ovexsdk_temp_get_count(&m_ctx, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 1);
    ovexsdk_temp_ctrl_info temp{};
    std::uint64_t capacity = 1;
    ASSERT_EQ(ovexsdk_temp_get_info(&m_ctx, &temp, &capacity), OVEXSDK_OK);
    EXPECT_EQ(temp.minimum, 0.0f);
    EXPECT_EQ(temp.maximum, 60.0f);
    EXPECT_EQ(temp.unit, 1u);
    ASSERT_EQ(ovexsdk_temp_set_desired(&m_ctx, 0, 21.5f), OVEXSDK_OK);
    EXPECT_EQ(Engine().StateValue("PELTIER"), 215);
    ASSERT_EQ(ovexsdk_temp_get_desired(&m_ctx, 0, &value), OVEXSDK_OK);
    EXPECT_FLOAT_EQ(value, 21.5f);
    ASSERT_EQ(ovexsdk_temp_get_actual(&m_ctx, 0, &value), OVEXSDK_OK);
    EXPECT_EQ(value, 26.0f);
    EXPECT_EQ(ovexsdk_temp_set_desired(&m_ctx, 0, 61.0f), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(Engine().StateValue("PELTIER"), 215);
    EXPECT_EQ(ovexsdk_temp_get_actual(&m_ctx, 2, &value), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Value '2' is not a valid temperature controller ID."));
}

TEST_F(BoardPeripherals, MonitorsAreListedDescribedAndReadByIndex) {
    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    std::uint32_t count = 0;
    ASSERT_EQ(ovexsdk_mon_get_count(&m_ctx, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 26u);
    std::uint32_t tsens = count;
    for (std::uint32_t index = 0; index < count; ++index) {
        ovexsdk_mon_info info{};
        ASSERT_EQ(ovexsdk_mon_get_info(&m_ctx, index, &info), OVEXSDK_OK);
        EXPECT_EQ(info.type, 2u);
        if (std::strcmp(info.id, "TSENS_TEMP") == 0) {
            tsens = index;
            EXPECT_EQ(info.minimum.f, -40.0f);
            EXPECT_EQ(info.maximum.f, 125.0f);
        }
    }
    ASSERT_LT(tsens, count);
    ovexsdk_mon_value value{};
    ASSERT_EQ(ovexsdk_mon_get_value(&m_ctx, tsens, &value), OVEXSDK_OK);
    EXPECT_EQ(value.f, 26.0f);

    // An index beyond the list ends in the frame's exception barrier.
    ovexsdk_mon_info info{};
    EXPECT_EQ(ovexsdk_mon_get_info(&m_ctx, count, &info), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_mon_get_value(&m_ctx, count, &value), OVEXSDK_ERR_FAILED);

    // Legacy names both ways; a monitor without one keeps its own.
    const char* legacy = nullptr;
    ASSERT_EQ(ovexsdk_mon_idx_to_legacy_id(&m_ctx, static_cast<int>(tsens), &legacy), OVEXSDK_OK);
    EXPECT_STREQ(legacy, "T_SENS");
    int index = -1;
    ASSERT_EQ(ovexsdk_mon_legacy_id_to_idx(&m_ctx, "T_SENS", &index), OVEXSDK_OK);
    EXPECT_EQ(index, static_cast<int>(tsens));
    ASSERT_EQ(ovexsdk_mon_legacy_id_to_idx(&m_ctx, "TPX_DAC_OUT", &index), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_mon_idx_to_legacy_id(&m_ctx, index, &legacy), OVEXSDK_OK);
    EXPECT_STREQ(legacy, "TPX_DAC_OUT");
    EXPECT_EQ(ovexsdk_mon_legacy_id_to_idx(&m_ctx, "T_NOWHERE", &index), OVEXSDK_ERR_FAILED);
}

TEST_F(BoardPeripherals, EepromsAndTheBackendFlashReadWriteAndEraseThroughTheirModules) {
    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    std::uint8_t count = 0;
    ASSERT_EQ(ovexsdk_eeprom_get_count(&m_ctx, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 2);
    ovexsdk_eeprom_info eeprom{};
    ASSERT_EQ(ovexsdk_eeprom_get_info(&m_ctx, 1, &eeprom), OVEXSDK_OK);
    EXPECT_STREQ(eeprom.id, "i2c0-eeprom-security");
    EXPECT_STREQ(eeprom.part_number, "24CS512");
    ASSERT_EQ(eeprom.region_count, 2);
    ovexsdk_eeprom_region region{};
    ASSERT_EQ(ovexsdk_eeprom_get_region_info(&m_ctx, 1, 1, &region), OVEXSDK_OK);
    EXPECT_EQ(region.first_address, 0x0880);
    EXPECT_EQ(region.last_address, 0x08FF);
    EXPECT_EQ(ovexsdk_eeprom_get_region_info(&m_ctx, 1, 2, &region), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Region 2 is not a valid region index."));
    EXPECT_EQ(ovexsdk_eeprom_get_info(&m_ctx, 2, &eeprom), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Value '2' is not a valid EEPROM ID."));
    int legacy = -1;
    ASSERT_EQ(ovexsdk_eeprom_convert_legacy_id_to_idx(&m_ctx, "i2c0-eeprom-security", &legacy),
              OVEXSDK_OK);
    EXPECT_EQ(legacy, 1);

    // Across a page boundary and back; the erase leaves 0xFF.
    std::vector<std::uint8_t> data(300);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<std::uint8_t>(i * 7 + 1);
    }
    std::uint64_t length = data.size();
    ASSERT_EQ(ovexsdk_eeprom_write(&m_ctx, 0, 100, data.data(), &length), OVEXSDK_OK);
    EXPECT_EQ(length, data.size());
    std::vector<std::uint8_t> back(data.size());
    ASSERT_EQ(ovexsdk_eeprom_read(&m_ctx, 0, 100, back.data(), &length), OVEXSDK_OK);
    EXPECT_EQ(back, data);
    length = 10;
    ASSERT_EQ(ovexsdk_eeprom_erase(&m_ctx, 0, 100, &length), OVEXSDK_OK);
    length = back.size();
    ASSERT_EQ(ovexsdk_eeprom_read(&m_ctx, 0, 100, back.data(), &length), OVEXSDK_OK);
    EXPECT_EQ(std::vector<std::uint8_t>(back.begin(), back.begin() + 10),
              std::vector<std::uint8_t>(10, 0xFF));
    EXPECT_EQ(back[10], data[10]);
    // The security area's factory half can't be written or erased.
    length = 4;
    EXPECT_EQ(ovexsdk_eeprom_write(&m_ctx, 1, 0x0800, data.data(), &length), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(length, 0u);
    length = 4;
    EXPECT_EQ(ovexsdk_eeprom_erase(&m_ctx, 1, 0x0800, &length), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("The region containing the address range is read-only."));

    // The backend flash exists behind the backend's power-up.
    ASSERT_EQ(ovexsdk_flash_get_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 0);
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_flash_get_count(&m_ctx, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 1);
    ovexsdk_flash_info flash{};
    ASSERT_EQ(ovexsdk_flash_get_info(&m_ctx, 0, &flash), OVEXSDK_OK);
    EXPECT_STREQ(flash.id, "flash_fpga_be");
    EXPECT_STREQ(flash.part_number, "S25FS128S");
    EXPECT_EQ(flash.first_number, 16u * 1024 * 1024);
    EXPECT_EQ(flash.second_number, 256);
    ASSERT_EQ(flash.region_count, 1);
    ovexsdk_flash_region_info flash_region{};
    ASSERT_EQ(ovexsdk_flash_get_region_info(&m_ctx, 0, 0, &flash_region), OVEXSDK_OK);
    EXPECT_EQ(flash_region.sector_size, 65536u);
    EXPECT_EQ(ovexsdk_flash_get_region_info(&m_ctx, 0, 1, &flash_region), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Flash memory region with index 1 does not exist."));

    const std::uint32_t sector = 3 * 65536;
    std::vector<std::uint8_t> image(65536);
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<std::uint8_t>(i ^ (i >> 8));
    }
    ASSERT_EQ(ovexsdk_flash_erase_sector(&m_ctx, 0, sector), OVEXSDK_OK);
    const ovexsdk_flash_buffer source{image.data(), image.size()};
    const ovexsdk_flash_program_input program{0, sector, &source};
    ASSERT_EQ(ovexsdk_flash_program_sector(&m_ctx, &program), OVEXSDK_OK);
    std::vector<std::uint8_t> read(2500);
    ovexsdk_flash_buffer target{read.data(), 0};
    const ovexsdk_flash_read_input input{0, sector + 1000, read.size()};
    ASSERT_EQ(ovexsdk_flash_read(&m_ctx, &input, &target), OVEXSDK_OK);
    EXPECT_EQ(target.size, read.size());
    EXPECT_EQ(read, std::vector<std::uint8_t>(image.begin() + 1000, image.begin() + 3500));
    const ovexsdk_flash_buffer half{image.data(), 1000};
    const ovexsdk_flash_program_input wrong{0, sector, &half};
    EXPECT_EQ(ovexsdk_flash_program_sector(&m_ctx, &wrong), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_flash_erase_sector(&m_ctx, 1, sector), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Value '1' is not a valid flash controller ID."));
    std::uint8_t flash_index = 9;
    ASSERT_EQ(ovexsdk_flash_legacy_id_to_idx(&m_ctx, "flash_fpga_be", &flash_index), OVEXSDK_OK);
    EXPECT_EQ(flash_index, 0);
    EXPECT_EQ(ovexsdk_flash_legacy_id_to_idx(&m_ctx, "flash_fpga", &flash_index),
              OVEXSDK_ERR_INVALID);
}

// What the monitor callbacks of one monitor received, from the notification threads.
struct MonitorCalls {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<float> values;
    std::vector<std::uint8_t> availability;
    std::string name;
    std::vector<std::uint8_t> flags;

    static void OnValue(const ovexsdk_mon_on_value_changed_args* args, void* param) {
        auto& calls = *static_cast<MonitorCalls*>(param);
        const std::lock_guard lock(calls.mutex);
        calls.values.push_back(args->value.f);
        calls.name = args->info->id;
        calls.flags.assign(args->flags, args->flags + 3);
        calls.changed.notify_all();
    }
    static void OnAvailability(const ovexsdk_mon_on_avail_changed_args* args, void* param) {
        auto& calls = *static_cast<MonitorCalls*>(param);
        const std::lock_guard lock(calls.mutex);
        calls.availability.push_back(args->available);
        calls.changed.notify_all();
    }
    // Waits until `count` values came; the bound only keeps a broken stream from hanging the test.
    bool WaitForValues(std::size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30),
                                [&] { return values.size() >= count; });
    }
};

class BoardMonitorStream : public BoardPeripherals {
protected:
    // A powered Timepix3 board, its monitor stream running.
    void SetUp() override {
        BoardPeripherals::SetUp();
        if (IsSkipped()) {
            return;
        }
        ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    }

    std::uint32_t IndexOf(const char* name) {
        std::uint32_t count = 0;
        EXPECT_EQ(ovexsdk_mon_get_count(&m_ctx, &count), OVEXSDK_OK);
        for (std::uint32_t index = 0; index < count; ++index) {
            ovexsdk_mon_info info{};
            EXPECT_EQ(ovexsdk_mon_get_info(&m_ctx, index, &info), OVEXSDK_OK);
            if (std::strcmp(info.id, name) == 0) {
                return index;
            }
        }
        ADD_FAILURE() << name << " is not listed";
        return count;
    }
};

TEST_F(BoardMonitorStream, CallbacksGetTheBoardsStreamForTheirMonitorOnly) {
    const std::uint32_t tsens = IndexOf("TSENS_TEMP");
    MonitorCalls calls;
    ASSERT_EQ(ovexsdk_mon_set_value_changed_cb(&m_ctx, tsens, &MonitorCalls::OnValue, &calls),
              OVEXSDK_OK);
    ASSERT_EQ(
        ovexsdk_mon_set_avail_changed_cb(&m_ctx, tsens, &MonitorCalls::OnAvailability, &calls),
        OVEXSDK_OK);

    Engine().SetMonitorValue("TSENS_TEMP", 30.5f);
    Board().PushMonitorRound();
    ASSERT_TRUE(calls.WaitForValues(1));
    Engine().SetMonitorValue("TSENS_TEMP", 31.25f);
    Board().PushMonitorRound();
    ASSERT_TRUE(calls.WaitForValues(2));
    ASSERT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);  // the stream stops; no call comes after

    const std::lock_guard lock(calls.mutex);
    EXPECT_EQ(calls.values, (std::vector<float>{30.5f, 31.25f}));
    EXPECT_EQ(calls.name, "TSENS_TEMP");
    EXPECT_EQ(calls.flags, (std::vector<std::uint8_t>{0, 0, 1}));
    EXPECT_EQ(calls.availability, (std::vector<std::uint8_t>{1}));
}

TEST_F(BoardMonitorStream, NoCallbackComesAfterItWasRemoved) {
    MonitorCalls removed;
    MonitorCalls kept;
    const std::uint32_t tsens = IndexOf("TSENS_TEMP");
    ASSERT_EQ(ovexsdk_mon_set_value_changed_cb(&m_ctx, tsens, &MonitorCalls::OnValue, &removed),
              OVEXSDK_OK);
    ASSERT_EQ(
        ovexsdk_mon_set_value_changed_cb(&m_ctx, IndexOf("U_BIAS"), &MonitorCalls::OnValue, &kept),
        OVEXSDK_OK);
    Board().PushMonitorRound();
    ASSERT_TRUE(removed.WaitForValues(1));
    ASSERT_TRUE(kept.WaitForValues(1));

    ASSERT_EQ(ovexsdk_mon_set_value_changed_cb(&m_ctx, tsens, nullptr, nullptr), OVEXSDK_OK);
    Board().PushMonitorRound();
    ASSERT_TRUE(kept.WaitForValues(2));
    // The close waits for every notification of the stream.
    ASSERT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);
    const std::lock_guard lock(removed.mutex);
    EXPECT_EQ(removed.values.size(), 1u);
}

TEST_F(BoardMonitorStream, AnUnpluggedBoardEndsEveryCallWithAnError) {
    MonitorCalls calls;
    const std::uint32_t tsens = IndexOf("TSENS_TEMP");
    ASSERT_EQ(ovexsdk_mon_set_value_changed_cb(&m_ctx, tsens, &MonitorCalls::OnValue, &calls),
              OVEXSDK_OK);
    Board().Usb().Unplug();
    ovexsdk_mon_value value{};
    EXPECT_EQ(ovexsdk_mon_get_value(&m_ctx, tsens, &value), OVEXSDK_ERR_FAILED);
    float volts = 0;
    EXPECT_EQ(ovexsdk_bias_get_actual(&m_ctx, 0, &volts), OVEXSDK_ERR_FAILED);
    std::uint8_t byte = 0;
    std::uint64_t length = 1;
    EXPECT_EQ(ovexsdk_eeprom_read(&m_ctx, 0, 0, &byte, &length), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(length, 0u);
    EXPECT_NE(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
    ovexsdk_dev_close(&m_ctx);
    Release();
}

// A callback that calls the library on its own context: while the host's thread holds the
// context (here: the close, which waits for the notifications) the call is refused at once.
struct CallingBack {
    ovexsdk_dev_ctx* ctx;
    std::uint32_t index;
    MonitorCalls calls;
    std::vector<ovexsdk_err_code> results;

    static void OnValue(const ovexsdk_mon_on_value_changed_args* args, void* param) {
        auto& self = *static_cast<CallingBack*>(param);
        ovexsdk_mon_value value{};
        const auto result = ovexsdk_mon_get_value(self.ctx, self.index, &value);
        {
            const std::lock_guard lock(self.calls.mutex);
            self.results.push_back(result);
        }
        MonitorCalls::OnValue(args, &self.calls);
    }
};

TEST_F(BoardMonitorStream, CallbacksThatCallTheLibraryNeverStallTheClose) {
    CallingBack callback{&m_ctx, IndexOf("TSENS_TEMP"), {}, {}};
    ASSERT_EQ(
        ovexsdk_mon_set_value_changed_cb(&m_ctx, callback.index, &CallingBack::OnValue, &callback),
        OVEXSDK_OK);
    Board().PushMonitorRound();
    ASSERT_TRUE(callback.calls.WaitForValues(1));
    for (int round = 0; round < 5; ++round) {
        Board().PushMonitorRound();
    }
    ASSERT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);
    const std::lock_guard lock(callback.calls.mutex);
    ASSERT_FALSE(callback.results.empty());
    EXPECT_EQ(callback.results.front(), OVEXSDK_OK);
    for (const auto result : callback.results) {
        EXPECT_TRUE(result == OVEXSDK_OK || result == OVEXSDK_ERR_BUSY) << result;
    }
}

}  // namespace
}  // namespace ovex::sdk
