#include "ovex/vboard/board_identity.hpp"

namespace ovex::vboard {
namespace {

void Put16(std::vector<std::uint8_t>& out, std::uint16_t value) {
    out.push_back(static_cast<std::uint8_t>(value & 0xFF));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}

}  // namespace

std::vector<std::uint8_t> DeviceAndConfigDescriptors(const BoardIdentity& identity) {
    std::vector<std::uint8_t> out = {18, 1};
    Put16(out, identity.bcd_usb);
    out.insert(out.end(), {0xFF, 0x00, 0x00, identity.max_packet_size0});
    Put16(out, identity.vendor_id);
    Put16(out, identity.product_id);
    Put16(out, identity.bcd_device);
    out.insert(out.end(), {kManufacturer, kProduct, kSerial, 1});

    const auto total = static_cast<std::uint16_t>(9 + 9 + 7 * identity.endpoints.size());
    out.insert(out.end(), {9, 2});
    Put16(out, total);
    out.insert(out.end(), {1, 1, kConfiguration, 0x80, 50});
    out.insert(out.end(), {9, 4, 0, 0, static_cast<std::uint8_t>(identity.endpoints.size()), 0xFF,
                           0x00, 0x00, 0});
    for (const EndpointLayout& endpoint : identity.endpoints) {
        out.insert(out.end(), {7, 5, endpoint.address, endpoint.attributes});
        Put16(out, endpoint.max_packet_size);
        out.push_back(endpoint.interval);
    }
    return out;
}

std::vector<std::uint8_t> StringDescriptor(const BoardIdentity& identity, std::uint8_t index) {
    const std::string* text = nullptr;
    switch (index) {
        case kLanguages:
            return {4, 3, 0x09, 0x04};  // English (United States)
        case kManufacturer:
            text = &identity.manufacturer;
            break;
        case kProduct:
            text = &identity.product;
            break;
        case kSerial:
            text = &identity.serial;
            break;
        case kConfiguration:
            text = &identity.configuration;
            break;
        default:
            return {};
    }
    std::vector<std::uint8_t> out = {static_cast<std::uint8_t>(2 + 2 * text->size()), 3};
    for (const char c : *text) {
        out.push_back(static_cast<std::uint8_t>(c));
        out.push_back(0);
    }
    return out;
}

}  // namespace ovex::vboard
