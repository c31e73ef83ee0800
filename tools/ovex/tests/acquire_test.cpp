// `ovex acquire`'s parts without a board: the .npy and PNG files as readers see them, the colour
// map, the files of a run from queued results, the loss reports, the pixel decoding, the
// writer's queue under a producer and the command line's refusals.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "acquire_options.hpp"
#include "chunk_queue.hpp"
#include "colour_map.hpp"
#include "loss_counter.hpp"
#include "npy_read.hpp"
#include "npy_writer.hpp"
#include "ovex/pixel_address.hpp"
#include "png_read.hpp"
#include "png_writer.hpp"
#include "run_files.hpp"

namespace ovex::cli {
namespace {

using pixel::PixelIndexOf;
using pixel::PixelOf;
using testing::BrightestPixel;
using testing::ReadNpy;
using testing::ReadPng;

// A directory of the test's own, removed at its end.
class AcquireFiles : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = std::filesystem::temp_directory_path() /
                ("ovex_acquire_test." + std::to_string(::getpid()));
        std::filesystem::create_directories(m_dir);
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    std::string PathOf(const char* name) const { return (m_dir / name).string(); }

private:
    std::filesystem::path m_dir;
};

std::span<const std::byte> BytesOf(const auto& values) {
    return std::as_bytes(std::span(values));
}

Chunk ResultChunk(const auto& values) {
    const auto bytes = BytesOf(values);
    return {Chunk::kResult, std::vector<std::byte>(bytes.begin(), bytes.end())};
}

double Luminance(const Rgb& rgb) {
    return 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
}

// Address as the chip sends it for the host's pixel (x, y): the inverse of PixelOf.
std::uint32_t AddressOf(std::uint32_t x, std::uint32_t y) {
    const std::uint32_t swapped = 65535 - (y * 256 + x);
    return ((swapped & 0xFF) << 8) | (swapped >> 8);
}

TEST_F(AcquireFiles, NpyHeaderParsesIsAlignedAndItsShapeIsTheRowsWrittenAtTheEnd) {
    NpyWriter(PathOf("empty.npy"), "'<u8'", {4}).Finish(0);
    const auto empty = ReadNpy(PathOf("empty.npy"));
    EXPECT_EQ(empty.descr, "'<u8'");
    EXPECT_EQ(empty.shape, (std::vector<std::uint64_t>{0, 4}));
    EXPECT_EQ(empty.data_offset, kNpyPrefixBytes);
    EXPECT_TRUE(empty.data.empty());

    const std::string path = PathOf("r.npy");
    NpyWriter writer(path, "'<u8'", {});
    const std::uint64_t rows[] = {7, 0xFFFFFFFFFFFFFFFF, 42};
    writer.Append(BytesOf(rows));
    writer.Finish(3);
    const auto after = ReadNpy(path);
    EXPECT_EQ(after.shape, std::vector<std::uint64_t>{3});
    EXPECT_EQ(after.data_offset, kNpyPrefixBytes);
    ASSERT_EQ(after.data.size(), sizeof rows);
    EXPECT_EQ(std::memcmp(after.data.data(), rows, sizeof rows), 0);
}

TEST(NpyPrefix, WritesTheExactBytesAndEveryShapeAsPythonWritesItsTuples) {
    const std::string prefix = NpyPrefix("'<u2'", {2, 256, 256});
    ASSERT_EQ(prefix.size(), kNpyPrefixBytes);
    EXPECT_EQ(prefix.substr(0, 10), std::string("\x93NUMPY\x01\x00\xF6\x00", 10));
    const std::string dictionary =
        "{'descr': '<u2', 'fortran_order': False, 'shape': (2, 256, 256), }";
    EXPECT_EQ(prefix.substr(10, dictionary.size()), dictionary);
    EXPECT_EQ(prefix.find_first_not_of(' ', 10 + dictionary.size()), kNpyPrefixBytes - 1)
        << "spaces up to the line feed";
    EXPECT_EQ(prefix.back(), '\n');
    EXPECT_NE(NpyPrefix("'<u8'", {5}).find("'shape': (5,), }"), std::string::npos);
    EXPECT_NE(NpyPrefix("'<u8'", {3, 4}).find("'shape': (3, 4), }"), std::string::npos);
    // The largest shape of the widest record type still fits.
    EXPECT_NO_THROW(
        NpyPrefix("[('address', '<u4'), ('x', '<u2'), ('y', '<u2'), ('itot', "
                  "'<u4'), ('events', '<u8')]",
                  {UINT64_MAX}));
}

TEST_F(AcquireFiles, PngKeepsItsSizeAndShowsTheLargestCountBrightest) {
    const std::string path = PathOf("i.png");
    std::vector<std::uint64_t> values(5 * 3, 1);
    values[1 * 5 + 3] = 1000;  // x 3, y 1
    values[2 * 5 + 0] = 999;
    values[0] = 0;
    PngWriter(path).Write(5, 3, values);
    const auto image = ReadPng(path);
    EXPECT_EQ(image.width, 5u);
    EXPECT_EQ(image.height, 3u);
    EXPECT_EQ(BrightestPixel(image), 1u * 5 + 3);
    EXPECT_EQ(image.rgb[0] + image.rgb[1] + image.rgb[2], 0) << "a count of 0 is black";

    EXPECT_THROW(PngWriter(PathOf("bad.png")).Write(5, 3, std::vector<std::uint64_t>(14)),
                 CommandError);
}

TEST_F(AcquireFiles, AnOutputThatCannotBeCreatedIsAFileError) {
    try {
        NpyWriter writer(PathOf("missing/r.npy"), "'<u8'", {});
        FAIL() << "created a file in a missing directory";
    } catch (const CommandError& error) {
        EXPECT_EQ(error.Code(), kExitFile);
        EXPECT_NE(std::string(error.what()).find("cannot create"), std::string::npos);
        EXPECT_NE(std::string(error.what()).find("missing/r.npy"), std::string::npos);
    }
}

TEST(ColourMap, RunsFromBlackToBrightGettingBrighterAllTheWay) {
    EXPECT_EQ(ColourAt(0.0), (Rgb{0, 0, 0}));
    EXPECT_EQ(ColourAt(-1.0), ColourAt(0.0));
    EXPECT_EQ(ColourAt(2.0), ColourAt(1.0));
    EXPECT_GT(Luminance(ColourAt(1.0)), 200.0);
    for (int step = 1; step <= 100; ++step) {
        EXPECT_GT(Luminance(ColourAt(step / 100.0)), Luminance(ColourAt((step - 1) / 100.0)))
            << "at " << step << "%";
    }
    // Square-root scale: a quarter of the largest value shows at half the map.
    const std::uint64_t values[] = {0, 25, 100};
    const auto rgb = ColourImage(values);
    ASSERT_EQ(rgb.size(), 9u);
    EXPECT_EQ((Rgb{rgb[3], rgb[4], rgb[5]}), ColourAt(0.5));
    EXPECT_EQ((Rgb{rgb[6], rgb[7], rgb[8]}), ColourAt(1.0));
}

TEST(PixelAddress, DecodesTheChipsAddressToTheHostsColumnAndRow) {
    EXPECT_EQ(PixelOf(0xFFFF).x, 0);
    EXPECT_EQ(PixelOf(0xFFFF).y, 0);
    EXPECT_EQ(PixelOf(0xFEFF).x, 1);  // the bytes swapped count down
    EXPECT_EQ(PixelOf(0xFEFF).y, 0);
    EXPECT_EQ(PixelOf(0xFFFE).x, 0);
    EXPECT_EQ(PixelOf(0xFFFE).y, 1);
    EXPECT_EQ(PixelOf(0x0000).x, 255);
    EXPECT_EQ(PixelOf(0x0000).y, 255);
    EXPECT_EQ(PixelIndexOf(AddressOf(17, 200)), 200u * 256 + 17);
}

TEST(LossCounter, CountsTheLibrarysDropReportsAndTheBytesTheyName) {
    LossCounter losses;
    losses.OnLine("Consumer queue full, dropped a span of 4096 bytes.\n", OVEXSDK_LOG_ERROR);
    losses.OnLine("Consumer queue full, dropped a transfer of 512 bytes.\n", OVEXSDK_LOG_ERROR);
    losses.OnLine(
        "Dropped 10 bytes of frame data (frames of 65536 bytes); 10 bytes dropped so "
        "far.\n",
        OVEXSDK_LOG_WARNING);
    losses.OnLine("Discarded 64 bytes of unclaimed data.\n", OVEXSDK_LOG_WARNING);
    losses.OnLine("Entries behind a stop are dropped.\n", OVEXSDK_LOG_DEBUG);
    EXPECT_EQ(losses.Reports(), 3u);
    EXPECT_EQ(losses.Bytes(), 4096u + 512 + 10);
}

AcquireOptions OptionsOf(std::vector<std::string> words) {
    static const CommandText text = {"acquire", "", "", ""};
    Args args(text, std::move(words));
    return ParseAcquireOptions(args);
}

TEST_F(AcquireFiles, RunFilesTurnQueuedHitsIntoRecordsWithTheirPixelsAndAHitMap) {
    AcquireOptions options = OptionsOf({"1", "--mode", "data-driven", "--seconds", "1"});
    options.records_path = PathOf("h.npy");
    options.image_path = PathOf("h.png");
    RunFiles files(options);
    ASSERT_TRUE(files.WantsResults());
    files.Start();
    const ovexsdk_acq_tpx3_toa_tot_record hits[] = {
        {AddressOf(5, 9), 120, 1ull << 40}, {AddressOf(5, 9), 7, 3}, {AddressOf(250, 1), 1023, 0}};
    files.Queue().Push(ResultChunk(hits));
    files.Finish();

    const auto npy = ReadNpy(PathOf("h.npy"));
    EXPECT_EQ(npy.descr,
              "[('address', '<u4'), ('x', '<u2'), ('y', '<u2'), ('tot', '<u4'), ('toa', '<u8')]");
    EXPECT_EQ(npy.shape, std::vector<std::uint64_t>{3});
    ASSERT_EQ(npy.data.size(), 3u * 20);
    struct Row {
        std::uint32_t address;
        std::uint16_t x, y;
        std::uint32_t tot;
        std::uint64_t toa;
    };
    for (int i = 0; i < 3; ++i) {
        Row row;
        const std::byte* at = npy.data.data() + 20 * i;
        std::memcpy(&row.address, at, 4);
        std::memcpy(&row.x, at + 4, 2);
        std::memcpy(&row.y, at + 6, 2);
        std::memcpy(&row.tot, at + 8, 4);
        std::memcpy(&row.toa, at + 12, 8);
        EXPECT_EQ(row.address, hits[i].address);
        EXPECT_EQ(PixelOf(row.address).x, row.x);
        EXPECT_EQ(PixelOf(row.address).y, row.y);
        EXPECT_EQ(row.tot, hits[i].tot);
        EXPECT_EQ(row.toa, hits[i].toa);
    }
    const auto image = ReadPng(PathOf("h.png"));
    EXPECT_EQ(image.width, 256u);
    EXPECT_EQ(image.height, 256u);
    EXPECT_EQ(BrightestPixel(image), 9u * 256 + 5) << "two hits on (5, 9), one elsewhere";
}

TEST_F(AcquireFiles, AScanThatEndsWithinALineIsFilledUpToWholeLines) {
    AcquireOptions options =
        OptionsOf({"1", "--mode", "data-driven", "--process", "count-image", "--seconds", "1",
                   "--lines", "4", "--bins", "2", "--bin-width", "1000"});
    options.records_path = PathOf("s.npy");
    options.image_path = PathOf("s.png");
    RunFiles files(options);
    files.Start();
    const std::uint64_t first[] = {1, 2, 3};
    const std::uint64_t second[] = {9, 4};
    files.Queue().Push(ResultChunk(first));
    files.Queue().Push(ResultChunk(second));
    files.Finish();

    const auto npy = ReadNpy(PathOf("s.npy"));
    EXPECT_EQ(npy.descr, "'<u8'");
    EXPECT_EQ(npy.shape, (std::vector<std::uint64_t>{3, 2}));
    const std::uint64_t expected[] = {1, 2, 3, 9, 4, 0};
    ASSERT_EQ(npy.data.size(), sizeof expected);
    EXPECT_EQ(std::memcmp(npy.data.data(), expected, sizeof expected), 0);
    const auto image = ReadPng(PathOf("s.png"));
    EXPECT_EQ(image.width, 2u) << "bins wide";
    EXPECT_EQ(image.height, 4u) << "the lines asked for high";
    EXPECT_EQ(BrightestPixel(image), 1u * 2 + 1);
}

TEST(AcquireOptions, RefusesWhatTheModesDoNotTakeWithTheReason) {
    const auto refusal = [](std::vector<std::string> words) -> std::string {
        try {
            OptionsOf(std::move(words));
        } catch (const UsageError& error) {
            return error.what();
        }
        return "accepted";
    };
    EXPECT_EQ(refusal({"1", "--seconds", "1"}),
              "--mode is missing; one of data-driven, toa-tot, itot-count, count8, count10, "
              "count14, itot10, itot14");
    EXPECT_EQ(refusal({"1", "--mode", "data-driven", "--process", "dd", "--seconds", "1"}),
              "unknown --process 'dd'; one of records, sorted, count-image, itot-image, bins");
    EXPECT_EQ(refusal({"1", "--mode", "count10", "--seconds", "1"}),
              "--mode count10 takes --frames N, not --seconds");
    EXPECT_EQ(refusal({"1", "--mode", "data-driven", "--frames", "2"}),
              "--mode data-driven takes --seconds N, not --frames");
    EXPECT_EQ(refusal({"1", "--mode", "toa-tot", "--process", "sorted", "--frames", "2"}),
              "--mode toa-tot takes only --process records");
    EXPECT_EQ(refusal({"1", "--mode", "data-driven", "--seconds", "200"}),
              "a data-driven run lasts at most 107 s, the board's longest shutter");
    EXPECT_EQ(refusal({"1", "--mode", "data-driven", "--process", "bins", "--seconds", "9",
                       "--lines", "2", "--bins", "3"}),
              "--process bins takes --lines L --bins B --bin-width NS");
    EXPECT_EQ(refusal({"1", "--mode", "data-driven", "--seconds", "1", "--lines", "2"}),
              "--lines, --bins and --bin-width go only with --process count-image, itot-image or "
              "bins");
    EXPECT_EQ(refusal({"1", "--mode", "count8", "--frames", "0"}),
              "--frames takes a whole number from 1 to 1000000000, not '0'");
    EXPECT_EQ(refusal({"--mode", "count8", "--frames", "1"}), "missing LOCATOR");

    const AcquireOptions scan = OptionsOf(
        {"OVX00001", "--mode", "data-driven", "--process", "itot-image", "--seconds", "600",
         "--lines", "16", "--bins", "64", "--bin-width", "1000", "--no-power-down"});
    EXPECT_EQ(scan.locator, "usb:sn:OVX00001");
    EXPECT_EQ(scan.processing, BinItotImage);
    EXPECT_EQ(ResultKindOf(scan), ResultKind::kScanValues);
    EXPECT_FALSE(scan.power_down);
    // 64 bins of 1 us: 2560 ticks of 25 ns, never one short.
    EXPECT_GE(static_cast<double>(LineSeconds(scan)) * 4e7, 2560.0);
    EXPECT_LT(static_cast<double>(LineSeconds(scan)) * 4e7, 2561.0);
}

}  // namespace
}  // namespace ovex::cli
