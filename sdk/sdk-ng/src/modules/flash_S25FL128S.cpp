#include "modules/flash_S25FL128S.hpp"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string_view>
#include <thread>

#include <fmt/format.h>

#include "ovex/log/log.hpp"
#include "ovex/vendor_cmd/spi.hpp"

namespace ovex::sdk {

namespace {

namespace spi = usb::vendor_cmd::spi;

const spi::SpiBusId kBus{1};
constexpr std::uint16_t kSlave = 0;
constexpr double kTimeout = usb::vendor_cmd::kDefaultTimeout;

enum Instruction : std::uint8_t {
    kReadId = 0x9F,
    kReadStatus1 = 0x05,
    kReadConfiguration1 = 0x35,
    kWriteEnable = 0x06,
    kPageProgram = 0x12,
    kQuadPageProgram = 0x34,
    kSectorErase = 0xDC,
    kFastRead = 0x0C,
};

// RDID's answer: the ID-CFI space, which lines up with the message from its first byte.
constexpr std::size_t kIdPadding = 97;
constexpr std::size_t kQueryOffset = 16;
constexpr std::size_t kQuerySize = 11;
constexpr std::size_t kAlternateTableAddress = 9;  // within the query
constexpr std::size_t kGeometryOffset = 39;
constexpr std::size_t kGeometrySize = 10;
constexpr std::size_t kRegionsInGeometry = 6;
constexpr std::size_t kMaxRegions = 2;
constexpr std::string_view kVendorQuery{"ALT20\0", 6};
constexpr std::size_t kPartNumberOffset = 7;  // behind the query's text and its length byte
constexpr std::size_t kPartNumberSize = 9;

constexpr std::uint8_t kWel = 1 << 1;
constexpr std::uint8_t kWip = 1 << 0;
constexpr std::uint8_t kEraseError = 1 << 5;
constexpr std::uint8_t kProgramError = 1 << 6;
constexpr std::uint8_t kTbparm = 1 << 2;
constexpr std::uint8_t kQuad = 1 << 1;
constexpr std::uint8_t kNoDummyLatency = 3;

// Sixteen 4 KiB parameter sectors are erased together, as one sector of 64 KiB.
constexpr std::uint32_t kParameterSector = 4096;
constexpr std::uint32_t kMergedSector = 65536;
constexpr std::uint16_t kMergedCount = kMergedSector / kParameterSector;

struct EraseTimes {
    std::chrono::milliseconds typical;
    std::chrono::milliseconds maximum;
};
constexpr EraseTimes kSectorErase64k{std::chrono::milliseconds{130},
                                     std::chrono::milliseconds{650}};
constexpr EraseTimes kMergedErase{std::chrono::milliseconds{2080},
                                  std::chrono::milliseconds{10400}};

void LogFailure(const std::string& text, const std::error_code& ec) {
    OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, text.c_str());
}

std::error_code Refuse(const std::string& text, std::errc code) {
    OVEX_LOG_ERROR("%s", text.c_str());
    return std::make_error_code(code);
}

std::uint16_t U16Le(std::span<const std::uint8_t> bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

[[noreturn]] void Throw(const std::string& text) {
    OVEX_LOG_ERROR("%s", text.c_str());
    throw std::runtime_error(text);
}

}  // namespace

// --- CommandBuilder ---------------------------------------------------------------------------

void FlashS25FL128S::CommandBuilder::Reserve(std::size_t count) {
    if (m_finalized) {
        Throw(
            "It is not possible to manipulate CommandBuilder object, it has already been "
            "finalized.");
    }
    if (m_size + count > kMaxSize) {
        Throw(
            fmt::format("Failed to append bytes to command data. Required command size {}B is "
                        "bigger than maximum SPI dataload size {}B.",
                        m_size + count, kMaxSize));
    }
    m_size += count;
}

FlashS25FL128S::CommandBuilder& FlashS25FL128S::CommandBuilder::Instruction(std::uint8_t code) {
    Reserve(1);
    m_data.push_back(code);
    return *this;
}

FlashS25FL128S::CommandBuilder& FlashS25FL128S::CommandBuilder::Address(std::uint32_t address) {
    Reserve(4);
    for (int shift = 24; shift >= 0; shift -= 8) {
        m_data.push_back(static_cast<std::uint8_t>(address >> shift));
    }
    return *this;
}

FlashS25FL128S::CommandBuilder& FlashS25FL128S::CommandBuilder::Bytes(
    std::span<const std::uint8_t> bytes) {
    Reserve(bytes.size());
    m_data.insert(m_data.end(), bytes.begin(), bytes.end());
    return *this;
}

FlashS25FL128S::CommandBuilder& FlashS25FL128S::CommandBuilder::Pad(std::size_t count) {
    Reserve(count);
    m_data.resize(m_data.size() + count, 0);
    return *this;
}

std::vector<std::uint8_t> FlashS25FL128S::CommandBuilder::Finalize() {
    if (m_finalized) {
        Throw(
            "It is not possible to manipulate CommandBuilder object, it has already been "
            "finalized.");
    }
    m_finalized = true;
    return std::move(m_data);
}

// --- FlashS25FL128S ---------------------------------------------------------------------------

FlashS25FL128S::FlashS25FL128S(std::shared_ptr<usb::device::UsbDevice> device, std::string id)
    : m_device(std::move(device)), m_id(std::move(id)) {
    for (const auto step : {spi::Reset, spi::Init, spi::Start}) {
        if (const auto ec = step(*m_device, kBus, kTimeout)) {
            throw std::runtime_error(ec.message());
        }
    }
}

std::error_code FlashS25FL128S::Exchange(CommandBuilder& builder,
                                         std::vector<std::uint8_t>* response) {
    const auto message = builder.Finalize();
    if (const auto ec = spi::Transmit(*m_device, kBus, kSlave, message, kTimeout)) {
        LogFailure(fmt::format("Failed to transmit command over bus {} to bus slave {}", kBus.get(),
                               kSlave),
                   ec);
        return ec;
    }
    if (response == nullptr) {
        return {};
    }
    response->assign(message.size(), 0);
    if (const auto ec = spi::Receive(*m_device, kBus, kSlave, *response, kTimeout)) {
        LogFailure(fmt::format("Failed to receive command output over bus {} from bus slave {}",
                               kBus.get(), kSlave),
                   ec);
        return ec;
    }
    return {};
}

std::error_code FlashS25FL128S::ReadRegister(std::uint8_t instruction, std::uint8_t& value) {
    if (instruction != kReadStatus1 && instruction != kReadConfiguration1) {
        return Refuse(fmt::format("Provided instruction {:#x} is not a read-register instruction.",
                                  instruction),
                      std::errc::argument_out_of_domain);
    }
    CommandBuilder builder;
    builder.Instruction(instruction).Pad(1);
    std::vector<std::uint8_t> response;
    if (const auto ec = Exchange(builder, &response)) {
        LogFailure(fmt::format("Failed to execute read register command {:#x}.", instruction), ec);
        return ec;
    }
    value = response[1];
    return {};
}

std::error_code FlashS25FL128S::WriteEnable() {
    CommandBuilder builder;
    builder.Instruction(kWriteEnable);
    if (const auto ec = Exchange(builder, nullptr)) {
        LogFailure("Failed to execute write-enable command.", ec);
        return ec;
    }
    std::uint8_t status = 0;
    if (const auto ec = ReadRegister(kReadStatus1, status)) {
        LogFailure(
            "Cannot read write-enable latch flag because the command "
            "read-status-register-1 has failed.",
            ec);
        return ec;
    }
    if ((status & kWel) == 0) {
        OVEX_LOG_INFO("Write-enable latch is not set to 1 after write-enable command");
        return std::make_error_code(std::errc::result_out_of_range);
    }
    return {};
}

std::error_code FlashS25FL128S::GetInfo(FlashInfo& info) {
    if (!m_info) {
        FlashInfo read;
        if (const auto ec = ReadInfo(read)) {
            return ec;
        }
        m_info = std::move(read);
    }
    info = *m_info;
    return {};
}

std::error_code FlashS25FL128S::ReadInfo(FlashInfo& info) {
    const auto invalid = std::make_error_code(std::errc::invalid_argument);
    CommandBuilder builder;
    builder.Instruction(kReadId).Pad(kIdPadding);
    std::vector<std::uint8_t> response;
    if (const auto ec = Exchange(builder, &response)) {
        LogFailure("Failed to execute read-identification command.", ec);
        LogFailure("Failed to read identification from S25FL128S flash memory.", ec);
        return ec;
    }
    const std::span<const std::uint8_t> bytes(response);

    const auto query = bytes.subspan(kQueryOffset);
    if (query.size() < kQuerySize || query[0] != 'Q' || query[1] != 'R' || query[2] != 'Y') {
        OVEX_LOG_ERROR("Failed to deserialize query id from S25FL128S flash memory");
        return invalid;
    }
    const std::size_t vendor_query = U16Le(query, kAlternateTableAddress);

    std::uint8_t configuration = 0;
    if (const auto ec = ReadRegister(kReadConfiguration1, configuration)) {
        LogFailure(
            "Cannot read tbparm flag because the command read-control-register-1 has "
            "failed.",
            ec);
        return ec;
    }
    const bool parameters_on_top = (configuration & kTbparm) != 0;

    // Size and page size as powers of two, then the erase regions: count − 1 and size / 256.
    const auto geometry = bytes.subspan(kGeometryOffset);
    const std::size_t region_count = geometry.size() >= kGeometrySize ? geometry[5] : 0;
    if (geometry.size() < kGeometrySize || region_count > kMaxRegions ||
        kRegionsInGeometry + 4 * region_count > geometry.size() || geometry[3] > 15) {
        OVEX_LOG_ERROR("Failed to deserialize geometry of S25FL128S flash memory.");
        return invalid;
    }
    std::vector<FlashRegion> chip_regions;
    for (std::size_t i = 0; i < region_count; ++i) {
        const std::size_t at = kRegionsInGeometry + 4 * i;
        const std::uint32_t size = U16Le(geometry, at + 2) * 256U;
        chip_regions.push_back(
            {0, static_cast<std::uint16_t>(U16Le(geometry, at) + 1), size == 0 ? 128U : size, 0});
    }
    if (parameters_on_top && chip_regions.size() == kMaxRegions) {
        std::swap(chip_regions[0], chip_regions[1]);
    }

    const std::size_t part_at = vendor_query + kPartNumberOffset;
    if (part_at + kPartNumberSize > bytes.size() ||
        !std::equal(kVendorQuery.begin(), kVendorQuery.end(), bytes.begin() + vendor_query)) {
        OVEX_LOG_ERROR("Failed to deserialize external vendor query from S25FL128S flash memory.");
        return invalid;
    }
    const auto part = bytes.subspan(part_at, kPartNumberSize);
    const auto printable =
        std::find_if(part.begin(), part.end(), [](std::uint8_t c) { return c < 0x20 || c > 0x7E; });

    info.id = m_id;
    info.part_number.assign(part.begin(), printable);
    info.flash_size = std::uint32_t{1} << (geometry[0] & 0x1F);
    info.page_size = static_cast<std::uint16_t>(1U << geometry[3]);
    info.regions.clear();
    std::uint32_t start = 0;
    for (const FlashRegion& region : chip_regions) {
        if (region.sector_size == kParameterSector) {
            info.regions.push_back({start,
                                    static_cast<std::uint16_t>(region.sector_count / kMergedCount),
                                    kMergedSector, 1});
        } else {
            info.regions.push_back({start, region.sector_count, region.sector_size, 0});
        }
        start += region.sector_count * region.sector_size;
    }

    if (!m_configuration) {
        if (const auto ec = ReadRegister(kReadConfiguration1, configuration)) {
            LogFailure(
                "Cannot fill flash configuration object because the command "
                "read-control-register-1 has failed.",
                ec);
            return ec;
        }
        // The latency code's bits come in reverse order: bit 7 is its low bit.
        m_configuration = Configuration{
            (configuration & kQuad) != 0,
            static_cast<std::uint8_t>((configuration >> 7 & 1) | (configuration >> 6 & 1) << 1)};
    }
    return {};
}

std::error_code FlashS25FL128S::Read(std::uint32_t address, std::span<std::uint8_t> data) {
    FlashInfo info;
    if (const auto ec = GetInfo(info)) {
        LogFailure("Failed to retrieve S25FL128S flash memory information.", ec);
        return ec;
    }
    if (std::uint64_t{address} + data.size() > info.flash_size) {
        return Refuse(fmt::format("Reading {} bytes at address {:#x} runs past the end of the "
                                  "S25FL128S flash memory.",
                                  data.size(), address),
                      std::errc::invalid_argument);
    }
    const std::size_t header = 5 + (m_configuration->latency_code == kNoDummyLatency ? 0 : 1);
    for (std::size_t done = 0; done < data.size(); done += info.page_size) {
        const auto chunk =
            data.subspan(done, std::min<std::size_t>(info.page_size, data.size() - done));
        const auto chunk_address = static_cast<std::uint32_t>(address + done);
        CommandBuilder builder;
        builder.Instruction(kFastRead).Address(chunk_address).Pad(header - 5 + chunk.size());
        std::vector<std::uint8_t> response;
        if (const auto ec = Exchange(builder, &response)) {
            LogFailure(
                fmt::format("Failed to read chunk at address {:#x} on S25FL128S flash memory.",
                            chunk_address),
                ec);
            return ec;
        }
        std::copy(response.begin() + static_cast<std::ptrdiff_t>(header), response.end(),
                  chunk.begin());
        OVEX_LOG_INFO(
            "Chunk of size %zu successfully read from address %#x on S25FL128S flash "
            "memory",
            chunk.size(), chunk_address);
    }
    return {};
}

std::error_code FlashS25FL128S::ProgramSector(std::uint32_t address,
                                              std::span<const std::uint8_t> data) {
    FlashInfo info;
    if (const auto ec = GetInfo(info)) {
        LogFailure("Failed to retrieve S25FL128S flash memory information.", ec);
        return ec;
    }
    const auto region = FindFlashRegion(info, address);
    if (!region) {
        return Refuse(fmt::format("Flash address {:#x} does not correspond to any S25FL128S flash "
                                  "memory region.",
                                  address),
                      std::errc::argument_out_of_domain);
    }
    if (data.size() != region->sector_size) {
        return Refuse(fmt::format("Provided buffer size does not match the S25FL128S flash memory "
                                  "sector size ({} != {})",
                                  data.size(), region->sector_size),
                      std::errc::argument_out_of_domain);
    }
    if (!IsSectorStart(*region, address)) {
        return Refuse(fmt::format("Flash address {:#x} does not point to the start of any "
                                  "S25FL128S flash memory sector",
                                  address),
                      std::errc::argument_out_of_domain);
    }
    const std::uint8_t program = m_configuration->quad ? kQuadPageProgram : kPageProgram;
    for (std::size_t done = 0; done < data.size(); done += info.page_size) {
        const auto page =
            data.subspan(done, std::min<std::size_t>(info.page_size, data.size() - done));
        const auto page_address = static_cast<std::uint32_t>(address + done);
        if (const auto ec = WriteEnable()) {
            LogFailure(
                "Failed to execute enable write command before program page command on "
                "S25FL128S flash memory.",
                ec);
            return ec;
        }
        CommandBuilder builder;
        builder.Instruction(program).Address(page_address).Bytes(page);
        if (const auto ec = Exchange(builder, nullptr)) {
            LogFailure(fmt::format("Failed to execute program-page command at address {:#x} on "
                                   "S25FL128S flash memory.",
                                   page_address),
                       ec);
            return ec;
        }
        // The status read's own USB exchange is all the time that the page gets.
        std::uint8_t status = 0;
        if (const auto ec = ReadRegister(kReadStatus1, status)) {
            LogFailure(
                "Cannot read SR1 flags because the command read-status-register-1 has "
                "failed.",
                ec);
            return ec;
        }
        if ((status & (kProgramError | kWip)) != 0) {
            return Refuse(fmt::format("Failed to program page at address {:#x} on S25FL128S flash "
                                      "memory",
                                      page_address),
                          std::errc::io_error);
        }
        OVEX_LOG_INFO(
            "Chunk of size %zu successfully written at address %#x on S25FL128S flash "
            "memory",
            page.size(), page_address);
    }
    return {};
}

std::error_code FlashS25FL128S::EraseSector(std::uint32_t address) {
    FlashInfo info;
    if (const auto ec = GetInfo(info)) {
        LogFailure("Failed to retrieve S25FL128S flash memory information.", ec);
        return ec;
    }
    const auto region = FindFlashRegion(info, address);
    if (!region) {
        return Refuse(
            fmt::format("Flash address {:#x} does not correspond to any flash memory region.",
                        address),
            std::errc::argument_out_of_domain);
    }
    if (!IsSectorStart(*region, address)) {
        return Refuse(fmt::format("Flash address {:#x}  does not point to the start of any flash "
                                  "memory sector",
                                  address),
                      std::errc::argument_out_of_domain);
    }
    if (const auto ec = WriteEnable()) {
        LogFailure(
            "Failed to execute enable-write command before erase command on S25FL128S "
            "flash memory.",
            ec);
        return ec;
    }
    CommandBuilder builder;
    builder.Instruction(kSectorErase).Address(address);
    if (const auto ec = Exchange(builder, nullptr)) {
        LogFailure(fmt::format("Failed to execute erase command at address {:#x} on S25FL128S "
                               "flash memory.",
                               address),
                   ec);
        return ec;
    }
    const EraseTimes times = region->merged != 0 ? kMergedErase : kSectorErase64k;
    const auto read_status = [&](std::uint8_t& status) {
        const auto ec = ReadRegister(kReadStatus1, status);
        if (ec) {
            LogFailure(
                "Cannot read write-enable latch flag because the command "
                "read-status-register-1 has failed.",
                ec);
        }
        return ec;
    };
    std::this_thread::sleep_for(times.typical);
    std::uint8_t status = 0;
    if (const auto ec = read_status(status)) {
        return ec;
    }
    if ((status & kWip) != 0) {
        OVEX_LOG_INFO(
            "Sector erase did not finish in typical time, waiting until maximum time elapses...");
        std::this_thread::sleep_for(times.maximum - times.typical);
        if (const auto ec = read_status(status)) {
            return ec;
        }
        if ((status & kWip) != 0) {
            return Refuse("Erase did not finish in maximum possible time.", std::errc::timed_out);
        }
    }
    if ((status & kEraseError) != 0) {
        return Refuse("Erase error flag has been raised.", std::errc::io_error);
    }
    OVEX_LOG_INFO("Sector at address %#x successfully erased from S25FL128S flash memory", address);
    return {};
}

}  // namespace ovex::sdk
