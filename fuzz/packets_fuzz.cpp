// Any bytes as a block of packets, through every sink of the walker: each DATA packet gives
// exactly one record, other types are skipped or refused with their exception, and nothing is
// written past one record per packet.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "tpx3_toa_extension/dd_toa_tot/logic.hpp"
#include "tpx3_toa_extension/utils/packet_unpack.hpp"

using namespace tpx3_toa_extension;

namespace {

struct Counts {
    std::size_t data = 0;
    bool other = false;  // CFG or type 2: refused by the data sinks
};

Counts CountTypes(const std::uint8_t* data, std::size_t size) {
    Counts counts;
    WalkPackets(data, data + size, [&counts](std::uint64_t, HeaderMask mask) {
        counts.data += mask == HeaderMask::Data;
        counts.other |= mask != HeaderMask::Data && mask != HeaderMask::Ctrl;
    });
    return counts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Counts counts = CountTypes(data, size);
    const std::size_t capacity = size / TPX3_PACKET_SIZE + 1;

    std::vector<ToaTotRecord> records(capacity);
    std::array<std::vector<std::uint64_t>, 3> tdc;
    std::uint64_t last_toa = size > 0 ? data[0] * 0x1234567ull : 0;
    ExtensionSink sink{last_toa, records.data(), tdc};
    try {
        WalkPackets(data, data + size, sink);
        if (counts.other || static_cast<std::size_t>(sink.out - records.data()) != counts.data) {
            std::abort();
        }
    } catch (const std::runtime_error&) {
        if (!counts.other) {
            std::abort();
        }
    }

    std::vector<FrameToaTotRecord> toa(capacity);
    std::vector<FrameItotEventRecord> itot(capacity);
    try {
        if (UnpackFrameToaTot({data, size}, toa.data()) != counts.data ||
            UnpackFrameItotEvents({data, size}, itot.data()) != counts.data || counts.other) {
            std::abort();
        }
    } catch (const std::domain_error&) {
        if (!counts.other) {
            std::abort();
        }
    }
    const PixelConfigReadback readback = UnpackPixelConfig({data, size});
    if (readback.addresses.size() != readback.configs.size()) {
        std::abort();
    }
    return 0;
}
