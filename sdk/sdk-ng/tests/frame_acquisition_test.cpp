// The frame-based acquisition's life against a provider that the test feeds block by block:
// when a readout ends, what reaches the callback, and how starts, aborts, waits and failures
// leave it.

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "modules/tpx3_acq_frame_based.hpp"
#include "support/item_fakes.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_provider.hpp"

namespace ovex::sdk::testing {
namespace {

using acquisition::FrameRecords;
using acquisition::IAcquisition;
using acquisition::Tpx3AcqFBIToTEvCnt;
using acquisition::Tpx3AcqFBToAToT;
using acquisition::Tpx3AcqFrameBased;
using tpx3_toa_extension::FrameItotEventRecord;
using tpx3_toa_extension::FrameToaTotRecord;

void Append(Block& block, std::uint64_t packet) {
    for (int b = 0; b < 6; ++b) {
        block.push_back(static_cast<std::byte>(packet >> (8 * b)));
    }
}

std::uint64_t ToaTotPacket(std::uint32_t address, std::uint32_t tot, std::uint32_t toa,
                           std::uint32_t fine) {
    return std::uint64_t{address} << 30 | std::uint64_t{tot} << 20 | std::uint64_t{toa} << 4 | fine;
}

constexpr std::uint64_t kCtrlPacket = std::uint64_t{3} << 46 | 0x1234;
constexpr std::uint64_t kCfgPacket = std::uint64_t{1} << 46;

// What the callbacks saw, for the test's thread to wait on.
template <typename Record>
struct Frames {
    void Take(IAcquisition& acquisition) {
        const auto data = acquisition.GetData();
        const auto* store = static_cast<const FrameRecords<Record>*>(data.data);
        std::lock_guard lock(mutex);
        kinds.push_back(data.kind);
        frames.emplace_back(store->records.begin(),
                            store->records.begin() + static_cast<std::ptrdiff_t>(store->count));
        raw_bytes.push_back(0);
        for (const auto& span : acquisition.GetRawData()) {
            raw_bytes.back() += span.size;
        }
        changed.notify_all();
    }
    void WaitFor(std::size_t count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return frames.size() >= count; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<acquisition::AcquisitionDataKind> kinds;
    std::vector<std::vector<Record>> frames;
    std::vector<std::size_t> raw_bytes;
};

class FrameAcquisitionTest : public ::testing::Test {
protected:
    std::error_code StartToaTot(std::uint32_t flags = 0) {
        return toa_tot.Start({}, flags, {}, [this](IAcquisition& a) { seen.Take(a); });
    }

    LogCapture log;
    Journal journal;
    FakeCommands commands{journal, {"TPX_T0_SYNC"}};
    std::shared_ptr<ScriptedProvider> provider = std::make_shared<ScriptedProvider>();
    Tpx3AcqFBToAToT toa_tot{&commands, provider};
    Frames<FrameToaTotRecord> seen;
};

TEST_F(FrameAcquisitionTest, FullTransfersKeepTheReadoutGoingAndTheShortOneEndsIt) {
    ASSERT_FALSE(StartToaTot(acquisition::kKeepRawData));
    EXPECT_EQ(provider->transfer_size, Tpx3AcqFrameBased::FrameBufferSize);
    EXPECT_EQ(journal, Journal{"TPX_T0_SYNC"});

    Block full;
    while (full.size() < Tpx3AcqFrameBased::FrameBufferSize) {
        Append(full, ToaTotPacket(7, 1, 2, 3));
    }
    full.resize(Tpx3AcqFrameBased::FrameBufferSize);
    provider->Deliver(full);
    Block last;
    Append(last, ToaTotPacket(0xBEEF, 1023, 0xFFFF, 15));
    Append(last, kCtrlPacket);
    Append(last, ToaTotPacket(0x0102, 5, 0x1234, 1));
    provider->Deliver(last);

    EXPECT_FALSE(toa_tot.AwaitReadoutEnd(60.0));
    EXPECT_FALSE(toa_tot.IsRunning());
    EXPECT_EQ(provider->run.stops, 1);
    ASSERT_EQ(seen.frames.size(), 2u);
    EXPECT_EQ(seen.kinds[0], acquisition::AcquisitionDataKind::kFrameToaTot);
    EXPECT_EQ(seen.frames[0].size(), Tpx3AcqFrameBased::FrameBufferSize / 6);
    EXPECT_EQ(seen.raw_bytes, (std::vector<std::size_t>{full.size(), last.size()}));
    // The CTRL packet gives no record; the ToA is the 20 bits of coarse and fine time.
    ASSERT_EQ(seen.frames[1].size(), 2u);
    EXPECT_EQ(seen.frames[1][0].address, 0xBEEFu);
    EXPECT_EQ(seen.frames[1][0].tot, 1023u);
    EXPECT_EQ(seen.frames[1][0].toa, 0xFFFFFu);
    EXPECT_EQ(seen.frames[1][1].address, 0x0102u);
    EXPECT_EQ(seen.frames[1][1].toa, 0x12341u);
    EXPECT_TRUE(log.Contains(log::kInfo, "End of readout reached."));
    EXPECT_TRUE(
        log.Contains(log::kInfo, "All data received for " + std::string(toa_tot.GetName()) + "."));

    // The next readout starts afresh, without raw data this time.
    ASSERT_FALSE(StartToaTot());
    provider->Deliver(last);
    EXPECT_FALSE(toa_tot.AwaitReadoutEnd(60.0));
    EXPECT_EQ(provider->run.starts, 2);
    EXPECT_EQ(seen.raw_bytes.back(), 0u);
}

TEST_F(FrameAcquisitionTest, CallbackThatThrowsAnythingCostsItsResultNotTheReadout) {
    int calls = 0;
    ASSERT_FALSE(toa_tot.Start({}, 0, {}, [&calls](IAcquisition&) {
        if (++calls == 1) {
            throw 42;  // a host callback may throw what it likes
        }
        throw std::runtime_error("host failure");
    }));
    Block full(Tpx3AcqFrameBased::FrameBufferSize);
    provider->Deliver(full);
    Block last;
    Append(last, ToaTotPacket(1, 1, 1, 1));
    provider->Deliver(last);

    EXPECT_FALSE(toa_tot.AwaitReadoutEnd(60.0));
    EXPECT_EQ(calls, 2);
    const std::string name = toa_tot.GetName();
    EXPECT_EQ(log.Count(log::kError, "The " + name + " callback failed with an unknown exception."),
              1);
    EXPECT_EQ(log.Count(log::kError, "The " + name + " callback failed: host failure"), 1);
}

TEST_F(FrameAcquisitionTest, ContinuousReadoutRunsUntilTheClientAborts) {
    Tpx3AcqFBIToTEvCnt itot{&commands, provider};
    Frames<FrameItotEventRecord> frames;
    std::error_code awaited_in_callback;
    itot.SetFrameCount(-1);
    ASSERT_FALSE(itot.Start({}, 0, {}, [&](IAcquisition& a) {
        // Refused at once: the callback's thread is the one it would wait for.
        awaited_in_callback = a.AwaitReadoutEnd(60.0);
        frames.Take(a);
    }));
    for (std::uint32_t frame = 0; frame < 3; ++frame) {
        Block block;
        // Event count 2, iToT 300 in bits 17..4; bits 19..18 and 3..0 are not read.
        Append(block, std::uint64_t{frame + 1} << 30 | std::uint64_t{2} << 20 | 3u << 18 |
                          300u << 4 | 0xF);
        provider->Deliver(block);
    }
    frames.WaitFor(3);
    EXPECT_EQ(awaited_in_callback, std::errc::resource_deadlock_would_occur);
    EXPECT_TRUE(itot.IsRunning());
    // The other frame mode shares the provider, but the run is not its own.
    EXPECT_FALSE(toa_tot.IsRunning());
    EXPECT_FALSE(toa_tot.Abort(IAcquisition::kAbortFromInside));
    EXPECT_EQ(provider->run.stops, 0);
    EXPECT_FALSE(itot.Abort(IAcquisition::kAbortByClient));
    EXPECT_FALSE(itot.AwaitReadoutEnd(60.0));
    EXPECT_FALSE(itot.IsRunning());
    ASSERT_EQ(frames.frames.size(), 3u);
    EXPECT_EQ(frames.kinds[2], acquisition::AcquisitionDataKind::kFrameItotEvents);
    EXPECT_EQ(frames.frames[2][0].address, 3u);
    EXPECT_EQ(frames.frames[2][0].events, 2u);
    EXPECT_EQ(frames.frames[2][0].itot, 300u);
    EXPECT_TRUE(log.Contains(log::kInfo, "Waiting for abort acquisition data."));
    // An abort of a readout that is over changes nothing.
    EXPECT_FALSE(itot.Abort(IAcquisition::kAbortFromInside));
    EXPECT_EQ(provider->run.stops, 1);
}

TEST_F(FrameAcquisitionTest, CorruptBlockEndsTheReadoutWithAnErrorAfterTheGoodOnes) {
    toa_tot.SetFrameCount(-1);
    ASSERT_FALSE(StartToaTot());
    Block good;
    Append(good, ToaTotPacket(1, 1, 1, 1));
    provider->Deliver(good);
    Block bad;
    Append(bad, ToaTotPacket(2, 2, 2, 2));
    Append(bad, kCfgPacket);
    provider->Deliver(bad);

    EXPECT_EQ(toa_tot.AwaitReadoutEnd(60.0), std::errc::bad_message);
    EXPECT_FALSE(toa_tot.IsRunning());
    ASSERT_EQ(seen.frames.size(), 1u);
    EXPECT_TRUE(log.Contains(log::kError, std::string(toa_tot.GetName()) +
                                              " failed to process a block of 12 bytes: Header "
                                              "mask contains unsupported packet type!"));
}

TEST_F(FrameAcquisitionTest, BoardThatGoesAwayEndsTheReadoutWithTheStreamsError) {
    toa_tot.SetFrameCount(-1);
    ASSERT_FALSE(StartToaTot());
    const auto gone = std::make_error_code(std::errc::no_such_device);
    provider->EndByItself(gone);
    EXPECT_EQ(toa_tot.AwaitReadoutEnd(60.0), gone);
    EXPECT_FALSE(toa_tot.IsRunning());
    EXPECT_EQ(provider->run.stops, 1);  // the ended stream was collected
    EXPECT_TRUE(log.Contains(
        log::kError, Failure(std::string(toa_tot.GetName()) + " ended without a stop", gone)));

    // An abort that comes after the stream's end gets its error too, and so does the wait.
    ASSERT_FALSE(StartToaTot());
    provider->EndByItself(gone);
    EXPECT_EQ(toa_tot.Abort(IAcquisition::kAbortFromInside), gone);
    EXPECT_EQ(toa_tot.AwaitReadoutEnd(60.0), gone);
}

TEST_F(FrameAcquisitionTest, DestroyedWhileRunningStopsItsRunAndHandsOnWhatWasQueued) {
    {
        Tpx3AcqFBToAToT running{&commands, provider};
        running.SetFrameCount(-1);
        ASSERT_FALSE(running.Start({}, 0, {}, [this](IAcquisition& a) { seen.Take(a); }));
        Block block;
        Append(block, ToaTotPacket(1, 1, 1, 1));
        for (int i = 0; i < 3; ++i) {
            provider->Deliver(block);
        }
    }
    EXPECT_EQ(provider->run.stops, 1);
    EXPECT_FALSE(provider->IsRunning());
    EXPECT_EQ(seen.frames.size(), 3u);
}

TEST_F(FrameAcquisitionTest, WaitThatTimesOutAbortsTheReadout) {
    ASSERT_FALSE(StartToaTot());
    EXPECT_FALSE(toa_tot.AwaitReadoutEnd(0.001));
    EXPECT_FALSE(toa_tot.IsRunning());
    EXPECT_EQ(provider->run.stops, 1);
    EXPECT_TRUE(seen.frames.empty());
    EXPECT_TRUE(log.Contains(log::kWarning,
                             std::string(toa_tot.GetName()) + " timed-out after 0.001 seconds."));
}

TEST_F(FrameAcquisitionTest, RefusedStartsLeaveNothingRunning) {
    // A second start while the first runs.
    ASSERT_FALSE(StartToaTot());
    EXPECT_EQ(StartToaTot(), std::errc::operation_in_progress);
    EXPECT_TRUE(
        log.Contains(log::kWarning, std::string(toa_tot.GetName()) + " already in progress."));
    EXPECT_FALSE(toa_tot.Abort(IAcquisition::kAbortFromInside));
    EXPECT_FALSE(toa_tot.AwaitReadoutEnd(60.0));

    // A provider that does not start.
    provider->start_error = std::make_error_code(std::errc::no_such_device);
    EXPECT_EQ(StartToaTot(), std::errc::no_such_device);
    EXPECT_FALSE(toa_tot.IsRunning());
    EXPECT_TRUE(
        log.Contains(log::kError, "Unable to start data provider - generic: No such device."));
    provider->start_error = {};

    // A board that refuses the time sync: the readout is stopped again, and a frame that had
    // arrived meanwhile never reaches the client of the failed start.
    commands.refusals["TPX_T0_SYNC"] = {std::make_error_code(std::errc::io_error), 1};
    Block early;
    Append(early, ToaTotPacket(1, 1, 1, 1));
    provider->ready_at_start.push_back(early);
    EXPECT_EQ(StartToaTot(), std::errc::io_error);
    EXPECT_TRUE(log.Contains(log::kError, "Failed to invoke TPX_T0_SYNC"));
    EXPECT_FALSE(toa_tot.AwaitReadoutEnd(60.0));
    EXPECT_FALSE(toa_tot.IsRunning());
    EXPECT_TRUE(seen.frames.empty());
}

TEST_F(FrameAcquisitionTest, OnlyTheFortyEightBitDepthIsTaken) {
    EXPECT_FALSE(toa_tot.SetPixelDepth(acquisition::Bit48Depth));
    EXPECT_EQ(toa_tot.SetPixelDepth(acquisition::Bit10Depth), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: Pixel depth Bit10Depth is not valid for " +
                                              std::string(toa_tot.GetName()) + "."));
    EXPECT_EQ(toa_tot.SetPixelDepth(200), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: Pixel depth UnknownDepth is not valid for " +
                                              std::string(toa_tot.GetName()) + "."));
    EXPECT_EQ(toa_tot.GetSupportedModes(), std::set<ovexsdk_chip_mode>{ToAToTFBZS});
    EXPECT_EQ(toa_tot.GetProcessMode(), DefaultProcessing);
}

}  // namespace
}  // namespace ovex::sdk::testing
