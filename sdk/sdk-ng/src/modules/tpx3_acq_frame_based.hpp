#pragma once

// The Timepix3 frame-based modes: after each shutter the chip reads out its hit pixels as one
// zero-suppressed block of packets, which arrives as one USB transfer cut short. A Consumer
// thread takes the blocks from the vector provider, turns each into records and calls the
// client with them.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "impl/acquisition/data_provider.hpp"
#include "modules/acquisition.hpp"
#include "modules/vector_readout.hpp"
#include "tpx3_toa_extension/utils/packet_unpack.hpp"

namespace ovex::sdk::acquisition {

class Tpx3AcqFrameBased : public VectorReadout {
public:
    // The transfer size: a frame in which every pixel is hit (65536 packets) fits one transfer,
    // so a whole frame always ends with a short one.
    static constexpr std::uint32_t FrameBufferSize = 0x60400;

    Tpx3AcqFrameBased(Commands* commands, std::shared_ptr<IVectorDataProvider> provider);
    ~Tpx3AcqFrameBased() override;

    std::error_code Start(const ChipInfo& chip_info, std::uint32_t flags,
                          const AcquisitionParams& params, Callback callback) override;
    std::error_code SetPixelDepth(std::uint8_t depth) override;
    std::vector<RawSpan> GetRawData() override;
    std::error_code SetFrameCount(std::int64_t count) override;
    ovexsdk_acq_process_mode GetProcessMode() const override { return DefaultProcessing; }

    // False once the block ends the readout: a short transfer, unless the readout is continuous.
    virtual bool IsMoreDataExpected(std::span<const std::byte> buffer);
    // Turns the block into records in place of the previous ones; true if a callback is due.
    // Throws std::domain_error for a packet that has no place in a frame.
    virtual bool ProcessBuffer(std::span<const std::byte> buffer) = 0;

private:
    using Buffer = std::shared_ptr<std::vector<std::byte>>;

    void Consume();
    void ConsumeBuffer(const Buffer& buffer);
    void LogReadoutEnd() const override;

    // The raw spans of the current callback and the transfers that hold their bytes.
    std::vector<RawSpan> m_raw;
    std::vector<Buffer> m_raw_buffers;
    Callback m_callback;
    bool m_keep_raw = false;
    std::atomic<bool> m_continuous{false};
};

// A frame-based mode whose records the sink `Unpack` makes from a block.
template <typename Record, AcquisitionDataKind Kind,
          std::size_t (*Unpack)(std::span<const std::uint8_t>, Record*), const char* Name,
          ovexsdk_chip_mode Mode>
class Tpx3AcqFrameRecords : public Tpx3AcqFrameBased {
public:
    using Tpx3AcqFrameBased::Tpx3AcqFrameBased;

    const char* GetName() const override { return Name; }
    std::set<ovexsdk_chip_mode> GetSupportedModes() const override { return {Mode}; }
    AcquisitionData GetData() override { return {&m_store, Kind}; }

    bool ProcessBuffer(std::span<const std::byte> buffer) override {
        const std::span<const std::uint8_t> bytes(
            reinterpret_cast<const std::uint8_t*>(buffer.data()), buffer.size());
        m_store.records.resize(bytes.size() / tpx3_toa_extension::TPX3_PACKET_SIZE);
        m_store.count = 0;
        m_store.count = Unpack(bytes, m_store.records.data());
        return true;
    }

private:
    FrameRecords<Record> m_store;
};

inline constexpr char kFBToaTotName[] = "Timepix3 frame-based ToA+ToT acquisition";
inline constexpr char kFBItotName[] =
    "Timepix3 frame-based integrated time over threshold acquisition";

class Tpx3AcqFBToAToT final
    : public Tpx3AcqFrameRecords<
          tpx3_toa_extension::FrameToaTotRecord, AcquisitionDataKind::kFrameToaTot,
          &tpx3_toa_extension::UnpackFrameToaTot, kFBToaTotName, ToAToTFBZS> {
public:
    using Tpx3AcqFrameRecords::Tpx3AcqFrameRecords;
    ~Tpx3AcqFBToAToT() override { Shutdown(); }
};

class Tpx3AcqFBIToTEvCnt final
    : public Tpx3AcqFrameRecords<
          tpx3_toa_extension::FrameItotEventRecord, AcquisitionDataKind::kFrameItotEvents,
          &tpx3_toa_extension::UnpackFrameItotEvents, kFBItotName, IToTEvCountFBZS> {
public:
    using Tpx3AcqFrameRecords::Tpx3AcqFrameRecords;
    ~Tpx3AcqFBIToTEvCnt() override { Shutdown(); }
};

}  // namespace ovex::sdk::acquisition
