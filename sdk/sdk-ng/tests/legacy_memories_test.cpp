// The EEPROMs and the flash of a virtual Timepix3 board through the older interface's one id
// space: ids and texts kept in the handle, regions and sectors, reads and writes, and that a
// flash is erased before it is programmed while an EEPROM is written as it is.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "support/legacy_session.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint8_t kI2cRequest = 0x92;
constexpr std::uint32_t kSector = 65536;

class LegacyMemories : public LegacySession {
protected:
    // The backend's power-up adds the flash behind the two EEPROMs.
    void OpenWithFlash() {
        ASSERT_EQ(AddAndOpen(), OVEX_OK);
        ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx->context, 0), OVEXSDK_OK);
    }
    std::size_t Erases() { return Board().Engine().Invocations("FLASH_ERASE0").size(); }
    std::size_t I2cWrites() {
        const auto log = Board().Firmware().RequestLog();
        return static_cast<std::size_t>(std::count_if(log.begin(), log.end(), [](const auto& r) {
            return r.bRequest == kI2cRequest && !r.IsIn();
        }));
    }
};

TEST_F(LegacyMemories, IdsCountEepromsFirstAndTheirTextsStayInTheHandle) {
    OpenWithFlash();
    std::uint32_t count = 0;
    ASSERT_EQ(ovex_flash_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 3U);
    const char* eeprom = nullptr;
    const char* security = nullptr;
    const char* flash = nullptr;
    ASSERT_EQ(ovex_flash_id(m_ctx, 0, &eeprom), OVEX_OK);
    ASSERT_EQ(ovex_flash_id(m_ctx, 1, &security), OVEX_OK);
    ASSERT_EQ(ovex_flash_id(m_ctx, 2, &flash), OVEX_OK);
    EXPECT_STREQ(eeprom, "i2c0-eeprom");
    EXPECT_STREQ(security, "i2c0-eeprom-security");
    EXPECT_STREQ(flash, "flash_fpga_be");
    EXPECT_EQ(eeprom, m_ctx->eeprom_texts[0].id);
    EXPECT_EQ(flash, m_ctx->flash_texts[0].id);
    const char* id = nullptr;
    EXPECT_EQ(ovex_flash_id(m_ctx, 3, &id), OVEX_ERR_UNAVAILABLE) << "the library knows no flash 1";
    EXPECT_EQ(ovex_flash_id(m_ctx, 2 + 4, &id), OVEX_ERR_HANDLE) << "the handle has no fifth slot";

    const char* part = nullptr;
    ASSERT_EQ(ovex_flash_part_nr(m_ctx, "i2c0-eeprom-security", &part), OVEX_OK);
    EXPECT_STREQ(part, "24CS512");
    EXPECT_EQ(part, m_ctx->eeprom_texts[1].part_number);
    ASSERT_EQ(ovex_flash_part_nr(m_ctx, "flash_fpga_be", &part), OVEX_OK);
    EXPECT_STREQ(part, "S25FS128S");
    EXPECT_STREQ(eeprom, "i2c0-eeprom") << "other memories' calls leave a text alone";

    std::uint32_t regions = 0;
    ASSERT_EQ(ovex_flash_regions(m_ctx, "i2c0-eeprom-security", &regions), OVEX_OK);
    EXPECT_EQ(regions, 2U);
    ASSERT_EQ(ovex_flash_regions(m_ctx, "flash_fpga_be", &regions), OVEX_OK);
    EXPECT_EQ(regions, 1U);
    std::uint32_t sectors = 0;
    std::uint32_t size = 0;
    ASSERT_EQ(ovex_flash_sector_count(m_ctx, "i2c0-eeprom", 0, &sectors), OVEX_OK);
    ASSERT_EQ(ovex_flash_sector_size(m_ctx, "i2c0-eeprom", 0, &size), OVEX_OK);
    EXPECT_EQ(sectors * size, 65536U);
    EXPECT_EQ(size, 128U);
    ASSERT_EQ(ovex_flash_sector_count(m_ctx, "flash_fpga_be", 0, &sectors), OVEX_OK);
    ASSERT_EQ(ovex_flash_sector_size(m_ctx, "flash_fpga_be", 0, &size), OVEX_OK);
    EXPECT_EQ(sectors, 256U);
    EXPECT_EQ(size, kSector);
    EXPECT_EQ(ovex_flash_sector_count(m_ctx, "i2c0-eeprom-security", 2, &sectors),
              OVEX_ERR_INVALID);
    EXPECT_EQ(ovex_flash_sector_size(m_ctx, "flash_fpga_be", 1, &size), OVEX_ERR_UNAVAILABLE);

    // A flash's sectors by number; an EEPROM answers for a region.
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    ASSERT_EQ(ovex_flash_sector_address_range(m_ctx, "flash_fpga_be", 3, &first, &last), OVEX_OK);
    EXPECT_EQ(first, 3 * kSector);
    EXPECT_EQ(last, 4 * kSector - 1);
    ASSERT_EQ(ovex_flash_sector_address_range(m_ctx, "flash_fpga_be", 255, &first, &last), OVEX_OK);
    EXPECT_EQ(last, 16U * 1024 * 1024 - 1);
    EXPECT_EQ(ovex_flash_sector_address_range(m_ctx, "flash_fpga_be", 256, &first, &last),
              OVEX_ERR_HANDLE);
    ASSERT_EQ(ovex_flash_sector_address_range(m_ctx, "i2c0-eeprom-security", 1, &first, &last),
              OVEX_OK);
    EXPECT_EQ(first, 0x0880U);
    EXPECT_EQ(last, 0x08FFU);

    // An id neither kind knows.
    EXPECT_EQ(ovex_flash_part_nr(m_ctx, "flash_fpga", &part), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_flash_regions(m_ctx, "i2c0", &regions), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_flash_sector_address_range(m_ctx, "", 0, &first, &last), OVEX_ERR_HANDLE);
}

TEST_F(LegacyMemories, FlashIsErasedBeforeEachProgramAndAnEepromIsWrittenWithout) {
    OpenWithFlash();
    Bytes image(kSector);
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<std::uint8_t>(i ^ (i >> 8));
    }
    Bytes inverse(image);
    for (auto& byte : inverse) {
        byte = static_cast<std::uint8_t>(~byte);
    }
    // Programming only clears bits: without the erase the second image would read as zeros.
    const std::size_t erases = Erases();
    for (const Bytes* data : {&image, &inverse}) {
        std::uint64_t length = data->size();
        ASSERT_EQ(ovex_flash_program(m_ctx, "flash_fpga_be", 3 * kSector, data->data(), &length),
                  OVEX_OK);
    }
    EXPECT_EQ(Erases(), erases + 2);
    Bytes back(2500);
    std::uint64_t length = back.size();
    ASSERT_EQ(ovex_flash_read(m_ctx, "flash_fpga_be", 3 * kSector + 1000, back.data(), &length),
              OVEX_OK);
    EXPECT_EQ(length, back.size());
    EXPECT_EQ(back, Bytes(inverse.begin() + 1000, inverse.begin() + 3500));
    // An address inside a sector: its erase is refused and nothing is programmed.
    length = image.size();
    EXPECT_EQ(ovex_flash_program(m_ctx, "flash_fpga_be", 3 * kSector + 1, image.data(), &length),
              OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(Erases(), erases + 2);

    // One write for ten bytes inside a page, no erase; the address is cut to 16 bits.
    const Bytes data{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    const std::size_t writes = I2cWrites();
    length = data.size();
    ASSERT_EQ(ovex_flash_program(m_ctx, "i2c0-eeprom", 0x10000 + 200, data.data(), &length),
              OVEX_OK);
    EXPECT_EQ(length, data.size());
    EXPECT_EQ(I2cWrites(), writes + 1);
    Bytes eeprom(data.size());
    length = eeprom.size();
    ASSERT_EQ(ovex_flash_read(m_ctx, "i2c0-eeprom", 200, eeprom.data(), &length), OVEX_OK);
    EXPECT_EQ(eeprom, data);
    // The security EEPROM's factory half is read-only: nothing written.
    length = data.size();
    EXPECT_EQ(ovex_flash_program(m_ctx, "i2c0-eeprom-security", 0x0800, data.data(), &length),
              OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(length, 0U);
}

TEST_F(LegacyMemories, BadHandlesAndPointersAreRefusedAndNoDeviceIsAHandleError) {
    New();
    const auto released = std::make_unique<ovex_ctx>();
    auto* current = reinterpret_cast<ovex_ctx*>(&m_ctx->context);
    LogCapture log;
    std::uint32_t count = 0;
    const char* text = nullptr;
    Bytes buffer(4);
    std::uint64_t length = buffer.size();
    for (ovex_ctx* bad : {static_cast<ovex_ctx*>(nullptr), released.get(), current}) {
        EXPECT_EQ(ovex_flash_count(bad, &count), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_flash_id(bad, 0, &text), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_flash_part_nr(bad, "i2c0-eeprom", &text), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_flash_regions(bad, "i2c0-eeprom", &count), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_flash_sector_count(bad, "i2c0-eeprom", 0, &count), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_flash_sector_size(bad, "i2c0-eeprom", 0, &count), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_flash_sector_address_range(bad, "i2c0-eeprom", 0, &count, &count),
                  OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_flash_read(bad, "i2c0-eeprom", 0, buffer.data(), &length), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_flash_program(bad, "i2c0-eeprom", 0, buffer.data(), &length),
                  OVEX_ERR_HANDLE);
    }
    EXPECT_EQ(ovex_flash_count(m_ctx, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_flash_part_nr(m_ctx, nullptr, &text), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_flash_sector_address_range(m_ctx, "i2c0-eeprom", 0, &count, nullptr),
              OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_flash_read(m_ctx, "i2c0-eeprom", 0, nullptr, &length), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_flash_program(m_ctx, "i2c0-eeprom", 0, buffer.data(), nullptr), OVEX_ERR_HANDLE);
    EXPECT_TRUE(log.Messages().empty());

    // Without a device the counts' -19 is a handle error, and no id can be found.
    EXPECT_EQ(ovex_flash_count(m_ctx, &count), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_flash_id(m_ctx, 0, &text), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_flash_read(m_ctx, "i2c0-eeprom", 0, buffer.data(), &length), OVEX_ERR_HANDLE);
}

}  // namespace
}  // namespace ovex::sdk::testing
