// The Timepix2 frame acquisition against a provider that the test feeds transfer by transfer:
// every depth unpacks to the frame the board packed, frames are cut from transfers whatever
// their boundaries, bytes that make no frame are dropped and counted, and starts, settings,
// aborts and failures leave the module as a host expects.

#include <gtest/gtest.h>

#include <any>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <vector>

#include "impl/acquisition/frame_assembler.hpp"
#include "impl/acquisition/tpx2_descramblers.hpp"
#include "modules/tpx2_acquisition.hpp"
#include "modules/tpx4_acquisition.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_provider.hpp"

namespace ovex::sdk::testing {
namespace {

using acquisition::FrameAssembler;
using acquisition::IAcquisition;
using acquisition::Tpx2Acquisition;
using acquisition::Tpx2FrameStore;
using Frame = std::vector<std::uint16_t>;

constexpr std::size_t kPixels = 65536;
constexpr std::uint32_t kRaw = 1;
constexpr std::uint32_t kFrames = 2;

// Sets `bits` bits of `value` at bit `position` of a little-endian bit stream.
void PutBits(Block& stream, std::size_t position, std::uint32_t value, unsigned bits) {
    for (unsigned b = 0; b < bits; ++b) {
        if ((value >> b & 1U) != 0) {
            stream[(position + b) / 8] |= static_cast<std::byte>(1U << ((position + b) % 8));
        }
    }
}

// The transfers in which the board sends `frame` at a depth code (0 8 bits, 1 10, 2 14): at 14
// bits the chip shifts its pixels out last first, the low 10 bits of all, then the high 4.
std::vector<Block> Packed(const Frame& frame, int depth) {
    const std::size_t count = frame.size();
    if (depth == 0) {
        Block bytes(count);
        for (std::size_t i = 0; i < count; ++i) {
            bytes[i] = static_cast<std::byte>(frame[i]);
        }
        return {bytes};
    }
    Block low(count * 10 / 8);
    if (depth == 1) {
        for (std::size_t i = 0; i < count; ++i) {
            PutBits(low, 10 * i, frame[i], 10);
        }
        return {low};
    }
    Block high(count / 2);
    for (std::size_t p = 0; p < count; ++p) {
        const std::uint16_t value = frame[count - 1 - p];
        PutBits(low, 10 * p, value & 0x3FFU, 10);
        PutBits(high, 4 * p, value >> 10U, 4);
    }
    return {low, high};
}

// Random counts up to the depth's maximum, which the first and the last pixel hold.
Frame RandomFrame(std::uint16_t max, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> value(0, max);
    Frame frame(kPixels);
    for (auto& pixel : frame) {
        pixel = static_cast<std::uint16_t>(value(random));
    }
    frame.front() = max;
    frame.back() = max;
    return frame;
}

Block Joined(const std::vector<Block>& parts) {
    Block joined;
    for (const auto& part : parts) {
        joined.insert(joined.end(), part.begin(), part.end());
    }
    return joined;
}

// What the callbacks saw, for the test's thread to wait on.
struct Seen {
    void Take(IAcquisition& acquisition) {
        const auto data = acquisition.GetData();
        const auto& store = *static_cast<const Tpx2FrameStore*>(data.data);
        std::unique_lock lock(mutex);
        kinds.push_back(data.kind);
        std::vector<Frame> these;
        for (const auto frame : store.frames) {
            these.emplace_back(frame.begin(), frame.end());
        }
        frames.push_back(std::move(these));
        raw.emplace_back();
        for (const auto& span : acquisition.GetRawData()) {
            raw.back().push_back(span.size);
        }
        const std::size_t call = frames.size() - 1;
        changed.notify_all();
        lock.unlock();
        if (during) {
            during(call);
        }
    }
    void WaitFor(std::size_t count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return frames.size() >= count; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<acquisition::AcquisitionDataKind> kinds;
    std::vector<std::vector<Frame>> frames;        // per callback
    std::vector<std::vector<std::size_t>> raw;     // raw span sizes per callback
    std::function<void(std::size_t call)> during;  // runs in each callback after the record
};

// The scripted provider with the faults it can't script: a stop that fails, and an item that
// throws what is no std::exception.
class FaultyProvider final : public acquisition::IVectorDataProvider {
public:
    std::error_code Start(std::uint64_t size) override { return scripted.Start(size); }
    std::error_code Stop() override {
        const auto stopped = scripted.Stop();
        return stop_error ? stop_error : stopped;
    }
    bool IsRunning() override { return scripted.IsRunning(); }
    std::error_code Configure(std::any settings) override {
        return scripted.Configure(std::move(settings));
    }
    std::error_code GetData(ScriptedProvider::Buffer& data) override {
        scripted.GetData(data);
        if (data && throw_next.exchange(false)) {
            throw 42;
        }
        return {};
    }

    ScriptedProvider scripted;
    std::error_code stop_error;
    std::atomic<bool> throw_next{false};
};

class Tpx2AcquisitionTest : public ::testing::Test {
protected:
    Tpx2AcquisitionTest() { chip.pixel_count = kPixels; }

    std::error_code Start(std::uint32_t flags = kRaw | kFrames) {
        return acquisition.Start(chip, flags, {}, [this](IAcquisition& a) { seen.Take(a); });
    }
    void Configure(std::uint8_t depth, std::int64_t frames) {
        ASSERT_FALSE(acquisition.SetPixelDepth(depth));
        ASSERT_FALSE(acquisition.SetFrameCount(frames));
    }
    void Deliver(const std::vector<Block>& parts) {
        for (const auto& part : parts) {
            provider->Deliver(part);
        }
    }

    LogCapture log;
    ChipInfo chip{};
    Seen seen;
    std::shared_ptr<ScriptedProvider> provider = std::make_shared<ScriptedProvider>();
    Tpx2Acquisition acquisition{provider};
};

TEST(Tpx2Descramblers, TenBitValuesRunLowestBitFirstAndOddPartsAreLeftAlone) {
    acquisition::Tpx2Descrambler10Bit ten;
    Frame frame(8, 0xFFFF);
    const Block bytes{std::byte{0xFF}, std::byte{0x03}, std::byte{0x00}, std::byte{0x00},
                      std::byte{0x00}, std::byte{0x01}, std::byte{0x08}, std::byte{0x40},
                      std::byte{0x00}, std::byte{0x02}};
    ten.Descramble(bytes, frame);
    EXPECT_EQ(frame, (Frame{1023, 0, 0, 0, 1, 2, 4, 8}));

    // At 14 bits a part is told by its length; any other length changes nothing.
    acquisition::Tpx2Descrambler14Bit fourteen;
    Frame untouched(kPixels, 7);
    fourteen.Descramble(Block(0x14000 - 4), untouched);
    fourteen.Descramble(Block(0x8001), untouched);
    EXPECT_EQ(untouched, Frame(kPixels, 7));
    EXPECT_EQ(acquisition::MakeDescrambler(3), nullptr);
}

TEST(FrameAssembler, FrameInTwoTransfersSplitAtEveryPositionComesOutWhole) {
    FrameAssembler assembler;
    Block frame(40);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<std::byte>(i + 1);
    }
    assembler.Reset(frame.size());
    const std::span<const std::byte> whole(frame);
    for (std::size_t split = 1; split < frame.size(); ++split) {
        EXPECT_TRUE(assembler.Add(whole.first(split)).empty()) << split;
        EXPECT_EQ(assembler.Pending(), split);
        const auto out = assembler.Add(whole.subspan(split));
        ASSERT_EQ(out.size(), frame.size()) << split;
        EXPECT_TRUE(std::equal(out.begin(), out.end(), frame.begin())) << split;
        EXPECT_EQ(assembler.Pending(), 0U);
    }
    // One byte at a time, and a whole frame in one transfer handed on as it is.
    for (std::size_t i = 0; i + 1 < frame.size(); ++i) {
        EXPECT_TRUE(assembler.Add(whole.subspan(i, 1)).empty());
    }
    EXPECT_EQ(assembler.Add(whole.last(1)).size(), frame.size());
    EXPECT_EQ(assembler.Add(whole).data(), frame.data());
    EXPECT_EQ(assembler.Dropped(), 0U);
}

TEST(FrameAssembler, BytesThatMakeNoFrameAreDroppedAndCountedAndTheNextFrameIsWhole) {
    LogCapture log;
    FrameAssembler assembler;
    const Block frame(40, std::byte{1});
    assembler.Reset(frame.size());
    // Cut short: the next frame's transfer doesn't fit behind it.
    EXPECT_TRUE(assembler.Add(Block(25)).empty());
    EXPECT_EQ(assembler.Add(frame).size(), frame.size());
    EXPECT_EQ(assembler.Dropped(), 25U);
    // Padding behind a frame, a transfer longer than a frame.
    EXPECT_TRUE(assembler.Add(Block(3)).empty());
    EXPECT_EQ(assembler.Add(frame).size(), frame.size());
    EXPECT_TRUE(assembler.Add(Block(41)).empty());
    EXPECT_EQ(assembler.Dropped(), 69U);
    // An unfinished frame as the readout ends.
    EXPECT_TRUE(assembler.Add(Block(10)).empty());
    EXPECT_EQ(assembler.DropPending(), 10U);
    EXPECT_EQ(assembler.Dropped(), 79U);
    EXPECT_EQ(log.Count(log::kWarning,
                        "Dropped 25 bytes of an incomplete frame (frames of 40 "
                        "bytes); 25 bytes dropped so far."),
              1);
    EXPECT_EQ(log.Count(log::kWarning,
                        "Dropped 41 bytes of a transfer longer than a frame "
                        "(frames of 40 bytes); 69 bytes dropped so far."),
              1);
}

TEST_F(Tpx2AcquisitionTest, SingleFrameAtEachDepthIsTheFrameTheBoardPackedAndEndsTheReadout) {
    const std::uint16_t max[] = {255, 1023, 16383};
    const std::size_t frame_bytes[] = {65536, 81920, 114688};
    for (std::uint8_t depth = 0; depth < 3; ++depth) {
        SCOPED_TRACE(depth);
        Configure(depth, 1);
        EXPECT_EQ(provider->in_flight, 1);
        const Frame frame = RandomFrame(max[depth], depth);
        const auto parts = Packed(frame, depth);
        ASSERT_FALSE(Start());
        EXPECT_EQ(provider->transfer_size, frame_bytes[depth]);
        Deliver(parts);
        EXPECT_FALSE(acquisition.AwaitReadoutEnd(5.0));
        EXPECT_FALSE(acquisition.IsRunning());
        // The Consumer stopped the transfers at the frame.
        EXPECT_FALSE(provider->IsRunning());
        EXPECT_EQ(provider->run.stops, depth + 1);
        std::lock_guard lock(seen.mutex);
        ASSERT_EQ(seen.frames.size(), 1U);
        ASSERT_EQ(seen.frames[0].size(), 1U);
        EXPECT_EQ(seen.frames[0][0], frame);
        EXPECT_EQ(seen.kinds[0], acquisition::AcquisitionDataKind::kTpx2Frames);
        // At 14 bits the low bits' part alone made no callback: both parts are its raw data.
        EXPECT_EQ(seen.raw[0].size(), parts.size());
        seen.frames.clear();
        seen.raw.clear();
        seen.kinds.clear();
    }
    EXPECT_EQ(log.Count(log::kInfo, "Selected data descrambler: 14 bits per pixel."), 1);
    EXPECT_EQ(log.Count(log::kInfo, "Timepix 2 frame consumer terminated."), 3);
}

TEST_F(Tpx2AcquisitionTest, FramesSplitPaddedOrCutShortArriveInOrderAndTheLostBytesAreCounted) {
    Configure(2, -1);
    EXPECT_EQ(provider->in_flight, 32);
    ASSERT_FALSE(Start());
    std::vector<Frame> sent;
    for (std::uint32_t n = 0; n < 4; ++n) {
        sent.push_back(RandomFrame(16383, 10 + n));
    }
    const Block joined = Joined(Packed(sent[0], 2));
    // The first frame split inside a pixel group, the second in its two parts with padding
    // behind, a frame cut short, then the third whole and the fourth split at its last byte.
    provider->Deliver(Block(joined.begin(), joined.begin() + 1001));
    provider->Deliver(Block(joined.begin() + 1001, joined.end()));
    Deliver(Packed(sent[1], 2));
    provider->Deliver(Block(9));
    const Block third = Joined(Packed(sent[2], 2));
    provider->Deliver(Block(third.begin(), third.end() - 100));
    provider->Deliver(third);
    const Block fourth = Joined(Packed(sent[3], 2));
    provider->Deliver(Block(fourth.begin(), fourth.end() - 1));
    provider->Deliver(Block(fourth.end() - 1, fourth.end()));
    seen.WaitFor(4);
    EXPECT_FALSE(acquisition.Abort(IAcquisition::kAbortFromInside));
    EXPECT_FALSE(acquisition.AwaitReadoutEnd(5.0));
    std::lock_guard lock(seen.mutex);
    ASSERT_EQ(seen.frames.size(), 4U);
    for (std::size_t n = 0; n < 4; ++n) {
        ASSERT_EQ(seen.frames[n].size(), 1U);
        EXPECT_EQ(seen.frames[n][0], sent[n]) << n;
    }
    EXPECT_EQ(acquisition.DroppedBytes(), 9U + third.size() - 100);
    // The raw data are the frame's own transfers; the dropped ones aren't among them.
    EXPECT_EQ(seen.raw[0], (std::vector<std::size_t>{1001, joined.size() - 1001}));
    EXPECT_EQ(seen.raw[2], std::vector<std::size_t>{third.size()});
}

TEST_F(Tpx2AcquisitionTest, TransfersThatMakeNoFrameAreFreedAsSoonAsTheyAreDropped) {
    // The board packs 8-bit frames where 10-bit ones are due: none of them ever completes.
    Configure(1, -1);
    std::vector<std::weak_ptr<Block>> dropped;
    std::size_t still_held = 0;
    seen.during = [&](std::size_t) {
        for (const auto& transfer : dropped) {
            still_held += transfer.expired() ? 0 : 1;
        }
    };
    ASSERT_FALSE(Start());
    for (int n = 0; n < 5; ++n) {
        auto transfer = std::make_shared<Block>(kPixels);
        dropped.push_back(transfer);
        provider->run.Deliver(std::move(transfer));
    }
    Deliver(Packed(RandomFrame(1023, 5), 1));
    seen.WaitFor(1);
    EXPECT_FALSE(acquisition.Abort(IAcquisition::kAbortFromInside));
    EXPECT_FALSE(acquisition.AwaitReadoutEnd(5.0));
    EXPECT_EQ(still_held, 0U);
    EXPECT_EQ(seen.raw[0], std::vector<std::size_t>{81920});
    EXPECT_EQ(acquisition.DroppedBytes(), 5 * kPixels);
}

TEST_F(Tpx2AcquisitionTest, WithoutTheProcessedFlagEachFrameOfBytesCountsAndOnlyRawDataArrive) {
    Configure(0, 2);
    EXPECT_EQ(provider->in_flight, 32);
    // A host's failure doesn't end the readout, whatever it throws.
    seen.during = [](std::size_t call) {
        if (call == 0) {
            throw std::runtime_error("host failure");
        }
        throw 42;
    };
    ASSERT_FALSE(Start(0));
    provider->Deliver(Block(kPixels));
    provider->Deliver(Block(kPixels));
    EXPECT_FALSE(acquisition.AwaitReadoutEnd(5.0));
    std::lock_guard lock(seen.mutex);
    ASSERT_EQ(seen.frames.size(), 2U);
    EXPECT_TRUE(seen.frames[0].empty());
    EXPECT_EQ(seen.raw[1], std::vector<std::size_t>{kPixels});
    EXPECT_EQ(log.Count(log::kError, "The Timepix 2 acquisition callback failed: host failure"), 1);
    EXPECT_EQ(log.Count(log::kError,
                        "The Timepix 2 acquisition callback failed with an unknown exception."),
              1);
}

TEST_F(Tpx2AcquisitionTest, StartNeedsCountAndDepthAndNeitherChangesDuringTheReadout) {
    EXPECT_EQ(Start(), std::errc::operation_not_supported);
    EXPECT_EQ(
        log.Count(log::kError, "Expected number of frames not configured. Trigger not configured?"),
        1);
    ASSERT_FALSE(acquisition.SetFrameCount(-1));
    EXPECT_EQ(Start(), std::errc::operation_not_supported);
    EXPECT_EQ(log.Count(log::kError, "Data descrambler not selected. Chip mode not configured?"),
              1);
    ASSERT_FALSE(acquisition.SetPixelDepth(1));
    // A chip without pixels makes no frame: nothing starts.
    chip.pixel_count = 0;
    EXPECT_EQ(Start(), std::errc::invalid_argument);
    EXPECT_EQ(log.Count(log::kError, "Cannot start Timepix 2 acquisition: the chip has no pixels."),
              1);
    EXPECT_EQ(provider->run.starts, 0);
    chip.pixel_count = kPixels;
    EXPECT_EQ(acquisition.SetPixelDepth(acquisition::Bit48Depth), std::errc::not_supported);
    EXPECT_EQ(acquisition.SetPixelDepth(acquisition::UnknownDepth), std::errc::not_supported);
    EXPECT_EQ(log.Count(log::kError, "Unknown/unrecognized pixel depth setting."), 2);
    provider->start_error = std::make_error_code(std::errc::no_such_device);
    EXPECT_EQ(Start(), std::errc::no_such_device);
    EXPECT_EQ(log.Count(log::kError, "Data provider not started - generic: No such device."), 1);
    EXPECT_FALSE(acquisition.IsRunning());
    provider->start_error = {};
    // A run that isn't the module's own would end with neither its frames nor an abort.
    provider->run.Start();
    EXPECT_EQ(Start(), std::errc::device_or_resource_busy);
    EXPECT_EQ(log.Count(log::kError,
                        "Data provider already running: Timepix 2 acquisition can't start a "
                        "readout of its own."),
              1);
    EXPECT_FALSE(acquisition.IsRunning());
    EXPECT_TRUE(provider->IsRunning());
    ASSERT_FALSE(provider->Stop());

    ASSERT_FALSE(Start());
    EXPECT_EQ(provider->transfer_size, 81920U);  // the 10-bit descrambler stayed
    EXPECT_TRUE(acquisition.IsRunning());
    EXPECT_EQ(Start(), std::errc::operation_in_progress);
    EXPECT_EQ(acquisition.SetPixelDepth(0), std::errc::device_or_resource_busy);
    EXPECT_EQ(acquisition.SetFrameCount(1), std::errc::operation_in_progress);
    EXPECT_EQ(log.Count(log::kWarning, "Acquisition already in progress."), 1);
    EXPECT_EQ(log.Count(log::kError, "Unable to change descrambler while acquisition is running."),
              1);
    EXPECT_EQ(log.Count(log::kError,
                        "Unable to change number of expected frames while the "
                        "acquisition is running."),
              1);
    // Half a frame, then the board goes away: the readout ends with its error.
    provider->Deliver(Block(40960));
    provider->EndByItself(std::make_error_code(std::errc::no_such_device));
    EXPECT_EQ(acquisition.AwaitReadoutEnd(5.0), std::errc::no_such_device);
    EXPECT_FALSE(acquisition.IsRunning());
    EXPECT_EQ(acquisition.DroppedBytes(), 40960U);
    EXPECT_FALSE(acquisition.SetPixelDepth(2));
}

TEST_F(Tpx2AcquisitionTest, AClientsAbortWaitsWithATraceLineAndTheNextStartGivesWholeFrames) {
    Configure(1, -1);
    ASSERT_FALSE(Start());
    // Half a frame, then the module's own abort, which doesn't wait.
    provider->Deliver(Block(40960));
    EXPECT_FALSE(acquisition.Abort(IAcquisition::kAbortFromInside));
    EXPECT_FALSE(acquisition.AwaitReadoutEnd(5.0));
    EXPECT_TRUE(log.StartingWith("Waiting for abort").empty());
    EXPECT_EQ(acquisition.DroppedBytes(), 40960U);

    ASSERT_FALSE(Start());
    const Frame frame = RandomFrame(1023, 7);
    Deliver(Packed(frame, 1));
    seen.WaitFor(1);
    EXPECT_FALSE(acquisition.Abort(IAcquisition::kAbortByClient));
    EXPECT_FALSE(acquisition.AwaitReadoutEnd(5.0));
    const auto waits = log.StartingWith("Waiting for abort");
    ASSERT_EQ(waits.size(), 1U);
    EXPECT_EQ(waits[0].verbosity, log::kDebug);
    EXPECT_EQ(waits[0].message, "Waiting for abort acquisition data.");
    std::lock_guard lock(seen.mutex);
    ASSERT_EQ(seen.frames.size(), 1U);
    EXPECT_EQ(seen.frames[0], std::vector<Frame>{frame});
    EXPECT_EQ(seen.raw[0], std::vector<std::size_t>{81920});
}

TEST(Tpx2AcquisitionFaults, AFailedStopOrAFailingConsumerEndsTheReadoutWithOneClearLine) {
    LogCapture log;
    ChipInfo chip{};
    chip.pixel_count = kPixels;
    auto provider = std::make_shared<FaultyProvider>();
    Tpx2Acquisition acquisition(provider);
    ASSERT_FALSE(acquisition.SetPixelDepth(acquisition::Bit10Depth));
    ASSERT_FALSE(acquisition.SetFrameCount(1));
    const auto ignore = [](IAcquisition&) {};

    // The stop at the last frame fails: its line comes once, from the Consumer.
    provider->stop_error = std::make_error_code(std::errc::io_error);
    ASSERT_FALSE(acquisition.Start(chip, kFrames, {}, ignore));
    provider->scripted.Deliver(Block(81920));
    EXPECT_EQ(acquisition.AwaitReadoutEnd(5.0), std::errc::io_error);
    EXPECT_EQ(log.Count(log::kError,
                        "Failed to stop acquisition data provider - generic: Input/output error."),
              1);
    EXPECT_TRUE(log.StartingWith("Unable to stop").empty());

    // The provider throws what is no std::exception: the run stops and the readout ends.
    provider->stop_error = {};
    ASSERT_FALSE(acquisition.SetFrameCount(-1));
    ASSERT_FALSE(acquisition.Start(chip, kFrames, {}, ignore));
    provider->throw_next = true;
    provider->scripted.Deliver(Block(100));
    EXPECT_EQ(acquisition.AwaitReadoutEnd(5.0), std::errc::state_not_recoverable);
    EXPECT_EQ(log.Count(log::kError,
                        "The Timepix 2 acquisition data consumer failed: unknown exception."),
              1);
    EXPECT_FALSE(acquisition.IsRunning());
    EXPECT_EQ(provider->scripted.run.stops, 2);
}

TEST(Tpx4Acquisition, RefusesEverythingAndServesNoMode) {
    auto provider = std::make_shared<ScriptedProvider>();
    acquisition::Tpx4Acquisition acquisition(provider);
    EXPECT_STREQ(acquisition.GetName(), "Timepix 4 acquisition");
    const auto refused = std::make_error_code(std::errc::operation_not_supported);
    EXPECT_EQ(acquisition.Start({}, kFrames, {}, [](IAcquisition&) {}), refused);
    EXPECT_EQ(acquisition.SetPixelDepth(1), refused);
    EXPECT_EQ(acquisition.SetFrameCount(1), refused);
    EXPECT_EQ(acquisition.Abort(IAcquisition::kAbortByClient), refused);
    EXPECT_EQ(acquisition.AwaitReadoutEnd(1.0), refused);
    EXPECT_TRUE(acquisition.GetSupportedModes().empty());
    EXPECT_EQ(acquisition.GetData().kind, acquisition::AcquisitionDataKind::kNone);
    EXPECT_TRUE(acquisition.GetRawData().empty());
    EXPECT_EQ(acquisition.GetProcessMode(), DefaultProcessing);
    EXPECT_FALSE(acquisition.IsRunning());
    EXPECT_FALSE(provider->in_flight.has_value());
}

}  // namespace
}  // namespace ovex::sdk::testing
