#pragma once

// Writers turn the records of one bin into one output value. The binning step calls them
// through the concrete, final class, so the per-record call is direct.

#include <cstdint>
#include <vector>

#include "tpx3_toa_extension/dd_toa_tot/logic.hpp"

namespace tpx3_pipeline::binning {

struct CountSumsModePhantom {};
struct ItotSumsModePhantom {};
struct BinnedPacketsModePhantom {};

// One pixel within one bin.
struct PixelBinRecord {
    std::uint32_t address;
    std::uint32_t events;
    std::uint32_t itot;
};
static_assert(sizeof(PixelBinRecord) == 12);

// Where the pixels of one bin stand in BinnedData::packets.
struct BinDescriptor {
    std::uint32_t offset;
    std::uint32_t count;
};
static_assert(sizeof(BinDescriptor) == 8);

struct BinnedData {
    std::vector<std::uint64_t> events;       // per bin, number of records
    std::vector<std::uint64_t> itots;        // per bin, sum of ToT
    std::vector<PixelBinRecord> packets;     // the pixels of all bins, bin after bin
    std::vector<BinDescriptor> descriptors;  // per bin
};

template <typename Value, typename ModeTag>
class BinWriter {
public:
    using ValueType = Value;
    using Mode = ModeTag;

    virtual ~BinWriter() = default;
    virtual void AddRecord(const tpx3_toa_extension::ToaTotRecord& record) = 0;
    virtual void FlushBin(Value& output) = 0;
    virtual void ResetBin() = 0;
};

// Output values are recycled: emptied with their storage kept, and made twice as large at once
// as the largest value so far when they are smaller, so that a steady acquisition doesn't
// grow them.
struct OutputSize {
    std::size_t bins = 0;
    std::size_t pixels = 0;
};

inline void ClearOutput(std::vector<std::uint64_t>& value) noexcept {
    value.clear();
}
inline void ClearOutput(BinnedData& value) noexcept {
    value.events.clear();
    value.itots.clear();
    value.packets.clear();
    value.descriptors.clear();
}
inline OutputSize SizeOf(const std::vector<std::uint64_t>& value) noexcept {
    return {value.size(), 0};
}
inline OutputSize SizeOf(const BinnedData& value) noexcept {
    return {value.events.size(), value.packets.size()};
}
template <typename V>
void ReserveTwice(std::vector<V>& vector, std::size_t size) {
    if (vector.capacity() < size) {
        vector.reserve(2 * size);
    }
}
inline void Reserve(std::vector<std::uint64_t>& value, OutputSize largest) {
    ReserveTwice(value, largest.bins);
}
inline void Reserve(BinnedData& value, OutputSize largest) {
    ReserveTwice(value.events, largest.bins);
    ReserveTwice(value.itots, largest.bins);
    ReserveTwice(value.descriptors, largest.bins);
    ReserveTwice(value.packets, largest.pixels);
}

class BinWriterCountSums final
    : public BinWriter<std::vector<std::uint64_t>, CountSumsModePhantom> {
public:
    void AddRecord(const tpx3_toa_extension::ToaTotRecord&) override { ++m_sum; }
    void FlushBin(std::vector<std::uint64_t>& output) override { output.push_back(m_sum); }
    void ResetBin() override { m_sum = 0; }

private:
    std::uint64_t m_sum = 0;
};

class BinWriterItotSums final : public BinWriter<std::vector<std::uint64_t>, ItotSumsModePhantom> {
public:
    void AddRecord(const tpx3_toa_extension::ToaTotRecord& record) override { m_sum += record.tot; }
    void FlushBin(std::vector<std::uint64_t>& output) override { output.push_back(m_sum); }
    void ResetBin() override { m_sum = 0; }

private:
    std::uint64_t m_sum = 0;
};

// Per bin, the event count and ToT sum of every pixel hit in it, pixels in order of their
// first hit. A dense table over the 16-bit pixel address finds a pixel's entry at once.
class BinWriterPackets final : public BinWriter<BinnedData, BinnedPacketsModePhantom> {
public:
    BinWriterPackets();

    void AddRecord(const tpx3_toa_extension::ToaTotRecord& record) override {
        ++m_events;
        m_itots += record.tot;
        std::int32_t& slot = m_slot_of_pixel[record.address & 0xFFFF];
        if (slot < 0) {
            slot = static_cast<std::int32_t>(m_pixels.size());
            m_pixels.push_back({record.address, 1, record.tot});
        } else {
            PixelBinRecord& pixel = m_pixels[static_cast<std::size_t>(slot)];
            ++pixel.events;
            pixel.itot += record.tot;
        }
    }
    void FlushBin(BinnedData& output) override;
    void ResetBin() override;

private:
    std::uint64_t m_events = 0;
    std::uint64_t m_itots = 0;
    std::vector<std::int32_t> m_slot_of_pixel;  // index into m_pixels, or -1
    std::vector<PixelBinRecord> m_pixels;       // in order of first appearance
};

}  // namespace tpx3_pipeline::binning
