#include "usb_inspector.hpp"

#include <fmt/format.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "ovex/fx3/app_descriptor.hpp"
#include "ovex/fx3/bootloader.hpp"
#include "ovex/fx3/embedded_images.hpp"
#include "ovex/fx3/fw_image.hpp"
#include "ovex/log/log.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vendor_cmd/cypress.hpp"

namespace ovex::sdk {
namespace {

using BoardPair = std::pair<std::string_view, std::string_view>;

const std::map<BoardPair, BoardKind>& KindTable() {
    static const std::map<BoardPair, BoardKind> table{
        {{"OVBD", "2.02"}, BoardKind::kOvbdPcb2},     {{"OVBD", "2.03"}, BoardKind::kOvbdPcb2},
        {{"OVBD", "3.00"}, BoardKind::kOvbdPcb300},   {{"OVBD", "3.01"}, BoardKind::kOvbdPcb301},
        {{"OVBD", "3.02"}, BoardKind::kOvbdPcb302},   {{"OVBD", "3.03"}, BoardKind::kTimepix3},
        {{"TPX3EFE", "3.03"}, BoardKind::kTimepix3},  {{"TPX2CB", "3.03"}, BoardKind::kTimepix2Cb},
        {{"TPX4CB", "3.03"}, BoardKind::kTimepix4Cb}, {{"NOBE", "2.01"}, BoardKind::kNobePcb201},
        {{"NOBE", "2.10"}, BoardKind::kNobePcb210},   {{"NOBE", "2.11"}, BoardKind::kNobePcb211},
        {{"NOBE", "3.00"}, BoardKind::kNobePcb300},
    };
    return table;
}

struct FirmwareEntry {
    std::string_view image;  // "embedded: <file name>"
    std::string_view version;
};

const std::map<BoardPair, FirmwareEntry>& FirmwareTable() {
    static const std::map<BoardPair, FirmwareEntry> table{
        {{"NOBE", "3.00"}, {"embedded: nobe-fw_v3_0_0.img", "0.19.3"}},
        {{"TPX3EFE", "3.03"}, {"embedded: ovbd-fw_v3_0_3.img", "0.24.3-TPX3"}},
        {{"TPX2CB", "3.03"}, {"embedded: ovbd-fw_v3_0_3_tpx2_cb.img", "1.6.3-TPX2CB"}},
        {{"TPX4CB", "3.03"}, {"embedded: ovbd-fw_v3_0_3_tpx4_cb.img", "1.5.1-TPX4CB"}},
    };
    return table;
}

constexpr std::string_view kEmbeddedPrefix = "embedded: ";
constexpr double kTimeout = 10.0;

// The board id is what the boot loader's product text holds ahead of its last " BL".
std::string_view BoardIdOf(std::string_view product) {
    const auto mark = product.rfind(" BL");
    return mark == std::string_view::npos ? product : product.substr(0, mark);
}

}  // namespace

std::error_code FindBoardKind(std::string_view board_id, std::string_view pcb_version,
                              BoardKind& kind) {
    const auto found = KindTable().find({board_id, pcb_version});
    if (found == KindTable().end()) {
        const std::string id(board_id);
        const std::string version(pcb_version);
        OVEX_LOG_ERROR("Device '%s', version %s is not supported by this version of SDK.",
                       id.c_str(), version.c_str());
        return std::make_error_code(std::errc::no_such_device);
    }
    kind = found->second;
    return {};
}

namespace {

// An image file that names another board would turn this one into that board. One that names
// none, as an image built elsewhere, is taken at its word.
bool IsMeantFor(const fx3::FwImage& image, const std::string& file_name, std::string_view board_id,
                std::string_view pcb_version) {
    const auto identity = fx3::ReadAppIdentity(image);
    if (!identity || (identity->board_id == board_id && identity->pcb_version == pcb_version)) {
        return true;
    }
    const std::string board(board_id);
    const std::string pcb(pcb_version);
    OVEX_LOG_WARN("Firmware image file '%s' is for board %s %s, not %s %s: it is not used.",
                  file_name.c_str(), identity->board_id.c_str(), identity->pcb_version.c_str(),
                  board.c_str(), pcb.c_str());
    return false;
}

}  // namespace

std::error_code FindFirmware(std::string_view board_id, std::string_view pcb_version,
                             fx3::FwImage& image) {
    if (board_id == "OVBD" && pcb_version == "3.03") {
        board_id = "TPX3EFE";
    }
    const auto found = FirmwareTable().find({board_id, pcb_version});
    const std::string_view text =
        found == FirmwareTable().end() ? "not found" : found->second.image;
    if (!text.starts_with(kEmbeddedPrefix)) {
        const std::string shown(text);
        OVEX_LOG_ERROR("Unknown or unsupported filename/location of firmware image ('%s').",
                       shown.c_str());
        return std::make_error_code(std::errc::operation_not_supported);
    }
    const std::string file_name(text.substr(kEmbeddedPrefix.size()));
    const auto from_file = fx3::FwImage::FromFile(file_name, image);
    if (!from_file) {
        if (IsMeantFor(image, file_name, board_id, pcb_version)) {
            OVEX_LOG_INFO("Using firmware image from file '%s'.", file_name.c_str());
            return {};
        }
    } else {
        OVEX_LOG_EC(ovex::log::kDebug, "Failed to read firmware from file '%s' - %s: %s.",
                    from_file, file_name.c_str());
    }
    if (const auto error = fx3::FwImage::FromMemory(fx3::EmbeddedImage(file_name), image)) {
        OVEX_LOG_EC(ovex::log::kError, "Image loaded from embedded storage is invalid - %s: %s.",
                    error);
        return error;
    }
    const std::string image_text(text);
    const std::string version(found->second.version);
    OVEX_LOG_INFO("Using firmware image '%s', version %s.", image_text.c_str(), version.c_str());
    return {};
}

std::error_code LoadFirmware(fx3::Bootloader& bootloader, const usb::device::DeviceInfo& info) {
    fx3::BootloaderInfo loader;
    if (const auto error = bootloader.GetInfo(loader)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to read bootloader information - %s: %s.", error);
        return error;
    }
    const auto& v = loader.version;
    const std::string version = fmt::format("{}.{}.{}.{}", v.major, v.minor, v.patch, v.build);
    OVEX_LOG_INFO("Found device in bootloader mode - product: %s, version: %s.",
                  loader.product.c_str(), version.c_str());

    fx3::FwImage image;
    if (const auto error = FindFirmware(BoardIdOf(loader.product), info.version, image)) {
        OVEX_LOG_ERROR("Failed to load firmware image to device.");
        return error;
    }
    if (const auto error = bootloader.Download(image)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to download firmware image to the device - %s: %s.",
                    error);
        return error;
    }
    if (const auto error = bootloader.Switch()) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to switch the device to application mode - %s: %s.",
                    error);
        return error;
    }
    return {};
}

std::error_code InspectDevice(usb::device::UsbDevice& device, usb::device::DeviceInfo& info,
                              BoardKind& kind) {
    if (const auto error = device.Open()) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to obtain device version - %s: %s.", error);
        return error;
    }
    if (const auto error = device.GetInfo(info)) {
        return error;
    }
    // A board in application mode doesn't answer the boot loader's probe; that is no failure.
    // The boot loader object lives to the end, as the application answers on the same handle.
    std::unique_ptr<fx3::Bootloader> bootloader;
    if (!fx3::Bootloader::Create(device, bootloader)) {
        if (const auto error = LoadFirmware(*bootloader, info)) {
            return error;
        }
    }
    std::string board_id;
    if (const auto error = usb::vendor_cmd::cypress::GetId(device, board_id, kTimeout)) {
        return error;
    }
    if (const auto error = FindBoardKind(board_id, info.version, kind)) {
        return error;
    }
    OVEX_LOG_INFO("Using device %s, version: %s, s/n: %s.", info.product.c_str(),
                  info.version.c_str(), info.serial.c_str());
    return device.Close();
}

}  // namespace ovex::sdk
