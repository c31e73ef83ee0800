#include "ovex/fx3/bootloader.hpp"

#include <array>
#include <string_view>
#include <vector>

#include "commands.hpp"
#include "ovex/log/log.hpp"
#include "ovex/usb/usb_device.hpp"
#include "shared_func.hpp"

namespace ovex::fx3 {
namespace {

namespace cypress = usb::vendor_cmd::cypress;
using impl::kRequestTimeout;

constexpr std::string_view kProgrammerId = "FX3PROG";
constexpr std::size_t kMaxBootloaderSize = 65535;
constexpr std::uint16_t kBootloaderAddress = 0;

}  // namespace

std::error_code Bootloader::Create(usb::device::UsbDevice& device,
                                   std::unique_ptr<Bootloader>& bootloader) {
    bootloader.reset();
    // The probe needs the control endpoint, which exists only while the device is open.
    const bool opened_here = !device.IsOpen();
    if (opened_here) {
        if (const auto error = device.Open()) {
            OVEX_LOG_EC(log::kError, "Failed to open the device - %s: %s.", error);
            return error;
        }
    }
    std::array<std::uint8_t, 1> probe{};
    if (const auto error = cypress::ReadRam(device, 0, probe, kRequestTimeout)) {
        if (opened_here) {
            device.Close();
        }
        return error;
    }
    bootloader.reset(new Bootloader(device));
    return {};
}

Bootloader::~Bootloader() {
    if (!m_device.IsOpen()) {
        return;
    }
    if (const auto error = m_device.Close()) {
        OVEX_LOG_EC(log::kError, "Failed to close the device - %s: %s.", error);
    }
}

std::error_code Bootloader::GetInfo(BootloaderInfo& info) {
    if (const auto error = cypress::GetVersion(m_device, info.version, kRequestTimeout)) {
        return error;
    }
    return cypress::GetId(m_device, info.product, kRequestTimeout);
}

std::error_code Bootloader::Download(const FwImage& image) {
    const auto& sections = image.Sections();
    for (std::size_t n = 0; n < sections.size(); ++n) {
        const FwSection& section = sections[n];
        OVEX_LOG_INFO("Downloading firmware image section n.%zu (address: 0x%08x, size: %zu).", n,
                      section.address, section.data.size());
        if (const auto error = impl::WriteRamChunked(m_device, section.address, section.data)) {
            OVEX_LOG_ERROR("Failed to write firmware image section n.%zu to address 0x%x.", n,
                           section.address);
            return error;
        }
        OVEX_LOG_INFO("Verifying firmware image section n.%zu", n);
        std::vector<std::uint8_t> read_back(section.data.size());
        if (const auto error = impl::ReadRamChunked(m_device, section.address, read_back)) {
            OVEX_LOG_ERROR("Failed to read firmware image section n.%zu from address 0x%x.", n,
                           section.address);
            return error;
        }
        if (const auto error = impl::CompareContent(section.data, read_back)) {
            OVEX_LOG_ERROR("Content verification of section n.%zu failed.", n);
            return error;
        }
        OVEX_LOG_INFO("Firmware image section n.%zu - OK.", n);
    }
    m_entry_point = image.EntryPoint();
    return {};
}

std::error_code Bootloader::Switch() {
    OVEX_LOG_INFO("Switching to application, entrypoint: 0x%08X.", m_entry_point);
    // A read of nothing at an address is the boot loader's command to jump there.
    return cypress::ReadRam(m_device, m_entry_point, {}, kRequestTimeout);
}

std::error_code Bootloader::DownloadBootloader(std::span<const std::uint8_t> image) {
    if (image.size() > kMaxBootloaderSize) {
        OVEX_LOG_ERROR("Bootloader image too large (size: %zu, limit: %zu).", image.size(),
                       kMaxBootloaderSize);
        return std::make_error_code(std::errc::invalid_argument);
    }
    OVEX_LOG_INFO("Downloading bootloader image (size: %zu)...", image.size());
    if (const auto error = impl::WriteEepromChunked(m_device, kBootloaderAddress, image)) {
        return error;
    }
    OVEX_LOG_INFO("Bootloader image download successfull.");
    OVEX_LOG_INFO("Verifying bootloader image...");
    std::vector<std::uint8_t> read_back(image.size());
    if (const auto error = impl::ReadEepromChunked(m_device, kBootloaderAddress, read_back)) {
        return error;
    }
    if (const auto error = impl::CompareContent(image, read_back)) {
        return error;
    }
    OVEX_LOG_INFO("Bootloader image verification successfull.");
    return {};
}

std::error_code Bootloader::IsProgrammer() {
    std::string id;
    if (const auto error = cypress::GetId(m_device, id, kRequestTimeout)) {
        return error;
    }
    return id == kProgrammerId ? std::error_code{} : std::make_error_code(std::errc::bad_message);
}

}  // namespace ovex::fx3
