// Any bytes as a stream through the whole pipeline in every mode. The first bytes choose the
// mode, the block size, the length of a scan line in blocks and the bins; the rest are packets.
// Whether the run ends normally or fails on a packet it can't take, every arena and every byte
// of the record ring comes back, and a normal run of the extended or sorted mode gives one
// record for each DATA packet.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "tpx3_pipeline/pipelines.hpp"
#include "tpx3_pipeline/pool.hpp"

using namespace tpx3_pipeline;
using tpx3_toa_extension::ArenaAllocator;
using tpx3_toa_extension::HeaderMask;

namespace {

constexpr std::size_t kHeader = 5;

std::size_t DataPackets(std::span<const std::uint8_t> bytes) {
    std::size_t count = 0;
    tpx3_toa_extension::WalkPackets(
        bytes.data(), bytes.data() + bytes.size(),
        [&count](std::uint64_t, HeaderMask mask) { count += mask == HeaderMask::Data; });
    return count;
}

template <typename Item>
std::size_t RecordsOf(const Item& item) {
    if constexpr (requires { item.block; }) {
        return item.block ? item.block->count : 0;
    } else {
        return 0;
    }
}

// Runs the entries through one pipeline; answers the records that came out, or -1 on failure.
template <typename Pipeline>
long long Run(std::vector<common::DataEntry> entries, const PipelineOptions& options) {
    Pipeline pipeline(options);
    pipeline.Start();
    std::thread feeder([&pipeline, &entries] {
        for (common::DataEntry& entry : entries) {
            if (!pipeline.PushEntry(std::move(entry))) {
                break;
            }
        }
        entries.clear();
        pipeline.PushEntry(common::DataEntry::Control(EntryType::Stop));
    });
    long long records = 0;
    for (;;) {
        const auto item = pipeline.PopResult();
        records += static_cast<long long>(RecordsOf(item));
        if (item.type == EntryType::Stop || item.type == EntryType::Terminate) {
            break;
        }
    }
    feeder.join();
    try {
        pipeline.Wait();
    } catch (const std::exception&) {
        return -1;
    }
    return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ArenaAllocator ring(std::size_t{16} << 20);
    if (size < kHeader) {
        return 0;
    }
    const unsigned mode = data[0] % 5;
    const std::size_t block_bytes = 6 * (1 + data[1] % 64);
    const unsigned blocks_per_line = 1 + data[2] % 8;
    PipelineOptions options;
    options.ring = &ring;
    options.binning = {16 * (1 + std::uint64_t{data[3]}), 1 + data[4] % 64u, 1};
    const std::span<const std::uint8_t> stream(data + kHeader, (size - kHeader) / 6 * 6);

    auto pool = ovex::alloc::Pool<Arena>::Create(Arena::Settings{block_bytes, block_bytes * 4});
    std::vector<common::DataEntry> entries;
    std::size_t data_packets = 0;
    std::shared_ptr<Arena> arena;
    std::size_t arenas = 0;
    for (std::size_t offset = 0, block = 0; offset < stream.size();
         offset += block_bytes, ++block) {
        const std::size_t length = std::min(block_bytes, stream.size() - offset);
        if (!arena || arena->Used() + length > arena->Size()) {
            arena = pool->Acquire();
            ++arenas;
        }
        const auto bytes = arena->Allocate(length);
        std::memcpy(bytes.data(), stream.data() + offset, length);
        const bool line_end = (block + 1) % blocks_per_line == 0;
        entries.push_back(
            {line_end ? EntryType::LastData : EntryType::Data, {arena, {bytes.data(), length}}});
        data_packets += DataPackets({bytes.data(), length});
    }
    arena.reset();

    long long records = 0;
    switch (mode) {
        case 0:
            records = Run<ExtendedPipeline>(std::move(entries), options);
            break;
        case 1:
            records = Run<SortedPipeline>(std::move(entries), options);
            break;
        case 2:
            records = Run<CountSumsPipeline>(std::move(entries), options);
            break;
        case 3:
            records = Run<ItotSumsPipeline>(std::move(entries), options);
            break;
        default:
            records = Run<BinnedPacketsPipeline>(std::move(entries), options);
            break;
    }
    if (mode < 2 && records >= 0 && static_cast<std::size_t>(records) != data_packets) {
        std::abort();  // a record lost or made up
    }
    if (ring.Used() != 0 || pool->FreeCount() != arenas) {
        std::abort();  // a record array or an arena not given back
    }
    return 0;
}
