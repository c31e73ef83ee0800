#include "impl/acquisition/tpx2_descramblers.hpp"

#include <algorithm>
#include <cstring>

#include "ovex/log/log.hpp"

namespace ovex::sdk::acquisition {

namespace {

constexpr std::size_t kGroupBytes = 5;  // four 10-bit values
constexpr std::uint16_t kTenBits = 0x3FF;
constexpr unsigned kHighShift = 10;

std::uint64_t LittleEndian40(const std::byte* group) noexcept {
    std::uint64_t value = 0;
    for (std::size_t k = kGroupBytes; k-- > 0;) {
        value = value << 8 | std::to_integer<std::uint64_t>(group[k]);
    }
    return value;
}

// Calls `put(p, value)` with the p-th 10-bit value of the stream, for every whole group of
// `input` that the `count` values reach.
template <typename Put>
void ForEachTenBitValue(std::span<const std::byte> input, std::size_t count, Put put) {
    const std::size_t groups = std::min(input.size() / kGroupBytes, (count + 3) / 4);
    for (std::size_t g = 0; g < groups; ++g) {
        const std::uint64_t value = LittleEndian40(input.data() + g * kGroupBytes);
        const std::size_t first = g * 4;
        for (std::size_t k = 0; k < 4 && first + k < count; ++k) {
            put(first + k, static_cast<std::uint16_t>(value >> (10 * k) & kTenBits));
        }
    }
}

}  // namespace

Tpx2Descrambler8Bit::Tpx2Descrambler8Bit() {
    OVEX_LOG_INFO("Selected data descrambler: 8 bits per pixel.");
}

void Tpx2Descrambler8Bit::Descramble(std::span<const std::byte> input,
                                     std::span<std::uint16_t> output) {
    const std::size_t count = std::min(input.size(), output.size());
    std::transform(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(count),
                   output.begin(), [](std::byte b) { return std::to_integer<std::uint16_t>(b); });
}

Tpx2Descrambler10Bit::Tpx2Descrambler10Bit() {
    OVEX_LOG_INFO("Selected data descrambler: 10 bits per pixel.");
}

void Tpx2Descrambler10Bit::Descramble(std::span<const std::byte> input,
                                      std::span<std::uint16_t> output) {
    ForEachTenBitValue(input, output.size(),
                       [&](std::size_t p, std::uint16_t value) { output[p] = value; });
}

Tpx2Descrambler14Bit::Tpx2Descrambler14Bit() {
    OVEX_LOG_INFO("Selected data descrambler: 14 bits per pixel.");
}

void Tpx2Descrambler14Bit::Descramble(std::span<const std::byte> input,
                                      std::span<std::uint16_t> output) {
    if (output.empty()) {
        return;
    }
    const std::size_t last = output.size() - 1;
    if (input.size() == kLowBitsPart) {
        ForEachTenBitValue(input, output.size(),
                           [&](std::size_t p, std::uint16_t value) { output[last - p] = value; });
    } else if (input.size() == kHighBitsPart) {
        const std::size_t count = std::min(input.size() * 2, output.size());
        for (std::size_t p = 0; p < count; ++p) {
            const auto byte = std::to_integer<std::uint16_t>(input[p / 2]);
            const std::uint16_t nibble = (p % 2 == 0 ? byte : byte >> 4) & 0xF;
            output[last - p] |= static_cast<std::uint16_t>(nibble << kHighShift);
        }
    }
}

std::unique_ptr<FrameDescrambler> MakeDescrambler(std::uint8_t depth) {
    switch (depth) {
        case 0:
            return std::make_unique<Tpx2Descrambler8Bit>();
        case 1:
            return std::make_unique<Tpx2Descrambler10Bit>();
        case 2:
            return std::make_unique<Tpx2Descrambler14Bit>();
        default:
            return nullptr;
    }
}

}  // namespace ovex::sdk::acquisition
