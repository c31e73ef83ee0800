// The Timepix2 and Timepix4 triggers and frontends, the data pipelines and the backend without
// sync lines, against item sets that record what reaches the board and can refuse.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "modules/nobe_backend.hpp"
#include "modules/pipelines.hpp"
#include "modules/timepix2_frontends.hpp"
#include "modules/tpx4_chipboard.hpp"
#include "modules/triggers/tp2cb.hpp"
#include "modules/triggers/tp2fe.hpp"
#include "support/item_fakes.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

const std::error_code kIoError = std::make_error_code(std::errc::io_error);

class FrontendItemsTest : public ::testing::Test {
protected:
    std::vector<std::string> Lines(int verbosity) const {
        std::vector<std::string> lines;
        for (const auto& line : log.Lines()) {
            if (line.verbosity == verbosity) {
                lines.push_back(line.message);
            }
        }
        return lines;
    }

    LogCapture log;
    Journal journal;
    FakeCommands commands{
        journal,
        {"TPX_SHUT_EXT", "TPX_TRIG_SINGLE", "TPX_TRIG_CONT", "TPX_TRIG_ABORT", "PIPELINE_BPP"}};
    FakeStates states{journal, {"TPX_SHUT_DUR"}};
};

// The chip board's and the frontend's classes of one kind behave alike.
template <typename Chipboard, typename Frontend, typename Base>
std::vector<std::unique_ptr<Base>> BothBoards(Commands* commands, States* states) {
    std::vector<std::unique_ptr<Base>> triggers;
    triggers.push_back(std::make_unique<Chipboard>(commands, states));
    triggers.push_back(std::make_unique<Frontend>(commands, states));
    return triggers;
}

using Tp2TriggerTest = FrontendItemsTest;

TEST_F(Tp2TriggerTest, SingleTriggerWritesTicksThenTakesTheShutterOffTheInput) {
    for (const auto& single :
         BothBoards<trigger::IntSingleTp2Cb, trigger::IntSingleTp2fe, trigger::InternalTrigger>(
             &commands, &states)) {
        journal.clear();
        commands.inputs.clear();
        EXPECT_EQ(single->GetType(), 1);
        single->SetDuration(1.0);
        EXPECT_EQ(single->Configure(), std::error_code());
        EXPECT_EQ(single->Fire(), std::error_code());
        EXPECT_EQ(single->Stop(), std::error_code());
        EXPECT_EQ(journal, (Journal{"set TPX_SHUT_DUR 40000000", "TPX_SHUT_EXT", "TPX_TRIG_SINGLE",
                                    "TPX_TRIG_ABORT"}));
        EXPECT_EQ(commands.inputs[0], Bytes{0});
        single->SetDuration(0.0);
        EXPECT_EQ(single->GetDuration(), 0.0) << "no minimum for a single shutter";
    }
    EXPECT_TRUE(log.Lines().empty());

    trigger::IntSingleTp2fe single(&commands, &states);
    journal.clear();
    states.refusals["set TPX_SHUT_DUR"] = {kIoError, 1};
    EXPECT_EQ(single.Configure(), kIoError);
    EXPECT_EQ(journal, Journal{"set TPX_SHUT_DUR 0"})
        << "the shutter stays on its input after a failed write";
    commands.refusals["TPX_SHUT_EXT"] = {kIoError};
    commands.refusals["TPX_TRIG_SINGLE"] = {kIoError};
    commands.refusals["TPX_TRIG_ABORT"] = {kIoError};
    EXPECT_EQ(single.Configure(), kIoError);
    EXPECT_EQ(single.Fire(), kIoError);
    EXPECT_EQ(single.Stop(), kIoError);
    EXPECT_EQ(Lines(log::kError), (std::vector<std::string>{
                                      Failure("Failed to configure the shutter duration", kIoError),
                                      Failure("Failed to disable the external shutter", kIoError),
                                      Failure("Failed to fire the single trigger", kIoError),
                                      Failure("Failed to abort the single trigger", kIoError)}));
}

TEST_F(Tp2TriggerTest, ContinuousTriggerClampsShortShutters) {
    for (const auto& continuous :
         BothBoards<trigger::IntContTp2Cb, trigger::IntContTp2fe, trigger::InternalTrigger>(
             &commands, &states)) {
        journal.clear();
        log.Clear();
        EXPECT_EQ(continuous->GetType(), 2);
        continuous->SetDuration(0.0001);
        EXPECT_EQ(continuous->GetDuration(), 0.0002);
        EXPECT_EQ(continuous->Configure(), std::error_code());
        EXPECT_EQ(continuous->Fire(), std::error_code());
        EXPECT_EQ(journal, (Journal{"set TPX_SHUT_DUR 8000", "TPX_SHUT_EXT", "TPX_TRIG_CONT"}));
        EXPECT_EQ(Lines(log::kWarning),
                  std::vector<std::string>{
                      "Cannot set shutter duration shorter than 200, clamping to 200."});

        log.Clear();
        continuous->SetDuration(0.0002);
        EXPECT_EQ(continuous->GetDuration(), 0.0002);
        continuous->SetDuration(0.1);
        EXPECT_EQ(continuous->GetDuration(), 0.1);
        continuous->SetDuration(std::nan(""));
        EXPECT_TRUE(std::isnan(continuous->GetDuration()));
        EXPECT_TRUE(log.Lines().empty());
    }

    trigger::IntContTp2Cb continuous(&commands, &states);
    commands.refusals["TPX_SHUT_EXT"] = {kIoError};
    commands.refusals["TPX_TRIG_CONT"] = {kIoError};
    commands.refusals["TPX_TRIG_ABORT"] = {kIoError};
    EXPECT_EQ(continuous.Configure(), kIoError);
    EXPECT_EQ(continuous.Fire(), kIoError);
    EXPECT_EQ(continuous.Stop(), kIoError);
    EXPECT_EQ(Lines(log::kError),
              (std::vector<std::string>{Failure("Failed to disable the shutter", kIoError),
                                        Failure("Failed to fire the continuous trigger", kIoError),
                                        Failure("Failed to stop the trigger", kIoError)}));
}

TEST_F(Tp2TriggerTest, ExternalTriggerIgnoresTheDurationAndStopsInOrder) {
    for (const auto& external :
         BothBoards<trigger::ExtTp2Cb, trigger::ExtTp2fe, trigger::ExternalTrigger>(&commands,
                                                                                    &states)) {
        journal.clear();
        commands.inputs.clear();
        EXPECT_EQ(external->GetType(), 5);
        external->SetDuration(1.0);
        EXPECT_EQ(external->Configure(), std::error_code());
        EXPECT_EQ(external->Stop(), std::error_code());
        EXPECT_EQ(journal, (Journal{"set TPX_SHUT_DUR 0", "TPX_SHUT_EXT", "TPX_SHUT_EXT",
                                    "TPX_TRIG_ABORT"}));
        EXPECT_EQ(commands.inputs[0], Bytes{1});
        EXPECT_EQ(commands.inputs[1], Bytes{0});
    }

    trigger::ExtTp2Cb external(&commands, &states);
    journal.clear();
    commands.refusals["TPX_SHUT_EXT"] = {kIoError, 1};
    EXPECT_EQ(external.Stop(), kIoError);
    EXPECT_EQ(journal, Journal{"TPX_SHUT_EXT"}) << "no abort to a board that refused";
    commands.refusals["TPX_TRIG_ABORT"] = {kIoError};
    EXPECT_EQ(external.Stop(), kIoError);
    states.refusals["set TPX_SHUT_DUR"] = {kIoError, 1};
    EXPECT_EQ(external.Configure(), kIoError);
    commands.refusals["TPX_SHUT_EXT"] = {kIoError, 1};
    EXPECT_EQ(external.Configure(), kIoError);
    EXPECT_EQ(Lines(log::kError),
              (std::vector<std::string>{
                  Failure("Failed to disable the external shutter", kIoError),
                  Failure("Failed to abort the acquisition on the device", kIoError),
                  Failure("Failed to reset the shutter duration", kIoError),
                  Failure("Failed to enable the external shutter", kIoError)}));
}

TEST_F(FrontendItemsTest, Timepix4TriggersRefuseEverythingAndTouchNothing) {
    trigger::IntSingleTp4Cb single(&commands, &states);
    trigger::IntContTp4Cb continuous(&commands, &states);
    trigger::ExtTp4Cb external(&commands, &states);
    for (trigger::InternalTrigger* internal :
         std::vector<trigger::InternalTrigger*>{&single, &continuous}) {
        EXPECT_EQ(internal->Fire(), std::errc::operation_not_supported);
        EXPECT_EQ(internal->Stop(), std::errc::operation_not_supported);
        EXPECT_EQ(internal->Configure(), std::errc::operation_not_supported);
        internal->SetDuration(0.5);
    }
    EXPECT_EQ(external.Stop(), std::errc::operation_not_supported);
    EXPECT_EQ(external.Configure(), std::errc::operation_not_supported);
    external.SetDuration(0.25);
    EXPECT_EQ(single.GetDuration(), 0.5);
    EXPECT_EQ(continuous.GetDuration(), 0.0) << "the continuous one keeps no duration";
    EXPECT_EQ(external.GetDuration(), 0.25);
    EXPECT_EQ(std::vector<int>({single.GetType(), continuous.GetType(), external.GetType()}),
              (std::vector<int>{1, 2, 5}));
    EXPECT_TRUE(journal.empty());
    EXPECT_TRUE(log.Lines().empty());
}

using PipelineTest = FrontendItemsTest;

TEST_F(PipelineTest, BitDepthIsSentAsOneByteAndNamed) {
    NobePipeline nobe(&commands);
    Tpx2CbPipeline tpx2(&commands);
    EXPECT_STREQ(nobe.GetName(), "NoBE data processing pipeline");
    EXPECT_STREQ(tpx2.GetName(), "Tpx2 Chipboard data processing pipeline");
    EXPECT_EQ(nobe.SetBitDepth(0), std::error_code());
    EXPECT_EQ(tpx2.SetBitDepth(3), std::error_code());
    EXPECT_EQ(tpx2.SetBitDepth(7), std::error_code()) << "the board judges the depth";
    EXPECT_EQ(journal, Journal(3, "PIPELINE_BPP"));
    EXPECT_EQ(commands.inputs, (std::vector<Bytes>{{0}, {3}, {7}}));
    EXPECT_EQ(Lines(log::kDebug),
              (std::vector<std::string>{"Pipeline configured for 4 bits per pixel.",
                                        "Pipeline configured for 14 bits per pixel.",
                                        "Pipeline configured for <UNKNOWN>."}));
    EXPECT_STREQ(BitDepthName(1), "8 bits per pixel");
    EXPECT_STREQ(BitDepthName(2), "10 bits per pixel");

    commands.refusals["PIPELINE_BPP"] = {kIoError};
    EXPECT_EQ(tpx2.SetBitDepth(1), kIoError);
    EXPECT_EQ(nobe.SetBitDepth(1), kIoError);
    EXPECT_EQ(Lines(log::kError),
              std::vector<std::string>(
                  2, Failure("Failed to configure the pipeline bit depth", kIoError)));
    EXPECT_EQ(log.Count(log::kDebug, "Pipeline configured for 8 bits per pixel."), 0);

    journal.clear();
    Tpx4CbPipeline tpx4;
    EXPECT_STREQ(tpx4.GetName(), "Tpx4 Chipboard data processing pipeline");
    EXPECT_EQ(tpx4.SetBitDepth(2), std::error_code());
    EXPECT_TRUE(journal.empty());
}

TEST_F(FrontendItemsTest, NobeBackendOnlyRecordsTheEdgeInput) {
    NobeBackend backend(&commands);
    EXPECT_STREQ(backend.GetName(), "Digital BackEnd");
    EXPECT_EQ(backend.GetId(), "NoBE");
    EXPECT_EQ(backend.GetTriggerTypes(), (std::set<std::uint8_t>{1, 2, 3, 5}));
    EXPECT_TRUE(backend.GetSyncOptions().empty());
    ASSERT_NE(backend.GetPipeline(), nullptr);
    EXPECT_STREQ(backend.GetPipeline()->GetName(), "NoBE data processing pipeline");

    EXPECT_EQ(backend.SetTriggerInput(5), std::error_code());
    EXPECT_EQ(backend.GetConfiguredSync().input.type, 1);
    EXPECT_EQ(backend.GetConfiguredSync().input.enabled, 1);
    for (const std::uint8_t option : {0, 1, 9, 16, 255}) {
        EXPECT_EQ(backend.ApplySyncOption(option), std::error_code());
    }
    EXPECT_EQ(backend.SetTriggerInput(3), std::error_code());
    const SyncRecord sync = backend.GetConfiguredSync();
    EXPECT_EQ(sync.input.type, 1) << "only the enabled byte changes";
    EXPECT_EQ(sync.input.enabled, 0);
    EXPECT_EQ(std::vector<int>({sync.input.polarity, sync.input.hardware_stop, sync.input.ready,
                                sync.output.type, sync.output.polarity, sync.output.enabled,
                                sync.output.ready}),
              std::vector<int>(7, 0));
    EXPECT_TRUE(journal.empty());
    EXPECT_TRUE(log.Lines().empty());
}

// The two Timepix2 frontends differ in their names, their pipeline and the words of the warning
// about a long shutter.
template <typename Frontend>
class Timepix2FrontendTest : public FrontendItemsTest {
protected:
    Frontend frontend{&commands, &states};
};

using Timepix2Frontends = ::testing::Types<Tp2fe, Tpx2Chipboard>;
TYPED_TEST_SUITE(Timepix2FrontendTest, Timepix2Frontends);

TYPED_TEST(Timepix2FrontendTest, HandsOutTheTriggerOfTheTypeSet) {
    auto& frontend = this->frontend;
    EXPECT_EQ(frontend.GetTriggerTypes(), (std::set<std::uint8_t>{1, 2, 5}));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(frontend.GetTrigger()));

    EXPECT_EQ(frontend.SetTrigger(1, 0.5), std::error_code());
    EXPECT_EQ(std::get<trigger::InternalTrigger*>(frontend.GetTrigger())->GetType(), 1);
    EXPECT_EQ(frontend.SetTrigger(2, 0.0001), std::error_code());
    auto* continuous = std::get<trigger::InternalTrigger*>(frontend.GetTrigger());
    EXPECT_EQ(continuous->GetType(), 2);
    EXPECT_EQ(continuous->GetDuration(), 0.0002);
    EXPECT_EQ(frontend.SetTrigger(5, 2.0), std::error_code());
    auto* external = std::get<trigger::ExternalTrigger*>(frontend.GetTrigger());
    EXPECT_EQ(external->GetDuration(), 0.0) << "the external trigger takes no duration";
    EXPECT_EQ(this->journal,
              (Journal{"set TPX_SHUT_DUR 20000000", "TPX_SHUT_EXT", "set TPX_SHUT_DUR 8000",
                       "TPX_SHUT_EXT", "set TPX_SHUT_DUR 0", "TPX_SHUT_EXT"}));

    this->journal.clear();
    for (const std::uint8_t type : {0, 3, 4}) {
        EXPECT_EQ(frontend.SetTrigger(type, 1.0), std::errc::invalid_argument);
        EXPECT_TRUE(std::holds_alternative<std::monostate>(frontend.GetTrigger()));
    }
    EXPECT_TRUE(this->journal.empty());
    EXPECT_EQ(this->Lines(log::kError).size(), 3u);

    this->commands.refusals["TPX_SHUT_EXT"] = {kIoError};
    EXPECT_EQ(frontend.SetTrigger(1, 0.5), kIoError);
}

TYPED_TEST(Timepix2FrontendTest, CutsShuttersLongerThanTheTicksHold) {
    auto& frontend = this->frontend;
    EXPECT_EQ(frontend.SetTrigger(1, 107.374182375), std::error_code());
    EXPECT_TRUE(this->log.Lines().empty()) << "the longest shutter isn't adjusted";
    EXPECT_EQ(frontend.SetTrigger(1, 107.3741824), std::error_code());
    EXPECT_EQ(std::get<trigger::InternalTrigger*>(frontend.GetTrigger())->GetDuration(),
              107.374182375);
    EXPECT_EQ(this->journal, (Journal{"set TPX_SHUT_DUR -1", "TPX_SHUT_EXT", "set TPX_SHUT_DUR -1",
                                      "TPX_SHUT_EXT"}));
    EXPECT_EQ(this->Lines(log::kWarning).size(), 1u);
}

TEST_F(FrontendItemsTest, Timepix2FrontendsNameThemselvesAndWarnInTheirOwnWords) {
    Tp2fe tp2fe(&commands, &states);
    Tpx2Chipboard chipboard(&commands, &states);
    EXPECT_STREQ(tp2fe.GetName(), "Timepix2 frontend");
    EXPECT_EQ(tp2fe.GetId(), "TP2FE");
    EXPECT_EQ(tp2fe.GetPipeline(), nullptr);
    EXPECT_STREQ(chipboard.GetName(), "Timepix2 chip board");
    EXPECT_EQ(chipboard.GetId(), "TPX2CB");
    ASSERT_NE(chipboard.GetPipeline(), nullptr);
    EXPECT_STREQ(chipboard.GetPipeline()->GetName(), "Tpx2 Chipboard data processing pipeline");

    EXPECT_EQ(tp2fe.SetTrigger(2, 200.0), std::error_code());
    EXPECT_EQ(chipboard.SetTrigger(5, 200.0), std::error_code());
    EXPECT_EQ(Lines(log::kWarning),
              (std::vector<std::string>{
                  "Cannot set more than 4294967295[1/40000000]s for internal trigger. Adjusting "
                  "shutter duration to 4294967295[1/40000000]s.",
                  "Specified shutter duration exceeds allowed maximum of "
                  "4294967295[1/40000000]s. Setting shutter to maximum."}));
    EXPECT_TRUE(Lines(log::kError).empty()) << "every required item is there";
}

TEST_F(FrontendItemsTest, Timepix4ChipboardOffersNoTrigger) {
    Tpx4Chipboard frontend(&commands, &states);
    EXPECT_STREQ(frontend.GetName(), "Timepix4 chip board");
    EXPECT_EQ(frontend.GetId(), "TPX4CB");
    EXPECT_TRUE(frontend.GetTriggerTypes().empty());
    for (const std::uint8_t type : {1, 2, 5}) {
        EXPECT_EQ(frontend.SetTrigger(type, 1.0), std::errc::operation_not_supported);
        EXPECT_TRUE(std::holds_alternative<std::monostate>(frontend.GetTrigger()));
    }
    ASSERT_NE(frontend.GetPipeline(), nullptr);
    EXPECT_STREQ(frontend.GetPipeline()->GetName(), "Tpx4 Chipboard data processing pipeline");
    EXPECT_TRUE(journal.empty());
    EXPECT_TRUE(log.Lines().empty());
}

TEST(FrontendDeathTest, MissingItemSetsAreBugs) {
    trigger::ExtTp2Cb external(nullptr, nullptr);
    EXPECT_DEATH(external.Stop(), "BUG: Command items are invalid");
    EXPECT_DEATH(external.Configure(), "BUG: State items are invalid");
    Tpx2CbPipeline pipeline(nullptr);
    EXPECT_DEATH(pipeline.SetBitDepth(1), "BUG: Commands object is invalid\\.");
}

}  // namespace
}  // namespace ovex::sdk::testing
