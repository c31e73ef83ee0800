#pragma once

// The Timepix2 acquisition: after each shutter the board sends every pixel of the matrix,
// bit-packed at the depth of the chip mode. A Consumer thread takes the transfers from the vector
// provider, cuts them into frames, unpacks each into 16-bit pixels and calls the client with it.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "impl/acquisition/data_provider.hpp"
#include "impl/acquisition/frame_assembler.hpp"
#include "impl/acquisition/tpx2_descramblers.hpp"
#include "modules/acquisition.hpp"
#include "modules/vector_readout.hpp"

namespace ovex::sdk::acquisition {

// What a Timepix2 result holds during the client's callback: the finished frames and the
// received buffers behind the raw spans.
struct Tpx2FrameStore {
    std::vector<std::span<const std::uint16_t>> frames;
    std::vector<std::unique_ptr<std::vector<std::uint16_t>>> frame_buffers;
    std::vector<RawSpan> raw_spans;
    std::vector<std::shared_ptr<std::vector<std::byte>>> raw_buffers;
};

// Bit 1 of the start flags: unpack the frames; without it the client gets the raw bytes alone.
inline constexpr std::uint32_t kDescrambleFrames = 2;

class Tpx2Acquisition final : public VectorReadout {
public:
    explicit Tpx2Acquisition(std::shared_ptr<IVectorDataProvider> provider);
    ~Tpx2Acquisition() override;

    const char* GetName() const override { return "Timepix 2 acquisition"; }
    std::error_code Start(const ChipInfo& chip_info, std::uint32_t flags,
                          const AcquisitionParams& params, Callback callback) override;
    std::error_code SetPixelDepth(std::uint8_t depth) override;
    AcquisitionData GetData() override { return {&m_store, AcquisitionDataKind::kTpx2Frames}; }
    std::vector<RawSpan> GetRawData() override { return m_store.raw_spans; }
    // 1 keeps one transfer in flight; any other count 32. −1: until aborted.
    std::error_code SetFrameCount(std::int64_t count) override;
    std::set<ovexsdk_chip_mode> GetSupportedModes() const override {
        return {EvCount8Bit, EvCount10Bit, EvCount14Bit, IToT10Bit, IToT14Bit};
    }
    ovexsdk_acq_process_mode GetProcessMode() const override { return DefaultProcessing; }

    // Bytes the board sent that made no whole frame, in the last readout.
    std::uint64_t DroppedBytes() const noexcept { return m_dropped.load(); }

private:
    using Buffer = std::shared_ptr<std::vector<std::byte>>;

    void Consume(std::uint32_t flags, std::uint64_t pixels);
    // Takes the run's transfers until its end item.
    void ConsumeRun(std::uint32_t flags, std::uint64_t pixels);
    // Ends a readout whose Consumer failed with `status`.
    void EndAfterFailure(const char* what, std::errc status);
    // Takes one transfer; true once the readout has all its frames.
    bool ConsumeBuffer(const Buffer& buffer, std::uint32_t flags, std::uint64_t pixels);
    // Keeps in the store the raw buffers of the bytes that the assembler holds after `buffer`.
    void KeepRaw(const Buffer& buffer, std::size_t held);
    void Unpack(std::span<const std::byte> frame, std::uint64_t pixels);
    void DeliverStore();

    void LogReadoutEnd() const override;

    Callback m_callback;
    Tpx2FrameStore m_store;
    std::atomic<std::int64_t> m_frame_count{0};
    std::int64_t m_remaining = 0;
    std::unique_ptr<FrameDescrambler> m_descrambler;
    FrameAssembler m_assembler;
    std::atomic<std::uint64_t> m_dropped{0};
};

}  // namespace ovex::sdk::acquisition
