#include "tpx3_toa_extension/utils/packet_unpack.hpp"

#include <stdexcept>

#include "ovex/log/log.hpp"

namespace tpx3_toa_extension {

std::string_view PacketTypeName(HeaderMask mask) noexcept {
    switch (mask) {
        case HeaderMask::Data:
            return "DATA";
        case HeaderMask::Cfg:
            return "CFG";
        case HeaderMask::Ctrl:
            return "CTRL";
        default:
            return "UNKNOWN";
    }
}

std::uint64_t ReadPacket(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < TPX3_PACKET_SIZE) {
        throw std::invalid_argument("Timepix3 buffer is too short to contain a single packet");
    }
    return LoadPacket(bytes.data());
}

void ReportRaggedBlock() noexcept {
    OVEX_LOG_ERROR("Data block not divisible by packet size");
}

namespace {

[[noreturn]] void ThrowUnsupportedFrameType() {
    throw std::domain_error("Header mask contains unsupported packet type!");
}

template <typename MakeRecord, typename Record>
std::size_t UnpackFrame(std::span<const std::uint8_t> block, Record* out, MakeRecord make) {
    std::size_t written = 0;
    WalkPackets(block.data(), block.data() + block.size(),
                [&](std::uint64_t packet, HeaderMask mask) {
                    if (mask == HeaderMask::Data) {
                        out[written++] = make(packet);
                    } else if (mask != HeaderMask::Ctrl) {
                        ThrowUnsupportedFrameType();
                    }
                });
    return written;
}

}  // namespace

std::size_t UnpackFrameToaTot(std::span<const std::uint8_t> block, FrameToaTotRecord* out) {
    return UnpackFrame(block, out, [](std::uint64_t p) {
        return FrameToaTotRecord{PixelAddress(p), Tot(p), p & 0xFFFFF};
    });
}

std::size_t UnpackFrameItotEvents(std::span<const std::uint8_t> block, FrameItotEventRecord* out) {
    return UnpackFrame(block, out, [](std::uint64_t p) {
        return FrameItotEventRecord{PixelAddress(p), Itot(p), EventCount(p)};
    });
}

PixelConfigReadback UnpackPixelConfig(std::span<const std::uint8_t> block) {
    PixelConfigReadback result;
    const std::size_t capacity = block.size() / TPX3_PACKET_SIZE;
    result.addresses.reserve(capacity);
    result.configs.reserve(capacity);
    WalkPackets(
        block.data(), block.data() + block.size(), [&](std::uint64_t packet, HeaderMask mask) {
            if (mask == HeaderMask::Cfg) {
                result.addresses.push_back(static_cast<std::uint16_t>(PixelAddress(packet)));
                result.configs.push_back(PixelConfig(packet));
            }
        });
    return result;
}

}  // namespace tpx3_toa_extension
