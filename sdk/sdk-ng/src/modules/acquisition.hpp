#pragma once

// What every acquisition module offers: start a readout, wait for its end or abort it, and,
// during the client's callback, the newest result and the raw bytes behind it.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <system_error>
#include <variant>
#include <vector>

#include "modules/device_module.hpp"
#include "modules/timepix_chip.hpp"
#include "ovexsdk.h"

namespace ovex::sdk::acquisition {

// The tag of a module's result, telling the exported layer how to read it.
enum class AcquisitionDataKind : std::uint8_t {
    kNone = 0,
    kTpx2Frames = 1,
    kFrameToaTot = 2,        // FrameRecords<FrameToaTotRecord>
    kFrameItotEvents = 3,    // FrameRecords<FrameItotEventRecord>
    kToaTotBlock = 4,        // extended or sorted ToA+ToT block
    kBinnedPackets = 5,      // complete binning
    kItotFragment = 6,       // iToT sums, one per bin
    kEventCountFragment = 7  // event counts, one per bin
};

struct AcquisitionData {
    const void* data = nullptr;
    AcquisitionDataKind kind = AcquisitionDataKind::kNone;
};

// The records of one frame-based readout block: `count` of `records` hold data.
template <typename Record>
struct FrameRecords {
    std::vector<Record> records;
    std::size_t count = 0;
};

// Bits a pixel carries in the board's data, by name for the log lines.
enum PixelDepth : std::uint8_t {
    Bit8Depth = 0,
    Bit10Depth = 1,
    Bit14Depth = 2,
    Bit48Depth = 3,
    UnknownDepth = 4
};
const char* PixelDepthName(std::uint8_t depth) noexcept;
// The Timepix3 modules take only Bit48Depth; another logs the BUG line naming `module` and gives
// invalid_argument.
std::error_code CheckTimepix3Depth(std::uint8_t depth, const char* module);
// Zeroes the chip's time of arrival as a Timepix3 readout starts ("TPX_T0_SYNC"); a failure is
// logged.
std::error_code SyncToaClock(Commands* commands);
// A wait of `seconds` as a join's time-out: truncated to milliseconds, none for what isn't
// above 0, and a very long one for what has no limit worth the name.
std::chrono::milliseconds JoinLimit(double seconds) noexcept;

// How a scan is cut into bins: the binned data-driven modes need it.
struct ScanParameters {
    std::uint64_t bin_width = 0;  // in sixteenths of a ToA tick
    std::uint32_t bins_per_line = 0;
    std::uint32_t lines = 0;
};
using AcquisitionParams = std::variant<std::monostate, ScanParameters>;

// Bytes as they came from the board, valid during the callback.
struct RawSpan {
    const std::byte* data = nullptr;
    std::size_t size = 0;
};

// What a client's abort waits for data already on their way before it stops the transfers.
inline constexpr std::chrono::milliseconds kAbortGrace{90};

// Bit 0 of the start flags: keep the raw bytes of each result for GetRawData.
inline constexpr std::uint32_t kKeepRawData = 1;

class IAcquisition : public DeviceModule {
public:
    using Callback = std::function<void(IAcquisition&)>;
    // Who asks for an abort: the client (which lets what is on its way arrive first) or the
    // module itself.
    enum AbortMode : std::uint8_t { kAbortByClient = 1, kAbortFromInside = 2 };

    using DeviceModule::DeviceModule;

    virtual std::error_code Start(const ChipInfo& chip_info, std::uint32_t flags,
                                  const AcquisitionParams& params, Callback callback) = 0;
    // Waits up to `seconds` for the readout's end, then aborts it; the readout's status.
    virtual std::error_code AwaitReadoutEnd(double seconds) = 0;
    virtual std::error_code SetPixelDepth(std::uint8_t depth) = 0;
    virtual std::error_code Abort(AbortMode mode) = 0;
    virtual AcquisitionData GetData() = 0;
    virtual std::vector<RawSpan> GetRawData() = 0;
    // −1: the readout runs until it is aborted.
    virtual std::error_code SetFrameCount(std::int64_t count) = 0;
    virtual bool IsRunning() = 0;
    virtual std::set<ovexsdk_chip_mode> GetSupportedModes() const = 0;
    virtual ovexsdk_acq_process_mode GetProcessMode() const = 0;
};

// Runs the client's callback on the module's thread. Whatever it throws is logged and goes no
// further: a failing callback costs that one result, never the readout or the process.
void CallClient(const IAcquisition::Callback& callback, IAcquisition& module) noexcept;

}  // namespace ovex::sdk::acquisition
