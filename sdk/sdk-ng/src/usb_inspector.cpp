#include "usb_inspector.hpp"

#include <map>
#include <string>
#include <utility>

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

std::error_code InspectDevice(usb::device::UsbDevice& device, usb::device::DeviceInfo& info,
                              BoardKind& kind) {
    if (const auto error = device.Open()) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to obtain device version - %s: %s.", error);
        return error;
    }
    if (const auto error = device.GetInfo(info)) {
        return error;
    }
    std::string board_id;
    if (const auto error = usb::vendor_cmd::cypress::GetId(device, board_id)) {
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
