#include "tpx3_pipeline/binning/bin_writers.hpp"

namespace tpx3_pipeline::binning {

// A bin can't hold more pixels than the matrix has, so the bin's list never grows.
BinWriterPackets::BinWriterPackets() : m_slot_of_pixel(0x10000, -1) {
    m_pixels.reserve(0x10000);
}

void BinWriterPackets::FlushBin(BinnedData& output) {
    output.events.push_back(m_events);
    output.itots.push_back(m_itots);
    output.descriptors.push_back({static_cast<std::uint32_t>(output.packets.size()),
                                  static_cast<std::uint32_t>(m_pixels.size())});
    output.packets.insert(output.packets.end(), m_pixels.begin(), m_pixels.end());
}

void BinWriterPackets::ResetBin() {
    m_events = 0;
    m_itots = 0;
    // Only the slots of the pixels of this bin were touched.
    for (const PixelBinRecord& pixel : m_pixels) {
        m_slot_of_pixel[pixel.address & 0xFFFF] = -1;
    }
    m_pixels.clear();
}

}  // namespace tpx3_pipeline::binning
