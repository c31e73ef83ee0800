#include "modules/flash_S25FS128S.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include "bitmanip/bitmanip.hpp"
#include "ovex/log/log.hpp"
#include "ovex/usb/transfer.hpp"

namespace ovex::sdk {

namespace {

// A block travels in one control transfer, which carries at most kMaxControlPayload bytes: the
// largest power of two below that keeps every sector a whole number of blocks.
constexpr std::size_t kBlockSize = 512;
static_assert(kBlockSize <= usb::device::kMaxControlPayload &&
              kBlockSize * 2 > usb::device::kMaxControlPayload);
// The information answer is short; the host offers all that one transfer can carry.
constexpr std::size_t kInfoSize = usb::device::kMaxControlPayload;
constexpr std::size_t kRegionRecordSize = 6;

void LogFailure(const std::string& text, const std::error_code& ec) {
    OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, text.c_str());
}

std::error_code Refuse(const std::string& text) {
    OVEX_LOG_ERROR("%s", text.c_str());
    return std::make_error_code(std::errc::argument_out_of_domain);
}

// The bytes at `offset` of the answer, which must lie wholly inside it.
std::span<const std::uint8_t> Field(std::span<const std::uint8_t> answer, std::size_t offset,
                                    std::size_t size) {
    if (offset > answer.size() || size > answer.size() - offset) {
        throw std::invalid_argument("Offset points to data behind the buffer");
    }
    return answer.subspan(offset, size);
}

ModuleRequirements FlashItems(Commands* commands) {
    OVEX_CHECK(commands != nullptr, "BUG: Device commands are unavailable.");
    ModuleRequirements requirements;
    requirements.commands = {{commands,
                              {"FLASH_INIT0", "FLASH_INFO0", "FLASH_BLK_CFG0", "FLASH_READ0",
                               "FLASH_ERASE0", "FLASH_WRITE0"}}};
    return requirements;
}

}  // namespace

FlashS25FS128S::FlashS25FS128S(Commands* commands, std::string id)
    : IFlashControl(FlashItems(commands), false), m_id(std::move(id)) {
    if (const auto ec = GetCommands()->Invoke("FLASH_INIT0")) {
        LogFailure("Failed to execute flash memory initialize on the device.", ec);
        throw std::runtime_error(ec.message());
    }
}

std::error_code FlashS25FS128S::ConfigureBlock(std::uint32_t address, std::uint32_t size) {
    std::array<std::uint8_t, 8> block{};
    bitmanip::u32_to_span_le(address, std::span(block).first(4));
    bitmanip::u32_to_span_le(size, std::span(block).last(4));
    return GetCommands()->Invoke("FLASH_BLK_CFG0", std::span<const std::uint8_t>(block));
}

std::error_code FlashS25FS128S::GetInfo(FlashInfo& info) {
    if (m_info) {
        info = *m_info;
        return {};
    }
    std::vector<std::uint8_t> answer(kInfoSize, 0);
    if (const auto ec = GetCommands()->Invoke("FLASH_INFO0", std::span<std::uint8_t>(answer))) {
        LogFailure("Failed to retrieve flash memory information from the device.", ec);
        return ec;
    }
    // The part number's terminating zero is the low byte of the flash size.
    const std::span<const std::uint8_t> bytes(answer);
    const auto text_end = std::find(answer.begin(), answer.end(), 0);
    const auto text_length = static_cast<std::size_t>(text_end - answer.begin());
    FlashInfo read;
    read.id = m_id;
    read.part_number.assign(answer.begin(), text_end);
    read.flash_size = bitmanip::u32_from_span_le(Field(bytes, text_length, 4));
    const auto page_size = Field(bytes, text_length + 4, 2);
    read.page_size = bitmanip::bytes_to_u16(page_size[1], page_size[0]);
    std::uint32_t start = 0;
    for (std::size_t offset = text_length + 6;; offset += kRegionRecordSize) {
        const auto record = Field(bytes, offset, kRegionRecordSize);
        const std::uint32_t sector_size = bitmanip::u32_from_span_le(record.first(4));
        const std::uint16_t sector_count = bitmanip::bytes_to_u16(record[5], record[4]);
        if (sector_size == 0 || sector_count == 0) {
            break;
        }
        read.regions.push_back({start, sector_count, sector_size, 0});
        start += sector_count * sector_size;
    }
    m_info = read;
    info = std::move(read);
    return {};
}

std::error_code FlashS25FS128S::Read(std::uint32_t address, std::span<std::uint8_t> data) {
    for (std::size_t done = 0; done < data.size(); done += kBlockSize) {
        const auto chunk = data.subspan(done, std::min(kBlockSize, data.size() - done));
        const auto chunk_address = static_cast<std::uint32_t>(address + done);
        if (const auto ec =
                ConfigureBlock(chunk_address, static_cast<std::uint32_t>(chunk.size()))) {
            LogFailure(fmt::format("Failed to configure flash memory read with address {:#x} and "
                                   "size {}.",
                                   chunk_address, chunk.size()),
                       ec);
            return ec;
        }
        if (const auto ec = GetCommands()->Invoke("FLASH_READ0", chunk)) {
            LogFailure("Failed to execute flash memory read on the device.", ec);
            return ec;
        }
    }
    return {};
}

std::error_code FlashS25FS128S::CheckSector(std::uint32_t address, FlashRegion& region) {
    FlashInfo info;
    if (const auto ec = GetInfo(info)) {
        LogFailure("Failed to retrieve flash memory info.", ec);
        return ec;
    }
    const auto found = FindFlashRegion(info, address);
    if (!found) {
        return Refuse(fmt::format(
            "Flash address {:#x} does not correspond to any flash memory region.", address));
    }
    region = *found;
    return {};
}

std::error_code FlashS25FS128S::ProgramSector(std::uint32_t address,
                                              std::span<const std::uint8_t> data) {
    FlashRegion region;
    if (const auto ec = CheckSector(address, region)) {
        return ec;
    }
    if (data.size() != region.sector_size) {
        return Refuse(fmt::format(
            "Provided buffer size does not match the flash memory sector size ({} != {})",
            data.size(), region.sector_size));
    }
    if (!IsSectorStart(region, address)) {
        return Refuse(fmt::format(
            "Flash address {:#x} does not point to the start of any flash memory sector", address));
    }
    for (std::size_t done = 0; done < data.size(); done += kBlockSize) {
        const auto block = data.subspan(done, std::min(kBlockSize, data.size() - done));
        const auto block_address = static_cast<std::uint32_t>(address + done);
        if (const auto ec =
                ConfigureBlock(block_address, static_cast<std::uint32_t>(block.size()))) {
            LogFailure(fmt::format("Failed to configure flash memory program sector with address "
                                   "{:#x} and size {}.",
                                   block_address, block.size()),
                       ec);
            return ec;
        }
        if (const auto ec = GetCommands()->Invoke("FLASH_WRITE0", block)) {
            LogFailure("Failed to execute flash memory program sector on the device.", ec);
            return ec;
        }
    }
    return {};
}

std::error_code FlashS25FS128S::EraseSector(std::uint32_t address) {
    FlashRegion region;
    if (const auto ec = CheckSector(address, region)) {
        return ec;
    }
    if (!IsSectorStart(region, address)) {
        return Refuse(fmt::format(
            "Flash address {:#x} does not point to the start of any flash memory sector", address));
    }
    if (const auto ec = ConfigureBlock(address, 0)) {
        LogFailure(
            fmt::format("Failed to configure flash memory erase with address {:#x}.", address), ec);
        return ec;
    }
    if (const auto ec = GetCommands()->Invoke("FLASH_ERASE0")) {
        LogFailure("Failed to execute flash memory erase on the device.", ec);
        return ec;
    }
    return {};
}

}  // namespace ovex::sdk
