#pragma once

// The record at the entry point of every application image that this project builds for the
// board's USB controller. The library reads it to check that an image file is meant for the
// board at hand; the boot loader of the virtual board reads it at the start request to learn
// which firmware it runs and refuses to start an application whose body doesn't match it; the
// image tools write it. All numbers are little-endian, texts are zero-padded.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "ovex/fx3/fw_image.hpp"

namespace ovex::fx3 {

struct AppDescriptorLayout {
    static constexpr std::array<char, 8> kMagic{'O', 'V', 'E', 'X', 'F', 'W', '0', '1'};

    static constexpr std::size_t kMagicOffset = 0;
    static constexpr std::size_t kBoardIdOffset = 8;  // "TPX3EFE", as GetId answers it
    static constexpr std::size_t kBoardIdSize = 32;
    static constexpr std::size_t kPcbVersionOffset = 40;  // "3.03", the boards it runs on
    static constexpr std::size_t kPcbVersionSize = 8;
    static constexpr std::size_t kFirmwareVersionOffset = 48;  // "0.24.3-TPX3", the FX3_FW item
    static constexpr std::size_t kFirmwareVersionSize = 32;
    static constexpr std::size_t kBodyAddressOffset = 80;  // where the body starts in RAM
    static constexpr std::size_t kBodyBytesOffset = 84;    // its length, a multiple of 4
    static constexpr std::size_t kBodySumOffset = 88;      // wrapping sum of its 32-bit words
    static constexpr std::size_t kSize = 96;

    // Where the application images load: the descriptor at the entry point, the body behind it.
    static constexpr std::uint32_t kEntryPoint = 0x40003000;
    static constexpr std::uint32_t kBodyAddress = 0x40003100;
};

// What an application image says it is.
struct AppIdentity {
    std::string board_id;
    std::string pcb_version;
    std::string firmware_version;
};

// The identity in the descriptor at the image's entry point; empty when the image has none
// there, as an image built elsewhere.
std::optional<AppIdentity> ReadAppIdentity(const FwImage& image);

}  // namespace ovex::fx3

namespace ovex::fx3img {
using fx3::AppDescriptorLayout;
}  // namespace ovex::fx3img
