#include "ovex/fx3/app_descriptor.hpp"

#include <algorithm>
#include <string_view>

namespace ovex::fx3 {

namespace {

using Layout = AppDescriptorLayout;

std::string FieldText(std::span<const std::uint8_t> field) {
    const auto end = std::find(field.begin(), field.end(), std::uint8_t{0});
    return {field.begin(), end};
}

}  // namespace

std::optional<AppIdentity> ReadAppIdentity(const FwImage& image) {
    const std::uint32_t entry = image.EntryPoint();
    for (const FwSection& section : image.Sections()) {
        if (entry < section.address || entry - section.address > section.data.size() ||
            section.data.size() - (entry - section.address) < Layout::kSize) {
            continue;
        }
        const auto descriptor = section.data.subspan(entry - section.address, Layout::kSize);
        if (!std::equal(Layout::kMagic.begin(), Layout::kMagic.end(),
                        descriptor.begin() + Layout::kMagicOffset)) {
            return std::nullopt;
        }
        return AppIdentity{
            FieldText(descriptor.subspan(Layout::kBoardIdOffset, Layout::kBoardIdSize)),
            FieldText(descriptor.subspan(Layout::kPcbVersionOffset, Layout::kPcbVersionSize)),
            FieldText(
                descriptor.subspan(Layout::kFirmwareVersionOffset, Layout::kFirmwareVersionSize))};
    }
    return std::nullopt;
}

}  // namespace ovex::fx3
