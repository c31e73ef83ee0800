// Bias and temperature control over in-test item sets: rounding, limits, the value 0.0 that
// switches a Peltier off, elements without a monitor, and the texts of each failure.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "impl/item_set.hpp"
#include "modules/bias_ctrl.hpp"
#include "modules/temp_control.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

const std::error_code kBoardError = std::make_error_code(std::errc::io_error);
const std::error_code kOutOfDomain = std::make_error_code(std::errc::argument_out_of_domain);

// Answers from its maps; a name in `failing` fails every access with kBoardError.
class FakeStates final : public States {
public:
    explicit FakeStates(std::vector<std::string> names) : States(std::move(names)) {}

    std::error_code Get(std::string_view name, int& value) override {
        return Answer(name, [&] { value = values[std::string(name)]; });
    }
    std::error_code Set(std::string_view name, int value) override {
        return Answer(name, [&] { sets.emplace_back(std::string(name), value); });
    }
    std::error_code GetRange(std::string_view name, range::Range<int>& range) override {
        return Answer(name, [&] { range = ranges[std::string(name)]; });
    }

    std::map<std::string, int> values;
    std::map<std::string, range::Range<int>> ranges;
    std::vector<std::pair<std::string, int>> sets;
    std::set<std::string, std::less<>> failing;

private:
    template <typename Then>
    std::error_code Answer(std::string_view name, Then then) {
        if (!Lookup(name)) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        if (failing.contains(name)) {
            return kBoardError;
        }
        then();
        return {};
    }
};

class FakeMonitors final : public Monitors {
public:
    explicit FakeMonitors(std::vector<std::string> names) : Monitors(std::move(names)) {}

    std::error_code Get(std::string_view name, int& value) override {
        float measured = 0.0F;
        const auto ec = Get(name, measured);
        value = static_cast<int>(measured);
        return ec;
    }
    std::error_code Get(std::string_view name, float& value) override {
        return Answer(name, [&] { value = values[std::string(name)]; });
    }
    std::error_code GetRange(std::string_view name, range::Range<int>& range) override {
        range::Range<float> measured;
        const auto ec = GetRange(name, measured);
        range = {static_cast<int>(measured.min()), static_cast<int>(measured.max())};
        return ec;
    }
    std::error_code GetRange(std::string_view name, range::Range<float>& range) override {
        return Answer(name, [&] { range = ranges[std::string(name)]; });
    }

    std::map<std::string, float> values;
    std::map<std::string, range::Range<float>> ranges;
    std::set<std::string, std::less<>> failing;

private:
    template <typename Then>
    std::error_code Answer(std::string_view name, Then then) {
        if (!Lookup(name)) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        if (failing.contains(name)) {
            return kBoardError;
        }
        then();
        return {};
    }
};

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

class BiasCtrlTest : public ::testing::Test {
protected:
    BiasCtrlTest() { states.ranges["BIAS"] = {-300, 300}; }

    LogCapture log;
    FakeStates states{{"PELTIER", "BIAS"}};
    FakeMonitors monitors{{"U_BIAS"}};
    BiasCtrl bias{&states, &monitors, "BIAS", "U_BIAS"};
};

TEST_F(BiasCtrlTest, SetsWholeVoltsRoundedHalvesAwayFromZeroAndReadsStateAndMonitor) {
    EXPECT_STREQ(bias.GetName(), "Bias control");
    for (const float volts : {2.5F, -2.5F, 12.4F, 300.0F, -300.0F}) {
        EXPECT_FALSE(bias.SetDesired(volts)) << volts;
    }
    const std::vector<std::pair<std::string, int>> expected{
        {"BIAS", 3}, {"BIAS", -3}, {"BIAS", 12}, {"BIAS", 300}, {"BIAS", -300}};
    EXPECT_EQ(states.sets, expected);

    states.values["BIAS"] = -42;
    monitors.values["U_BIAS"] = -41.75F;
    float desired = 0.0F;
    float actual = 0.0F;
    std::pair<float, float> limits;
    ASSERT_FALSE(bias.GetDesired(desired));
    ASSERT_FALSE(bias.GetActual(actual));
    ASSERT_FALSE(bias.GetLimits(limits));
    EXPECT_EQ(desired, -42.0F);
    EXPECT_EQ(actual, -41.75F);
    EXPECT_EQ(limits, std::make_pair(-300.0F, 300.0F));
}

TEST_F(BiasCtrlTest, ValuesOutsideTheLimitsAndNaNAreRefusedWithoutAWrite) {
    EXPECT_EQ(bias.SetDesired(300.4F), kOutOfDomain);
    EXPECT_EQ(bias.SetDesired(kNaN), kOutOfDomain);
    EXPECT_TRUE(states.sets.empty());
    const auto lines = log.Messages();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], (CapturedLine{log::kError,
                                      "Provided bias voltage (300.40V) is not within valid range "
                                      "[-300.00V, 300.00V]."}));
    EXPECT_EQ(lines[1], (CapturedLine{log::kError,
                                      "Provided bias voltage (nanV) is not within valid range "
                                      "[-300.00V, 300.00V]."}));
}

TEST_F(BiasCtrlTest, BoardErrorsComeBackUnchangedAfterTheirLines) {
    states.failing.insert("BIAS");
    monitors.failing.insert("U_BIAS");
    float value = 0.0F;
    EXPECT_EQ(bias.SetDesired(1.0F), kBoardError);
    EXPECT_EQ(bias.GetDesired(value), kBoardError);
    EXPECT_EQ(bias.GetActual(value), kBoardError);
    const std::string text = "Failed to get limits for state BIAS: " + kBoardError.message();
    EXPECT_EQ(log.Messages(),
              (std::vector<CapturedLine>{
                  {log::kError, text},
                  {log::kError, "Bias cannot be set - bias range retrieval failed."}}));
    EXPECT_TRUE(states.sets.empty());
}

TEST(BiasCtrlItems, ItemsTheFirmwareLacksAreReportedAtConstruction) {
    LogCapture log;
    FakeStates states{{"PELTIER"}};
    FakeMonitors monitors{{"TSENS_TEMP"}};
    BiasCtrl bias(&states, &monitors, "BIAS", "U_BIAS");
    EXPECT_EQ(log.Messages(), (std::vector<CapturedLine>{
                                  {log::kError,
                                   "Item collection of states doesn't contain 'BIAS' required by "
                                   "the module."},
                                  {log::kError,
                                   "Item collection of monitors doesn't contain 'U_BIAS' required "
                                   "by the module."}}));
    float value = 0.0F;
    EXPECT_EQ(bias.GetDesired(value), std::errc::invalid_argument);
}

TEST(DefaultTempElement, StateCountsTenthsRoundedDownAndHeldInsideIntsRange) {
    const DefaultTempElement element("PELTIER", "TSENS_TEMP");
    EXPECT_EQ(element.GetUnit(), TemperatureControl::kDegreesCelsius);
    EXPECT_EQ(element.ValueToRaw(-0.05F), -1);
    EXPECT_EQ(element.ValueToRaw(35.0F), 350);
    EXPECT_EQ(element.ValueToRaw(12.39F), 123);
    EXPECT_EQ(element.ValueToRaw(1e30F), std::numeric_limits<int>::max());
    EXPECT_EQ(element.ValueToRaw(-1e30F), std::numeric_limits<int>::min());
    EXPECT_EQ(element.ValueToRaw(kNaN), 0);
    EXPECT_EQ(element.RawToValue(-355), -35.5F);
    EXPECT_EQ(element.MeasuredToValue(26.25F), 26.25F);
}

class TemperatureControlTest : public ::testing::Test {
protected:
    TemperatureControlTest() {
        states.ranges["PELT1"] = {100, 300};
        states.ranges["PELT2"] = {-1000, 1000};
    }

    LogCapture log;
    FakeStates states{{"PELT1", "PELT2"}};
    FakeMonitors monitors{{"TSENS_TEMP"}};
    TemperatureControl peltier{&states, &monitors,
                               std::make_unique<DefaultTempElement>("PELT1", "TSENS_TEMP")};
    TemperatureControl second{&states, &monitors,
                              std::make_unique<DefaultTempElement>("PELT2", std::nullopt, 2)};
};

TEST_F(TemperatureControlTest, NamesFollowTheUnitAndAnElementWithoutMonitorReportsItsSetValue) {
    EXPECT_STREQ(peltier.GetName(), "Temperature control (degree Celsius)");
    EXPECT_STREQ(second.GetName(), "Temperature control (percentage)");
    EXPECT_EQ(second.GetUnit(), 2);
    states.values = {{"PELT1", 253}, {"PELT2", -125}};
    monitors.values["TSENS_TEMP"] = 26.5F;
    float desired = 0.0F;
    float actual = 0.0F;
    ASSERT_FALSE(peltier.GetDesired(desired));
    ASSERT_FALSE(peltier.GetActual(actual));
    EXPECT_EQ(desired, 25.3F);
    EXPECT_EQ(actual, 26.5F);
    ASSERT_FALSE(second.GetDesired(desired));
    ASSERT_FALSE(second.GetActual(actual));
    EXPECT_EQ(desired, -12.5F);
    EXPECT_EQ(actual, -12.5F);
    std::pair<float, float> limits;
    ASSERT_FALSE(peltier.GetLimits(limits));
    EXPECT_EQ(limits, std::make_pair(10.0F, 30.0F));
}

TEST_F(TemperatureControlTest, ZeroIsTakenWhateverTheLimitsOtherValuesOutsideAndNaNAreNot) {
    EXPECT_FALSE(peltier.SetDesired(0.0F));
    EXPECT_FALSE(peltier.SetDesired(-0.0F));
    EXPECT_FALSE(peltier.SetDesired(10.0F));
    EXPECT_FALSE(peltier.SetDesired(29.99F));
    EXPECT_EQ(peltier.SetDesired(30.5F), kOutOfDomain);
    EXPECT_EQ(peltier.SetDesired(kNaN), kOutOfDomain);
    const std::vector<std::pair<std::string, int>> expected{
        {"PELT1", 0}, {"PELT1", 0}, {"PELT1", 100}, {"PELT1", 299}};
    EXPECT_EQ(states.sets, expected);
    EXPECT_EQ(log.Messages(), (std::vector<CapturedLine>{
                                  {log::kError,
                                   "Desired temperature value == 30.500000 is not within range "
                                   "[10.000000, 30.000000]."},
                                  {log::kError,
                                   "Desired temperature value == nan is not within range "
                                   "[10.000000, 30.000000]."}}));
}

TEST_F(TemperatureControlTest, BoardErrorsComeBackUnchangedAfterTheirLines) {
    states.failing.insert("PELT1");
    monitors.failing.insert("TSENS_TEMP");
    float value = 0.0F;
    EXPECT_EQ(peltier.GetDesired(value), kBoardError);
    EXPECT_EQ(peltier.GetActual(value), kBoardError);
    EXPECT_EQ(peltier.SetDesired(20.0F), kBoardError);
    EXPECT_TRUE(states.sets.empty());
    const std::string cause =
        std::string(kBoardError.category().name()) + ": " + kBoardError.message() + ".";
    EXPECT_EQ(log.Messages(),
              (std::vector<CapturedLine>{
                  {log::kError, "Desired temperature value cannot be retrieved: - " + cause},
                  {log::kError, "Measured temperature value cannot be retrieved: - " + cause},
                  {log::kError, "Failed to get limits for PELT1: - " + cause},
                  {log::kError, "Temperature value range cannot be retrieved: - " + cause}}));
}

}  // namespace
}  // namespace ovex::sdk::testing
