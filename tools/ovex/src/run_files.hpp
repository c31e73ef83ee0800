// The files of a run and the thread that writes them. The data callback only copies what it
// gets into the queue; this thread turns it into the raw stream, the .npy rows and the image.
// .npy layouts by result kind:
//   hits         (n,) records: address <u4, x <u2, y <u2, tot <u4, toa <u8
//   itot pixels  (n,) records: address <u4, x <u2, y <u2, itot <u4, events <u8
//   scan values  (lines, bins) <u8, the last line that came only in part filled with zeros
//   Timepix2     (frames, 256, 256) <u2
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "acquire_options.hpp"
#include "chunk_queue.hpp"
#include "npy_writer.hpp"
#include "output_file.hpp"
#include "png_writer.hpp"

namespace ovex::cli {

class RunFiles {
public:
    // Creates every file the options name.
    explicit RunFiles(const AcquireOptions& options);
    ~RunFiles();
    RunFiles(const RunFiles&) = delete;
    RunFiles& operator=(const RunFiles&) = delete;

    bool WantsRaw() const { return m_raw != nullptr; }
    bool WantsResults() const { return m_records != nullptr || m_image_file != nullptr; }
    ChunkQueue& Queue() { return m_queue; }

    // Starts the writer thread.
    void Start();
    // Writes what is still queued, the .npy header with its rows and the image, and closes the
    // files; throws the first failure, the writer thread's included.
    void Finish();
    // Removes the files of a run that never started.
    void Remove();

private:
    void WriteAll();
    void Take(const Chunk& chunk);
    void TakeHits(std::span<const std::byte> bytes);
    void TakeItotPixels(std::span<const std::byte> bytes);
    void TakeScanValues(std::span<const std::byte> bytes);
    void TakeFrame(std::span<const std::byte> bytes);
    std::uint64_t FinishRecords();
    void WriteImage();

    const ResultKind m_kind;
    const std::uint32_t m_scan_lines;
    const std::uint32_t m_scan_bins;
    std::unique_ptr<OutputFile> m_raw;
    std::unique_ptr<NpyWriter> m_records;
    std::unique_ptr<PngWriter> m_image_file;
    ChunkQueue m_queue;
    std::thread m_writer;
    std::exception_ptr m_failure;  // the writer's first; it writes nothing after it
    std::uint64_t m_rows = 0;      // the writer's alone until it is joined
    std::vector<std::uint64_t> m_image;
    std::vector<std::byte> m_converted;  // the .npy rows of one chunk
};

}  // namespace ovex::cli
