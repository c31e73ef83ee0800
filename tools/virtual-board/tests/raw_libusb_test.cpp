// The board as plain libusb sees it, without the SDK: the emulation itself is under test here.

#include <gtest/gtest.h>
#include <libusb.h>

#include <memory>
#include <vector>

#include "ovex/vboard/virtual_board.hpp"

namespace ovex::vboard {
namespace {

class RawBoard : public ::testing::Test {
protected:
    void SetUp() override {
        if (!TestBed::PreloadActive()) {
            GTEST_SKIP() << "needs LD_PRELOAD=libumockdev-preload.so.0";
        }
        m_bed = std::make_unique<TestBed>();
    }
    void Start(VirtualBoard::Settings settings = {}) {
        m_board = std::make_unique<VirtualBoard>(*m_bed, 1, std::move(settings));
        ASSERT_EQ(libusb_init(&m_ctx), 0);
    }
    void TearDown() override {
        if (m_handle != nullptr) {
            libusb_close(m_handle);
        }
        if (m_ctx != nullptr) {
            libusb_exit(m_ctx);
        }
        m_board.reset();
        m_bed.reset();
    }
    void Open() {
        m_handle = libusb_open_device_with_vid_pid(m_ctx, 0x1209, 0xAD0E);
        ASSERT_NE(m_handle, nullptr);
        ASSERT_EQ(libusb_claim_interface(m_handle, 0), 0);
    }

    // The board of `kind` answers with the product, release and board id a host tells it by.
    void ExpectIdentity(BoardKind kind, const char* product, std::uint16_t release,
                        const char* board_id) {
        VirtualBoard::Settings settings;
        settings.kind = kind;
        Start(settings);
        Open();
        unsigned char text[64] = {};
        ASSERT_GT(libusb_get_string_descriptor_ascii(m_handle, kProduct, text, sizeof(text)), 0);
        EXPECT_STREQ(reinterpret_cast<char*>(text), product);
        libusb_device_descriptor descriptor{};
        ASSERT_EQ(libusb_get_device_descriptor(libusb_get_device(m_handle), &descriptor), 0);
        EXPECT_EQ(descriptor.bcdDevice, release);
        unsigned char id[33] = {};
        ASSERT_EQ(libusb_control_transfer(m_handle, 0xC0, 0xB0, 0, 0, id, 32, 1000), 32);
        EXPECT_STREQ(reinterpret_cast<char*>(id), board_id);
    }

    std::unique_ptr<TestBed> m_bed;
    std::unique_ptr<VirtualBoard> m_board;
    libusb_context* m_ctx = nullptr;
    libusb_device_handle* m_handle = nullptr;
};

TEST_F(RawBoard, IdentityStringsAndCountingStream) {
    Start();
    Open();
    unsigned char text[64] = {};
    ASSERT_GT(libusb_get_string_descriptor_ascii(m_handle, kSerial, text, sizeof(text)), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(text), "OVX00001");

    std::vector<unsigned char> data(1000);
    int got = 0;
    ASSERT_EQ(libusb_bulk_transfer(m_handle, 0x81, data.data(), 1000, &got, 1000), 0);
    ASSERT_EQ(got, 1000);
    for (int i = 0; i < got; ++i) {
        ASSERT_EQ(data[i], CountingSource::ByteAt(static_cast<std::uint64_t>(i))) << i;
    }
    ASSERT_EQ(libusb_bulk_transfer(m_handle, 0x81, data.data(), 1000, &got, 1000), 0);
    EXPECT_EQ(data[0], CountingSource::ByteAt(1000));

    unsigned char word[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(libusb_control_transfer(m_handle, 0xC0, 0x55, 0, 0, word, 4, 1000),
              LIBUSB_ERROR_PIPE);
    EXPECT_EQ(libusb_control_transfer(m_handle, 0xC0, kLastErrorRequest, 0, 0, word, 4, 1000), 4);
    EXPECT_EQ(word[0], kNotSupported);
}

TEST_F(RawBoard, KindGivesProductReleaseAndBoardIdUnlessOverridden) {
    VirtualBoard::Settings settings;
    settings.kind = BoardKind::kTimepix2Cb;
    settings.identity.bcd_device = 0x0204;
    Start(settings);
    Open();
    const ItemTables& tables = TablesOf(BoardKind::kTimepix2Cb);
    unsigned char text[64] = {};
    ASSERT_GT(libusb_get_string_descriptor_ascii(m_handle, kProduct, text, sizeof(text)), 0);
    EXPECT_EQ(reinterpret_cast<char*>(text), tables.product);
    libusb_device_descriptor descriptor{};
    ASSERT_EQ(libusb_get_device_descriptor(libusb_get_device(m_handle), &descriptor), 0);
    EXPECT_EQ(descriptor.bcdDevice, 0x0204);

    unsigned char id[33] = {};  // the 32-byte field and a NUL
    ASSERT_EQ(libusb_control_transfer(m_handle, 0xC0, 0xB0, 0, 0, id, 32, 1000), 32);
    EXPECT_EQ(reinterpret_cast<char*>(id), tables.board_id);
}

TEST_F(RawBoard, NobeIdentity) {
    ExpectIdentity(BoardKind::kNobe, "NOBE", 0x0300, "NOBE");
}

TEST_F(RawBoard, Timepix4ChipBoardIdentity) {
    ExpectIdentity(BoardKind::kTimepix4Cb, "OvexBoard Timepix4 CB", 0x0303, "TPX4CB");
}

}  // namespace
}  // namespace ovex::vboard
