#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "log_capture.hpp"
#include "tpx3_stream/generator.hpp"
#include "tpx3_toa_extension/utils/packet_unpack.hpp"

namespace {

using namespace tpx3_toa_extension;
using tpx3_stream::AppendPacket;
using tpx3_stream::CfgPacket;
using tpx3_stream::DataPacket;
using tpx3_stream::TimerPacket;

std::vector<std::uint64_t> Walk(const std::vector<std::uint8_t>& bytes, std::size_t length) {
    std::vector<std::uint64_t> seen;
    WalkPackets(bytes.data(), bytes.data() + length, [&](std::uint64_t packet, HeaderMask mask) {
        EXPECT_EQ(mask, MaskOfPacket(packet));
        seen.push_back(packet);
    });
    return seen;
}

std::vector<std::uint8_t> Packets(std::size_t count) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < count; ++i) {
        AppendPacket(bytes, DataPacket(static_cast<std::uint32_t>(i), 7, i * 3, i % 16));
    }
    return bytes;
}

TEST(PacketWalk, VisitsEveryWholePacketInStreamOrder) {
    for (std::size_t count : {1u, 2u, 3u, 16u, 17u, 33u}) {
        const auto bytes = Packets(count);
        const auto seen = Walk(bytes, bytes.size());
        ASSERT_EQ(seen.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_EQ(seen[i], LoadPacket(bytes.data() + 6 * i)) << "packet " << i;
        }
    }
}

TEST(PacketWalk, ReadsLittleEndian) {
    const std::vector<std::uint8_t> bytes{0x01, 0, 0, 0, 0, 0};
    const auto seen = Walk(bytes, bytes.size());
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], 1u);
    EXPECT_EQ(MaskOfPacket(seen[0]), HeaderMask::Data);
    EXPECT_EQ(FineToa(seen[0]), 1u);
    const std::vector<std::uint8_t> high{0x10, 0x32, 0x54, 0x76, 0x98, 0xBA};
    EXPECT_EQ(ReadPacket(high), 0xBA9876543210u);
}

TEST(PacketWalk, RaggedBlockLogsAndDropsItsTail) {
    ovex::testing::LogCapture log;
    auto bytes = Packets(4);
    bytes.resize(7);
    EXPECT_TRUE(Walk(bytes, 7).empty());  // a remainder of 7 is not one whole packet
    EXPECT_EQ(log.Count(ovex::log::kError, "Data block not divisible by packet size"), 1);
    bytes = Packets(4);
    EXPECT_EQ(Walk(bytes, 13).size(), 2u);
    EXPECT_EQ(Walk(bytes, 19).size(), 2u);  // the third packet has no partner in front of 1 byte
    EXPECT_EQ(Walk(bytes, 24).size(), 4u);
    EXPECT_EQ(log.Count(ovex::log::kError, "Data block not divisible by packet size"), 3);
}

TEST(PacketTypes, MasksAndNames) {
    EXPECT_EQ(MaskOfPacket(DataPacket(1, 2, 3, 4)), HeaderMask::Data);
    EXPECT_EQ(MaskOfPacket(CfgPacket(1, 2)), HeaderMask::Cfg);
    EXPECT_EQ(MaskOfPacket(std::uint64_t{2} << 46), HeaderMask::Unknown);
    EXPECT_EQ(MaskOfPacket(TimerPacket(5)), HeaderMask::Ctrl);
    EXPECT_EQ(MaskOfPacket(kAllOnesPacket), HeaderMask::Ctrl);
    EXPECT_EQ(PacketTypeName(HeaderMask::Data), "DATA");
    EXPECT_EQ(PacketTypeName(HeaderMask::Cfg), "CFG");
    EXPECT_EQ(PacketTypeName(HeaderMask::Ctrl), "CTRL");
    EXPECT_EQ(PacketTypeName(HeaderMask::Unknown), "UNKNOWN");
    EXPECT_EQ(PacketTypeName(static_cast<HeaderMask>(0x12)), "UNKNOWN");
}

TEST(PacketTypes, FieldsOfDataPacket) {
    const std::uint64_t p = DataPacket(0xBEEF, 0x3FF, 0xABCD, 0x9);
    EXPECT_EQ(PixelAddress(p), 0xBEEFu);
    EXPECT_EQ(Tot(p), 0x3FFu);
    EXPECT_EQ(CoarseToa(p), 0xABCDu);
    EXPECT_EQ(FineToa(p), 0x9u);
}

TEST(ReadPacket, RefusesShortSpan) {
    const std::vector<std::uint8_t> bytes(5, 0);
    try {
        ReadPacket(bytes);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "Timepix3 buffer is too short to contain a single packet");
    }
}

TEST(FrameSinks, ToaTotRecordsCloseTheGapsOfCtrlPackets) {
    std::vector<std::uint8_t> bytes;
    AppendPacket(bytes, TimerPacket(1));
    AppendPacket(bytes, DataPacket(10, 20, 0xFFFF, 0xF));
    AppendPacket(bytes, TimerPacket(2));
    AppendPacket(bytes, DataPacket(11, 21, 0x0001, 0x2));
    std::vector<FrameToaTotRecord> out(4);
    ASSERT_EQ(UnpackFrameToaTot(bytes, out.data()), 2u);
    EXPECT_EQ(out[0].address, 10u);
    EXPECT_EQ(out[0].tot, 20u);
    EXPECT_EQ(out[0].toa, 0xFFFFFu);
    EXPECT_EQ(out[1].address, 11u);
    EXPECT_EQ(out[1].toa, 0x12u);
}

TEST(FrameSinks, ItotAndEventCount) {
    std::vector<std::uint8_t> bytes;
    // iToT sits in bits 17..4; bits 19..18 and 3..0 are not read.
    const std::uint64_t p = (std::uint64_t{0x1234} << 30) | (std::uint64_t{17} << 20) |
                            (std::uint64_t{3} << 18) | (std::uint64_t{0x2ABC} << 4) | 0xF;
    AppendPacket(bytes, p);
    std::vector<FrameItotEventRecord> out(1);
    ASSERT_EQ(UnpackFrameItotEvents(bytes, out.data()), 1u);
    EXPECT_EQ(out[0].address, 0x1234u);
    EXPECT_EQ(out[0].itot, 0x2ABCu);
    EXPECT_EQ(out[0].events, 17u);
}

TEST(FrameSinks, RefuseCfgAndUnknownPackets) {
    for (std::uint64_t bad : {CfgPacket(1, 1), std::uint64_t{2} << 46}) {
        std::vector<std::uint8_t> bytes;
        AppendPacket(bytes, DataPacket(1, 1, 1, 1));
        AppendPacket(bytes, bad);
        std::vector<FrameToaTotRecord> out(2);
        std::vector<FrameItotEventRecord> out2(2);
        try {
            UnpackFrameToaTot(bytes, out.data());
            FAIL() << "no exception";
        } catch (const std::domain_error& error) {
            EXPECT_STREQ(error.what(), "Header mask contains unsupported packet type!");
        }
        EXPECT_THROW(UnpackFrameItotEvents(bytes, out2.data()), std::domain_error);
    }
}

TEST(ConfigReadback, CollectsCfgPacketsOnly) {
    std::vector<std::uint8_t> bytes;
    AppendPacket(bytes, CfgPacket(0x0102, 0x3F));
    AppendPacket(bytes, DataPacket(5, 5, 5, 5));
    AppendPacket(bytes, std::uint64_t{2} << 46);
    AppendPacket(bytes, TimerPacket(3));
    AppendPacket(bytes, CfgPacket(0xFFFF, 0x01));
    const auto readback = UnpackPixelConfig(bytes);
    EXPECT_EQ(readback.addresses, (std::vector<std::uint16_t>{0x0102, 0xFFFF}));
    EXPECT_EQ(readback.configs, (std::vector<std::uint8_t>{0x3F, 0x01}));
}

}  // namespace
