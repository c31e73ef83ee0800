// What the data callback reads from its acquisition record: the result of the readout in the
// shapes of the older interface. Joined copies live in the record until the callback returns.

#include <algorithm>
#include <new>
#include <utility>

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

// Which records the record's mode pair makes.
enum class Packets { kToaTot, kItotEvcount, kBinned, kNone };

Packets PacketsOf(const ovex_acq& acquisition) {
    const auto chip = acquisition.chip_mode;
    const auto processing = acquisition.processing_mode;
    if ((chip == ToAToTDD && (processing == DefaultProcessing || processing == SortByToa)) ||
        (chip == ToAToTFBZS && processing == DefaultProcessing)) {
        return Packets::kToaTot;
    }
    if (chip == IToTEvCountFBZS && processing == DefaultProcessing) {
        return Packets::kItotEvcount;
    }
    if (chip == ToAToTDD && processing == BinCompletely) {
        return Packets::kBinned;
    }
    return Packets::kNone;
}

bool IsCompleteBinning(const ovex_acq& acquisition) {
    return PacketsOf(acquisition) == Packets::kBinned;
}

// The bins' pixel records lie one after the other: they start with the first bin that has any.
const ovexsdk_tpx3_pixel_bin_record* FirstBinRecord(
    const ovexsdk_tpx3_acq_itot_evcount_bins& bins) {
    for (std::uint64_t i = 0; i < bins.bin_count; ++i) {
        if (bins.bins[i].count != 0) {
            return bins.bins[i].pixels;
        }
    }
    return nullptr;
}

// Replaces `buffer` with a heap copy of `count` elements gathered by `fill`; null when out of
// memory, and then the old buffer stays.
template <class T, class Fill>
T* Replace(T*& buffer, std::uint64_t count, Fill fill) {
    T* joined = new (std::nothrow) T[count];
    if (joined == nullptr) {
        return nullptr;
    }
    fill(joined);
    delete[] buffer;
    buffer = joined;
    return joined;
}

// Replaces `buffer` with the parts of the result that `get_parts` lists, joined in order;
// `span_of(part)` gives a part's elements and their number, `total` gets the elements joined.
template <class T, class Part, class SpanOf>
std::int32_t JoinParts(ovex_acq* acquisition, T*& buffer,
                       ovexsdk_err_code (*get_parts)(ovexsdk_dev_ctx*, const Part**,
                                                     std::uint64_t*),
                       SpanOf span_of, std::uint64_t& total) {
    const Part* parts = nullptr;
    std::uint64_t count = 0;
    const ovexsdk_err_code listed = get_parts(acquisition->context, &parts, &count);
    if (listed != OVEXSDK_OK) {
        return Map(listed);
    }
    total = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        total += span_of(parts[i]).second;
    }
    const T* joined = Replace(buffer, total, [&](T* out) {
        for (std::uint64_t i = 0; i < count; ++i) {
            const auto [data, size] = span_of(parts[i]);
            out = std::copy_n(data, size, out);
        }
    });
    return joined == nullptr ? OVEX_ERR_NO_MEMORY : OVEX_OK;
}

// One field of a result the current interface fills into `Record`, written to `out` when the
// getter succeeds.
template <class Record, class Out, class Field>
std::int32_t Answer(ovex_acq* acquisition, Out* out,
                    ovexsdk_err_code (*get)(ovexsdk_dev_ctx*, Record*), Field field) {
    if (AnyNull(acquisition, out)) {
        return OVEX_ERR_HANDLE;
    }
    Record record{};
    const ovexsdk_err_code result = get(acquisition->context, &record);
    if (result == OVEXSDK_OK) {
        *out = field(record);
    }
    return Map(result);
}

std::int32_t TdcList(ovex_acq* acquisition, std::uint32_t channel,
                     ovexsdk_acq_tpx3_tdc_list& list) {
    ovexsdk_acq_tpx3_acq_toa_tot result{};
    const ovexsdk_err_code got =
        ovexsdk_acq_get_tpx3_toa_tot_packets(acquisition->context, &result);
    if (got != OVEXSDK_OK) {
        return Map(got);
    }
    if (result.tdc_lists == nullptr || result.tdc_list_count == 0) {
        return OVEX_ERR_UNAVAILABLE;
    }
    if (channel >= result.tdc_list_count) {
        return OVEX_ERR_HANDLE;
    }
    list = result.tdc_lists[channel];
    return OVEX_OK;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_acq_raw_get_data(ovex_acq* acquisition, const uint8_t** data,
                                          uint64_t* size) {
    if (AnyNull(acquisition, data, size)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint64_t total = 0;
    const std::int32_t joined = JoinParts(
        acquisition, acquisition->raw, &ovexsdk_acq_get_raw_data,
        [](const ovexsdk_acq_raw_data& part) { return std::pair(part.data, part.size); }, total);
    if (joined == OVEX_OK) {
        *data = acquisition->raw;
        *size = total;
    }
    return joined;
}

OVEXSDK_API int32_t ovex_acq_tpx2_get_frame_count(ovex_acq* acquisition, uint32_t* count) {
    if (AnyNull(acquisition, count)) {
        return OVEX_ERR_HANDLE;
    }
    const ovexsdk_acq_tpx2_frame* frames = nullptr;
    std::uint64_t frame_count = 0;
    const ovexsdk_err_code result =
        ovexsdk_acq_get_tpx2_frames(acquisition->context, &frames, &frame_count);
    if (result == OVEXSDK_OK) {
        *count = static_cast<std::uint32_t>(frame_count);
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_acq_tpx2_get_event_frames(ovex_acq* acquisition, const uint16_t** data) {
    if (AnyNull(acquisition, data)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint64_t pixels = 0;
    const std::int32_t joined = JoinParts(
        acquisition, acquisition->frames, &ovexsdk_acq_get_tpx2_frames,
        [](const ovexsdk_acq_tpx2_frame& part) { return std::pair(part.pixels, part.count); },
        pixels);
    if (joined == OVEX_OK) {
        *data = acquisition->frames;
    }
    return joined;
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_packet_count(ovex_acq* acquisition, uint32_t* count) {
    if (AnyNull(acquisition, count)) {
        return OVEX_ERR_HANDLE;
    }
    switch (PacketsOf(*acquisition)) {
        case Packets::kToaTot: {
            ovexsdk_acq_tpx3_acq_toa_tot result{};
            const ovexsdk_err_code got =
                ovexsdk_acq_get_tpx3_toa_tot_packets(acquisition->context, &result);
            if (got == OVEXSDK_OK) {
                *count = static_cast<std::uint32_t>(result.count);
            }
            return Map(got);
        }
        case Packets::kItotEvcount: {
            const ovexsdk_acq_tpx3_itot_evcount* records = nullptr;
            std::uint64_t records_count = 0;
            const ovexsdk_err_code got = ovexsdk_acq_get_tpx3_itot_evcount_packets(
                acquisition->context, &records, &records_count);
            if (got == OVEXSDK_OK) {
                *count = static_cast<std::uint32_t>(records_count);
            }
            return Map(got);
        }
        case Packets::kBinned: {
            ovexsdk_tpx3_acq_itot_evcount_bins bins{};
            const ovexsdk_err_code got =
                ovexsdk_acq_get_tpx3_itot_evcount_bins(acquisition->context, &bins);
            if (got == OVEXSDK_OK) {
                std::uint64_t records = 0;
                for (std::uint64_t i = 0; i < bins.bin_count; ++i) {
                    records += bins.bins[i].count;
                }
                *count = static_cast<std::uint32_t>(records);
            }
            return Map(got);
        }
        case Packets::kNone:
            break;
    }
    return OVEX_ERR_UNAVAILABLE;
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_packets(ovex_acq* acquisition, const void** data) {
    if (AnyNull(acquisition, data)) {
        return OVEX_ERR_HANDLE;
    }
    switch (PacketsOf(*acquisition)) {
        case Packets::kToaTot: {
            ovexsdk_acq_tpx3_acq_toa_tot result{};
            const ovexsdk_err_code got =
                ovexsdk_acq_get_tpx3_toa_tot_packets(acquisition->context, &result);
            if (got != OVEXSDK_OK) {
                return Map(got);
            }
            if (result.records == nullptr) {
                return OVEX_ERR_UNAVAILABLE;
            }
            *data = result.records;
            return OVEX_OK;
        }
        case Packets::kItotEvcount: {
            const ovexsdk_acq_tpx3_itot_evcount* records = nullptr;
            std::uint64_t records_count = 0;
            const ovexsdk_err_code got = ovexsdk_acq_get_tpx3_itot_evcount_packets(
                acquisition->context, &records, &records_count);
            if (got != OVEXSDK_OK) {
                return Map(got);
            }
            if (records == nullptr) {
                return OVEX_ERR_UNAVAILABLE;
            }
            *data = records;
            return OVEX_OK;
        }
        case Packets::kBinned: {
            ovexsdk_tpx3_acq_itot_evcount_bins bins{};
            const ovexsdk_err_code got =
                ovexsdk_acq_get_tpx3_itot_evcount_bins(acquisition->context, &bins);
            if (got == OVEXSDK_OK) {
                *data = FirstBinRecord(bins);
            }
            return Map(got);
        }
        case Packets::kNone:
            break;
    }
    return OVEX_ERR_UNAVAILABLE;
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_binned_hitcounters(ovex_acq* acquisition,
                                                         const uint64_t** data) {
    return Answer(acquisition, data, &ovexsdk_acq_get_tpx3_evcount_fragment,
                  [](const ovexsdk_acq_tpx3_evcount_fragment& record) { return record.events; });
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_binned_hitcounters_count(ovex_acq* acquisition,
                                                               uint32_t* count) {
    return Answer(acquisition, count, &ovexsdk_acq_get_tpx3_evcount_fragment,
                  [](const ovexsdk_acq_tpx3_evcount_fragment& record) {
                      return static_cast<std::uint32_t>(record.count);
                  });
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_binned_itots(ovex_acq* acquisition, const uint64_t** data) {
    return Answer(acquisition, data, &ovexsdk_acq_get_tpx3_itot_fragment,
                  [](const ovexsdk_acq_tpx3_itot_fragment& record) { return record.itots; });
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_binned_itots_count(ovex_acq* acquisition, uint32_t* count) {
    return Answer(acquisition, count, &ovexsdk_acq_get_tpx3_itot_fragment,
                  [](const ovexsdk_acq_tpx3_itot_fragment& record) {
                      return static_cast<std::uint32_t>(record.count);
                  });
}

OVEXSDK_API int32_t ovex_acq_meta_get_shutter_rising_time_ticks(ovex_acq* acquisition,
                                                                uint64_t* ticks) {
    return Answer(acquisition, ticks, &ovexsdk_acq_get_tpx3_toa_tot_packets,
                  [](const ovexsdk_acq_tpx3_acq_toa_tot& record) {
                      return record.shutter_rising_time_ticks;
                  });
}

OVEXSDK_API int32_t ovex_acq_meta_get_tdc_info(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_acq_tpx3_acq_toa_tot result{};
    const ovexsdk_err_code got = ovexsdk_acq_get_tpx3_toa_tot_packets(&ctx->context, &result);
    if (got == OVEXSDK_OK) {
        *count = static_cast<std::uint32_t>(result.tdc_list_count);
    }
    return Map(got);
}

OVEXSDK_API int32_t ovex_acq_meta_get_tdc_toas(ovex_acq* acquisition, uint32_t channel,
                                               const uint64_t** data) {
    if (AnyNull(acquisition, data)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_acq_tpx3_tdc_list list{};
    const std::int32_t result = TdcList(acquisition, channel, list);
    if (result == OVEX_OK) {
        *data = list.stamps;
    }
    return result;
}

OVEXSDK_API int32_t ovex_acq_meta_get_tdc_toas_count(ovex_acq* acquisition, uint32_t channel,
                                                     uint32_t* count) {
    if (AnyNull(acquisition, count)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_acq_tpx3_tdc_list list{};
    const std::int32_t result = TdcList(acquisition, channel, list);
    if (result == OVEX_OK) {
        *count = static_cast<std::uint32_t>(list.count);
    }
    return result;
}

OVEXSDK_API int32_t ovex_acq_meta_get_bin_descriptor_count(ovex_acq* acquisition, uint32_t* count) {
    if (AnyNull(acquisition, count)) {
        return OVEX_ERR_HANDLE;
    }
    if (!IsCompleteBinning(*acquisition)) {
        return OVEX_ERR_UNAVAILABLE;
    }
    ovexsdk_tpx3_acq_itot_evcount_bins bins{};
    const ovexsdk_err_code result =
        ovexsdk_acq_get_tpx3_itot_evcount_bins(acquisition->context, &bins);
    if (result == OVEXSDK_OK) {
        *count = static_cast<std::uint32_t>(bins.bin_count);
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_acq_meta_get_bin_descriptors(ovex_acq* acquisition,
                                                      const ovex_bin_descriptor** data) {
    if (AnyNull(acquisition, data)) {
        return OVEX_ERR_HANDLE;
    }
    if (!IsCompleteBinning(*acquisition)) {
        return OVEX_ERR_UNAVAILABLE;
    }
    ovexsdk_tpx3_acq_itot_evcount_bins bins{};
    const ovexsdk_err_code result =
        ovexsdk_acq_get_tpx3_itot_evcount_bins(acquisition->context, &bins);
    if (result != OVEXSDK_OK) {
        return Map(result);
    }
    const auto* descriptors =
        Replace(acquisition->bins, bins.bin_count, [&](LegacyBinDescriptor* out) {
            std::uint32_t first = 0;
            for (std::uint64_t i = 0; i < bins.bin_count; ++i) {
                out[i] = {first, static_cast<std::uint32_t>(bins.bins[i].count)};
                first += out[i].count;
            }
        });
    if (descriptors == nullptr) {
        return OVEX_ERR_NO_MEMORY;
    }
    *data = descriptors;
    return OVEX_OK;
}

}  // extern "C"
