// The data-driven modes of a powered virtual Timepix3 board through the exported interface: each
// processing mode finds its module, starts, stops and hands its results to the host's callback
// through the getter of its kind; scans need their parameters.

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "support/chip_session.hpp"

namespace ovex::sdk::testing {
namespace {

// What each callback of a readout could read, by getter.
struct Seen {
    std::mutex mutex;
    int callbacks = 0;
    std::vector<ovexsdk_err_code> toa_tot, itot, evcount, bins;
};

void OnResult(ovexsdk_dev_ctx* ctx, void* user) {
    auto& seen = *static_cast<Seen*>(user);
    ovexsdk_acq_tpx3_acq_toa_tot toa_tot{};
    ovexsdk_acq_tpx3_itot_fragment itot{};
    ovexsdk_acq_tpx3_evcount_fragment evcount{};
    ovexsdk_tpx3_acq_itot_evcount_bins bins{};
    std::lock_guard lock(seen.mutex);
    ++seen.callbacks;
    seen.toa_tot.push_back(ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &toa_tot));
    seen.itot.push_back(ovexsdk_acq_get_tpx3_itot_fragment(ctx, &itot));
    seen.evcount.push_back(ovexsdk_acq_get_tpx3_evcount_fragment(ctx, &evcount));
    seen.bins.push_back(ovexsdk_acq_get_tpx3_itot_evcount_bins(ctx, &bins));
}

class DataDrivenSession : public ChipSession {
protected:
    void SetUp() override {
        ChipSession::SetUp();
        OpenPowered();
        ASSERT_EQ(ovexsdk_chip_configure(&m_ctx, 0), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTDD), OVEXSDK_OK);
        const ovexsdk_trigger_config level{ExternalStartExternalStopLevel, 0};
        ASSERT_EQ(ovexsdk_trigger_configure(&m_ctx, &level), OVEXSDK_OK);
    }

    // A readout of `mode` started and aborted: what its callbacks could read.
    void StartAndAbort(ovexsdk_acq_process_mode mode, const ovexsdk_acq_params* params,
                       Seen& seen) {
        ASSERT_EQ(ovexsdk_acq_select_processing(&m_ctx, mode), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_acq_start(&m_ctx, &OnResult, OVEXSDK_ACQ_PROCESSED, params, &seen),
                  OVEXSDK_OK);
        EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
        EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    }
};

TEST_F(DataDrivenSession, EachProcessingModeRunsItsModuleAndItsGetterReadsItsResult) {
    const auto modes = Engine().Invocations("TPX_OPMODE");
    ASSERT_FALSE(modes.empty());
    EXPECT_EQ(modes.back(), std::vector<std::uint8_t>{1}) << "the chip streams its hits";
    ovexsdk_acq_params scan{};
    scan.scan = {20, 3, 1000};

    // Without data the record modes have nothing to give; the Stop of a scan still gives its
    // last, empty fragment.
    for (const auto mode : {DefaultProcessing, SortByToa}) {
        Seen seen;
        StartAndAbort(mode, nullptr, seen);
        EXPECT_EQ(seen.callbacks, 0) << mode;
    }
    Seen counts;
    StartAndAbort(BinEvcountImage, &scan, counts);
    ASSERT_EQ(counts.callbacks, 1);
    EXPECT_EQ(counts.evcount[0], OVEXSDK_OK);
    EXPECT_EQ(counts.itot[0], OVEXSDK_ERR_FAILED);
    EXPECT_EQ(counts.toa_tot[0], OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError, "BUG: Invalid acquisition data variant."));

    Seen itot;
    StartAndAbort(BinItotImage, &scan, itot);
    ASSERT_EQ(itot.callbacks, 1);
    EXPECT_EQ(itot.itot[0], OVEXSDK_OK);
    EXPECT_EQ(itot.evcount[0], OVEXSDK_ERR_FAILED);

    // The complete binning answers all three of its getters.
    Seen complete;
    StartAndAbort(BinCompletely, &scan, complete);
    ASSERT_EQ(complete.callbacks, 1);
    EXPECT_EQ(complete.bins[0], OVEXSDK_OK);
    EXPECT_EQ(complete.itot[0], OVEXSDK_OK);
    EXPECT_EQ(complete.evcount[0], OVEXSDK_OK);
    EXPECT_EQ(complete.toa_tot[0], OVEXSDK_ERR_FAILED);
}

TEST_F(DataDrivenSession, ScansNeedTheirParametersAndFrameModesNoneOfThese) {
    ASSERT_EQ(ovexsdk_acq_select_processing(&m_ctx, BinCompletely), OVEXSDK_OK);
    Seen seen;
    EXPECT_EQ(ovexsdk_acq_start(&m_ctx, &OnResult, OVEXSDK_ACQ_PROCESSED, nullptr, &seen),
              OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(m_log.Contains(log::kError, "No scan parameters provided."));
    ovexsdk_acq_params zero{};
    zero.scan = {20, 0, 1000};
    EXPECT_EQ(ovexsdk_acq_start(&m_ctx, &OnResult, OVEXSDK_ACQ_PROCESSED, &zero, &seen),
              OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(
        m_log.Contains(log::kError, "One or more of the scan parameters is missing/set to zero."));

    // A second start while the first runs is refused, naming both.
    ASSERT_EQ(ovexsdk_acq_select_processing(&m_ctx, SortByToa), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_acq_start(&m_ctx, &OnResult, OVEXSDK_ACQ_PROCESSED, nullptr, &seen),
              OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_acq_start(&m_ctx, &OnResult, OVEXSDK_ACQ_PROCESSED, nullptr, &seen),
              OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Failed to start Timepix3 data-driven sorted ToA+ToT acquisition, "
                               "because Timepix3 data-driven sorted ToA+ToT acquisition is already "
                               "running."));
    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);

    // The fragment getters outside a callback.
    ovexsdk_acq_tpx3_itot_fragment itot{};
    EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_fragment(&m_ctx, &itot), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_fragment(&m_ctx, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_evcount_bins(&m_ctx, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_acq_get_tpx3_evcount_fragment(nullptr, nullptr), OVEXSDK_ERR_INVALID);
}

}  // namespace
}  // namespace ovex::sdk::testing
