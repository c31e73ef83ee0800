#pragma once

// The five data-driven Timepix3 modes: each a pipeline, and a way of telling that a readout is
// over. The record modes hand on a block at a time and end with the first short transfer unless
// the readout is continuous; the binned modes cut a scan into lines, each ended by a short
// transfer, and end with the last line.

#include <cstdint>
#include <memory>
#include <system_error>
#include <variant>

#include "impl/acquisition/tpx3_acq_data_driven.hpp"
#include "ovex/log/log.hpp"
#include "tpx3_pipeline/pipelines.hpp"

namespace ovex::sdk::acquisition {

// Records with extended times, as blocks in arrival order or in time order.
template <typename Pipeline>
class Tpx3AcqDDRecords : public Tpx3AcqDataDriven<Pipeline> {
public:
    using Tpx3AcqDataDriven<Pipeline>::Tpx3AcqDataDriven;

    std::error_code SetParameters(const AcquisitionParams& /*params*/) override { return {}; }
    std::uint64_t GetArenaBytes() const override { return 1258291; }
    // A Stop item without a block gives no callback.
    bool StoreResult(typename Pipeline::OutItem& item) override {
        if (!item.block) {
            return false;
        }
        this->SetCurrent(item.block.get());
        return true;
    }
    bool OnBlock(bool ended_short) override { return !ended_short || this->Continuous(); }

protected:
    AcquisitionDataKind Kind() const override { return AcquisitionDataKind::kToaTotBlock; }
};

// A scan's lines cut into bins of one dwell time, a value per bin.
template <typename Pipeline, AcquisitionDataKind DataKind>
class Tpx3AcqDDBinned : public Tpx3AcqDataDriven<Pipeline> {
public:
    using Tpx3AcqDataDriven<Pipeline>::Tpx3AcqDataDriven;

    std::error_code SetParameters(const AcquisitionParams& params) override {
        const auto* scan = std::get_if<ScanParameters>(&params);
        if (scan == nullptr) {
            OVEX_LOG_ERROR("BUG: Provided parameters are of incorrect type.");
            return std::make_error_code(std::errc::invalid_argument);
        }
        m_scan = *scan;
        m_lines_received = 0;
        return {};
    }
    std::unique_ptr<Pipeline> CreatePipeline() override {
        tpx3_pipeline::PipelineOptions options;
        options.binning = {m_scan.bin_width, m_scan.bins_per_line, m_scan.lines};
        return std::make_unique<Pipeline>(options);
    }
    std::uint64_t GetArenaBytes() const override { return 0x600000; }
    // Every item with a value gives a callback, the Stop item's last fragment too.
    bool StoreResult(typename Pipeline::OutItem& item) override {
        if (!item.value) {
            return false;
        }
        this->SetCurrent(item.value.get());
        return true;
    }
    bool OnBlock(bool ended_short) override {
        if (ended_short) {
            ++m_lines_received;
            OVEX_LOG_DEBUG("One scan line data received (%d/%d).",
                           static_cast<int>(m_lines_received), static_cast<int>(m_scan.lines));
        }
        if (m_lines_received != m_scan.lines) {
            return true;
        }
        m_lines_received = 0;
        OVEX_LOG_DEBUG("Full scan data received.");
        return false;
    }

protected:
    AcquisitionDataKind Kind() const override { return DataKind; }

private:
    ScanParameters m_scan;
    std::uint32_t m_lines_received = 0;  // the Consumer's alone while a readout runs
};

class Tpx3AcqDDToAToT final : public Tpx3AcqDDRecords<tpx3_pipeline::ExtendedPipeline> {
public:
    using Tpx3AcqDDRecords::Tpx3AcqDDRecords;
    ~Tpx3AcqDDToAToT() override { Shutdown(); }
    const char* GetName() const override { return "Timepix3 data-driven ToA+ToT acquisition"; }
    ovexsdk_acq_process_mode GetProcessMode() const override { return DefaultProcessing; }
};

class Tpx3AcqDDToAToTSorted final : public Tpx3AcqDDRecords<tpx3_pipeline::SortedPipeline> {
public:
    using Tpx3AcqDDRecords::Tpx3AcqDDRecords;
    ~Tpx3AcqDDToAToTSorted() override { Shutdown(); }
    const char* GetName() const override {
        return "Timepix3 data-driven sorted ToA+ToT acquisition";
    }
    ovexsdk_acq_process_mode GetProcessMode() const override { return SortByToa; }
};

class Tpx3AcqDDEvCountSum final : public Tpx3AcqDDBinned<tpx3_pipeline::CountSumsPipeline,
                                                         AcquisitionDataKind::kEventCountFragment> {
public:
    using Tpx3AcqDDBinned::Tpx3AcqDDBinned;
    ~Tpx3AcqDDEvCountSum() override { Shutdown(); }
    const char* GetName() const override {
        return "Timepix3 data-driven acquisition with binned event count sum image";
    }
    ovexsdk_acq_process_mode GetProcessMode() const override { return BinEvcountImage; }
};

class Tpx3AcqDDIToTSum final
    : public Tpx3AcqDDBinned<tpx3_pipeline::ItotSumsPipeline, AcquisitionDataKind::kItotFragment> {
public:
    using Tpx3AcqDDBinned::Tpx3AcqDDBinned;
    ~Tpx3AcqDDIToTSum() override { Shutdown(); }
    const char* GetName() const override {
        return "Timepix3 data-driven acquisition with iToT sum image";
    }
    ovexsdk_acq_process_mode GetProcessMode() const override { return BinItotImage; }
};

class Tpx3AcqDDiToTEvCountBins final : public Tpx3AcqDDBinned<tpx3_pipeline::BinnedPacketsPipeline,
                                                              AcquisitionDataKind::kBinnedPackets> {
public:
    using Tpx3AcqDDBinned::Tpx3AcqDDBinned;
    ~Tpx3AcqDDiToTEvCountBins() override { Shutdown(); }
    const char* GetName() const override {
        return "Timepix3 data-driven acquisition with complete binning";
    }
    ovexsdk_acq_process_mode GetProcessMode() const override { return BinCompletely; }
};

}  // namespace ovex::sdk::acquisition
