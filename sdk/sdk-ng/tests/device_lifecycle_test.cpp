// Open, close and power units of a device made of scripted modules, through the exported calls.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "context.hpp"
#include "ovexsdk.h"
#include "support/fake_device.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

constexpr int kError = ovex::log::kError;
constexpr int kWarning = ovex::log::kWarning;
constexpr int kInfo = ovex::log::kInfo;

const std::error_code kIoError = std::make_error_code(std::errc::io_error);

class DeviceLifecycle : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(ovexsdk_ctx_create(&m_record, "usb:ix:0"), OVEXSDK_OK);
        m_script.units = {Unit("backend"), Unit("frontend")};
        m_log.Clear();
    }
    void TearDown() override { EXPECT_EQ(ovexsdk_ctx_release(&m_record), OVEXSDK_OK); }

    void Attach() {
        record::Get(&m_record).Device() = std::make_unique<FakeDevice>(m_script);
        m_log.Clear();
    }

    std::vector<CapturedLine> Logged() { return m_log.Messages(); }

    ovexsdk_dev_ctx m_record{};
    DeviceScript m_script;
    LogCapture m_log;
};

TEST_F(DeviceLifecycle, OpenWithoutBoardIsNoDevice) {
    EXPECT_EQ(ovexsdk_dev_open(&m_record), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_TRUE(m_log.Contains(kError, "USB device unavailable."));
    bool open = true;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_record, &open), OVEXSDK_OK);
    EXPECT_FALSE(open);
}

TEST_F(DeviceLifecycle, FunctionsThatNeedADeviceNameIt) {
    bool flag = true;
    std::uint8_t count = 0;
    ovexsdk_enum_info info{};
    ovexsdk_dev_unit_info units[2]{};
    EXPECT_EQ(ovexsdk_dev_close(&m_record), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_get_info(&m_record, &info), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_get_unit_count(&m_record, &count), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_get_unit_info(&m_record, units, &count), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_is_unit_powered(&m_record, 0, &flag), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_record, 0), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_power_down_unit(&m_record, 0), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_power_up(&m_record), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_power_down(&m_record), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_dev_is_powered(&m_record, &flag), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_FALSE(flag) << "the flag is cleared before the device is looked for";
    const auto lines = Logged();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         CapturedLine{kError, "Device pointer 'device' is invalid."}),
              10);
}

TEST_F(DeviceLifecycle, NullOutputPointersComeBeforeTheDevice) {
    std::uint8_t count = 0;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_record, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_dev_get_info(&m_record, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_dev_get_unit_count(&m_record, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_dev_get_unit_info(&m_record, nullptr, &count), OVEXSDK_ERR_INVALID);
    ovexsdk_dev_unit_info units[1]{};
    EXPECT_EQ(ovexsdk_dev_get_unit_info(&m_record, units, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_dev_is_unit_powered(&m_record, 0, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_dev_is_powered(&m_record, nullptr), OVEXSDK_ERR_INVALID);
    const std::vector<CapturedLine> expected{
        {kError, "Parameter pointer 'is_open' is invalid."},
        {kError, "Parameter pointer 'properties' is invalid."},
        {kError, "Parameter pointer 'count' is invalid."},
        {kError, "Parameter pointer 'unit_infos' is invalid."},
        {kError, "Parameter pointer 'count' is invalid."},
        {kError, "Parameter pointer 'is_powered' is invalid."},
        {kError, "Parameter pointer 'is_powered' is invalid."},
    };
    auto lines = Logged();
    std::erase_if(lines, [](const CapturedLine& l) { return l.verbosity == ovex::log::kDebug; });
    EXPECT_EQ(lines, expected);
}

TEST_F(DeviceLifecycle, AcquisitionCallsRefuseNullPointersAndNeedADevice) {
    ovexsdk_acq_tpx3_acq_toa_tot toa_tot{};
    ovexsdk_acq_tpx3_itot_fragment itot{};
    ovexsdk_acq_tpx3_evcount_fragment events{};
    ovexsdk_tpx3_acq_itot_evcount_bins bins{};
    const ovexsdk_acq_tpx3_itot_evcount* records = nullptr;
    const ovexsdk_acq_raw_data* raw = nullptr;
    std::uint64_t count = 0;
    const ovexsdk_trigger_config trigger{InternalStartShutterDuration, 0.1f};
    ovexsdk_extsync_option option = OVEXSDK_EXTSYNC_TRIGGER_OUT_EDGE;
    ovexsdk_trigger_mode modes[8]{};
    ovexsdk_extsync_option options[32]{};
    const auto on_data = [](ovexsdk_dev_ctx*, void*) {};

    // A null context, or a null place for the answer.
    for (ovexsdk_dev_ctx* ctx : {static_cast<ovexsdk_dev_ctx*>(nullptr), &m_record}) {
        EXPECT_EQ(ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_evcount_packets(ctx, nullptr, &count),
                  OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_evcount_packets(ctx, &records, nullptr),
                  OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_fragment(ctx, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_acq_get_tpx3_evcount_fragment(ctx, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_evcount_bins(ctx, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_acq_get_raw_data(ctx, nullptr, &count), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_acq_get_raw_data(ctx, &raw, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_trigger_configure(ctx, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_trigger_list(ctx, modes, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_extsync_list(ctx, options, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_extsync_configure(ctx, nullptr, 1), OVEXSDK_ERR_INVALID);
    }
    for (const auto result :
         {ovexsdk_acq_start(nullptr, on_data, OVEXSDK_ACQ_PROCESSED, nullptr, nullptr),
          ovexsdk_acq_abort(nullptr), ovexsdk_acq_await_end(nullptr), ovexsdk_trigger_now(nullptr),
          ovexsdk_acq_select_processing(nullptr, SortByToa),
          ovexsdk_acq_get_tpx3_toa_tot_packets(nullptr, &toa_tot)}) {
        EXPECT_EQ(result, OVEXSDK_ERR_INVALID);
    }

    // A context whose board isn't open: every call that needs the board says so, before it
    // looks at the rest; the getters have no result to give.
    m_log.Clear();
    count = 8;
    for (const auto result :
         {ovexsdk_acq_start(&m_record, nullptr, OVEXSDK_ACQ_PROCESSED, nullptr, nullptr),
          ovexsdk_acq_abort(&m_record), ovexsdk_acq_await_end(&m_record),
          ovexsdk_trigger_configure(&m_record, &trigger), ovexsdk_trigger_now(&m_record),
          ovexsdk_trigger_list(&m_record, modes, &count),
          ovexsdk_extsync_configure(&m_record, &option, 1)}) {
        EXPECT_EQ(result, OVEXSDK_ERR_NO_DEVICE);
    }
    const auto lines = Logged();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         CapturedLine{kError, "Device pointer 'device' is invalid."}),
              7);
    for (const auto result : {ovexsdk_acq_get_tpx3_toa_tot_packets(&m_record, &toa_tot),
                              ovexsdk_acq_get_tpx3_itot_fragment(&m_record, &itot),
                              ovexsdk_acq_get_tpx3_evcount_fragment(&m_record, &events),
                              ovexsdk_acq_get_tpx3_itot_evcount_bins(&m_record, &bins)}) {
        EXPECT_EQ(result, OVEXSDK_ERR_FAILED);
    }
}

TEST_F(DeviceLifecycle, SecondOpenResumesTheExistingDeviceAndFindsItConnected) {
    Attach();
    ASSERT_EQ(ovexsdk_dev_open(&m_record), OVEXSDK_OK);
    EXPECT_EQ(m_script.connection.open_calls, 1);
    EXPECT_EQ(m_script.load_items_calls, 1);
    EXPECT_TRUE(m_log.Contains(kInfo, "Open successful, connected to the device."));
    EXPECT_TRUE(m_log.Contains(ovex::log::kDebug,
                               "Device is using the 'Fake USB link' as a connection module."));

    m_log.Clear();
    EXPECT_EQ(ovexsdk_dev_open(&m_record), OVEXSDK_ERR_BUSY);
    auto lines = Logged();
    std::erase_if(lines, [](const CapturedLine& l) { return l.verbosity == ovex::log::kDebug; });
    EXPECT_EQ(lines, (std::vector<CapturedLine>{
                         {kWarning, "There is already a device, device discovery skipped."},
                         {kWarning, "Device is already connected."}}));
    EXPECT_EQ(m_script.connection.open_calls, 1);
}

TEST_F(DeviceLifecycle, OpenFailuresNameTheStepAndKeepTheDevice) {
    struct Case {
        std::error_code ConnectionScript::*connection_error;
        std::error_code DeviceScript::*device_error;
        const char* message;
    };
    const Case cases[] = {
        {&ConnectionScript::is_open_error, nullptr,
         "Failed to determine the device connection state: - generic: Input/output error."},
        {&ConnectionScript::open_error, nullptr,
         "Failed to connect to the device: - generic: Input/output error."},
        {nullptr, &DeviceScript::load_items_error,
         "Failed to load device items: - generic: Input/output error."},
        {nullptr, &DeviceScript::prologue_error,
         "Device prologue failed: - generic: Input/output error."},
    };
    for (const auto& c : cases) {
        m_script = DeviceScript{};
        if (c.connection_error) {
            m_script.connection.*c.connection_error = kIoError;
        } else {
            m_script.*c.device_error = kIoError;
        }
        Attach();
        EXPECT_EQ(ovexsdk_dev_open(&m_record), OVEXSDK_ERR_FAILED) << c.message;
        EXPECT_TRUE(m_log.Contains(kError, c.message)) << c.message;
        EXPECT_TRUE(record::Get(&m_record).Device()) << "the device stays for a second open";
    }
}

TEST_F(DeviceLifecycle, OpenWithoutConnectionModule) {
    m_script.with_connection = false;
    Attach();
    EXPECT_EQ(ovexsdk_dev_open(&m_record), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(kError, "Device doesn't have connection management module."));
    bool open = false;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_record, &open), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_dev_close(&m_record), OVEXSDK_ERR_FAILED);
}

TEST_F(DeviceLifecycle, CloseDestroysTheDeviceAfterEpilogueAndDisconnect) {
    bool destroyed = false;
    m_script.destroyed = &destroyed;
    Attach();
    ASSERT_EQ(ovexsdk_dev_open(&m_record), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_dev_close(&m_record), OVEXSDK_OK);
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(m_script.epilogue_calls, 1);
    EXPECT_EQ(m_script.connection.close_calls, 1);
    EXPECT_EQ(ovexsdk_dev_close(&m_record), OVEXSDK_ERR_NO_DEVICE);
}

TEST_F(DeviceLifecycle, FailedEpilogueOrDisconnectKeepsTheDevice) {
    m_script.epilogue_error = std::make_error_code(std::errc::invalid_argument);
    Attach();
    EXPECT_EQ(ovexsdk_dev_close(&m_record), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(kError, "Device epilogue failed: - generic: Invalid argument."));
    EXPECT_EQ(m_script.connection.close_calls, 0);

    m_script.epilogue_error = {};
    m_script.connection.close_error = kIoError;
    EXPECT_EQ(ovexsdk_dev_close(&m_record), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(
        m_log.Contains(kError, "Failed to disconnect the device: - generic: Input/output error."));
    EXPECT_TRUE(record::Get(&m_record).Device());
}

TEST_F(DeviceLifecycle, ReleaseWithAnOpenDeviceDestroysIt) {
    bool destroyed = false;
    m_script.destroyed = &destroyed;
    Attach();
    ASSERT_EQ(ovexsdk_dev_open(&m_record), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_ctx_release(&m_record), OVEXSDK_OK);
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(m_script.connection.close_calls, 0) << "destruction ends the device, not Close";
    ASSERT_EQ(ovexsdk_ctx_create(&m_record, "usb:ix:0"), OVEXSDK_OK);
}

TEST_F(DeviceLifecycle, UnitCountAndInfoFollowTheArrayRule) {
    m_script.units = {Unit("backend"), Unit(std::string(70, 'x')), Unit("third")};
    Attach();
    std::uint8_t count = 0;
    ASSERT_EQ(ovexsdk_dev_get_unit_count(&m_record, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 3);

    ovexsdk_dev_unit_info infos[3];
    std::memset(infos, 0x7F, sizeof infos);
    count = 2;
    ASSERT_EQ(ovexsdk_dev_get_unit_info(&m_record, infos, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(infos[0].index, 0);
    EXPECT_STREQ(infos[0].name, "backend");
    EXPECT_EQ(infos[1].index, 1);
    EXPECT_EQ(std::string(infos[1].name), std::string(63, 'x'));
    EXPECT_EQ(infos[2].index, 0x7F) << "nothing beyond the capacity is written";
    EXPECT_TRUE(m_log.Contains(kWarning,
                               "Cannot fit all threshold information structs into the array: "
                               "provided array of size 2, got 3 elements"));

    count = 0;
    EXPECT_EQ(ovexsdk_dev_get_unit_info(&m_record, infos, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 0);
}

// A device whose items didn't load has no power units: nothing is already so.
TEST_F(DeviceLifecycle, DeviceWithoutUnitsCantCountOrSwitchThem) {
    m_script.units.clear();
    Attach();
    std::uint8_t count = 9;
    EXPECT_EQ(ovexsdk_dev_get_unit_count(&m_record, &count), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_dev_power_up(&m_record), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_dev_power_down(&m_record), OVEXSDK_ERR_FAILED);
    const auto lines = Logged();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         CapturedLine{kError, "Device does not have a power control module."}),
              3);
    bool powered = true;
    EXPECT_EQ(ovexsdk_dev_is_powered(&m_record, &powered), OVEXSDK_OK);
    EXPECT_FALSE(powered);
}

TEST_F(DeviceLifecycle, UnitPowerUpAndDownWithTheirWordsAndCodes) {
    Attach();
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_record, 1), OVEXSDK_OK);
    EXPECT_TRUE(m_script.units[1].powered);
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_record, 1), OVEXSDK_ERR_BUSY);
    EXPECT_EQ(ovexsdk_dev_power_down_unit(&m_record, 1), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_dev_power_down_unit(&m_record, 1), OVEXSDK_ERR_UNAVAILABLE);
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_record, 2), OVEXSDK_ERR_FAILED);
    bool powered = true;
    EXPECT_EQ(ovexsdk_dev_is_unit_powered(&m_record, 7, &powered), OVEXSDK_ERR_FAILED);

    auto lines = Logged();
    std::erase_if(lines, [](const CapturedLine& l) { return l.verbosity == ovex::log::kDebug; });
    EXPECT_EQ(lines, (std::vector<CapturedLine>{
                         {kInfo, "Unit 1 ('frontend') successfully powered up."},
                         {kWarning, "Unit 1 ('frontend') is already powered."},
                         {kInfo, "Unit 1 ('frontend') successfully powered down."},
                         {kWarning, "Unit 1 ('frontend') is already powered down."},
                         {kError, "Value '2' is not a valid power controller ID."},
                         {kError, "Value '7' is not a valid power controller ID."},
                     }));
}

TEST_F(DeviceLifecycle, UnitFailuresReportTheUnitAndTheCause) {
    m_script.units[0].is_powered_error = kIoError;
    m_script.units[1].switch_error = kIoError;
    Attach();
    bool powered = true;
    EXPECT_EQ(ovexsdk_dev_is_unit_powered(&m_record, 0, &powered), OVEXSDK_ERR_FAILED);
    EXPECT_FALSE(powered);
    EXPECT_TRUE(m_log.Contains(
        kError, "Failed to read status of unit 0 ('backend'): - generic: Input/output error."));
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_record, 1), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(
        kError, "Failed to power up unit: 1 ('frontend'): - generic: Input/output error."));
    m_script.units[1].powered = true;
    EXPECT_EQ(ovexsdk_dev_power_down_unit(&m_record, 1), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(
        kError, "Failed to power down unit: 1 ('frontend'): - generic: Input/output error."));
}

TEST_F(DeviceLifecycle, PowerUpCountsUnitsAlreadyUpAndPowersTheRestInOrder) {
    m_script.units = {Unit("a", true), Unit("b"), Unit("c")};
    Attach();
    EXPECT_EQ(ovexsdk_dev_power_up(&m_record), OVEXSDK_OK);
    EXPECT_TRUE(m_script.units[1].powered && m_script.units[2].powered);
    EXPECT_TRUE(m_log.Contains(kInfo, "Device successfully powered up."));
    EXPECT_EQ(ovexsdk_dev_power_up(&m_record), OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(kWarning, "Device is already fully powered up."));

    m_log.Clear();
    EXPECT_EQ(ovexsdk_dev_power_down(&m_record), OVEXSDK_OK);
    auto lines = Logged();
    std::erase_if(lines, [](const CapturedLine& l) { return l.verbosity != kInfo; });
    EXPECT_EQ(lines, (std::vector<CapturedLine>{{kInfo, "Unit 2 ('c') successfully powered down."},
                                                {kInfo, "Unit 1 ('b') successfully powered down."},
                                                {kInfo, "Unit 0 ('a') successfully powered down."},
                                                {kInfo, "Device successfully powered down."}}));
    EXPECT_EQ(ovexsdk_dev_power_down(&m_record), OVEXSDK_ERR_UNAVAILABLE);
    EXPECT_TRUE(m_log.Contains(kWarning, "Device is already fully powered down."));
}

TEST_F(DeviceLifecycle, PowerUpStopsAtTheFirstRealFailureAndLeavesEarlierUnitsUp) {
    m_script.units = {Unit("a"), Unit("b"), Unit("c")};
    m_script.units[1].switch_error = kIoError;
    Attach();
    EXPECT_EQ(ovexsdk_dev_power_up(&m_record), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_script.units[0].powered);
    EXPECT_EQ(m_script.units[2].switches, 0);
    EXPECT_EQ(m_script.units[2].queries, 0);
}

TEST_F(DeviceLifecycle, IsPoweredStopsAtTheFirstUnitDown) {
    m_script.units = {Unit("a", true), Unit("b"), Unit("c")};
    Attach();
    bool powered = true;
    EXPECT_EQ(ovexsdk_dev_is_powered(&m_record, &powered), OVEXSDK_OK);
    EXPECT_FALSE(powered);
    EXPECT_EQ(m_script.units[2].queries, 0) << "units behind the first one down aren't asked";
    for (auto& unit : m_script.units) {
        unit.powered = true;
    }
    EXPECT_EQ(ovexsdk_dev_is_powered(&m_record, &powered), OVEXSDK_OK);
    EXPECT_TRUE(powered);
    m_script.units[1].is_powered_error = kIoError;
    EXPECT_EQ(ovexsdk_dev_is_powered(&m_record, &powered), OVEXSDK_ERR_FAILED);
    EXPECT_FALSE(powered);
}

TEST_F(DeviceLifecycle, DeviceInfoComesFromThePropertiesModule) {
    Attach();
    ovexsdk_enum_info info;
    std::memset(&info, 0x55, sizeof info);
    EXPECT_EQ(ovexsdk_dev_get_info(&m_record, &info), OVEXSDK_ERR_UNAVAILABLE);
    EXPECT_TRUE(m_log.Contains(kError, "Device has no USB properties."));

    auto& device = *record::Get(&m_record).Device();
    device.AddModule<UsbDeviceProperties>(std::make_unique<FakeProperties>(
        usb::device::DeviceInfo{"maker", "Timepix3 readout", "1.0", "ABCD1234", "1.4.7"},
        std::error_code{}));
    ASSERT_EQ(ovexsdk_dev_get_info(&m_record, &info), OVEXSDK_OK);
    EXPECT_STREQ(info.serial_number, "ABCD1234");
    EXPECT_STREQ(info.product, "Timepix3 readout");
    EXPECT_STREQ(info.connection_string, "usb:sn:ABCD1234");
    EXPECT_STREQ(info.instance_path, "1.4.7");
    EXPECT_EQ(info.product[sizeof info.product - 1], 0) << "fields are zero-filled";
}

TEST_F(DeviceLifecycle, DeviceInfoReadFailure) {
    Attach();
    record::Get(&m_record).Device()->AddModule<UsbDeviceProperties>(
        std::make_unique<FakeProperties>(usb::device::DeviceInfo{}, kIoError));
    ovexsdk_enum_info info{};
    EXPECT_EQ(ovexsdk_dev_get_info(&m_record, &info), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(
        kError, "Failed to obtain device USB properties: generic: Input/output error"));
}

}  // namespace
}  // namespace ovex::sdk::testing
