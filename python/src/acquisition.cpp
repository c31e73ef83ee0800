#include "acquisition.hpp"

#include <pthread.h>
#include <pybind11/numpy.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "context.hpp"
#include "log_bridge.hpp"

namespace py = pybind11;

namespace ovex::python {
namespace {

using Clock = std::chrono::steady_clock;

// How often a Python thread waiting for a block looks for Ctrl-C.
constexpr std::chrono::milliseconds kSignalPoll{50};
// How long past its shutter a frame may take to come. The library gives a readout 0.1 s past
// its shutter before it aborts it, which a busy host can miss: the frame is awaited here first.
constexpr std::chrono::seconds kFrameWait{10};
// What the library logs when a readout lost data although its calls succeeded.
constexpr const char* kLossWords[] = {"timed-out after", "Pipeline terminated with exception"};

bool IsScan(ResultKind kind) {
    return kind == ResultKind::kScanCounts || kind == ResultKind::kScanItots ||
           kind == ResultKind::kScanBins;
}

// Hands a buffer's memory to a capsule that frees it with the last array that uses it.
py::capsule OwnerOf(Buffer& buffer) {
    return py::capsule(buffer.release(), [](void* memory) { block_memory::Give(memory); });
}

py::array ArrayOf(const py::object& dtype, std::vector<py::ssize_t> shape, Buffer& buffer) {
    const void* data = buffer.data();
    return py::array(py::reinterpret_borrow<py::dtype>(dtype), std::move(shape), data,
                     OwnerOf(buffer));
}

}  // namespace

Acquisition::Acquisition(std::shared_ptr<Context> context, AcquisitionPlan plan, py::tuple dtypes)
    : m_context(std::move(context)),
      m_plan(std::move(plan)),
      m_hit_dtype(dtypes[0]),
      m_pixel_dtype(dtypes[1]),
      m_bin_pixel_dtype(dtypes[2]),
      m_queue(m_plan.buffer_bytes),
      m_copier(m_plan.kind, m_plan.bins_per_line) {
    ovexsdk_dev_ctx* handle = m_context->Handle();
    if (!m_plan.raw_path.empty()) {
        m_raw = std::fopen(m_plan.raw_path.c_str(), "wb");
        if (!m_raw) {
            throw CallError(OVEXSDK_ERR_INVALID, "acquire", {},
                            "cannot create " + m_plan.raw_path + ": " + std::strerror(errno));
        }
    }
    m_context->SetRunning(this);
    {
        py::gil_scoped_release no_gil;
        m_runner = std::thread([this, handle] { Run(handle); });
        pthread_setname_np(m_runner.native_handle(), "PyAcquisition");
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_started || m_finished; });
    }
    if (!m_started) {
        Stop();
        std::optional<CallError> failure;
        {
            std::lock_guard lock(m_mutex);
            failure.swap(m_failure);
        }
        if (!failure) {
            failure.emplace(OVEXSDK_ERR_FAILED, "acquire", std::vector<std::string>{},
                            "the readout ended before it started");
        }
        throw *failure;
    }
}

Acquisition::~Acquisition() {
    Stop();
}

bool Acquisition::Running() const {
    std::lock_guard lock(m_mutex);
    return m_started && !m_finished;
}

void Acquisition::Stop() {
    {
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_queue.Abandon();
    {
        std::optional<py::gil_scoped_release> no_gil;
        if (PyGILState_Check()) {
            no_gil.emplace();
        }
        std::lock_guard lock(m_join_mutex);
        if (m_runner.joinable()) {
            m_runner.join();
        }
    }
    m_context->SetRunning(nullptr);
    if (m_raw) {
        std::fclose(m_raw);
        m_raw = nullptr;
    }
}

void Acquisition::Run(ovexsdk_dev_ctx* ctx) {
    const std::uint64_t problems_before = ProblemsSoFar();
    for (std::uint64_t readout = 0; readout < m_plan.readouts; ++readout) {
        {
            std::lock_guard lock(m_mutex);
            if (m_stop) {
                break;
            }
        }
        if (!RunReadout(ctx, readout == 0)) {
            break;
        }
    }
    CheckLoggedLoss(problems_before);
    // The readout has ended, and its callbacks with it: the copier is the runner's now.
    const std::uint64_t done = m_copier.LinesDone();
    for (Block& block : m_copier.Flush()) {
        m_queue.Push(std::move(block));
    }
    if (IsScan(m_plan.kind)) {
        std::lock_guard lock(m_mutex);
        if (done < m_plan.lines && !m_stop && !m_failure) {
            char detail[128];
            std::snprintf(detail, sizeof detail, "%llu of %u scan lines came within %g s",
                          static_cast<unsigned long long>(done), m_plan.lines, m_plan.seconds);
            m_failure.emplace(OVEXSDK_ERR_FAILED, "acquire", std::vector<std::string>{}, detail,
                              true);
        }
    }
    {
        std::lock_guard lock(m_mutex);
        m_finished = true;
    }
    m_changed.notify_all();
    m_queue.Close();
}

bool Acquisition::RunReadout(ovexsdk_dev_ctx* ctx, bool first) {
    const bool scan = IsScan(m_plan.kind);
    ovexsdk_acq_params params{};
    params.scan = {m_plan.bins_per_line, m_plan.lines, m_plan.bin_width_ns};
    const auto flags = static_cast<ovexsdk_acq_mode_flag>(
        OVEXSDK_ACQ_PROCESSED | (m_raw && m_plan.timepix3 ? OVEXSDK_ACQ_RAW : 0));

    std::uint64_t results_before = 0;
    {
        std::lock_guard lock(m_mutex);
        results_before = m_results;
    }
    std::uint64_t before = ProblemsSoFar();
    const ovexsdk_err_code started =
        ovexsdk_acq_start(ctx, &Acquisition::OnData, flags, scan ? &params : nullptr, this);
    if (started != OVEXSDK_OK) {
        Fail(CallError(started, "ovexsdk_acq_start", LogBridge::Instance().ProblemsSince(before)));
        return false;
    }
    const auto start = Clock::now();
    if (m_plan.internal_trigger) {
        before = ProblemsSoFar();
        const ovexsdk_err_code opened = ovexsdk_trigger_now(ctx);
        if (opened != OVEXSDK_OK) {
            CallError error(opened, "ovexsdk_trigger_now",
                            LogBridge::Instance().ProblemsSince(before));
            ovexsdk_acq_abort(ctx);
            ovexsdk_acq_await_end(ctx);
            Fail(std::move(error));
            return false;
        }
    }
    if (first) {
        std::lock_guard lock(m_mutex);
        m_started = true;
    }
    m_changed.notify_all();

    bool stopped = false;
    if (m_plan.seconds > 0) {
        const auto deadline = start + std::chrono::duration_cast<Clock::duration>(
                                          std::chrono::duration<double>(m_plan.seconds));
        std::unique_lock lock(m_mutex);
        m_changed.wait_until(lock, deadline, [&] {
            return m_stop || (scan && m_lines_done.load() >= m_plan.lines);
        });
        stopped = m_stop;
    } else if (!AwaitFrame(results_before, start)) {
        ovexsdk_acq_abort(ctx);
        ovexsdk_acq_await_end(ctx);
        return false;
    }
    before = ProblemsSoFar();
    const ovexsdk_err_code aborted = stopped || scan ? ovexsdk_acq_abort(ctx) : OVEXSDK_OK;
    const ovexsdk_err_code ended = ovexsdk_acq_await_end(ctx);
    if (ended != OVEXSDK_OK || (aborted != OVEXSDK_OK && !stopped)) {
        const bool end_failed = ended != OVEXSDK_OK;
        Fail(CallError(end_failed ? ended : aborted,
                       end_failed ? "ovexsdk_acq_await_end" : "ovexsdk_acq_abort",
                       LogBridge::Instance().ProblemsSince(before)));
        return false;
    }
    return true;
}

bool Acquisition::AwaitFrame(std::uint64_t results_before, Clock::time_point start) {
    const auto limit =
        start +
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_plan.shutter)) +
        kFrameWait;
    std::unique_lock lock(m_mutex);
    if (m_changed.wait_until(lock, limit, [&] { return m_stop || m_results > results_before; })) {
        return true;
    }
    lock.unlock();
    char detail[96];
    std::snprintf(detail, sizeof detail, "no frame came within %g s of its shutter's opening",
                  m_plan.shutter + static_cast<double>(kFrameWait.count()));
    Fail(CallError(OVEXSDK_ERR_FAILED, "acquire", {}, detail, true));
    return false;
}

void Acquisition::CheckLoggedLoss(std::uint64_t problems_before) {
    {
        std::lock_guard lock(m_mutex);
        if (m_stop) {
            return;  // stopped on purpose, or failed already
        }
    }
    std::vector<std::string> losses;
    bool timed_out = false;
    for (std::string& line : LogBridge::Instance().ProblemsSince(problems_before)) {
        for (const char* words : kLossWords) {
            if (line.find(words) != std::string::npos) {
                timed_out = timed_out || words == kLossWords[0];
                losses.push_back(std::move(line));
                break;
            }
        }
    }
    if (!losses.empty()) {
        Fail(CallError(OVEXSDK_ERR_FAILED, "acquire", std::move(losses),
                       "the library ended a readout early: its data are incomplete", timed_out));
    }
}

void Acquisition::Fail(CallError error) {
    {
        std::lock_guard lock(m_mutex);
        if (!m_failure) {
            m_failure.emplace(std::move(error));
        }
        m_stop = true;
    }
    m_changed.notify_all();
}

void Acquisition::OnData(ovexsdk_dev_ctx* ctx, void* self_pointer) {
    auto& self = *static_cast<Acquisition*>(self_pointer);
    {
        std::lock_guard lock(self.m_mutex);
        if (self.m_stop) {
            ++self.m_dropped;
            return;
        }
    }
    try {
        if (self.m_raw) {
            const ovexsdk_acq_raw_data* buffers = nullptr;
            std::uint64_t count = 0;
            if (ovexsdk_acq_get_raw_data(ctx, &buffers, &count) == OVEXSDK_OK) {
                for (std::uint64_t i = 0; i < count; ++i) {
                    if (std::fwrite(buffers[i].data, 1, buffers[i].size, self.m_raw) !=
                        buffers[i].size) {
                        throw std::runtime_error("cannot write " + self.m_plan.raw_path + ": " +
                                                 std::strerror(errno));
                    }
                    self.m_raw_bytes += buffers[i].size;
                }
            }
        }
        for (Block& block : self.m_copier.Take(ctx)) {
            if (!self.m_queue.Push(std::move(block))) {
                ++self.m_dropped;
            }
        }
        {
            std::lock_guard lock(self.m_mutex);
            ++self.m_results;
            self.m_lines_done = self.m_copier.LinesDone();
        }
        self.m_changed.notify_all();
    } catch (const std::exception& error) {
        self.Fail(CallError(OVEXSDK_ERR_FAILED, "acquire", {}, error.what()));
    }
}

py::object Acquisition::Next() {
    for (;;) {
        BlockQueue::Popped popped;
        {
            py::gil_scoped_release no_gil;
            popped = m_queue.PopFor(kSignalPoll);
        }
        switch (popped.status) {
            case BlockQueue::Status::kItem:
                return ToPython(std::move(*popped.item));
            case BlockQueue::Status::kEnd: {
                Stop();
                std::optional<CallError> failure;
                {
                    std::lock_guard lock(m_mutex);
                    failure.swap(m_failure);
                }
                if (failure) {
                    throw *failure;
                }
                throw py::stop_iteration();
            }
            case BlockQueue::Status::kWaiting:
                if (PyErr_CheckSignals() != 0) {
                    py::error_already_set interrupted;
                    Stop();
                    throw interrupted;
                }
                break;
        }
    }
}

py::object Acquisition::ToPython(Block block) {
    const auto rows = static_cast<py::ssize_t>(block.rows);
    const auto columns = static_cast<py::ssize_t>(block.columns);
    switch (block.kind) {
        case ResultKind::kHits:
            return ArrayOf(m_hit_dtype, {rows}, block.values);
        case ResultKind::kItotPixels:
            return ArrayOf(m_pixel_dtype, {rows}, block.values);
        case ResultKind::kTpx2Frames: {
            const auto width = static_cast<py::ssize_t>(m_plan.width);
            const py::object dtype = py::dtype::of<std::uint16_t>();
            if (width != 0 && rows % width == 0) {
                return ArrayOf(dtype, {rows / width, width}, block.values);
            }
            return ArrayOf(dtype, {rows}, block.values);
        }
        case ResultKind::kScanCounts:
        case ResultKind::kScanItots:
            return py::make_tuple(
                ArrayOf(py::dtype::of<std::uint64_t>(), {rows, columns}, block.values),
                block.first_line);
        case ResultKind::kScanBins:
            return py::make_tuple(
                ArrayOf(py::dtype::of<std::uint64_t>(), {rows, columns}, block.values),
                ArrayOf(py::dtype::of<std::uint64_t>(), {rows, columns}, block.events),
                ArrayOf(m_bin_pixel_dtype, {static_cast<py::ssize_t>(block.pixel_count)},
                        block.pixels),
                block.first_line);
    }
    return py::none();
}

}  // namespace ovex::python
