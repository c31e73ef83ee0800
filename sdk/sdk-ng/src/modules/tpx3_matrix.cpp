#include "modules/tpx3_matrix.hpp"

#include <algorithm>
#include <array>

#include "tpx3_toa_extension/utils/packet_unpack.hpp"

namespace ovex::sdk::tpx3 {
namespace {

// The chip numbers the trim bits the other way round: bit 1 <-> 4, bit 2 <-> 3.
constexpr std::array<std::uint8_t, 256> kSwapTrim = [] {
    std::array<std::uint8_t, 256> table{};
    for (unsigned v = 0; v < 256; ++v) {
        const unsigned swapped = (v & 0x21) | ((v >> 3) & 0x02) | ((v >> 1) & 0x04) |
                                 ((v << 1) & 0x08) | ((v << 3) & 0x10);
        table[v] = static_cast<std::uint8_t>(swapped);
    }
    return table;
}();

}  // namespace

void ToDeviceOrder(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) noexcept {
    constexpr std::size_t last = kMatrixSide - 1;
    for (std::size_t y = 0; y < kMatrixSide; ++y) {
        const std::uint8_t* column = in.data() + (last - y);
        std::uint8_t* row = out.data() + y * kMatrixSide;
        for (std::size_t x = 0; x < kMatrixSide; ++x) {
            row[x] = kSwapTrim[column[(last - x) * kMatrixSide]];
        }
    }
}

void Pack(std::span<const std::uint8_t> pixels, std::span<std::uint8_t> packed) noexcept {
    const std::uint8_t* p = pixels.data();
    std::uint8_t* out = packed.data();
    for (std::size_t i = 0; i < kPixelCount; i += 4, p += 4, out += 3) {
        const std::uint32_t word = static_cast<std::uint32_t>(p[0] & kPixelBits) << 18 |
                                   static_cast<std::uint32_t>(p[1] & kPixelBits) << 12 |
                                   static_cast<std::uint32_t>(p[2] & kPixelBits) << 6 |
                                   static_cast<std::uint32_t>(p[3] & kPixelBits);
        out[0] = static_cast<std::uint8_t>(word >> 16);
        out[1] = static_cast<std::uint8_t>(word >> 8);
        out[2] = static_cast<std::uint8_t>(word);
    }
}

void Unpack(std::span<const std::uint8_t> packed, std::span<std::uint8_t> pixels) noexcept {
    const std::uint8_t* in = packed.data();
    std::uint8_t* p = pixels.data();
    for (std::size_t i = 0; i < kPixelCount; i += 4, p += 4, in += 3) {
        p[0] = static_cast<std::uint8_t>(in[0] >> 2);
        p[1] = static_cast<std::uint8_t>((in[0] & 3) << 4 | in[1] >> 4);
        p[2] = static_cast<std::uint8_t>((in[1] & 15) << 2 | in[2] >> 6);
        p[3] = static_cast<std::uint8_t>(in[2] & kPixelBits);
    }
}

std::vector<std::uint8_t> MakeDeviceStream(std::span<const std::uint8_t> matrix) {
    std::vector<std::uint8_t> stream;
    if (matrix.size() == kPackedSize) {
        stream.assign(matrix.begin(), matrix.end());
    } else if (matrix.size() == kPixelCount) {
        std::vector<std::uint8_t> device(kPixelCount);
        ToDeviceOrder(matrix, device);
        stream.resize(kPackedSize);
        Pack(device, stream);
    } else {
        return stream;
    }
    std::reverse(stream.begin(), stream.end());
    return stream;
}

std::vector<std::uint8_t> DecodeReadback(std::span<const std::uint8_t> readback) {
    const auto packets = tpx3_toa_extension::UnpackPixelConfig(readback);
    std::vector<std::uint8_t> device(kPixelCount, 0);
    for (std::size_t i = 0; i < packets.addresses.size(); ++i) {
        const std::uint16_t address = packets.addresses[i];
        // The chip sends the address with its bytes swapped, counting from the matrix's end.
        const auto swapped = static_cast<std::uint16_t>(address << 8 | address >> 8);
        device[kPixelCount - 1 - swapped] = packets.configs[i];
    }
    std::vector<std::uint8_t> host(kPixelCount);
    ToDeviceOrder(device, host);
    return host;
}

}  // namespace ovex::sdk::tpx3
