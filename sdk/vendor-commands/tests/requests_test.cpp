// Every request family against the virtual board, through the real libusb: what goes on the bus,
// what comes back, and how refusals, time-outs and a vanishing board end.

#include <gtest/gtest.h>

#include <array>
#include <future>
#include <string>

#include "board_fixture.hpp"
#include "log_capture.hpp"
#include "ovex/vboard/error_words.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "ovex/vendor_cmd/board_io.hpp"
#include "ovex/vendor_cmd/cypress.hpp"
#include "ovex/vendor_cmd/device_error.hpp"
#include "ovex/vendor_cmd/items.hpp"
#include "ovex/vendor_cmd/rules.hpp"
#include "ovex/vendor_cmd/spi.hpp"

namespace ovex::usb::vendor_cmd {
namespace {

using vboard::BoardKind;
using vboard::TablesOf;

template <typename List>
std::uint16_t IdOf(const List& list, const std::string& name) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (list[i].name == name) {
            return static_cast<std::uint16_t>(i);
        }
    }
    ADD_FAILURE() << name << " is not in the board's table";
    return 0;
}

class RequestsTest : public testing::BoardFixture {
protected:
    const vboard::ItemTables& Tables() { return TablesOf(BoardKind::kTimepix3); }
    state::StateId State(const std::string& name) {
        return state::StateId(IdOf(Tables().states, name));
    }
};

TEST_F(RequestsTest, ItemListsReadBackAsTheBoardPublishesThem) {
    auto& device = OpenBoard();
    unsigned int count = 0;
    ASSERT_FALSE(command::GetCount(device, count));
    ASSERT_EQ(count, Tables().commands.size());
    std::string name;
    ASSERT_FALSE(command::GetName(device, command::CmdId(0), name));
    EXPECT_EQ(name, Tables().commands[0].name);

    ASSERT_FALSE(state::GetCount(device, count));
    ASSERT_EQ(count, Tables().states.size());
    ASSERT_FALSE(state::GetName(device, state::StateId(count - 1), name));
    EXPECT_EQ(name, Tables().states.back().name);

    ASSERT_FALSE(monitor::GetCount(device, count));
    ASSERT_EQ(count, Tables().monitors.size());
    const auto temperature = monitor::MonitorId(IdOf(Tables().monitors, "FPGA_TEMP"));
    ASSERT_FALSE(monitor::GetName(device, temperature, name));
    EXPECT_EQ(name, "FPGA_TEMP");
    float value = 0;
    ASSERT_FALSE(monitor::GetValue(device, temperature, value));
    EXPECT_EQ(value, Tables().monitors[temperature.get()].value);
    range::Range<float> range;
    ASSERT_FALSE(monitor::GetRange(device, temperature, range));
    EXPECT_EQ(range.min(), Tables().monitors[temperature.get()].min);
    EXPECT_EQ(range.max(), Tables().monitors[temperature.get()].max);

    ASSERT_FALSE(version::GetCount(device, count));
    ASSERT_EQ(count, Tables().versions.size());
    ASSERT_FALSE(version::GetName(device, version::VersionId(0), name));
    EXPECT_EQ(name, Tables().versions[0].name);
    std::string text;
    ASSERT_FALSE(version::GetValue(device, version::VersionId(0), text));
    EXPECT_EQ(text, Tables().versions[0].value);
}

TEST_F(RequestsTest, CommandsActTakeInputAndAnswerIntoTheCallersSpan) {
    auto& device = OpenBoard();
    const auto info_id = command::CmdId(IdOf(Tables().commands, "TPX_CHIP_INFO"));
    std::array<std::uint8_t, 8> info{};
    ASSERT_FALSE(command::InvokeWithOutput(device, info_id, info));
    const auto& expected = Tables().commands[info_id.get()].answer;
    EXPECT_EQ(std::vector<std::uint8_t>(info.begin(), info.end()), expected);

    const auto requests = NewRequests();
    ASSERT_EQ(requests.size(), 2u);  // the command, then its last-error word
    EXPECT_EQ(requests[0].bmRequestType, 0xC0);
    EXPECT_EQ(requests[0].bRequest, 0x01);
    EXPECT_EQ(requests[0].wValue, 2);
    EXPECT_EQ(requests[0].wIndex, info_id.get());
    EXPECT_EQ(requests[0].wLength, 8);
    EXPECT_EQ(requests[1].bRequest, 0x00);

    const auto acting = command::CmdId(IdOf(Tables().commands, "TPX_INIT"));
    EXPECT_FALSE(command::Invoke(device, acting));
    const std::array<std::uint8_t, 3> input{1, 2, 3};
    EXPECT_FALSE(command::InvokeWithInput(device, acting, input));
    const auto sent = NewRequests();
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[0].bmRequestType, 0x40);
    EXPECT_EQ(sent[0].wLength, 0);
    EXPECT_EQ(sent[2].bmRequestType, 0x40);
    EXPECT_EQ(sent[2].wLength, 3);

    const command::CmdId beyond(static_cast<std::uint16_t>(Tables().commands.size()));
    const auto refused = command::Invoke(device, beyond);
    EXPECT_EQ(&refused.category(), &error::system::Category());
    EXPECT_EQ(refused, std::errc::invalid_argument);
}

TEST_F(RequestsTest, StateWriteCostsTwoTransfersAndReadOne) {
    auto& device = OpenBoard();
    const auto bias = State("BIAS");
    ASSERT_FALSE(state::SetValue(device, bias, -120));
    auto requests = NewRequests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].bmRequestType, 0x40);
    EXPECT_EQ(requests[0].bRequest, 0x03);
    EXPECT_EQ(requests[0].wValue, 3);
    EXPECT_EQ(requests[0].wIndex, bias.get());
    EXPECT_EQ(requests[0].wLength, 4);
    EXPECT_EQ(requests[1].bmRequestType, 0xC0);
    EXPECT_EQ(requests[1].bRequest, 0x00);

    int value = 0;
    ASSERT_FALSE(state::GetValue(device, bias, value));
    EXPECT_EQ(value, -120);
    EXPECT_EQ(NewRequests().size(), 1u);

    range::Range<int> limits;
    ASSERT_FALSE(state::GetLimits(device, bias, limits));
    const auto& row = Tables().states[bias.get()];
    EXPECT_EQ(limits, range::Range<int>(row.min, row.max));
}

TEST_F(RequestsTest, OutOfRangeStateWriteIsRefusedWithTheBoardsReason) {
    auto& device = OpenBoard();
    const auto bias = State("BIAS");
    const int above = Tables().states[bias.get()].max + 1;
    const auto refused = state::SetValue(device, bias, above);
    EXPECT_EQ(&refused.category(), &error::system::Category());
    EXPECT_STREQ(refused.category().name(), "firmware");
    EXPECT_EQ(refused.value(), 64);
    EXPECT_EQ(refused.message(), "one or more parameters to a function are invalid");
    EXPECT_EQ(refused, std::errc::invalid_argument);

    int value = 1;
    ASSERT_FALSE(state::GetValue(device, bias, value));
    EXPECT_EQ(value, Tables().states[bias.get()].value);
}

TEST_F(RequestsTest, StallIsJudgedByTheLastErrorWord) {
    auto& device = OpenBoard();
    const auto bias = State("BIAS");
    Firmware().StallNext({0x03, 3, bias.get()}, 1, 0x00000045);
    const auto timed_out = state::SetValue(device, bias, 5);
    EXPECT_EQ(&timed_out.category(), &error::system::Category());
    EXPECT_EQ(timed_out.value(), 69);
    EXPECT_EQ(timed_out, std::errc::timed_out);

    // A stall the board keeps no reason for is no failure.
    Firmware().StallNext({0x03, 2, bias.get()}, 1, 0);
    int value = 0;
    EXPECT_FALSE(state::GetValue(device, bias, value));
}

TEST_F(RequestsTest, WordsOfEverySourceArriveTranslated) {
    struct Case {
        std::uint32_t word;
        const char* category;
        const char* message;
        std::errc condition;
    };
    const auto protocol = std::make_error_code(std::errc::protocol_error);
    const Case cases[] = {
        {0x00000040, "firmware", "one or more parameters to a function are invalid",
         std::errc::invalid_argument},
        {0x01000008, "i2c", "slave sent a NACK during the data phase of a transfer",
         std::errc::io_error},
        {0x02000002, "axi", "slave error", std::errc::io_error},
        {0x03000483, "xilinx", "", std::errc::io_error},
        {0x05000004, "power", "output current limit is active", std::errc::io_error},
        {0x06000002, "timepix", "chip is busy", std::errc::device_or_resource_busy},
        {0x04000007, protocol.category().name(), "", std::errc::protocol_error},
        {0x07000000, protocol.category().name(), "", std::errc::protocol_error},
    };
    auto& device = OpenBoard();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.word);
        Firmware().StallNext({0x03, 3, std::nullopt}, 1, c.word);
        const auto result = state::SetValue(device, State("BIAS"), 1);
        EXPECT_STREQ(result.category().name(), c.category);
        if (*c.message != 0) {
            EXPECT_EQ(result.message(), c.message);
        }
        EXPECT_EQ(result, c.condition);
    }
}

TEST_F(RequestsTest, TimeoutOfTheRequestIsHandedUpWithoutAskingTheBoard) {
    auto& device = OpenBoard();
    Firmware().IgnoreNext(0x03);
    int value = 0;
    EXPECT_EQ(state::GetValue(device, State("BIAS"), value, 0.05), std::errc::timed_out);
    const auto requests = NewRequests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].bRequest, 0x03);
}

TEST_F(RequestsTest, FailedLastErrorRequestWinsOverEverything) {
    auto& device = OpenBoard();
    Firmware().StallNext(0x03, 1, 0x00000040);
    Firmware().IgnoreNext(0x00);
    const auto result = state::SetValue(device, State("BIAS"), 1, 0.05);
    EXPECT_EQ(result, std::errc::timed_out);
    EXPECT_NE(&result.category(), &error::system::Category());
}

TEST_F(RequestsTest, CombinedLastErrorFormCompletesABareRequest) {
    auto& device = OpenBoard();
    const auto bias = State("BIAS");
    const std::array<std::uint8_t, 4> too_high{0xFF, 0x7F, 0, 0};
    const VendorCommand set{0x03, 3, bias.get()};
    const auto refused = error::GetLastError(device, VendorOut(device, set, too_high), 1.0);
    EXPECT_EQ(refused, std::errc::invalid_argument);
    EXPECT_STREQ(refused.category().name(), "firmware");

    const std::array<std::uint8_t, 4> inside{5, 0, 0, 0};
    EXPECT_FALSE(error::GetLastError(device, VendorOut(device, set, inside), 1.0));
    EXPECT_EQ(Board().Engine().StateValue("BIAS"), 5);

    // A transport failure is the answer itself; the board isn't asked.
    Forget();
    const auto timeout = std::make_error_code(std::errc::timed_out);
    EXPECT_EQ(error::GetLastError(device, timeout, 1.0), timeout);
    EXPECT_TRUE(NewRequests().empty());

    ovex::testing::LogCapture log;
    Firmware().IgnoreNext(0x00);
    const auto lost = error::GetLastError(device, std::make_error_code(std::errc::io_error), 0.05);
    EXPECT_EQ(lost, std::errc::timed_out);
    EXPECT_TRUE(log.Contains(
        log::kWarning, "Failed to retrieve error code of last operation - transfer: timeout"));
}

TEST_F(RequestsTest, EncoderFormOfTheWriteRule) {
    auto& device = OpenBoard();
    const auto bias = State("BIAS");
    const auto written = impl::SendViaCmd(
        device, {0x03, 3, bias.get()}, 4,
        [](std::span<std::uint8_t> field) { impl::Encode(field.first<4>(), -33); },
        kDefaultTimeout);
    EXPECT_FALSE(written);
    EXPECT_EQ(Board().Engine().StateValue("BIAS"), -33);
    EXPECT_EQ(NewRequests().size(), 2u);
}

TEST_F(RequestsTest, AxiAddressHalvesAndResponses) {
    auto& device = OpenBoard();
    unsigned int value = 0;
    const auto unmapped = axi_read(device, 0xDEAD0004u, value);
    const auto requests = NewRequests();
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests[0].bRequest, 0xB1);
    EXPECT_EQ(requests[0].wValue, 0x0004);
    EXPECT_EQ(requests[0].wIndex, 0xDEAD);
    EXPECT_EQ(&unmapped.category(), &error::axi::Category());
    EXPECT_EQ(unmapped.message(), "decode error");
    EXPECT_EQ(unmapped, std::errc::io_error);
}

TEST_F(RequestsTest, I2cDirectionAndRegisterWidthOnTheWire) {
    auto& device = OpenBoard();
    std::array<std::uint8_t, 4> written{0xDE, 0xAD, 0xBE, 0xEF};
    ASSERT_FALSE(i2c_transfer_16(device, 0xA0, 0x0123, written));
    std::array<std::uint8_t, 4> read{};
    ASSERT_FALSE(i2c_transfer_16(device, 0xA1, 0x0123, read));
    EXPECT_EQ(read, written);

    const auto requests = NewRequests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[0].bmRequestType, 0x40);
    EXPECT_EQ(requests[0].wIndex, 0x03A0);
    EXPECT_EQ(requests[2].bmRequestType, 0xC0);
    EXPECT_EQ(requests[2].wIndex, 0x03A1);
    EXPECT_EQ(requests[2].wValue, 0x0123);

    const auto absent = i2c_transfer_8(device, 0x7F << 1 | 1, 0, read);
    EXPECT_EQ(&absent.category(), &error::i2c::Category());
    EXPECT_EQ(absent.message(), "slave NACK-ed the zeroth byte of the preamble");
    EXPECT_EQ(absent, std::errc::io_error);
}

TEST_F(RequestsTest, ControllerRequests) {
    auto& device = OpenBoard();
    std::string id;
    ASSERT_FALSE(cypress::GetId(device, id));
    EXPECT_EQ(id, "TPX3EFE");
    cypress::Version version;
    ASSERT_FALSE(cypress::GetVersion(device, version));
    EXPECT_NE(version.major + version.minor + version.patch + version.build, 0);

    // RAM is the boot loader's: a running board refuses it, and nothing asks why.
    std::array<std::uint8_t, 1> byte{};
    EXPECT_EQ(cypress::ReadRam(device, 0, byte), std::errc::io_error);
    EXPECT_EQ(NewRequests().back().bRequest, 0xA0);

    const std::array<std::uint8_t, 5> text{'o', 'v', 'e', 'x', '!'};
    ASSERT_FALSE(cypress::WriteEeprom(device, cypress::EepromDevice::Device1, 0x0100, text));
    std::array<std::uint8_t, 5> back{};
    ASSERT_FALSE(cypress::ReadEeprom(device, cypress::EepromDevice::Device1, 0x0100, back));
    EXPECT_EQ(back, text);
    ASSERT_FALSE(cypress::ReadEeprom(device, cypress::EepromDevice::Device2, 0x0100, back));
    EXPECT_NE(back, text);

    bool level = true;
    ASSERT_FALSE(gpio_set(device, 3, true));
    ASSERT_FALSE(gpio_get(device, 3, level));
    EXPECT_TRUE(level);
    ASSERT_FALSE(gpio_set(device, 3, false));
    ASSERT_FALSE(gpio_get(device, 3, level));
    EXPECT_FALSE(level);
}

TEST_F(RequestsTest, SpiBusBringUpTransfersAndStatistics) {
    auto& device = OpenBoard();
    const spi::SpiBusId bus(0);
    const std::array<std::uint8_t, 2> data{0x9F, 0x00};
    const auto not_started = spi::Transmit(device, bus, 0, data);
    EXPECT_STREQ(not_started.category().name(), "xilinx");

    ASSERT_FALSE(spi::Init(device, bus));
    ASSERT_FALSE(spi::SelfTest(device, bus));
    ASSERT_FALSE(spi::Start(device, bus));
    ASSERT_FALSE(spi::ClearStats(device, bus));
    ASSERT_FALSE(spi::Transmit(device, bus, 0, data));
    std::array<std::uint8_t, 3> answer{};
    ASSERT_FALSE(spi::Receive(device, bus, 0, answer));
    spi::Stats stats;
    ASSERT_FALSE(spi::GetStats(device, bus, stats));
    EXPECT_EQ(stats.transferred, data.size() + answer.size());
    EXPECT_EQ(stats.mode_faults, 0u);

    const auto no_slave = spi::Transmit(device, bus, 7, data);
    EXPECT_STREQ(no_slave.category().name(), "xilinx");
    EXPECT_EQ(no_slave, std::errc::io_error);
    ASSERT_FALSE(spi::Stop(device, bus));
}

TEST_F(RequestsTest, BoardThatVanishesBetweenRequests) {
    auto& device = OpenBoard();
    int value = 0;
    ASSERT_FALSE(state::GetValue(device, State("BIAS"), value));
    Board().Usb().Unplug();
    EXPECT_EQ(state::GetValue(device, State("BIAS"), value), std::errc::no_such_device);
    EXPECT_EQ(state::SetValue(device, State("BIAS"), 1), std::errc::no_such_device);
}

TEST_F(RequestsTest, BoardThatVanishesDuringTheLastErrorRead) {
    auto& device = OpenBoard();
    Firmware().IgnoreNext(0x00);
    auto pending =
        std::async(std::launch::async, [&] { return state::SetValue(device, State("BIAS"), 1); });
    AwaitRequest(0x00);
    Board().Usb().Unplug();
    EXPECT_EQ(pending.get(), std::errc::no_such_device);
}

TEST_F(RequestsTest, TextFieldsOfFullLengthAndWithoutTerminator) {
    auto tables = TablesOf(BoardKind::kTimepix3);
    const std::string longest(32, 'N');
    tables.versions = {{longest, "1.0"}, {"OVERLONG", std::string(40, 'V')}};
    vboard::VirtualBoard::Settings settings;
    settings.tables = tables;
    auto& device = OpenBoard(std::move(settings));

    std::string text;
    ASSERT_FALSE(version::GetName(device, version::VersionId(0), text));
    EXPECT_EQ(text, longest);
    ASSERT_FALSE(version::GetValue(device, version::VersionId(1), text));
    EXPECT_EQ(text, std::string(32, 'V'));
}

}  // namespace
}  // namespace ovex::usb::vendor_cmd
