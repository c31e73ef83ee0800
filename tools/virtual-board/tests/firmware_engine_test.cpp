// The board firmware's vendor requests, asked in-process through the firmware model: what each
// family answers, and which word it leaves when it refuses.

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ovex/vboard/firmware_engine.hpp"
#include "ovex/vboard/firmware_model.hpp"

namespace ovex::vboard {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The request codes as the host sends them, written out here so that the test checks the wire.
constexpr std::uint8_t kCommands = 0x01;
constexpr std::uint8_t kVersions = 0x02;
constexpr std::uint8_t kStates = 0x03;
constexpr std::uint8_t kGpio = 0x04;
constexpr std::uint8_t kMonitors = 0x05;
constexpr std::uint8_t kI2c = 0x92;
constexpr std::uint8_t kRam = 0xA0;
constexpr std::uint8_t kGetId = 0xB0;
constexpr std::uint8_t kAxi = 0xB1;
constexpr std::uint8_t kAxiStreamStart = 0xB3;
constexpr std::uint8_t kWriteEeprom = 0xBA;
constexpr std::uint8_t kReadEeprom = 0xBB;
constexpr std::uint8_t kGetVersion = 0xC8;
constexpr std::uint8_t kSpiInit = 0xD0;
constexpr std::uint8_t kSpiReset = 0xD1;
constexpr std::uint8_t kSpiSelfTest = 0xD2;
constexpr std::uint8_t kSpiStartStop = 0xD3;
constexpr std::uint8_t kSpiStats = 0xD4;
constexpr std::uint8_t kSpiData = 0xD5;
constexpr std::uint8_t kReset = 0xE0;

const std::string kLongName(32, 'N');
const std::string kOverlongValue(33, 'V');

ItemTables TestTables() {
    ItemTables tables;
    tables.board_id = "TESTBRD";
    tables.bcd_device = 0x0101;
    tables.product = "Test board";
    tables.commands = {
        {"RESET_CHIP", {}}, {"CHIP_INFO", {1, 2, 3, 4, 5, 6, 7, 8}}, {"RESET_CHIP", {}}};
    tables.states = {{"BIAS", 10, -5, 100}, {"MODE", 0, 0, 3}, {kLongName, 7, 7, 7}};
    tables.monitors = {{"TEMP", 25.5f, -40.0f, 125.0f}};
    tables.versions = {{"FIRMWARE", "1.2.3"}, {"FPGA", kOverlongValue}, {"FX3_FW", "0.24.3-TPX3"}};
    return tables;
}

std::uint32_t U32(const Bytes& bytes, std::size_t at = 0) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i) {
        value = value << 8 | bytes.at(at + static_cast<std::size_t>(i));
    }
    return value;
}

Bytes Le32(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
            static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

Bytes Text(const std::string& text, std::size_t field) {
    Bytes bytes(text.begin(), text.end());
    bytes.resize(field, 0);
    return bytes;
}

class Firmware : public ::testing::Test {
protected:
    explicit Firmware(ItemTables tables = TestTables()) : m_engine(m_model, std::move(tables)) {}

    ControlReply In(std::uint8_t request, std::uint16_t value, std::uint16_t index,
                    std::uint16_t length) {
        return m_model.Control({0xC0, request, value, index, length}, {});
    }
    ControlReply Out(std::uint8_t request, std::uint16_t value, std::uint16_t index,
                     const Bytes& data = {}) {
        return m_model.Control(
            {0x40, request, value, index, static_cast<std::uint16_t>(data.size())}, data);
    }

    // The answer of a request that must succeed.
    Bytes Read(std::uint8_t request, std::uint16_t value, std::uint16_t index,
               std::uint16_t length) {
        const ControlReply reply = In(request, value, index, length);
        EXPECT_EQ(reply.kind, ControlReply::Kind::kAnswer);
        EXPECT_EQ(LastError(), kNoError);
        return reply.data;
    }
    void Write(std::uint8_t request, std::uint16_t value, std::uint16_t index,
               const Bytes& data = {}) {
        EXPECT_EQ(Out(request, value, index, data).kind, ControlReply::Kind::kAnswer);
        EXPECT_EQ(LastError(), kNoError);
    }

    // The last-error word, read as the host reads it.
    std::uint32_t LastError() {
        const ControlReply reply = In(0x00, 0, 0, 4);
        EXPECT_EQ(reply.kind, ControlReply::Kind::kAnswer);
        return reply.data.size() == 4 ? U32(reply.data) : 0xDEADBEEF;
    }

    ::testing::AssertionResult Refused(const ControlReply& reply, std::uint32_t word) {
        if (reply.kind != ControlReply::Kind::kStall) {
            return ::testing::AssertionFailure() << "the request was not stalled";
        }
        const std::uint32_t last = LastError();
        if (last != word) {
            return ::testing::AssertionFailure()
                   << "last error 0x" << std::hex << last << ", expected 0x" << word;
        }
        return ::testing::AssertionSuccess();
    }

    FirmwareModel m_model;
    FirmwareEngine m_engine;
};

TEST_F(Firmware, ItemListsGiveTheirCountsAndNamesInFixedFields) {
    EXPECT_EQ(U32(Read(kCommands, 0, 0, 4)), 3u);
    EXPECT_EQ(U32(Read(kStates, 0, 0, 4)), 3u);
    EXPECT_EQ(U32(Read(kMonitors, 0, 0, 4)), 1u);
    EXPECT_EQ(U32(Read(kVersions, 0, 0, 4)), 3u);

    EXPECT_EQ(Read(kCommands, 1, 1, 33), Text("CHIP_INFO", 33));
    EXPECT_EQ(Read(kStates, 1, 1, 33), Text("MODE", 33));
    EXPECT_EQ(Read(kMonitors, 1, 0, 33), Text("TEMP", 33));
    EXPECT_EQ(Read(kVersions, 1, 1, 33), Text("FPGA", 33));
    // 32 characters leave the last byte 0; a 33-character value fills the field.
    EXPECT_EQ(Read(kStates, 1, 2, 33), Text(kLongName, 33));
    EXPECT_EQ(Read(kVersions, 2, 0, 33), Text("1.2.3", 33));
    EXPECT_EQ(Read(kVersions, 2, 1, 33), Bytes(33, 'V'));
}

TEST_F(Firmware, ItemRequestsRefuseUnknownIdsWrongLengthsAndUnknownSubFunctions) {
    EXPECT_TRUE(Refused(In(kCommands, 1, 3, 33), kBadIndex));
    EXPECT_TRUE(Refused(In(kMonitors, 2, 1, 4), kBadIndex));
    EXPECT_TRUE(Refused(In(kVersions, 2, 0xFFFF, 33), kBadIndex));
    EXPECT_TRUE(Refused(In(kStates, 1, 0, 32), kBadArgument));
    EXPECT_TRUE(Refused(In(kStates, 0, 0, 2), kBadArgument));
    EXPECT_TRUE(Refused(In(kMonitors, 3, 0, 4), kBadArgument));
    EXPECT_TRUE(Refused(In(kStates, 5, 0, 4), kNotSupported));
    EXPECT_TRUE(Refused(Out(kVersions, 1, 0), kNotSupported));
    // A request that succeeds clears the word.
    Read(kStates, 0, 0, 4);
}

TEST_F(Firmware, CommandsRecordTheirInputAndAnswerTheirOutput) {
    Write(kCommands, 2, 0);
    Write(kCommands, 2, 0, {0xAB, 0xCD});
    EXPECT_EQ(Read(kCommands, 2, 1, 8), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(Read(kCommands, 2, 1, 16).size(), 8u);  // a larger buffer gets a short answer
    EXPECT_TRUE(Read(kCommands, 2, 0, 0).empty());
    // The output doesn't fit: nothing runs.
    EXPECT_TRUE(Refused(In(kCommands, 2, 1, 7), kBadArgument));
    EXPECT_TRUE(Refused(Out(kCommands, 2, 3), kBadIndex));

    // By name the first of two equal names counts: id 2 is the other one.
    Write(kCommands, 2, 2);
    EXPECT_EQ(m_engine.Invocations("RESET_CHIP"), (std::vector<Bytes>{{}, {0xAB, 0xCD}, {}}));
    EXPECT_EQ(m_engine.Invocations("CHIP_INFO").size(), 2u);
    EXPECT_THROW(m_engine.Invocations("NOPE"), std::out_of_range);
}

TEST_F(Firmware, StatesAreSetWithinTheirLimitsOnly) {
    EXPECT_EQ(Read(kStates, 2, 0, 4), Le32(10));
    EXPECT_EQ(Read(kStates, 4, 0, 8), (Bytes{0xFB, 0xFF, 0xFF, 0xFF, 100, 0, 0, 0}));

    Write(kStates, 3, 0, Le32(static_cast<std::uint32_t>(-5)));
    EXPECT_EQ(m_engine.StateValue("BIAS"), -5);
    Write(kStates, 3, 0, Le32(100));
    EXPECT_EQ(Read(kStates, 2, 0, 4), Le32(100));

    EXPECT_TRUE(Refused(Out(kStates, 3, 0, Le32(101)), kBadArgument));
    EXPECT_TRUE(Refused(Out(kStates, 3, 0, Le32(static_cast<std::uint32_t>(-6))), kBadArgument));
    EXPECT_TRUE(Refused(Out(kStates, 3, 0, {1, 0}), kBadArgument));
    EXPECT_TRUE(Refused(Out(kStates, 3, 3, Le32(0)), kBadIndex));
    EXPECT_TRUE(Refused(In(kStates, 3, 0, 4), kNotSupported));
    EXPECT_EQ(m_engine.StateValue("BIAS"), 100);
    EXPECT_EQ(m_engine.StateValue("MODE"), 0);
}

TEST_F(Firmware, MonitorsGiveWhatTheyMeasureAndTheirRange) {
    EXPECT_EQ(Read(kMonitors, 2, 0, 4), Le32(std::bit_cast<std::uint32_t>(25.5f)));
    m_engine.SetMonitorValue("TEMP", -3.25f);
    EXPECT_EQ(Read(kMonitors, 2, 0, 4), Le32(std::bit_cast<std::uint32_t>(-3.25f)));
    const Bytes range = Read(kMonitors, 3, 0, 8);
    EXPECT_EQ(std::bit_cast<float>(U32(range, 0)), -40.0f);
    EXPECT_EQ(std::bit_cast<float>(U32(range, 4)), 125.0f);
    EXPECT_THROW(m_engine.SetMonitorValue("HUMIDITY", 1.0f), std::out_of_range);
}

class EmptyBoard : public Firmware {
protected:
    EmptyBoard() : Firmware(ItemTables{}) {}
};

TEST_F(EmptyBoard, HasNoItemsToNameOrInvoke) {
    EXPECT_EQ(U32(Read(kCommands, 0, 0, 4)), 0u);
    EXPECT_TRUE(Refused(In(kCommands, 1, 0, 33), kBadIndex));
    EXPECT_TRUE(Refused(Out(kCommands, 2, 0), kBadIndex));
    EXPECT_TRUE(Refused(In(kStates, 2, 0, 4), kBadIndex));
}

TEST_F(Firmware, GpioPinsKeepTheirLevels) {
    Write(kGpio, 1, 3);
    Write(kGpio, 7, 15);  // any non-zero level is high
    EXPECT_EQ(U32(Read(kGpio, 0, 3, 4)), 1u);
    EXPECT_EQ(U32(Read(kGpio, 0, 15, 4)), 1u);
    EXPECT_EQ(U32(Read(kGpio, 0, 4, 4)), 0u);
    Write(kGpio, 0, 3);
    EXPECT_EQ(U32(Read(kGpio, 0, 3, 4)), 0u);
    EXPECT_TRUE(Refused(Out(kGpio, 1, 16), kBadIndex));
    EXPECT_TRUE(Refused(In(kGpio, 0, 0, 2), kBadArgument));
    EXPECT_TRUE(Refused(Out(kGpio, 1, 0, {1}), kBadArgument));
}

TEST_F(Firmware, I2cReachesDevicesByTheirBusByteAndRegisterWidth) {
    // EEPROM at 0x50: 16-bit registers, bus byte 0xA0 to write, 0xA1 to read.
    Write(kI2c, 0x0123, 0x03A0, {0x11, 0x22, 0x33});
    EXPECT_EQ(Read(kI2c, 0x0123, 0x03A1, 3), (Bytes{0x11, 0x22, 0x33}));
    EXPECT_EQ(Read(kI2c, 0xFFFE, 0x03A1, 2), (Bytes{0xFF, 0xFF}));
    // Sensor at 0x48: 8-bit registers.
    EXPECT_EQ(Read(kI2c, 0, 0x0191, 1), Bytes{0x19});
    Write(kI2c, 1, 0x0190, {0x60});
    EXPECT_EQ(Read(kI2c, 0, 0x0191, 4), (Bytes{0x19, 0x60, 0x4B, 0x50}));
    // 10-bit device 0x2A5: 11110 A9 A8 R in the high byte, the low address byte below.
    Write(kI2c, 0x10, 0xF4A5 | 0x100, {0x5A});
    EXPECT_EQ(Read(kI2c, 0x10, 0xF5A5 | 0x100, 1), Bytes{0x5A});
}

TEST_F(Firmware, I2cRefusalsNameTheByteThatWasNotAcknowledged) {
    EXPECT_TRUE(Refused(In(kI2c, 0, 0x01A3, 1), 0x01000000));          // nobody at 0x51
    EXPECT_TRUE(Refused(In(kI2c, 0, 0xF1A5 | 0x100, 1), 0x01000000));  // nor at 10-bit 0x0A5
    EXPECT_TRUE(Refused(In(kI2c, 0, 0x0391, 1), 0x01000001));          // sensor, 16-bit register
    EXPECT_TRUE(Refused(In(kI2c, 0, 0x01A1, 1), 0x01000001));          // EEPROM, 8-bit register
    EXPECT_TRUE(Refused(In(kI2c, 4, 0x0191, 1), 0x01000001));          // no register 4
    EXPECT_TRUE(Refused(In(kI2c, 0xFFFF, 0x03A1, 2), 0x01000008));     // past the EEPROM's end
    EXPECT_TRUE(Refused(Out(kI2c, 3, 0x0190, {1, 2}), 0x01000008));
    // Not a bus byte the firmware can send: no width flag, a read bit on a write, a register
    // too wide for 8 bits.
    EXPECT_TRUE(Refused(In(kI2c, 0, 0x00A1, 1), kBadArgument));
    EXPECT_TRUE(Refused(Out(kI2c, 0, 0x01A1, {1}), kBadArgument));
    EXPECT_TRUE(Refused(In(kI2c, 0x100, 0x0191, 1), kBadArgument));
}

TEST_F(Firmware, ControllerGivesItsIdVersionAndEepromsButNotItsRam) {
    EXPECT_EQ(Read(kGetId, 0, 0, 32), Text("TESTBRD", 32));
    // The controller's own version is the one its version item reports.
    EXPECT_EQ(Read(kGetVersion, 0, 0, 8), (Bytes{0, 0, 24, 0, 3, 0, 0, 0}));
    EXPECT_TRUE(Refused(In(kGetId, 0, 0, 33), kBadArgument));
    EXPECT_TRUE(Refused(In(kRam, 0, 0, 1), kNotSupported));
    EXPECT_TRUE(Refused(Out(kRam, 0, 0, {1}), kNotSupported));

    Write(kWriteEeprom, 7, 0xFFFE, {0xC0, 0xDE});
    EXPECT_EQ(Read(kReadEeprom, 7, 0xFFFD, 3), (Bytes{0xFF, 0xC0, 0xDE}));
    EXPECT_EQ(Read(kReadEeprom, 0, 0xFFFE, 2), (Bytes{0xFF, 0xFF}));  // another device
    EXPECT_TRUE(Refused(Out(kWriteEeprom, 8, 0, {1}), kBadIndex));
    EXPECT_TRUE(Refused(In(kReadEeprom, 7, 0xFFFF, 2), kBadArgument));
    EXPECT_TRUE(Refused(In(kWriteEeprom, 0, 0, 1), kNotSupported));
}

TEST_F(Firmware, AxiMapHasReadOnlyAndReadWriteRegistersAndNothingElse) {
    // The address's low half goes in wValue, the high half in wIndex.
    EXPECT_EQ(U32(Read(kAxi, 0x0000, 0x4000, 4)), 0x4F565831u);
    EXPECT_TRUE(Refused(In(kAxi, 0x4000, 0x0000, 4), kAxiDecodeError));
    Write(kAxi, 0x0004, 0x4000, Le32(0xCAFEF00D));
    EXPECT_EQ(U32(Read(kAxi, 0x0004, 0x4000, 4)), 0xCAFEF00Du);
    EXPECT_EQ(U32(Read(kAxi, 0x0008, 0x4000, 4)), 0u);

    EXPECT_TRUE(Refused(Out(kAxi, 0x0000, 0x4000, Le32(1)), 0x02000002));
    EXPECT_EQ(U32(Read(kAxi, 0x0000, 0x4000, 4)), 0x4F565831u);
    EXPECT_TRUE(Refused(In(kAxi, 0x0010, 0x4000, 4), 0x02000003));
    EXPECT_TRUE(Refused(In(kAxi, 0x0006, 0x4000, 4), 0x02000003));
    EXPECT_TRUE(Refused(In(kAxi, 0x0004, 0x4000, 2), kBadArgument));

    Write(kAxiStreamStart, 0, 0);
    Write(kAxiStreamStart, 0, 0);
    EXPECT_EQ(U32(Read(kAxi, 0x000C, 0x4000, 4)), 2u);
    EXPECT_TRUE(Refused(Out(kAxiStreamStart, 0, 0, {1}), kBadArgument));
}

TEST_F(Firmware, SpiBusMustBeInitialisedAndStartedToReachItsSlave) {
    EXPECT_TRUE(Refused(In(kSpiStats, 0, 0, 24), 0x0300001D));
    EXPECT_TRUE(Refused(Out(kSpiStartStop, 1, 0), 0x0300001D));
    EXPECT_TRUE(Refused(Out(kSpiInit, 0, 2), 0x03000002));
    Write(kSpiInit, 0, 0);
    EXPECT_TRUE(Refused(Out(kSpiData, 0, 0, {0x9F}), 0x03000006));
    Write(kSpiSelfTest, 0, 0);
    Write(kSpiStartStop, 1, 0);
    EXPECT_TRUE(Refused(Out(kSpiStartStop, 1, 0), 0x03000005));
    EXPECT_TRUE(Refused(Out(kSpiSelfTest, 0, 0), 0x03000005));
    EXPECT_TRUE(Refused(Out(kSpiInit, 0, 0), 0x03000005));
    EXPECT_TRUE(Refused(Out(kSpiData, 1, 0, {0x9F}), 0x03000483));
    EXPECT_TRUE(Refused(Out(kSpiStartStop, 2, 0), kBadArgument));
    EXPECT_TRUE(Refused(Out(kSpiData, 0, 1, {0x9F}), 0x0300001D));  // bus 1 is separate

    Write(kSpiReset, 0, 0);  // stops the bus
    EXPECT_TRUE(Refused(Out(kSpiData, 0, 0, {0x9F}), 0x03000006));
}

TEST_F(Firmware, SpiMemoryKeepsDataAndStatisticsCountTransfers) {
    Write(kSpiInit, 0, 0);
    Write(kSpiStartStop, 1, 0);
    Write(kSpiData, 0, 0, {0x02, 0x03, 0xFF, 0xAA, 0xBB});  // wraps from 1023 to 0
    Write(kSpiData, 0, 0, {0x03, 0x03, 0xFF});
    EXPECT_EQ(Read(kSpiData, 0, 0, 3), (Bytes{0xAA, 0xBB, 0xFF}));
    Write(kSpiData, 0, 0, {0x9F});
    EXPECT_EQ(Read(kSpiData, 0, 0, 4), (Bytes{0x4F, 0x56, 0x10, 0xFF}));

    const Bytes stats = Read(kSpiStats, 0, 0, 24);
    ASSERT_EQ(stats.size(), 24u);
    EXPECT_EQ(U32(stats, 0), 0u);   // mode faults
    EXPECT_EQ(U32(stats, 4), 0u);   // tx underruns
    EXPECT_EQ(U32(stats, 8), 0u);   // rx overruns
    EXPECT_EQ(U32(stats, 12), 0u);  // slave mode faults
    EXPECT_EQ(U32(stats, 16), 5u + 3u + 3u + 1u + 4u);
    EXPECT_EQ(U32(stats, 20), 5u);
    EXPECT_TRUE(Refused(In(kSpiStats, 0, 0, 23), kBadArgument));

    Write(kSpiStats, 0, 0);
    EXPECT_EQ(Read(kSpiStats, 0, 0, 24), Bytes(24, 0));
    // A stop and a start keep the memory's data.
    Write(kSpiStartStop, 0, 0);
    Write(kSpiStartStop, 1, 0);
    Write(kSpiData, 0, 0, {0x03, 0x00, 0x00});
    EXPECT_EQ(Read(kSpiData, 0, 0, 1), Bytes{0xBB});
}

TEST_F(Firmware, ResetBringsSettingsBackToPowerOnAndKeepsMemoriesAndMeasurements) {
    Write(kStates, 3, 1, Le32(2));
    Write(kGpio, 1, 2);
    Write(kAxi, 0x0004, 0x4000, Le32(5));
    Write(kSpiInit, 0, 0);
    Write(kWriteEeprom, 0, 0, {0x42});
    Write(kI2c, 0x0000, 0x03A0, {0x24});
    m_engine.SetMonitorValue("TEMP", 30.0f);

    EXPECT_TRUE(Refused(Out(kReset, 0, 0), kNotSupported));
    EXPECT_TRUE(Read(kReset, 0, 0, 0).empty());
    EXPECT_EQ(m_engine.StateValue("MODE"), 0);
    EXPECT_EQ(U32(Read(kGpio, 0, 2, 4)), 0u);
    EXPECT_EQ(U32(Read(kAxi, 0x0004, 0x4000, 4)), 0u);
    EXPECT_TRUE(Refused(In(kSpiStats, 0, 0, 24), 0x0300001D));
    EXPECT_EQ(Read(kReadEeprom, 0, 0, 1), Bytes{0x42});
    EXPECT_EQ(Read(kI2c, 0x0000, 0x03A1, 1), Bytes{0x24});
    EXPECT_EQ(Read(kMonitors, 2, 0, 4), Le32(std::bit_cast<std::uint32_t>(30.0f)));
}

TEST_F(Firmware, InjectedStallsLeaveTheChosenWordEvenZero) {
    m_model.StallNext(kStates, 1, 0x00000045);
    EXPECT_TRUE(Refused(In(kStates, 2, 0, 4), 0x00000045));
    Read(kStates, 2, 0, 4);  // only the next one

    m_model.StallNext(kStates, 2, kNoError);
    EXPECT_TRUE(Refused(Out(kStates, 3, 0, Le32(1)), kNoError));
    EXPECT_TRUE(Refused(Out(kStates, 3, 0, Le32(1)), kNoError));
    EXPECT_EQ(m_engine.StateValue("BIAS"), 10);  // the stalled requests did nothing

    // An unknown request; 0x42 stays free for tests of the transport.
    EXPECT_TRUE(Refused(In(0x42, 0, 0, 4), kNotSupported));
}

TEST_F(Firmware, IgnoredRequestsMatchOnValueAndIndexToo) {
    m_model.IgnoreNext({kCommands, 1, 3});
    m_model.IgnoreNext(0x00);
    EXPECT_EQ(In(kCommands, 1, 2, 33).kind, ControlReply::Kind::kAnswer);
    EXPECT_EQ(In(kCommands, 1, 3, 33).kind, ControlReply::Kind::kNoAnswer);
    EXPECT_EQ(In(0x00, 0, 0, 4).kind, ControlReply::Kind::kNoAnswer);
    EXPECT_TRUE(Refused(In(kCommands, 1, 3, 33), kBadIndex));  // answered again
}

TEST_F(Firmware, RequestsAndTestCallsFromTwoThreadsSeeWholeValues) {
    std::thread host([&] {
        for (int i = 0; i < 500; ++i) {
            Out(kStates, 3, 0, Le32(static_cast<std::uint32_t>(i % 100)));
            In(kMonitors, 2, 0, 4);
        }
    });
    for (int i = 0; i < 500; ++i) {
        m_engine.SetMonitorValue("TEMP", static_cast<float>(i));
        const int bias = m_engine.StateValue("BIAS");
        EXPECT_TRUE(bias >= 0 && bias < 100) << bias;
        m_model.StallNext(kGpio, 1, kFailure);
    }
    host.join();
    EXPECT_EQ(m_engine.StateValue("BIAS"), 99);
}

}  // namespace
}  // namespace ovex::vboard
