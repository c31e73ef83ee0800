// The readout board's backend, the Timepix3 frontend and its triggers, against item sets that
// record what reaches the board and can refuse.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "impl/item_set.hpp"
#include "modules/ovexboard_backend.hpp"
#include "modules/tpx3efe.hpp"
#include "modules/triggers/tpx3efe.hpp"
#include "modules/triggers/trigger.hpp"
#include "support/item_fakes.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk {

// Found by argument lookup, so that the assertions compare and print whole blocks.
bool operator==(const SyncBlock& a, const SyncBlock& b) {
    return a.type == b.type && a.polarity == b.polarity && a.hardware_stop == b.hardware_stop &&
           a.enabled == b.enabled && a.ready == b.ready;
}

void PrintTo(const SyncBlock& b, std::ostream* os) {
    *os << "{" << int{b.type} << ", " << int{b.polarity} << ", " << int{b.hardware_stop} << ", "
        << int{b.enabled} << ", " << int{b.ready} << "}";
}

}  // namespace ovex::sdk

namespace ovex::sdk::testing {
namespace {

const std::error_code kIoError = std::make_error_code(std::errc::io_error);
const std::error_code kGone = std::make_error_code(std::errc::no_such_device);

// The board's items, with every name that these modules require.
class ItemsTest : public ::testing::Test {
protected:
    std::vector<std::string> ErrorLines() const {
        std::vector<std::string> errors;
        for (const auto& line : log.Lines()) {
            if (line.verbosity == ovex::log::kError) {
                errors.push_back(line.message);
            }
        }
        return errors;
    }

    LogCapture log;
    Journal journal;
    FakeCommands commands{journal,
                          {"TRIG_I_1PULSE", "TRIG_I_LEVEL", "TRIG_I_EDGE", "TRIG_O_DISABLE",
                           "TRIG_O_LEVEL", "TRIG_O_EDGE", "TRIG_O_1PULSE", "MAIN_CLK_SETUP",
                           "TPX_SHUT_EXT", "TPX_SHUT_IMM", "TPX_SHUT_STOP"}};
    FakeStates states{
        journal, {"READY_IO_EN", "SYNC_IO_ACT_LOW", "DETECTOR_EN", "MAIN_CLK", "TPX_SHUT_DUR"}};
};

class BackendTest : public ItemsTest {
protected:
    OvexboardBackend backend{&commands, &states};
};

TEST_F(BackendTest, NamesItselfAndOffersItsModesAndOptions) {
    EXPECT_STREQ(backend.GetName(), "OvexBoard");
    EXPECT_EQ(backend.GetId(), "OVBD");
    EXPECT_EQ(backend.GetTriggerTypes(), (std::set<std::uint8_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(backend.GetSyncOptions(),
              (std::set<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}));
    EXPECT_EQ(backend.GetPipeline(), nullptr);
    EXPECT_EQ(backend.GetConfiguredSync().input, SyncBlock{});
    EXPECT_EQ(backend.GetConfiguredSync().output, SyncBlock{});
    EXPECT_TRUE(log.Lines().empty()) << "every required item is there";
}

TEST_F(BackendTest, ExternalTriggerInputsSendTheirCommandAndSetActiveHigh) {
    struct Case {
        std::uint8_t mode;
        const char* command;
        SyncBlock input;
    };
    for (const Case& c :
         {Case{3, "TRIG_I_1PULSE", {3, 0, 0, 1, 0}}, Case{4, "TRIG_I_LEVEL", {2, 0, 1, 1, 0}},
          Case{5, "TRIG_I_EDGE", {1, 0, 1, 1, 0}}}) {
        SCOPED_TRACE(c.mode);
        journal.clear();
        states.values["SYNC_IO_ACT_LOW"] = 3;
        ASSERT_EQ(backend.ApplySyncOption(10), std::error_code());  // input active low
        journal.clear();
        EXPECT_EQ(backend.SetTriggerInput(c.mode), std::error_code());
        EXPECT_EQ(journal, (Journal{c.command, "get SYNC_IO_ACT_LOW", "set SYNC_IO_ACT_LOW 2"}));
        EXPECT_EQ(backend.GetConfiguredSync().input, c.input);
    }
}

TEST_F(BackendTest, InternalTriggerInputsSendNothingAndOnlyDisableTheInput) {
    ASSERT_EQ(backend.SetTriggerInput(5), std::error_code());
    ASSERT_EQ(backend.ApplySyncOption(10), std::error_code());
    for (const std::uint8_t mode : {1, 2}) {
        journal.clear();
        EXPECT_EQ(backend.SetTriggerInput(mode), std::error_code());
        EXPECT_TRUE(journal.empty());
        EXPECT_EQ(backend.GetConfiguredSync().input, (SyncBlock{1, 1, 1, 0, 0}));
    }
}

TEST_F(BackendTest, TriggerInputFailuresAreLoggedAndReturned) {
    EXPECT_EQ(backend.SetTriggerInput(0), std::errc::invalid_argument);
    EXPECT_EQ(backend.SetTriggerInput(6), std::errc::invalid_argument);
    EXPECT_TRUE(journal.empty());

    commands.refusals["TRIG_I_LEVEL"] = {kIoError};
    EXPECT_EQ(backend.SetTriggerInput(4), kIoError);
    EXPECT_EQ(journal, Journal{"TRIG_I_LEVEL"}) << "no polarity after a refused input";
    EXPECT_EQ(backend.GetConfiguredSync().input, SyncBlock{});

    states.refusals["get SYNC_IO_ACT_LOW"] = {kIoError};
    EXPECT_EQ(backend.SetTriggerInput(3), kIoError);
    EXPECT_EQ(ErrorLines(),
              (std::vector<std::string>{
                  "Invalid trigger option.", "Invalid trigger option.",
                  "Failed to configure trigger input as hardware-start-hardware-stop:level",
                  Failure("Failed to read the value of 'SYNC_IO_ACT_LOW'.", kIoError),
                  Failure("Failed to configure polarity as 'active high'.", kIoError)}));
}

TEST_F(BackendTest, TriggerOutputOptionsSendTheirCommandAndRecordTheOutput) {
    struct Case {
        std::uint8_t option;
        const char* command;
        std::uint8_t type;
        std::uint8_t enabled;
    };
    for (const Case& c : {Case{2, "TRIG_O_LEVEL", 2, 1}, Case{3, "TRIG_O_EDGE", 1, 1},
                          Case{4, "TRIG_O_1PULSE", 3, 1}, Case{1, "TRIG_O_DISABLE", 0, 0}}) {
        SCOPED_TRACE(c.option);
        journal.clear();
        EXPECT_EQ(backend.ApplySyncOption(c.option), std::error_code());
        EXPECT_EQ(journal, Journal{c.command});
        EXPECT_EQ(backend.GetConfiguredSync().output, (SyncBlock{c.type, 0, 0, c.enabled, 0}));
    }
    commands.refusals["TRIG_O_EDGE"] = {kIoError};
    EXPECT_EQ(backend.ApplySyncOption(3), kIoError);
    EXPECT_EQ(backend.GetConfiguredSync().output, SyncBlock{}) << "a failure records nothing";
    EXPECT_EQ(ErrorLines(),
              std::vector<std::string>{Failure(
                  "Failed to configure the 'trigger-out:edge' synchronization option.", kIoError)});
}

TEST_F(BackendTest, ReadyAndPolarityOptionsKeepTheOtherBit) {
    EXPECT_EQ(backend.ApplySyncOption(6), std::error_code());  // ready-in:yes
    EXPECT_EQ(backend.ApplySyncOption(8), std::error_code());  // ready-out:yes
    EXPECT_EQ(states.values["READY_IO_EN"], 3);
    EXPECT_EQ(backend.GetConfiguredSync().input, (SyncBlock{0, 0, 0, 1, 1}));
    EXPECT_EQ(backend.GetConfiguredSync().output, (SyncBlock{0, 0, 0, 1, 1}));
    EXPECT_EQ(backend.ApplySyncOption(5), std::error_code());  // ready-in:no
    EXPECT_EQ(states.values["READY_IO_EN"], 2);
    EXPECT_EQ(backend.GetConfiguredSync().input, SyncBlock{});
    EXPECT_EQ(backend.ApplySyncOption(7), std::error_code());  // ready-out:no
    EXPECT_EQ(states.values["READY_IO_EN"], 0);
    EXPECT_EQ(backend.GetConfiguredSync().output, SyncBlock{});

    EXPECT_EQ(backend.ApplySyncOption(12), std::error_code());  // output active low
    EXPECT_EQ(backend.ApplySyncOption(10), std::error_code());  // input active low
    EXPECT_EQ(states.values["SYNC_IO_ACT_LOW"], 3);
    EXPECT_EQ(backend.GetConfiguredSync().input.polarity, 1);
    EXPECT_EQ(backend.GetConfiguredSync().output.polarity, 1);
    EXPECT_EQ(backend.ApplySyncOption(11), std::error_code());  // output active high
    EXPECT_EQ(states.values["SYNC_IO_ACT_LOW"], 1);
    EXPECT_EQ(backend.GetConfiguredSync().output.polarity, 0);
    EXPECT_EQ(backend.ApplySyncOption(9), std::error_code());  // input active high
    EXPECT_EQ(states.values["SYNC_IO_ACT_LOW"], 0);
    EXPECT_EQ(backend.GetConfiguredSync().input.polarity, 0);
}

TEST_F(BackendTest, ReadyAndPolarityFailuresLeaveTheRecord) {
    states.refusals["get READY_IO_EN"] = {kIoError};
    EXPECT_EQ(backend.ApplySyncOption(6), kIoError);
    EXPECT_EQ(journal, Journal{"get READY_IO_EN"}) << "nothing written after a failed read";
    states.refusals["set SYNC_IO_ACT_LOW"] = {kIoError};
    EXPECT_EQ(backend.ApplySyncOption(12), kIoError);
    EXPECT_EQ(backend.GetConfiguredSync().input, SyncBlock{});
    EXPECT_EQ(backend.GetConfiguredSync().output, SyncBlock{});
    EXPECT_EQ(ErrorLines(),
              (std::vector<std::string>{
                  Failure("Failed to read the value of 'READY_IO_EN'.", kIoError),
                  Failure("Failed to configure the 'output-polarity:active-low' synchronization "
                          "option.",
                          kIoError)}));
}

TEST_F(BackendTest, ClockOutputSendsItsWordAndRunsTheClock) {
    states.values["MAIN_CLK"] = 0;
    EXPECT_EQ(backend.ApplySyncOption(14), std::error_code());
    EXPECT_EQ(backend.ApplySyncOption(13), std::error_code());
    EXPECT_EQ(journal,
              (Journal{"MAIN_CLK_SETUP", "set MAIN_CLK 1", "MAIN_CLK_SETUP", "set MAIN_CLK 1"}));
    EXPECT_EQ(commands.inputs,
              (std::vector<Bytes>{{0x00, 0x00, 0x04, 0x00}, {0x80, 0x00, 0x04, 0x00}}));
    EXPECT_EQ(states.values["MAIN_CLK"], 1);
    EXPECT_EQ(backend.GetConfiguredSync().output, SyncBlock{});

    journal.clear();
    commands.refusals["MAIN_CLK_SETUP"] = {kIoError, 1};
    EXPECT_EQ(backend.ApplySyncOption(14), kIoError);
    EXPECT_EQ(journal, Journal{"MAIN_CLK_SETUP"});
    states.refusals["set MAIN_CLK"] = {kIoError};
    EXPECT_EQ(backend.ApplySyncOption(13), kIoError);
    EXPECT_EQ(ErrorLines(),
              (std::vector<std::string>{
                  Failure("Failed to configure the 'clock-output:yes'  synchronization option.",
                          kIoError),
                  Failure("Failed to modify the state of the CDCE6214 clock.", kIoError)}));
}

TEST_F(BackendTest, ClockInputSwitchesWithTheClockStopped) {
    EXPECT_EQ(backend.ApplySyncOption(16), std::error_code());
    EXPECT_EQ(backend.ApplySyncOption(15), std::error_code());
    const Journal one_switch{"get DETECTOR_EN", "set MAIN_CLK 0", "MAIN_CLK_SETUP",
                             "set MAIN_CLK 1"};
    Journal both = one_switch;
    both.insert(both.end(), one_switch.begin(), one_switch.end());
    EXPECT_EQ(journal, both);
    EXPECT_EQ(commands.inputs[0],
              (Bytes{0x78, 0x00, 0x1E, 0x00, 0x02, 0x04, 0x19, 0x00, 0x03, 0x00, 0x02, 0x00}));
    EXPECT_EQ(commands.inputs[1],
              (Bytes{0x60, 0x00, 0x1E, 0x00, 0x08, 0x04, 0x19, 0x00, 0x02, 0x00, 0x02, 0x00}));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(BackendTest, ClockSwitchEndsAtItsFirstFailedStep) {
    // The clock that doesn't stop gets no new reference.
    states.refusals["set MAIN_CLK"] = {kIoError, 1};
    EXPECT_EQ(backend.ApplySyncOption(15), kIoError);
    EXPECT_EQ(journal, (Journal{"get DETECTOR_EN", "set MAIN_CLK 0"}));
    // A reference the clock chip refuses leaves the clock stopped, with the option's words.
    journal.clear();
    commands.refusals["MAIN_CLK_SETUP"] = {kIoError, 1};
    EXPECT_EQ(backend.ApplySyncOption(16), kIoError);
    EXPECT_EQ(journal, (Journal{"get DETECTOR_EN", "set MAIN_CLK 0", "MAIN_CLK_SETUP"}));
    EXPECT_EQ(ErrorLines(),
              (std::vector<std::string>{
                  Failure("Failed to modify the state of the CDCE6214 clock.", kIoError),
                  Failure("Failed to configure the 'clock-input:external-40-mhz' synchronization "
                          "option.",
                          kIoError)}));
}

TEST_F(BackendTest, ClockInputIsRefusedWhileTheDetectorIsPoweredOrUnknown) {
    states.values["DETECTOR_EN"] = 1;
    states.values["MAIN_CLK"] = 1;
    EXPECT_EQ(backend.ApplySyncOption(16), std::errc::operation_not_permitted);
    EXPECT_EQ(journal, Journal{"get DETECTOR_EN"});
    EXPECT_EQ(states.values["MAIN_CLK"], 1);

    states.refusals["get DETECTOR_EN"] = {kIoError};
    EXPECT_EQ(backend.ApplySyncOption(15), kIoError);
    EXPECT_EQ(backend.ApplySyncOption(0), std::errc::invalid_argument);
    EXPECT_EQ(backend.ApplySyncOption(17), std::errc::invalid_argument);
    EXPECT_EQ(journal, (Journal{"get DETECTOR_EN", "get DETECTOR_EN"}));
    EXPECT_EQ(ErrorLines(),
              (std::vector<std::string>{"Clock cannot be changed when detector is powered.",
                                        Failure("Unable to read value of 'DETECTOR_EN'.", kIoError),
                                        "Invalid external synchronization option",
                                        "Invalid external synchronization option"}));
}

TEST(TriggerTicks, TruncateTheProductAndKeepTheLow32Bits) {
    EXPECT_EQ(trigger::Ticks(1.0), 40000000u);
    EXPECT_EQ(trigger::Ticks(0.1), 4000000u);
    EXPECT_EQ(trigger::Ticks(0.043), 1719999u) << "0.043 * 4e7 is just below 1720000";
    EXPECT_EQ(trigger::Ticks(107.374182375), 4294967295u);
    EXPECT_EQ(trigger::Ticks(107.3741824), 0u) << "2^32 ticks wrap";
    EXPECT_EQ(trigger::Ticks(-0.000000025), 4294967295u);
    EXPECT_EQ(trigger::Ticks(std::nan("")), 0u);
    EXPECT_EQ(trigger::Ticks(INFINITY), 0u);
}

using TriggerTest = ItemsTest;

TEST_F(TriggerTest, SingleInternalTriggerFiresAndWritesItsTicks) {
    trigger::IntSingleTpx3efe single(&commands, &states);
    EXPECT_EQ(single.GetType(), 1);
    EXPECT_EQ(single.GetDuration(), 0.0);
    single.SetDuration(0.043);
    EXPECT_EQ(single.Configure(), std::error_code());
    EXPECT_EQ(single.Fire(), std::error_code());
    EXPECT_EQ(journal, (Journal{"set TPX_SHUT_DUR 1719999", "TPX_SHUT_IMM"}));
    EXPECT_TRUE(log.Contains(ovex::log::kInfo,
                             "Setting single internal trigger for 0.043s, ticks: 1719999"));

    commands.refusals["TPX_SHUT_IMM"] = {kIoError};
    states.refusals["set TPX_SHUT_DUR"] = {kIoError};
    EXPECT_EQ(single.Fire(), kIoError);
    EXPECT_EQ(single.Configure(), kIoError);
    EXPECT_EQ(ErrorLines(),
              (std::vector<std::string>{Failure("Failed to fire the single trigger", kIoError),
                                        Failure("Failed to reset the single trigger", kIoError)}));
}

TEST_F(TriggerTest, SingleInternalStopRepeatsBoundedly) {
    trigger::IntSingleTpx3efe single(&commands, &states);
    commands.refusals["TPX_SHUT_STOP"] = {kIoError, 2};
    EXPECT_EQ(single.Stop(), std::error_code());
    EXPECT_EQ(journal, Journal(3, "TPX_SHUT_STOP"));

    journal.clear();
    commands.refusals["TPX_SHUT_STOP"] = {kIoError};
    EXPECT_EQ(single.Stop(), kIoError);
    EXPECT_EQ(journal.size(), std::size_t{trigger::IntSingleTpx3efe::kStopAttempts});
    EXPECT_EQ(log.Count(ovex::log::kError, Failure("Failed to stop the single trigger", kIoError)),
              2 + trigger::IntSingleTpx3efe::kStopAttempts);

    // A board that has gone, or that let a request time out, isn't asked again.
    for (const auto& final_error : {kGone, std::make_error_code(std::errc::timed_out)}) {
        journal.clear();
        commands.refusals["TPX_SHUT_STOP"] = {final_error};
        EXPECT_EQ(single.Stop(), final_error);
        EXPECT_EQ(journal, Journal{"TPX_SHUT_STOP"}) << final_error.message();
    }
}

TEST_F(TriggerTest, ExternalTriggerEnablesTheInputThenWritesItsTicks) {
    trigger::ExtTpx3efe external(3, &commands, &states);
    EXPECT_EQ(external.GetType(), 3);
    external.SetDuration(0.1);
    EXPECT_EQ(external.Configure(), std::error_code());
    EXPECT_EQ(external.Stop(), std::error_code());
    EXPECT_EQ(journal, (Journal{"TPX_SHUT_EXT", "set TPX_SHUT_DUR 4000000", "TPX_SHUT_STOP"}));
    EXPECT_EQ(commands.inputs[0], Bytes{}) << "the external shutter takes no argument";

    journal.clear();
    commands.refusals["TPX_SHUT_EXT"] = {kIoError};
    commands.refusals["TPX_SHUT_STOP"] = {kIoError};
    EXPECT_EQ(external.Configure(), kIoError);
    EXPECT_EQ(external.Stop(), kIoError);
    EXPECT_EQ(journal, (Journal{"TPX_SHUT_EXT", "TPX_SHUT_STOP"}));
    EXPECT_EQ(ErrorLines(),
              (std::vector<std::string>{Failure("Failed to reset the external trigger", kIoError),
                                        Failure("Failed to stop the external trigger", kIoError)}));

    // An input armed but a duration refused: the second step's failure, in the same words.
    journal.clear();
    commands.refusals.clear();
    states.refusals["set TPX_SHUT_DUR"] = {kGone};
    EXPECT_EQ(external.Configure(), kGone);
    EXPECT_EQ(journal, (Journal{"TPX_SHUT_EXT", "set TPX_SHUT_DUR 4000000"}));
    EXPECT_TRUE(
        log.Contains(ovex::log::kError, Failure("Failed to reset the external trigger", kGone)));
}

TEST_F(TriggerTest, FrontendNamesItselfAndOffersNoContinuousTrigger) {
    Tpx3efe frontend(&commands, &states);
    EXPECT_STREQ(frontend.GetName(), "Timepix3 extended frontend");
    EXPECT_EQ(frontend.GetId(), "TP3EFE");
    EXPECT_EQ(frontend.GetTriggerTypes(), (std::set<std::uint8_t>{1, 3, 4, 5}));
    EXPECT_EQ(frontend.GetPipeline(), nullptr);
    EXPECT_TRUE(std::holds_alternative<std::monostate>(frontend.GetTrigger()));

    EXPECT_EQ(frontend.SetTrigger(1, 0.5), std::error_code());
    EXPECT_EQ(frontend.SetTrigger(2, 1.0), std::errc::invalid_argument);
    EXPECT_EQ(journal, Journal{"set TPX_SHUT_DUR 20000000"}) << "type 2 sends nothing";
    EXPECT_TRUE(std::holds_alternative<std::monostate>(frontend.GetTrigger()));
    EXPECT_EQ(ErrorLines(), std::vector<std::string>{"Invalid Tpx3 trigger type: 2"});
}

TEST_F(TriggerTest, FrontendHandsOutTheTriggerOfTheTypeSet) {
    Tpx3efe frontend(&commands, &states);
    EXPECT_EQ(frontend.SetTrigger(1, 0.5), std::error_code());
    auto* internal = std::get<trigger::InternalTrigger*>(frontend.GetTrigger());
    EXPECT_EQ(internal->GetDuration(), 0.5);

    EXPECT_EQ(frontend.SetTrigger(3, 0.1), std::error_code());
    auto* timed = std::get<trigger::ExternalTrigger*>(frontend.GetTrigger());
    EXPECT_EQ(timed->GetType(), 3);
    EXPECT_EQ(timed->GetDuration(), 0.1);

    for (const std::uint8_t type : {4, 5}) {
        EXPECT_EQ(frontend.SetTrigger(type, 2.0), std::error_code());
        auto* stopped = std::get<trigger::ExternalTrigger*>(frontend.GetTrigger());
        EXPECT_EQ(stopped->GetType(), type);
        EXPECT_EQ(stopped->GetDuration(), 0.0) << "the hardware stop ends the shutter";
    }
    EXPECT_EQ(journal, (Journal{"set TPX_SHUT_DUR 20000000", "TPX_SHUT_EXT",
                                "set TPX_SHUT_DUR 4000000", "TPX_SHUT_EXT", "set TPX_SHUT_DUR 0",
                                "TPX_SHUT_EXT", "set TPX_SHUT_DUR 0"}));

    commands.refusals["TPX_SHUT_EXT"] = {kIoError};
    EXPECT_EQ(frontend.SetTrigger(5, 0.0), kIoError);
}

TEST(TriggerDeathTest, MissingItemSetsAreBugs) {
    trigger::ExtTpx3efe external(5, nullptr, nullptr);
    EXPECT_DEATH(external.Configure(), "BUG: Command items are invalid");
    OvexboardBackend backend(nullptr, nullptr);
    EXPECT_DEATH(backend.SetTriggerInput(3), "BUG: Commands object is invalid\\.");
    EXPECT_DEATH(backend.ApplySyncOption(5), "BUG: States object is invalid\\.");
}

}  // namespace
}  // namespace ovex::sdk::testing
