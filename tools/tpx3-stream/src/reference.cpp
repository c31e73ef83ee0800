#include "tpx3_stream/reference.hpp"

#include <algorithm>

namespace tpx3_stream {

std::vector<ExpectedRecord> SortedByTime(const GeneratedStream& stream) {
    std::vector<ExpectedRecord> sorted = stream.records;
    std::sort(sorted.begin(), sorted.end(),
              [](const ExpectedRecord& a, const ExpectedRecord& b) { return a.time < b.time; });
    return sorted;
}

ReferenceBins BinLines(const GeneratedStream& stream, std::uint64_t bin_width,
                       std::uint32_t bins_per_line) {
    const std::size_t lines = stream.line_starts.size();
    ReferenceBins bins;
    bins.counts.assign(lines * bins_per_line, 0);
    bins.itots.assign(lines * bins_per_line, 0);
    bins.pixels.resize(lines * bins_per_line);
    for (const ExpectedRecord& record : SortedByTime(stream)) {
        // The line of a record is the last one that started at or before it.
        const auto after =
            std::upper_bound(stream.line_starts.begin(), stream.line_starts.end(), record.time);
        if (after == stream.line_starts.begin()) {
            continue;
        }
        const auto line = static_cast<std::size_t>(after - stream.line_starts.begin() - 1);
        const std::uint64_t bin = (record.time - stream.line_starts[line]) / bin_width;
        if (bin >= bins_per_line) {
            continue;
        }
        const std::size_t index = line * bins_per_line + bin;
        ++bins.counts[index];
        bins.itots[index] += record.tot;
        auto& pixels = bins.pixels[index];
        auto it = std::find_if(pixels.begin(), pixels.end(), [&](const ReferencePixel& p) {
            return p.address == record.address;
        });
        if (it == pixels.end()) {
            pixels.push_back({record.address, 1, record.tot});
        } else {
            ++it->events;
            it->itot += record.tot;
        }
    }
    return bins;
}

}  // namespace tpx3_stream
