// One acquisition for Python. A runner thread of the package makes the library calls of the
// readouts (start, shutter, wait, abort, await the end), the library's data callback copies
// each result into blocks, and the Python thread takes them from a bounded queue, turned into
// NumPy arrays that own the copies. While it waits for a block the Python thread holds no GIL
// and still answers Ctrl-C.
#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "call.hpp"
#include "ovex/byte_queue.hpp"
#include "result_blocks.hpp"

namespace ovex::python {

class Context;

struct BlockBytes {
    std::size_t operator()(const Block& block) const { return block.bytes(); }
};
// The blocks of one acquisition between the data callback and the Python thread: when the
// Python side falls behind, the callback waits and the library keeps what the board sends in
// its own buffers meanwhile; once the Python side gives up, what still comes is dropped.
using BlockQueue = ByteQueue<Block, BlockBytes>;

struct AcquisitionPlan {
    ResultKind kind = ResultKind::kHits;
    // Readouts one after another: the shutters of a frame mode; 1 for the others.
    std::uint64_t readouts = 1;
    // Opened by the host (ovexsdk_trigger_now) rather than the trigger input.
    bool internal_trigger = true;
    // Data-driven: how long the shutter is open; scans: the longest wait for the lines; 0: the
    // readout ends by itself.
    double seconds = 0.0;
    // Frame modes: each readout's shutter, seconds.
    double shutter = 0.0;
    // Scans: bins in a line, lines, nanoseconds a bin.
    std::uint32_t bins_per_line = 0;
    std::uint32_t lines = 0;
    std::uint64_t bin_width_ns = 0;
    // A Timepix2 frame's shape.
    std::uint32_t width = 256;
    std::uint32_t height = 256;
    // The board's bytes go to this file too when it isn't empty.
    std::string raw_path;
    bool timepix3 = true;
    std::size_t buffer_bytes = std::size_t{256} << 20;
};

class Acquisition {
public:
    // Starts the first readout and returns once it runs; throws CallError when it doesn't.
    // `dtypes`: the NumPy dtypes of hits, pixels and bin pixels, in that order.
    Acquisition(std::shared_ptr<Context> context, AcquisitionPlan plan, pybind11::tuple dtypes);
    ~Acquisition();

    Acquisition(const Acquisition&) = delete;
    Acquisition& operator=(const Acquisition&) = delete;

    // The next block as NumPy: an array of hits or pixels, a frame, or for scans the tuple
    // (values, first line) or (itots, events, pixels, first line). Raises StopIteration at the
    // end and the readout's error if it failed.
    pybind11::object Next();

    // Ends the acquisition: the readout is aborted, what is still queued or coming is dropped,
    // and the runner is joined. Safe more than once; with or without the GIL.
    void Stop();

    std::uint64_t RawBytes() const { return m_raw_bytes.load(); }
    std::uint64_t DroppedBlocks() const { return m_dropped.load(); }
    bool Running() const;

private:
    static void OnData(ovexsdk_dev_ctx* ctx, void* self);
    void Run(ovexsdk_dev_ctx* ctx);
    // One readout from its start to its end; false when it failed.
    bool RunReadout(ovexsdk_dev_ctx* ctx, bool first);
    // Waits for the frame that ends a frame mode's readout; false when it didn't come.
    bool AwaitFrame(std::uint64_t results_before, std::chrono::steady_clock::time_point start);
    // After the readouts: a time-out or a failed pipeline that the library logged meanwhile
    // means lost data, although its calls succeeded.
    void CheckLoggedLoss(std::uint64_t problems_before);
    // Keeps the first failure and asks the runner to stop.
    void Fail(CallError error);
    pybind11::object ToPython(Block block);

    std::shared_ptr<Context> m_context;
    const AcquisitionPlan m_plan;
    pybind11::object m_hit_dtype;
    pybind11::object m_pixel_dtype;
    pybind11::object m_bin_pixel_dtype;
    BlockQueue m_queue;
    ResultCopier m_copier;
    std::FILE* m_raw = nullptr;

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_started = false;
    bool m_stop = false;
    bool m_finished = false;
    std::uint64_t m_results = 0;  // data callbacks so far
    std::optional<CallError> m_failure;

    std::atomic<std::uint64_t> m_raw_bytes{0};
    std::atomic<std::uint64_t> m_dropped{0};
    std::atomic<std::uint64_t> m_lines_done{0};  // scans, as the data callback counts them
    std::mutex m_join_mutex;
    std::thread m_runner;
};

}  // namespace ovex::python
