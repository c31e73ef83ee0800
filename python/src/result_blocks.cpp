#include "result_blocks.hpp"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "ovex/pixel_address.hpp"

namespace ovex::python {
namespace {

void Check(ovexsdk_err_code code, const char* getter) {
    if (code != OVEXSDK_OK) {
        throw std::runtime_error(std::string(getter) + " refused the result (" +
                                 std::to_string(static_cast<int>(code)) + ")");
    }
}

template <typename T>
Buffer CopyArray(const T* values, std::uint64_t count) {
    Buffer buffer(count * sizeof(T));
    if (count != 0) {
        std::memcpy(buffer.data(), values, count * sizeof(T));
    }
    return buffer;
}

Block ScanBlock(ResultKind kind, Buffer values, std::uint64_t lines, std::uint32_t bins,
                std::uint64_t first_line) {
    Block block;
    block.kind = kind;
    block.values = std::move(values);
    block.rows = lines;
    block.columns = bins;
    block.first_line = first_line;
    return block;
}

}  // namespace

Buffer::Buffer(std::size_t bytes) : m_memory(block_memory::Take(bytes)), m_bytes(bytes) {}

void* Buffer::release() noexcept {
    m_bytes = 0;
    return m_memory.release();
}

Buffer CopyHits(const ovexsdk_acq_tpx3_toa_tot_record* records, std::uint64_t count) {
    Buffer buffer(count * sizeof(HitRecord));
    HitRecord* __restrict out = buffer.as<HitRecord>();
    for (std::uint64_t i = 0; i < count; ++i) {
        const ovexsdk_acq_tpx3_toa_tot_record& in = records[i];
        const pixel::Pixel at = pixel::PixelOf(in.address);
        out[i] = {static_cast<std::uint16_t>(in.address), at.x, at.y,
                  static_cast<std::uint16_t>(in.tot), in.toa};
    }
    return buffer;
}

Buffer CopyPixels(const ovexsdk_acq_tpx3_itot_evcount* pixels, std::uint64_t count) {
    Buffer buffer(count * sizeof(PixelRecord));
    PixelRecord* out = buffer.as<PixelRecord>();
    for (std::uint64_t i = 0; i < count; ++i) {
        const ovexsdk_acq_tpx3_itot_evcount& in = pixels[i];
        const pixel::Pixel at = pixel::PixelOf(in.address);
        out[i] = {static_cast<std::uint16_t>(in.address), at.x, at.y, 0, in.itot, 0, in.events};
    }
    return buffer;
}

std::vector<Block> ResultCopier::Take(ovexsdk_dev_ctx* ctx) {
    std::vector<Block> blocks;
    switch (m_kind) {
        case ResultKind::kHits: {
            ovexsdk_acq_tpx3_acq_toa_tot result{};
            Check(ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &result),
                  "ovexsdk_acq_get_tpx3_toa_tot_packets");
            Block block;
            block.values = CopyHits(result.records, result.count);
            block.rows = result.count;
            blocks.push_back(std::move(block));
            break;
        }
        case ResultKind::kItotPixels: {
            const ovexsdk_acq_tpx3_itot_evcount* pixels = nullptr;
            std::uint64_t count = 0;
            Check(ovexsdk_acq_get_tpx3_itot_evcount_packets(ctx, &pixels, &count),
                  "ovexsdk_acq_get_tpx3_itot_evcount_packets");
            Block block;
            block.kind = m_kind;
            block.values = CopyPixels(pixels, count);
            block.rows = count;
            blocks.push_back(std::move(block));
            break;
        }
        case ResultKind::kScanCounts: {
            ovexsdk_acq_tpx3_evcount_fragment fragment{};
            Check(ovexsdk_acq_get_tpx3_evcount_fragment(ctx, &fragment),
                  "ovexsdk_acq_get_tpx3_evcount_fragment");
            blocks = AddScanValues(fragment.events, fragment.count);
            break;
        }
        case ResultKind::kScanItots: {
            ovexsdk_acq_tpx3_itot_fragment fragment{};
            Check(ovexsdk_acq_get_tpx3_itot_fragment(ctx, &fragment),
                  "ovexsdk_acq_get_tpx3_itot_fragment");
            blocks = AddScanValues(fragment.itots, fragment.count);
            break;
        }
        case ResultKind::kScanBins:
            blocks = TakeBins(ctx);
            break;
        case ResultKind::kTpx2Frames: {
            const ovexsdk_acq_tpx2_frame* frames = nullptr;
            std::uint64_t count = 0;
            Check(ovexsdk_acq_get_tpx2_frames(ctx, &frames, &count), "ovexsdk_acq_get_tpx2_frames");
            for (std::uint64_t i = 0; i < count; ++i) {
                Block block;
                block.kind = m_kind;
                block.values = CopyArray(frames[i].pixels, frames[i].count);
                block.rows = frames[i].count;
                blocks.push_back(std::move(block));
            }
            break;
        }
    }
    return blocks;
}

std::vector<Block> ResultCopier::AddScanValues(const std::uint64_t* values, std::uint64_t count) {
    m_partial.insert(m_partial.end(), values, values + count);
    const std::uint64_t lines = m_partial.size() / m_bins_per_line;
    if (lines == 0) {
        return {};
    }
    const std::uint64_t whole = lines * m_bins_per_line;
    Buffer out = CopyArray(m_partial.data(), whole);
    m_partial.erase(m_partial.begin(), m_partial.begin() + static_cast<std::ptrdiff_t>(whole));
    std::vector<Block> blocks;
    blocks.push_back(ScanBlock(m_kind, std::move(out), lines, m_bins_per_line, m_lines_done));
    m_lines_done += lines;
    return blocks;
}

std::vector<Block> ResultCopier::Flush() {
    if (m_partial.empty()) {
        return {};
    }
    const std::uint64_t missing = m_bins_per_line - m_partial.size();
    if (m_kind != ResultKind::kScanBins) {
        const std::vector<std::uint64_t> zeros(missing, 0);
        return AddScanValues(zeros.data(), zeros.size());
    }
    m_partial_events.resize(m_partial_events.size() + missing, 0);
    m_bins_done += missing;
    const std::vector<std::uint64_t> zeros(missing, 0);
    return CompleteBins(zeros.data(), zeros.size());
}

std::vector<Block> ResultCopier::TakeBins(ovexsdk_dev_ctx* ctx) {
    ovexsdk_tpx3_acq_itot_evcount_bins result{};
    Check(ovexsdk_acq_get_tpx3_itot_evcount_bins(ctx, &result),
          "ovexsdk_acq_get_tpx3_itot_evcount_bins");
    // The pixels of every bin not yet handed out, numbered from the scan's first bin.
    for (std::uint64_t bin = 0; bin < result.bin_count; ++bin) {
        const ovexsdk_tpx3_bin_descriptor& descriptor = result.bins[bin];
        for (std::uint64_t i = 0; i < descriptor.count; ++i) {
            const ovexsdk_tpx3_pixel_bin_record& in = descriptor.pixels[i];
            const pixel::Pixel at = pixel::PixelOf(in.address);
            m_partial_pixels.push_back({static_cast<std::uint32_t>(m_bins_done + bin),
                                        static_cast<std::uint16_t>(in.address), at.x, at.y, 0,
                                        in.events, in.itot});
        }
    }
    m_bins_done += result.bin_count;
    m_partial_events.insert(m_partial_events.end(), result.events,
                            result.events + result.event_count);
    return CompleteBins(result.itots, result.itot_count);
}

std::vector<Block> ResultCopier::CompleteBins(const std::uint64_t* itots, std::uint64_t count) {
    const std::uint64_t first_line = m_lines_done;
    std::vector<Block> blocks = AddScanValues(itots, count);
    if (blocks.empty()) {
        return blocks;
    }
    Block& block = blocks.front();
    const std::uint64_t whole = block.rows * block.columns;
    block.events = CopyArray(m_partial_events.data(), whole);
    m_partial_events.erase(m_partial_events.begin(),
                           m_partial_events.begin() + static_cast<std::ptrdiff_t>(whole));
    const std::uint64_t end_bin = m_lines_done * m_bins_per_line;
    const auto past = std::find_if(m_partial_pixels.begin(), m_partial_pixels.end(),
                                   [end_bin](const BinPixelRecord& p) { return p.bin >= end_bin; });
    block.pixel_count = static_cast<std::uint64_t>(past - m_partial_pixels.begin());
    block.pixels = CopyArray(m_partial_pixels.data(), block.pixel_count);
    m_partial_pixels.erase(m_partial_pixels.begin(), past);
    block.first_line = first_line;
    return blocks;
}

}  // namespace ovex::python
