#include "ovex/fx3/embedded_images.hpp"

#include <array>

// Each image becomes a hidden symbol in read-only data with its length in a word behind it. The
// paths come from the build, which makes the images.
// clang-format off
#define OVEX_EMBED_IMAGE(stem, path)                                     \
    asm(".pushsection .rodata.ovex_fx3_" #stem ",\"a\",@progbits\n"       \
        ".global ovex_fx3_" #stem "_data\n"                              \
        ".hidden ovex_fx3_" #stem "_data\n"                              \
        ".balign 16\n"                                                   \
        "ovex_fx3_" #stem "_data:\n"                                     \
        ".incbin \"" path "\"\n"                                         \
        "ovex_fx3_" #stem "_end:\n"                                      \
        ".global ovex_fx3_" #stem "_size\n"                              \
        ".hidden ovex_fx3_" #stem "_size\n"                              \
        ".balign 4\n"                                                    \
        "ovex_fx3_" #stem "_size:\n"                                     \
        ".long ovex_fx3_" #stem "_end - ovex_fx3_" #stem "_data\n"       \
        ".popsection\n");                                                \
    extern "C" __attribute__((visibility("hidden")))                     \
    const std::uint8_t ovex_fx3_##stem##_data[];                         \
    extern "C" __attribute__((visibility("hidden")))                     \
    const std::uint32_t ovex_fx3_##stem##_size
// clang-format on

OVEX_EMBED_IMAGE(nobe_v3_0_0, OVEX_FX3_IMAGE_NOBE_V3_0_0);
OVEX_EMBED_IMAGE(tpx3_v3_0_3, OVEX_FX3_IMAGE_TPX3_V3_0_3);
OVEX_EMBED_IMAGE(tpx2cb_v3_0_3, OVEX_FX3_IMAGE_TPX2CB_V3_0_3);
OVEX_EMBED_IMAGE(tpx4cb_v3_0_3, OVEX_FX3_IMAGE_TPX4CB_V3_0_3);

namespace ovex::fx3 {
namespace {

struct Embedded {
    std::string_view file_name;
    const std::uint8_t* data;
    const std::uint32_t& size;
};

const std::array<Embedded, 4> kImages{{
    {"nobe-fw_v3_0_0.img", ovex_fx3_nobe_v3_0_0_data, ovex_fx3_nobe_v3_0_0_size},
    {"ovbd-fw_v3_0_3.img", ovex_fx3_tpx3_v3_0_3_data, ovex_fx3_tpx3_v3_0_3_size},
    {"ovbd-fw_v3_0_3_tpx2_cb.img", ovex_fx3_tpx2cb_v3_0_3_data, ovex_fx3_tpx2cb_v3_0_3_size},
    {"ovbd-fw_v3_0_3_tpx4_cb.img", ovex_fx3_tpx4cb_v3_0_3_data, ovex_fx3_tpx4cb_v3_0_3_size},
}};

}  // namespace

std::span<const std::uint8_t> EmbeddedImage(std::string_view file_name) {
    for (const Embedded& image : kImages) {
        if (image.file_name == file_name) {
            return {image.data, image.size};
        }
    }
    return {};
}

}  // namespace ovex::fx3
