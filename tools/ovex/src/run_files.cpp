#include "run_files.hpp"

#include <cstring>

#include "cli.hpp"
#include "ovex/pixel_address.hpp"

namespace ovex::cli {
namespace {

using pixel::kTpx3Side;
using pixel::Pixel;
using pixel::PixelIndexOf;
using pixel::PixelOf;

// The writer falls this far behind before the callback has to wait.
constexpr std::size_t kQueueBytes = std::size_t{256} << 20;
constexpr std::uint32_t kTpx3Pixels = kTpx3Side * kTpx3Side;

constexpr char kHitDescr[] =
    "[('address', '<u4'), ('x', '<u2'), ('y', '<u2'), ('tot', '<u4'), ('toa', '<u8')]";
constexpr char kItotDescr[] =
    "[('address', '<u4'), ('x', '<u2'), ('y', '<u2'), ('itot', '<u4'), ('events', '<u8')]";
// Both record layouts: address, x, y, a 32-bit and a 64-bit value, packed.
constexpr std::size_t kRowBytes = 20;

std::unique_ptr<NpyWriter> RecordsFile(const AcquireOptions& options) {
    if (!options.records_path) {
        return nullptr;
    }
    const std::string& path = *options.records_path;
    switch (ResultKindOf(options)) {
        case ResultKind::kHits:
            return std::make_unique<NpyWriter>(path, kHitDescr, std::vector<std::uint64_t>{});
        case ResultKind::kItotPixels:
            return std::make_unique<NpyWriter>(path, kItotDescr, std::vector<std::uint64_t>{});
        case ResultKind::kScanValues:
            return std::make_unique<NpyWriter>(path, "'<u8'",
                                               std::vector<std::uint64_t>{options.bins});
        case ResultKind::kTpx2Frames:
            return std::make_unique<NpyWriter>(path, "'<u2'",
                                               std::vector<std::uint64_t>{kTpx3Side, kTpx3Side});
    }
    return nullptr;
}

template <typename Record>
std::span<const Record> RecordsIn(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const Record*>(bytes.data()), bytes.size() / sizeof(Record)};
}

void PutRow(std::byte* row, std::uint32_t address, std::uint32_t value32, std::uint64_t value64) {
    const Pixel pixel = PixelOf(address);
    std::memcpy(row, &address, 4);
    std::memcpy(row + 4, &pixel.x, 2);
    std::memcpy(row + 6, &pixel.y, 2);
    std::memcpy(row + 8, &value32, 4);
    std::memcpy(row + 12, &value64, 8);
}

}  // namespace

RunFiles::RunFiles(const AcquireOptions& options)
    : m_kind(ResultKindOf(options)),
      m_scan_lines(options.lines),
      m_scan_bins(options.bins),
      m_queue(kQueueBytes) {
    if (options.raw_path) {
        m_raw = std::make_unique<OutputFile>(*options.raw_path);
    }
    m_records = RecordsFile(options);
    if (options.image_path) {
        m_image_file = std::make_unique<PngWriter>(*options.image_path);
    }
    if (m_kind != ResultKind::kScanValues) {
        m_image.assign(kTpx3Pixels, 0);
    }
}

RunFiles::~RunFiles() {
    if (m_writer.joinable()) {
        m_queue.Close();
        m_writer.join();
    }
}

void RunFiles::Start() {
    m_writer = std::thread([this] { WriteAll(); });
}

void RunFiles::WriteAll() {
    while (const auto chunk = m_queue.Pop()) {
        if (m_failure) {
            continue;  // the queue still empties, so that the callback never waits on it
        }
        try {
            Take(*chunk);
        } catch (...) {
            m_failure = std::current_exception();
        }
    }
}

void RunFiles::Take(const Chunk& chunk) {
    if (chunk.kind == Chunk::kRaw) {
        m_raw->Write(chunk.bytes);
        return;
    }
    switch (m_kind) {
        case ResultKind::kHits:
            TakeHits(chunk.bytes);
            break;
        case ResultKind::kItotPixels:
            TakeItotPixels(chunk.bytes);
            break;
        case ResultKind::kScanValues:
            TakeScanValues(chunk.bytes);
            break;
        case ResultKind::kTpx2Frames:
            TakeFrame(chunk.bytes);
            break;
    }
}

void RunFiles::TakeHits(std::span<const std::byte> bytes) {
    const auto records = RecordsIn<ovexsdk_acq_tpx3_toa_tot_record>(bytes);
    m_converted.resize(records.size() * kRowBytes);
    std::byte* row = m_converted.data();
    for (const auto& record : records) {
        ++m_image[PixelIndexOf(record.address)];
        PutRow(row, record.address, record.tot, record.toa);
        row += kRowBytes;
    }
    if (m_records) {
        m_records->Append(m_converted);
    }
    m_rows += records.size();
}

void RunFiles::TakeItotPixels(std::span<const std::byte> bytes) {
    const auto pixels = RecordsIn<ovexsdk_acq_tpx3_itot_evcount>(bytes);
    m_converted.resize(pixels.size() * kRowBytes);
    std::byte* row = m_converted.data();
    for (const auto& pixel : pixels) {
        m_image[PixelIndexOf(pixel.address)] += pixel.events;
        PutRow(row, pixel.address, pixel.itot, pixel.events);
        row += kRowBytes;
    }
    if (m_records) {
        m_records->Append(m_converted);
    }
    m_rows += pixels.size();
}

void RunFiles::TakeScanValues(std::span<const std::byte> bytes) {
    const auto values = RecordsIn<std::uint64_t>(bytes);
    m_image.insert(m_image.end(), values.begin(), values.end());
    if (m_records) {
        m_records->Append(bytes);
    }
    m_rows += values.size();
}

void RunFiles::TakeFrame(std::span<const std::byte> bytes) {
    const auto pixels = RecordsIn<std::uint16_t>(bytes);
    if (pixels.size() != kTpx3Pixels) {
        throw CommandError(kExitFailed, "a frame of " + std::to_string(pixels.size()) +
                                            " pixels, not " + std::to_string(kTpx3Pixels));
    }
    for (std::uint32_t p = 0; p < kTpx3Pixels; ++p) {
        m_image[p] += pixels[p];
    }
    if (m_records) {
        m_records->Append(bytes);
    }
    ++m_rows;
}

// The rows of the .npy's first axis; a scan's last line, if it came only in part, is filled up.
std::uint64_t RunFiles::FinishRecords() {
    if (m_kind != ResultKind::kScanValues) {
        return m_rows;
    }
    const std::uint64_t missing = (m_scan_bins - m_rows % m_scan_bins) % m_scan_bins;
    if (m_records && missing != 0) {
        const std::vector<std::byte> zeros(missing * sizeof(std::uint64_t));
        m_records->Append(zeros);
    }
    return (m_rows + missing) / m_scan_bins;
}

void RunFiles::Finish() {
    m_queue.Close();
    if (m_writer.joinable()) {
        m_writer.join();
    }
    // Every file is completed as far as it can be; the first failure is the one reported.
    std::exception_ptr failure = m_failure;
    const auto attempt = [&failure](auto&& step) {
        try {
            step();
        } catch (...) {
            if (!failure) {
                failure = std::current_exception();
            }
        }
    };
    if (m_raw) {
        attempt([this] { m_raw->Close(); });
    }
    if (m_records) {
        attempt([this] { m_records->Finish(FinishRecords()); });
    }
    if (m_image_file) {
        attempt([this] { WriteImage(); });
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void RunFiles::Remove() {
    if (m_raw) {
        m_raw->Remove();
    }
    if (m_records) {
        m_records->Remove();
    }
    if (m_image_file) {
        m_image_file->Remove();
    }
}

void RunFiles::WriteImage() {
    if (m_kind != ResultKind::kScanValues) {
        m_image_file->Write(kTpx3Side, kTpx3Side, m_image);
        return;
    }
    // The scan as it was asked for: lines that never came stay dark.
    m_image.resize(std::uint64_t{m_scan_lines} * m_scan_bins);
    m_image_file->Write(m_scan_bins, m_scan_lines, m_image);
}

}  // namespace ovex::cli
