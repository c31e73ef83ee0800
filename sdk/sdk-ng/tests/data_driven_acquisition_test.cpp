// The data-driven acquisition against a provider that the test feeds with a generated stream,
// span by span: what reaches the callback compared with the stream's truth, when a readout
// ends in each mode, and how aborts, waits and failures leave it.

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "modules/tpx3_acq_data_driven.hpp"
#include "support/item_fakes.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_run.hpp"
#include "tpx3_stream/arena_feed.hpp"
#include "tpx3_stream/reference.hpp"

namespace ovex::sdk::testing {
namespace {

using acquisition::AcquisitionDataKind;
using acquisition::IAcquisition;
using tpx3_pipeline::common::ExtendedBlock;
using tpx3_stream::ExpectedRecord;
using Span = std::unique_ptr<acquisition::ArenaData>;

// A provider whose spans the test delivers; a reset drops what is queued.
class ScriptedArenaProvider final : public acquisition::IArenaDataProvider {
public:
    std::error_code Configure(std::any settings) override {
        arenas = std::any_cast<tpx3_pipeline::Arena::Settings>(settings);
        return configure_error;
    }
    std::error_code Start(std::uint64_t /*size*/) override { return run.Start(); }
    std::error_code Stop() override { return run.Stop(); }
    bool IsRunning() override { return run.IsRunning(); }
    std::error_code GetData(Span& data) override {
        data = run.Pop();
        return {};
    }
    void Reset() override {
        run.Clear();
        ++resets;
    }

    void Deliver(std::vector<Span> spans) {
        for (Span& span : spans) {
            run.Deliver(std::move(span));
        }
    }

    ScriptedRun<Span> run;
    std::error_code configure_error;
    tpx3_pipeline::Arena::Settings arenas{0, 0};
    int resets = 0;
};

// What the callbacks saw.
struct Results {
    void Take(IAcquisition& acquisition) {
        const auto data = acquisition.GetData();
        std::lock_guard lock(mutex);
        kinds.push_back(data.kind);
        switch (data.kind) {
            case AcquisitionDataKind::kToaTotBlock:
                for (const auto& record : static_cast<const ExtendedBlock*>(data.data)->Records()) {
                    records.push_back({record.address, record.tot, record.time});
                }
                break;
            case AcquisitionDataKind::kEventCountFragment: {
                const auto& values = *static_cast<const std::vector<std::uint64_t>*>(data.data);
                bins.insert(bins.end(), values.begin(), values.end());
                break;
            }
            default:
                break;
        }
        for (const auto& span : acquisition.GetRawData()) {
            raw_bytes += span.size;
        }
        changed.notify_all();
    }
    void WaitForRecords(std::size_t count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return records.size() >= count; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<AcquisitionDataKind> kinds;
    std::vector<ExpectedRecord> records;
    std::vector<std::uint64_t> bins;
    std::size_t raw_bytes = 0;
};

class DataDrivenAcquisitionTest : public ::testing::Test {
protected:
    DataDrivenAcquisitionTest() {
        settings.lines = 2;
        settings.line_ticks = 20'000;
        settings.flyback_ticks = 8'000;
        settings.hits_per_tick = 0.2;
        stream = tpx3_stream::Generate(settings);
        pool = tpx3_stream::MakeArenaPool(settings, 4);
    }

    // The stream's blocks up to and with `last`, each a span as the provider hands it out.
    std::vector<Span> Spans(std::size_t last) {
        auto entries = tpx3_stream::ToEntries(stream, *pool);
        std::vector<Span> spans;
        for (std::size_t b = 0; b <= last; ++b) {
            auto& entry = entries[b];
            auto* bytes = const_cast<std::uint8_t*>(entry.data.bytes.data());
            spans.push_back(std::make_unique<acquisition::ArenaData>(
                acquisition::ArenaData{entry.data.arena,
                                       {bytes, entry.data.bytes.size()},
                                       entry.type == tpx3_pipeline::EntryType::LastData}));
        }
        return spans;
    }
    // The index of line `line`'s last block.
    std::size_t LineEnd(std::uint32_t line) const {
        for (std::size_t b = 0; b < stream.blocks.size(); ++b) {
            if (stream.blocks[b].line == line &&
                stream.blocks[b].kind == tpx3_stream::BlockKind::LastData) {
                return b;
            }
        }
        return stream.blocks.size();
    }
    std::vector<ExpectedRecord> TruthUpTo(std::size_t last) const {
        const auto& block = stream.blocks[last];
        return {stream.records.begin(),
                stream.records.begin() +
                    static_cast<std::ptrdiff_t>(block.first_record + block.record_count)};
    }
    IAcquisition::Callback Into(Results& into) {
        return [&into](IAcquisition& a) { into.Take(a); };
    }

    LogCapture log;
    Journal journal;
    FakeCommands commands{journal, {"TPX_T0_SYNC"}};
    std::shared_ptr<ScriptedArenaProvider> provider = std::make_shared<ScriptedArenaProvider>();
    tpx3_stream::StreamSettings settings;
    tpx3_stream::GeneratedStream stream;
    std::shared_ptr<tpx3_stream::ArenaPool> pool;
    Results results;
};

TEST_F(DataDrivenAcquisitionTest, FirstShortTransferEndsARecordReadoutWithEveryRecordTimed) {
    acquisition::Tpx3AcqDDToAToT extended(&commands, provider);
    ASSERT_FALSE(extended.Start({}, acquisition::kKeepRawData, {}, Into(results)));
    EXPECT_TRUE(extended.IsRunning());
    EXPECT_EQ(journal, Journal{"TPX_T0_SYNC"});
    // 1258291 bytes want two whole blocks of an arena.
    EXPECT_EQ(provider->arenas.block_size, 983040u);
    EXPECT_EQ(provider->arenas.capacity, 1966080u);

    const std::size_t end = LineEnd(0);
    provider->Deliver(Spans(stream.blocks.size() - 1));  // the second line never gets in
    EXPECT_FALSE(extended.AwaitReadoutEnd(60.0));
    EXPECT_FALSE(extended.IsRunning());
    EXPECT_EQ(results.records, TruthUpTo(end));
    EXPECT_EQ(results.kinds.size(), end + 1) << "a callback per block, none for the Stop";
    EXPECT_EQ(results.raw_bytes, stream.blocks[end].offset + stream.blocks[end].length);
    EXPECT_TRUE(log.Contains(log::kInfo, "End of readout reached."));
    EXPECT_EQ(provider->run.stops, 1);
    EXPECT_EQ(provider->resets, 1) << "what nobody took is dropped";
    EXPECT_THROW(extended.GetData(), std::runtime_error);
}

TEST_F(DataDrivenAcquisitionTest, SortedReadoutGivesTheLineInTimeOrder) {
    acquisition::Tpx3AcqDDToAToTSorted sorted(&commands, provider);
    ASSERT_FALSE(sorted.Start({}, 0, {}, Into(results)));
    const std::size_t end = LineEnd(0);
    provider->Deliver(Spans(end));
    EXPECT_FALSE(sorted.AwaitReadoutEnd(60.0));
    auto truth = TruthUpTo(end);
    std::sort(truth.begin(), truth.end(),
              [](const ExpectedRecord& a, const ExpectedRecord& b) { return a.time < b.time; });
    EXPECT_EQ(results.records, truth);
    EXPECT_EQ(results.raw_bytes, 0u);
}

TEST_F(DataDrivenAcquisitionTest, BinnedReadoutEndsWithItsLastLineAndStartsAgain) {
    acquisition::Tpx3AcqDDEvCountSum counts(&commands, provider);
    constexpr std::uint64_t kBinWidth = 16 * 500;
    constexpr std::uint32_t kBins = 30;
    const acquisition::ScanParameters scan{kBinWidth, kBins, 2};
    EXPECT_EQ(counts.GetArenaBytes(), 0x600000u);
    for (int run = 0; run < 2; ++run) {
        Results seen;
        ASSERT_FALSE(counts.Start({}, 0, scan, Into(seen)));
        EXPECT_EQ(provider->arenas.capacity, 6881280u);
        provider->Deliver(Spans(stream.blocks.size() - 1));
        EXPECT_FALSE(counts.AwaitReadoutEnd(60.0));
        EXPECT_EQ(seen.bins, tpx3_stream::BinLines(stream, kBinWidth, kBins).counts)
            << "run " << run;
        EXPECT_EQ(seen.kinds.back(), AcquisitionDataKind::kEventCountFragment);
    }
    EXPECT_EQ(log.Count(log::kInfo, "End of readout reached."), 2);

    EXPECT_EQ(counts.Start({}, 0, {}, Into(results)), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: Provided parameters are of incorrect type."));
    EXPECT_FALSE(counts.IsRunning());
}

TEST_F(DataDrivenAcquisitionTest, ContinuousReadoutRunsUntilTheClientAbortsAndRestarts) {
    acquisition::Tpx3AcqDDToAToT extended(&commands, provider);
    extended.SetFrameCount(-1);
    for (int run = 0; run < 2; ++run) {
        Results seen;
        std::error_code awaited_in_callback;
        ASSERT_FALSE(extended.Start({}, 0, {}, [&](IAcquisition& a) {
            awaited_in_callback = a.AwaitReadoutEnd(60.0);
            seen.Take(a);
        }));
        EXPECT_EQ(extended.Start({}, 0, {}, Into(results)), std::errc::operation_in_progress);
        provider->Deliver(Spans(stream.blocks.size() - 1));
        seen.WaitForRecords(stream.records.size());  // both short transfers passed
        EXPECT_TRUE(extended.IsRunning());
        EXPECT_FALSE(extended.Abort(IAcquisition::kAbortByClient));
        EXPECT_FALSE(extended.AwaitReadoutEnd(60.0));
        EXPECT_FALSE(extended.IsRunning());
        EXPECT_EQ(seen.records, stream.records);
        EXPECT_EQ(awaited_in_callback, std::errc::resource_deadlock_would_occur);
    }
    EXPECT_TRUE(
        log.Contains(log::kWarning, std::string(extended.GetName()) + " already in progress."));
    EXPECT_TRUE(log.Contains(log::kInfo, "Waiting for abort acquisition data."));
    EXPECT_EQ(provider->run.stops, 2);
}

TEST_F(DataDrivenAcquisitionTest, FailuresEndTheReadoutWithTheirStatusOrLogLine) {
    acquisition::Tpx3AcqDDToAToT extended(&commands, provider);
    extended.SetFrameCount(-1);

    // A board that goes away: the stream's error is the readout's.
    ASSERT_FALSE(extended.Start({}, 0, {}, Into(results)));
    const auto gone = std::make_error_code(std::errc::no_such_device);
    provider->run.EndByItself(gone);
    EXPECT_EQ(extended.AwaitReadoutEnd(60.0), gone);
    EXPECT_FALSE(extended.IsRunning());
    EXPECT_TRUE(log.Contains(
        log::kError, Failure(std::string(extended.GetName()) + " ended without a stop", gone)));

    // A stage that fails is logged at the wait, not returned; the readout still ends with its
    // first short transfer.
    extended.SetFrameCount(1);
    settings.cfg_packet_block = 0;
    stream = tpx3_stream::Generate(settings);
    ASSERT_FALSE(extended.Start({}, 0, {}, Into(results)));
    provider->Deliver(Spans(stream.blocks.size() - 1));
    EXPECT_FALSE(extended.AwaitReadoutEnd(60.0));
    EXPECT_TRUE(log.Contains(log::kError,
                             "Pipeline terminated with exception: Encountered Timepix3 packet with "
                             "unsupported header CFG."));

    // A provider that can't be configured, and a board that refuses the sync, leave nothing.
    provider->configure_error = std::make_error_code(std::errc::invalid_argument);
    EXPECT_EQ(extended.Start({}, 0, {}, Into(results)), std::errc::invalid_argument);
    EXPECT_TRUE(
        log.Contains(log::kError, "Cannot configure provider - generic: Invalid argument."));
    provider->configure_error = {};
    const int starts = provider->run.starts;
    commands.refusals["TPX_T0_SYNC"] = {std::make_error_code(std::errc::io_error), 1};
    EXPECT_EQ(extended.Start({}, 0, {}, Into(results)), std::errc::io_error);
    EXPECT_TRUE(log.Contains(log::kError, "Failed to invoke TPX_T0_SYNC"));
    EXPECT_EQ(provider->run.starts, starts + 1);
    EXPECT_FALSE(provider->IsRunning());
    EXPECT_FALSE(extended.IsRunning());

    EXPECT_FALSE(extended.SetPixelDepth(acquisition::Bit48Depth));
    EXPECT_EQ(extended.SetPixelDepth(acquisition::Bit8Depth), std::errc::invalid_argument);
}

TEST_F(DataDrivenAcquisitionTest, DestroyedWhileRunningEndsItsReadout) {
    {
        acquisition::Tpx3AcqDDIToTSum itot(&commands, provider);
        ASSERT_FALSE(
            itot.Start({}, 0, acquisition::ScanParameters{16 * 500, 30, 5}, Into(results)));
        provider->Deliver(Spans(LineEnd(0)));
    }
    EXPECT_EQ(provider->run.stops, 1);
    EXPECT_FALSE(provider->IsRunning());
}

}  // namespace
}  // namespace ovex::sdk::testing
