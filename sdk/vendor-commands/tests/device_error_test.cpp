#include "ovex/vendor_cmd/device_error.hpp"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "log_capture.hpp"

namespace ovex::usb::vendor_cmd::error {
namespace {

using ovex::testing::LogCapture;

// Every generic condition that some device category maps to.
constexpr std::errc kMappedConditions[] = {
    std::errc::io_error,  std::errc::invalid_argument, std::errc::device_or_resource_busy,
    std::errc::timed_out, std::errc::not_supported,
};

// The code equals `expected` and none of the other mapped conditions.
void ExpectOnlyEquivalentTo(const std::error_code& code, std::optional<std::errc> expected) {
    for (const std::errc condition : kMappedConditions) {
        EXPECT_EQ(code == condition, expected == condition)
            << code.category().name() << " " << code.value() << " vs "
            << std::make_error_code(condition).message();
    }
}

TEST(DeviceErrorTranslation, ZeroWordAndAxiSuccessResponsesAreSuccess) {
    LogCapture log;
    EXPECT_FALSE(TranslateDeviceError(0));
    EXPECT_FALSE(TranslateDeviceError(0x02000000));
    EXPECT_FALSE(TranslateDeviceError(0x02000001));
    EXPECT_TRUE(log.Lines().empty());
}

TEST(DeviceErrorTranslation, SourceByteSelectsCategoryAndItsCodeBits) {
    LogCapture log;
    const struct {
        std::uint32_t word;
        const std::error_category& category;
        int value;
    } table[] = {
        {0x00000045, system::Category(), 69},
        {0x00001234, system::Category(), 0x34},  // bits 8 to 23 are not part of the code
        {0x0100001F, i2c::Category(), 15},
        {0x02000002, axi::Category(), 2},
        {0x020000FF, axi::Category(), 3},
        {0x03010191, xil::Category(), 401},
        {0x05000004, power::Category(), 2},
        {0x05000003, power::Category(), 1},  // bit 0 is not part of the code
        {0x06000050, tpx::Category(), 80},
        {0x06ABCD45, tpx::Category(), 69},
    };
    for (const auto& row : table) {
        const std::error_code code = TranslateDeviceError(row.word);
        EXPECT_EQ(&code.category(), &row.category) << std::hex << row.word;
        EXPECT_EQ(code.value(), row.value) << std::hex << row.word;
    }
    EXPECT_TRUE(log.Lines().empty());
}

TEST(DeviceErrorTranslation, EdgeWordsGiveTheirTexts) {
    const std::error_code slave = TranslateDeviceError(0x02000002);
    EXPECT_EQ(slave.message(), "slave error");
    EXPECT_EQ(slave, std::errc::io_error);
    EXPECT_EQ(TranslateDeviceError(0x0100001F).message(), "unknown");
    EXPECT_EQ(TranslateDeviceError(0x05000004).message(), "output current limit is active");
    EXPECT_EQ(TranslateDeviceError(0x06000050).message(), "unknown(80)");
}

TEST(DeviceErrorTranslation, FlashSourceIsAProtocolErrorWithOneWarning) {
    LogCapture log;
    const std::error_code code = TranslateDeviceError(0x04000007);
    EXPECT_EQ(code, std::make_error_code(std::errc::protocol_error));
    const auto lines = log.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].verbosity, log::kWarning);
    EXPECT_EQ(lines[0].message,
              "Translation of device errors from the flash memory category not implemented yet");
}

TEST(DeviceErrorTranslation, UnknownSourceIsAProtocolErrorWithOneBugLine) {
    for (const auto& [word, text] : std::vector<std::pair<std::uint32_t, std::string>>{
             {0x07000000, "BUG: Processing of device error category '7' not implemented"},
             {0xFF000001, "BUG: Processing of device error category '255' not implemented"}}) {
        LogCapture log;
        EXPECT_EQ(TranslateDeviceError(word), std::make_error_code(std::errc::protocol_error));
        const auto lines = log.Lines();
        ASSERT_EQ(lines.size(), 1u) << text;
        EXPECT_EQ(lines[0].verbosity, log::kError);
        EXPECT_EQ(lines[0].message, text);
    }
}

TEST(DeviceErrorCategories, NamesAndSingletons) {
    const std::pair<const std::error_category&, const char*> table[] = {
        {system::Category(), "firmware"}, {i2c::Category(), "i2c"},
        {axi::Category(), "axi"},         {xil::Category(), "xilinx"},
        {power::Category(), "power"},     {tpx::Category(), "timepix"},
    };
    std::set<const std::error_category*> distinct;
    for (const auto& [category, name] : table) {
        EXPECT_STREQ(category.name(), name);
        distinct.insert(&category);
        // The default condition stays in the category itself.
        EXPECT_EQ(category.default_error_condition(3), std::error_condition(3, category));
    }
    EXPECT_EQ(distinct.size(), 6u);
    EXPECT_EQ(&system::Category(), &TranslateDeviceError(0x00000001).category());
    EXPECT_EQ(&tpx::Category(), &TranslateDeviceError(0x06000001).category());
}

TEST(DeviceErrorCategories, AxiTextsAndEquivalence) {
    const auto& category = axi::Category();
    EXPECT_EQ(category.message(0), "normal access success");
    EXPECT_EQ(category.message(1), "exclusive access success");
    EXPECT_EQ(category.message(2), "slave error");
    EXPECT_EQ(category.message(3), "decode error");
    EXPECT_EQ(category.message(4), "unknown");
    EXPECT_EQ(category.message(-1), "unknown");
    ExpectOnlyEquivalentTo({1, category}, std::nullopt);
    ExpectOnlyEquivalentTo({2, category}, std::errc::io_error);
    ExpectOnlyEquivalentTo({3, category}, std::errc::io_error);
    ExpectOnlyEquivalentTo({4, category}, std::nullopt);
}

TEST(DeviceErrorCategories, I2cTextsAndEquivalence) {
    const auto& category = i2c::Category();
    EXPECT_EQ(category.message(0), "slave NACK-ed the zeroth byte of the preamble");
    EXPECT_EQ(category.message(7), "slave NACK-ed the seventh byte of the preamble");
    EXPECT_EQ(category.message(8), "slave sent a NACK during the data phase of a transfer");
    EXPECT_EQ(category.message(14), "overflow of buffer during receive operation");
    EXPECT_EQ(category.message(15), "unknown");
    for (const int value : {0, 8, 14, 15}) {
        ExpectOnlyEquivalentTo({value, category}, std::errc::io_error);
    }
}

TEST(DeviceErrorCategories, PowerTextsAndEquivalence) {
    const auto& category = power::Category();
    EXPECT_EQ(category.message(0), "unknown");
    EXPECT_EQ(category.message(1),
              " Output voltage has fallen below 0.35-V level during operation or output didn't "
              "reach 0.35-V level in 1 ms from enable.");
    EXPECT_EQ(category.message(2), "output current limit is active");
    EXPECT_EQ(category.message(3), "unknown");
    for (const int value : {0, 1, 2, 3}) {
        ExpectOnlyEquivalentTo({value, category}, std::errc::io_error);
    }
}

TEST(DeviceErrorCategories, ChipTextsAndEquivalence) {
    const auto& category = tpx::Category();
    const struct {
        int value;
        const char* text;
        std::optional<std::errc> condition;
    } table[] = {
        {0, "chip not ready", std::errc::io_error},
        {1, "clock not aligned", std::errc::io_error},
        {2, "chip is busy", std::errc::device_or_resource_busy},
        {3, "operation failed", std::errc::io_error},
        {4, "data channel failure", std::errc::io_error},
        {5, "data overflow", std::errc::io_error},
        {6, "unknown(6)", std::nullopt},
        {69, "operation timed out", std::nullopt},
        {255, "unknown(255)", std::nullopt},
    };
    for (const auto& row : table) {
        EXPECT_EQ(category.message(row.value), row.text);
        ExpectOnlyEquivalentTo({row.value, category}, row.condition);
    }
}

TEST(DeviceErrorCategories, FirmwareCodesMapToTheirConditions) {
    std::map<int, std::errc> listed;
    for (const int value : {2,  3,  4,  5,  6,  8,  9,  12,  14,  15,  19,  21,  22,  24, 28,
                            64, 71, 75, 76, 77, 80, 96, 102, 103, 104, 107, 114, 115, 121}) {
        listed[value] = std::errc::invalid_argument;
    }
    listed[32] = listed[124] = std::errc::device_or_resource_busy;
    listed[69] = std::errc::timed_out;
    listed[70] = listed[255] = std::errc::not_supported;
    // Every byte value: the listed ones map to their condition, all others to none.
    for (int value = 0; value <= 255; ++value) {
        const auto found = listed.find(value);
        ExpectOnlyEquivalentTo({value, system::Category()},
                               found != listed.end() ? std::optional(found->second) : std::nullopt);
    }
}

TEST(DeviceErrorCategories, FirmwareTextsCoverTheirRangesOnly) {
    const auto& category = system::Category();
    const std::pair<int, const char*> bounds[] = {
        {1, "the OS object being accessed has been deleted"},
        {32, "operation failed because relevant object is not idle or done"},
        {64, "one or more parameters to a function are invalid"},
        {86, "failed to enter standby mode because one or more wakeup events are active"},
        {96, "storage device's voltage range does not meet FX3S requirements"},
        {127, "card not responding to read/write transactions"},
        {254, "re-enumeration not required"},
        {255, "the requested feature/operation is not enabled in the current configuration"},
    };
    for (const auto& [value, text] : bounds) {
        EXPECT_EQ(category.message(value), text);
    }
    for (const int value : {-1, 0, 33, 63, 87, 95, 128, 253, 256, 0x1000}) {
        EXPECT_EQ(category.message(value), "unknown") << value;
    }
    std::set<std::string> texts;
    int known = 0;
    for (int value = 0; value <= 0x1000; ++value) {
        const std::string text = category.message(value);
        if (text != "unknown") {
            ++known;
            texts.insert(text);
        }
    }
    EXPECT_EQ(known, 89);
    EXPECT_EQ(texts.size(), 89u);  // no row copied onto another
}

TEST(DeviceErrorCategories, FpgaDriverTextsCoverTheirRangesOnly) {
    const auto& category = xil::Category();
    const std::pair<int, const char*> known[] = {
        {401, "memory test failed"},
        {503, "register value was invalid after reset"},
        {512, "register value was invalid after reset"},
        {1001, "memory space is not big enough"},
        {1076, "self test failed"},
        {1201, "self test failed"},
        {1226, "self test failed"},
        {1351, "no MPU lock has been granted"},
    };
    for (const auto& [value, text] : known) {
        EXPECT_EQ(category.message(value), text);
    }
    const int first_and_last[] = {1,    24,   26,   31,   501,  505,  511,  515,
                                  517,  519,  521,  527,  531,  541,  1002, 1007,
                                  1089, 1126, 1138, 1151, 1163, 1202, 1441, 1451};
    for (const int value : first_and_last) {
        EXPECT_NE(category.message(value), "unknown") << value;
    }
    const int gaps[] = {-1,   0,    25,   32,   400,  402,  500,  506,  510,   516,  520,
                        528,  530,  542,  1000, 1008, 1075, 1090, 1125, 1139,  1150, 1164,
                        1200, 1203, 1225, 1227, 1350, 1352, 1440, 1452, 0xFFFF};
    for (const int value : gaps) {
        EXPECT_EQ(category.message(value), "unknown") << value;
    }
    // Only the self-test and reset-register codes share a text.
    std::map<std::string, std::vector<int>> by_text;
    for (int value = 0; value <= 0xFFFF; ++value) {
        if (const std::string text = category.message(value); text != "unknown") {
            by_text[text].push_back(value);
        }
    }
    for (const auto& [text, values] : by_text) {
        if (text == "self test failed") {
            EXPECT_EQ(values, (std::vector<int>{1076, 1201, 1226}));
        } else if (text == "register value was invalid after reset") {
            EXPECT_EQ(values, (std::vector<int>{503, 512}));
        } else {
            EXPECT_EQ(values.size(), 1u) << text;
        }
    }
    for (const int value : {1, 401, 1451, 0xFFFF}) {
        ExpectOnlyEquivalentTo({value, category}, std::errc::io_error);
    }
}

}  // namespace
}  // namespace ovex::usb::vendor_cmd::error

namespace {

using namespace ovex::usb::vendor_cmd::error;

// A refusal whose code field is 0 (an absent I2C device NACKs the address byte; a chip that isn't
// ready) must never read as success.
TEST(DeviceErrorZeroCodeTest, CodeZeroInANonZeroWordStaysAFailure) {
    const auto nack = TranslateDeviceError(0x01000000);
    EXPECT_TRUE(nack);
    EXPECT_EQ(&nack.category(), &i2c::Category());
    EXPECT_EQ(nack.message(), "slave NACK-ed the zeroth byte of the preamble");
    EXPECT_EQ(nack, std::errc::io_error);

    const auto not_ready = TranslateDeviceError(0x06000000);
    EXPECT_TRUE(not_ready);
    EXPECT_EQ(not_ready.message(), "chip not ready");
    EXPECT_EQ(not_ready, std::errc::io_error);

    const auto firmware = TranslateDeviceError(0x00000100);
    EXPECT_TRUE(firmware);
    EXPECT_EQ(firmware.message(), "unknown");
    EXPECT_NE(firmware, std::errc::invalid_argument);

    const auto power = TranslateDeviceError(0x05000001);
    EXPECT_TRUE(power);
    EXPECT_EQ(power.message(), "unknown");
}

}  // namespace
