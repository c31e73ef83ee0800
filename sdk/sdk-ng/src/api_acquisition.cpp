// Acquisitions: the choice of the module by chip mode and processing mode, start, wait and
// abort, and the records through which the results reach the host's data callback.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <variant>
#include <vector>

#include "api_names.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "modules/acquisition.hpp"
#include "modules/backend.hpp"
#include "modules/timepix_chip.hpp"
#include "modules/tpx2_acquisition.hpp"
#include "modules/triggers/trigger.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"
#include "tpx3_pipeline/binning/bin_writers.hpp"
#include "tpx3_pipeline/common.hpp"
#include "tpx3_toa_extension/utils/packet_unpack.hpp"

namespace ovex::sdk {

namespace {

using acquisition::AcquisitionDataKind;
using acquisition::IAcquisition;
using DataCallback = void (*)(ovexsdk_dev_ctx*, void*);

// The library's records are handed to the host as they are.
template <typename Library, typename Exported>
constexpr bool kSameLayout = sizeof(Library) == sizeof(Exported) &&
                             alignof(Library) == alignof(Exported);
static_assert(kSameLayout<tpx3_toa_extension::FrameToaTotRecord, ovexsdk_acq_tpx3_toa_tot_record>);
static_assert(offsetof(tpx3_toa_extension::FrameToaTotRecord, tot) ==
                  offsetof(ovexsdk_acq_tpx3_toa_tot_record, tot) &&
              offsetof(tpx3_toa_extension::FrameToaTotRecord, toa) ==
                  offsetof(ovexsdk_acq_tpx3_toa_tot_record, toa));
static_assert(kSameLayout<tpx3_toa_extension::FrameItotEventRecord, ovexsdk_acq_tpx3_itot_evcount>);
static_assert(kSameLayout<tpx3_toa_extension::ToaTotRecord, ovexsdk_acq_tpx3_toa_tot_record>);
static_assert(offsetof(tpx3_toa_extension::ToaTotRecord, tot) ==
                  offsetof(ovexsdk_acq_tpx3_toa_tot_record, tot) &&
              offsetof(tpx3_toa_extension::ToaTotRecord, time) ==
                  offsetof(ovexsdk_acq_tpx3_toa_tot_record, toa));
static_assert(kSameLayout<tpx3_pipeline::binning::PixelBinRecord, ovexsdk_tpx3_pixel_bin_record>);
static_assert(offsetof(tpx3_pipeline::binning::PixelBinRecord, events) ==
                  offsetof(ovexsdk_tpx3_pixel_bin_record, events) &&
              offsetof(tpx3_pipeline::binning::PixelBinRecord, itot) ==
                  offsetof(ovexsdk_tpx3_pixel_bin_record, itot));
static_assert(offsetof(tpx3_toa_extension::FrameItotEventRecord, itot) ==
                  offsetof(ovexsdk_acq_tpx3_itot_evcount, itot) &&
              offsetof(tpx3_toa_extension::FrameItotEventRecord, events) ==
                  offsetof(ovexsdk_acq_tpx3_itot_evcount, events));

// A year: the readout of a trigger without a duration may last that long.
constexpr double kEndlessReadout = 31556952.0;

// The first acquisition module that serves the chip's mode with the processing mode.
IAcquisition* SelectAcquisition(SdkDevice& device, ovexsdk_chip_mode mode,
                                std::uint8_t processing) {
    for (auto* module : device.GetModules<IAcquisition>()) {
        if (module->GetSupportedModes().contains(mode) &&
            static_cast<std::uint8_t>(module->GetProcessMode()) == processing) {
            return module;
        }
    }
    return nullptr;
}

// A data-driven block: its records, the start of its scan line and its three TDC lists.
void ExportBlock(AcquisitionResult& result, const void* data) {
    const auto& block = *static_cast<const tpx3_pipeline::common::ExtendedBlock*>(data);
    for (std::size_t c = 0; c < result.tdc.size(); ++c) {
        result.tdc[c] = {block.tdc[c].data(), block.tdc[c].size()};
    }
    result.toa_tot = {reinterpret_cast<const ovexsdk_acq_tpx3_toa_tot_record*>(block.begin()),
                      block.count, block.start_toa, result.tdc.data(), result.tdc.size()};
}

// The complete binning: the two value lists and a descriptor per bin into its pixels.
void ExportBins(AcquisitionResult& result, const void* data) {
    const auto& binned = *static_cast<const tpx3_pipeline::binning::BinnedData*>(data);
    result.bin_list.clear();
    for (const auto& bin : binned.descriptors) {
        const auto* pixels = bin.count == 0
                                 ? nullptr
                                 : reinterpret_cast<const ovexsdk_tpx3_pixel_bin_record*>(
                                       binned.packets.data() + bin.offset);
        result.bin_list.push_back({pixels, bin.count});
    }
    result.bins = {binned.itots.data(),  binned.itots.size(),    binned.events.data(),
                   binned.events.size(), result.bin_list.data(), result.bin_list.size()};
}

const std::vector<std::uint64_t>& BinValues(const void* data) {
    return *static_cast<const std::vector<std::uint64_t>*>(data);
}

template <typename Exported, typename Record>
std::span<const Exported> RecordsOf(const void* data) {
    const auto* store = static_cast<const acquisition::FrameRecords<Record>*>(data);
    return {reinterpret_cast<const Exported*>(store->records.data()), store->count};
}

// The function object behind the host's callback: the module's result as exported records,
// the host's callback, then the result gone again.
void DeliverResult(Context& context, ovexsdk_dev_ctx* handle, IAcquisition& module,
                   DataCallback data_cb, void* user) {
    AcquisitionResult& result = context.Acquisition();
    std::vector<ovexsdk_acq_raw_data> raw;
    for (const auto& span : module.GetRawData()) {
        raw.push_back({reinterpret_cast<const std::uint8_t*>(span.data), span.size});
    }
    result.raw = std::move(raw);

    const auto data = module.GetData();
    switch (data.kind) {
        case AcquisitionDataKind::kTpx2Frames:
            result.tpx2_frames.clear();
            for (const auto frame :
                 static_cast<const acquisition::Tpx2FrameStore*>(data.data)->frames) {
                result.tpx2_frames.push_back({frame.data(), frame.size()});
            }
            result.tag = AcquisitionResult::kTpx2Frames;
            break;
        case AcquisitionDataKind::kFrameToaTot: {
            const auto records =
                RecordsOf<ovexsdk_acq_tpx3_toa_tot_record, tpx3_toa_extension::FrameToaTotRecord>(
                    data.data);
            result.toa_tot = {records.data(), records.size(), 0, nullptr, 0};
            result.tag = AcquisitionResult::kToaTot;
            break;
        }
        case AcquisitionDataKind::kFrameItotEvents:
            result.itot_evcount =
                RecordsOf<ovexsdk_acq_tpx3_itot_evcount, tpx3_toa_extension::FrameItotEventRecord>(
                    data.data);
            result.tag = AcquisitionResult::kItotEvcount;
            break;
        case AcquisitionDataKind::kToaTotBlock:
            ExportBlock(result, data.data);
            result.tag = AcquisitionResult::kToaTot;
            break;
        case AcquisitionDataKind::kItotFragment:
            result.itot_fragment = {BinValues(data.data).data(), BinValues(data.data).size()};
            result.tag = AcquisitionResult::kItotFragment;
            break;
        case AcquisitionDataKind::kEventCountFragment:
            result.evcount_fragment = {BinValues(data.data).data(), BinValues(data.data).size()};
            result.tag = AcquisitionResult::kEvcountFragment;
            break;
        case AcquisitionDataKind::kBinnedPackets:
            ExportBins(result, data.data);
            result.tag = AcquisitionResult::kBinned;
            break;
        default:
            OVEX_LOG_ERROR("BUG: %s gave a result of unhandled kind %d.", module.GetName(),
                           static_cast<int>(data.kind));
            result.tag = AcquisitionResult::kEmpty;
            break;
    }
    if (data_cb != nullptr) {
        const HostCallbackScope scope;
        data_cb(handle, user);
    }
    result.tag = AcquisitionResult::kEmpty;
    result.tpx2_frames.clear();
    result.toa_tot = {};
    result.itot_evcount = {};
    result.itot_fragment = {};
    result.evcount_fragment = {};
    result.bins = {};
}

ovexsdk_err_code AcqSelectProcessing(Context& context, ovexsdk_acq_process_mode mode) {
    const char* name = ProcessModeName(static_cast<std::uint32_t>(mode));
    if (name == nullptr) {
        OVEX_LOG_ERROR("Value '%d' is not a valid data processing mode.", static_cast<int>(mode));
        return OVEXSDK_ERR_INVALID;
    }
    context.SetProcessingMode(static_cast<std::uint8_t>(mode));
    OVEX_LOG_DEBUG("Data processing mode \"%s\" has been chosen.", name);
    return OVEXSDK_OK;
}

// The binning of a scan for the binned data-driven modes; nothing, after a log line, when the
// host's parameters don't make one.
std::optional<acquisition::ScanParameters> ScanOf(const ovexsdk_acq_params* params) {
    if (params == nullptr) {
        OVEX_LOG_ERROR("No scan parameters provided.");
        return std::nullopt;
    }
    const auto& scan = params->scan;
    if (scan.bins_per_line == 0 || scan.lines == 0 || scan.dwell_time == 0) {
        OVEX_LOG_ERROR("One or more of the scan parameters is missing/set to zero.");
        return std::nullopt;
    }
    // A dwell time in nanoseconds as sixteenths of a 25 ns ToA tick.
    const auto bin_width =
        static_cast<std::uint64_t>(static_cast<double>(scan.dwell_time) * 16.0 / 25.0);
    return acquisition::ScanParameters{bin_width, scan.bins_per_line, scan.lines};
}

bool IsBinning(std::uint8_t processing) {
    return processing == BinEvcountImage || processing == BinItotImage ||
           processing == BinCompletely;
}

ovexsdk_err_code AcqStart(Context& context, ovexsdk_dev_ctx* handle, DataCallback data_cb,
                          ovexsdk_acq_mode_flag flags, const ovexsdk_acq_params* params,
                          void* user) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (static_cast<std::uint32_t>(flags) == 0) {
        OVEX_LOG_ERROR("No mode (acquisition channels) has been set for acquisition module.");
        return OVEXSDK_ERR_INVALID;
    }
    SdkDevice& device = *context.Device();
    auto* chip = device.GetModule<ITimepixChip>();
    auto* frontend = device.GetModule<IFrontend>();
    if (chip == nullptr) {
        OVEX_LOG_ERROR("Missing required chip module.");
        return OVEXSDK_ERR_BUSY;
    }
    if (frontend == nullptr) {
        OVEX_LOG_ERROR("Missing required frontend module.");
        return OVEXSDK_ERR_BUSY;
    }
    const ovexsdk_chip_mode mode = chip->GetMode();
    IAcquisition* module = SelectAcquisition(device, mode, context.ProcessingMode());
    if (module == nullptr) {
        OVEX_LOG_ERROR(
            "Missing acquisition module for selected mode. Is chip and/or processing mode "
            "selected correctly?");
        return OVEXSDK_ERR_BUSY;
    }
    for (auto* other : device.GetModules<IAcquisition>()) {
        if (other->IsRunning()) {
            OVEX_LOG_ERROR("Failed to start %s, because %s is already running.", module->GetName(),
                           other->GetName());
            return OVEXSDK_ERR_BUSY;
        }
    }
    if (!chip->IsModeSet() || std::holds_alternative<std::monostate>(frontend->GetTrigger())) {
        OVEX_LOG_ERROR("Chip mode and/or trigger not configured.");
        return OVEXSDK_ERR_FAILED;
    }
    const std::optional<ChipInfo> info = chip->GetInfo();
    if (!info) {
        OVEX_LOG_ERROR("Cannot start acquisition because readout of chip info failed.");
        return OVEXSDK_ERR_FAILED;
    }
    acquisition::AcquisitionParams binning;
    if (mode == ToAToTDD && IsBinning(static_cast<std::uint8_t>(module->GetProcessMode()))) {
        const auto scan = ScanOf(params);
        if (!scan) {
            return OVEXSDK_ERR_INVALID;
        }
        binning = *scan;
    } else if (params != nullptr) {
        OVEX_LOG_DEBUG("Acquisition parameters are ignored for %s mode.", ChipModeName(mode));
    }
    const auto channels =
        static_cast<std::uint32_t>(flags) & (OVEXSDK_ACQ_RAW | OVEXSDK_ACQ_PROCESSED);
    auto callback = [&context, handle, data_cb, user](IAcquisition& source) {
        DeliverResult(context, handle, source, data_cb, user);
    };
    if (const auto ec = module->Start(*info, channels, binning, std::move(callback))) {
        OVEX_LOG_EC(log::kError, "Failed to start the acquisition - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

// The time a readout may take with the frontend's trigger, in seconds; nothing, after a log
// line, when no trigger with a usable duration is configured.
std::optional<double> ReadoutTimeout(IFrontend& frontend) {
    const TriggerRef trigger = frontend.GetTrigger();
    std::uint8_t type = 0;
    double duration = 0.0;
    if (const auto* internal = std::get_if<trigger::InternalTrigger*>(&trigger)) {
        type = (*internal)->GetType();
        duration = (*internal)->GetDuration();
    } else if (const auto* external = std::get_if<trigger::ExternalTrigger*>(&trigger)) {
        type = (*external)->GetType();
        duration = (*external)->GetDuration();
    } else {
        OVEX_LOG_ERROR("No trigger configured, the end of the readout cannot be awaited.");
        return std::nullopt;
    }
    if (type != 1 && type != 3) {
        return kEndlessReadout;
    }
    if (!(duration > 0.0)) {
        OVEX_LOG_ERROR(
            "The trigger's shutter duration is %g s, the end of the readout cannot be "
            "awaited.",
            duration);
        return std::nullopt;
    }
    return (duration * 1000.0 + 100.0) / 1000.0;
}

ovexsdk_err_code AcqAwaitEnd(Context& context) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    OVEX_LOG_INFO("Waiting for acquisition termination...");
    SdkDevice& device = *context.Device();
    auto* chip = device.GetModule<ITimepixChip>();
    if (chip == nullptr) {
        OVEX_LOG_ERROR("No chip present, nothing to await.");
        return OVEXSDK_ERR_FAILED;
    }
    IAcquisition* module = SelectAcquisition(device, chip->GetMode(), context.ProcessingMode());
    if (module == nullptr) {
        OVEX_LOG_ERROR("No acquisition available, nothing to await.");
        return OVEXSDK_ERR_FAILED;
    }
    auto* frontend = device.GetModule<IFrontend>();
    if (frontend == nullptr) {
        OVEX_LOG_ERROR("No frontend available for timeout calculation.");
        return OVEXSDK_ERR_FAILED;
    }
    const std::optional<double> timeout = ReadoutTimeout(*frontend);
    if (!timeout) {
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = module->AwaitReadoutEnd(*timeout)) {
        OVEX_LOG_EC(log::kError, "%s reported error - %s: %s.", ec, module->GetName());
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code AcqAbort(Context& context) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    SdkDevice& device = *context.Device();
    auto* frontend = device.GetModule<IFrontend>();
    if (frontend == nullptr) {
        OVEX_LOG_ERROR("Device doesn't have front-end module.");
        return OVEXSDK_ERR_NO_DEVICE;
    }
    OVEX_LOG_INFO("Stopping trigger for %s.", frontend->GetId().c_str());
    const TriggerRef trigger = frontend->GetTrigger();
    std::error_code last;
    if (const auto* internal = std::get_if<trigger::InternalTrigger*>(&trigger)) {
        last = (*internal)->Stop();
    } else if (const auto* external = std::get_if<trigger::ExternalTrigger*>(&trigger)) {
        last = (*external)->Stop();
    } else {
        OVEX_LOG_ERROR("Trigger not configured, nothing to abort.");
        return OVEXSDK_ERR_FAILED;
    }
    if (last) {
        OVEX_LOG_EC(log::kError, "Failed to disable the trigger - %s: %s.", last);
    }
    for (auto* module : device.GetModules<IAcquisition>()) {
        if (!module->IsRunning()) {
            continue;
        }
        last = module->Abort(IAcquisition::kAbortByClient);
        if (last) {
            OVEX_LOG_EC(log::kError, "Failed to abort data readout - %s: %s.", last);
        }
    }
    return last ? OVEXSDK_ERR_INVALID : OVEXSDK_OK;
}

// The result getters run inside the host's data callback, while the host's own thread may hold
// the device in ovexsdk_acq_await_end: they read the context's result and nothing else.
ovexsdk_err_code CheckResult(Context& context, AcquisitionResult::Tag tag) {
    const auto current = context.Acquisition().tag;
    if (current == AcquisitionResult::kEmpty) {
        OVEX_LOG_ERROR("There are no acquisition data.");
        return OVEXSDK_ERR_FAILED;
    }
    if (current != tag) {
        OVEX_LOG_ERROR("BUG: Invalid acquisition data variant.");
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

// A result that is a list of records: its address and length.
template <typename Record, AcquisitionResult::Tag kTag, auto kList>
ovexsdk_err_code AcqGetList(Context& context, const Record** output, std::uint64_t* count) {
    if (LogInvalidPointer(output, "output") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (const auto result = CheckResult(context, kTag)) {
        return result;
    }
    const auto& records = context.Acquisition().*kList;
    *output = records.data();
    *count = records.size();
    return OVEXSDK_OK;
}

constexpr auto AcqGetTpx2Frames =
    &AcqGetList<ovexsdk_acq_tpx2_frame, AcquisitionResult::kTpx2Frames,
                &AcquisitionResult::tpx2_frames>;
constexpr auto AcqGetItotEvcount =
    &AcqGetList<ovexsdk_acq_tpx3_itot_evcount, AcquisitionResult::kItotEvcount,
                &AcquisitionResult::itot_evcount>;

ovexsdk_err_code AcqGetToaTot(Context& context, ovexsdk_acq_tpx3_acq_toa_tot* output) {
    if (LogInvalidPointer(output, "output")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (const auto result = CheckResult(context, AcquisitionResult::kToaTot)) {
        return result;
    }
    *output = context.Acquisition().toa_tot;
    return OVEXSDK_OK;
}

ovexsdk_err_code AcqGetBins(Context& context, ovexsdk_tpx3_acq_itot_evcount_bins* output) {
    if (LogInvalidPointer(output, "output")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (const auto result = CheckResult(context, AcquisitionResult::kBinned)) {
        return result;
    }
    *output = context.Acquisition().bins;
    return OVEXSDK_OK;
}

// A fragment of the binned modes; with the complete binning it is one of its value lists.
template <typename Fragment, AcquisitionResult::Tag kTag, Fragment AcquisitionResult::*kFragment,
          const std::uint64_t* ovexsdk_tpx3_acq_itot_evcount_bins::*kValues,
          std::uint64_t ovexsdk_tpx3_acq_itot_evcount_bins::*kCount>
ovexsdk_err_code AcqGetFragment(Context& context, Fragment* output) {
    if (LogInvalidPointer(output, "output")) {
        return OVEXSDK_ERR_INVALID;
    }
    const AcquisitionResult& result = context.Acquisition();
    const bool complete = context.ProcessingMode() == BinCompletely;
    if (const auto failed = CheckResult(context, complete ? AcquisitionResult::kBinned : kTag)) {
        return failed;
    }
    *output = complete ? Fragment{result.bins.*kValues, result.bins.*kCount} : result.*kFragment;
    return OVEXSDK_OK;
}

using Bins = ovexsdk_tpx3_acq_itot_evcount_bins;
constexpr auto AcqGetItotFragment =
    &AcqGetFragment<ovexsdk_acq_tpx3_itot_fragment, AcquisitionResult::kItotFragment,
                    &AcquisitionResult::itot_fragment, &Bins::itots, &Bins::itot_count>;
constexpr auto AcqGetEvcountFragment =
    &AcqGetFragment<ovexsdk_acq_tpx3_evcount_fragment, AcquisitionResult::kEvcountFragment,
                    &AcquisitionResult::evcount_fragment, &Bins::events, &Bins::event_count>;

ovexsdk_err_code AcqGetRawData(Context& context, const ovexsdk_acq_raw_data** buffer,
                               std::uint64_t* count) {
    if (LogInvalidPointer(buffer, "buffer") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    const auto& raw = context.Acquisition().raw;
    if (!raw) {
        OVEX_LOG_ERROR("There are no raw acquisition data.");
        return OVEXSDK_ERR_FAILED;
    }
    *buffer = raw->data();
    *count = raw->size();
    return OVEXSDK_OK;
}

}  // namespace

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_select_processing(ovexsdk_dev_ctx* ctx,
                                                           ovexsdk_acq_process_mode mode) {
    return OVEXSDK_FRAME(&Exclusive<&AcqSelectProcessing>::Call, ctx, mode);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_start(ovexsdk_dev_ctx* ctx,
                                               void (*data_cb)(ovexsdk_dev_ctx*, void*),
                                               ovexsdk_acq_mode_flag flags,
                                               const ovexsdk_acq_params* params, void* user) {
    return OVEXSDK_FRAME(&Exclusive<&AcqStart>::Call, ctx, ctx, data_cb, flags, params, user);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_await_end(ovexsdk_dev_ctx* ctx) {
    return OVEXSDK_FRAME(&Exclusive<&AcqAwaitEnd>::Call, ctx);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_abort(ovexsdk_dev_ctx* ctx) {
    return OVEXSDK_FRAME(&Exclusive<&AcqAbort>::Call, ctx);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx2_frames(ovexsdk_dev_ctx* ctx,
                                                         const ovexsdk_acq_tpx2_frame** output,
                                                         uint64_t* count) {
    return OVEXSDK_FRAME(AcqGetTpx2Frames, ctx, output, count);
}

OVEXSDK_API ovexsdk_err_code
ovexsdk_acq_get_tpx3_toa_tot_packets(ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_acq_toa_tot* output) {
    return OVEXSDK_FRAME(&AcqGetToaTot, ctx, output);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_itot_evcount_packets(
    ovexsdk_dev_ctx* ctx, const ovexsdk_acq_tpx3_itot_evcount** output, uint64_t* count) {
    return OVEXSDK_FRAME(AcqGetItotEvcount, ctx, output, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_itot_evcount_bins(
    ovexsdk_dev_ctx* ctx, ovexsdk_tpx3_acq_itot_evcount_bins* output) {
    return OVEXSDK_FRAME(&AcqGetBins, ctx, output);
}

OVEXSDK_API ovexsdk_err_code
ovexsdk_acq_get_tpx3_itot_fragment(ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_itot_fragment* output) {
    return OVEXSDK_FRAME(AcqGetItotFragment, ctx, output);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_evcount_fragment(
    ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_evcount_fragment* output) {
    return OVEXSDK_FRAME(AcqGetEvcountFragment, ctx, output);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_raw_data(ovexsdk_dev_ctx* ctx,
                                                      const ovexsdk_acq_raw_data** buffer,
                                                      uint64_t* count) {
    return OVEXSDK_FRAME(&AcqGetRawData, ctx, buffer, count);
}

}  // extern "C"
