#include "tpx3_stream/generator.hpp"

#include <algorithm>
#include <array>
#include <random>
#include <stdexcept>

namespace tpx3_stream {

namespace {

constexpr std::uint64_t kPacketBytes = 6;
constexpr std::uint64_t kTypeShift = 46;
constexpr std::uint64_t kIdlePacket = 0xFFFF'FFFF'FFFFull;
constexpr std::size_t kDoubleColumns = 128;  // the top 7 bits of a pixel address

// One packet on its way out, ordered by the time at which it leaves the chip.
struct Emission {
    std::uint64_t key;  // leaving time, sixteenths of a tick
    std::uint64_t packet;
    std::int64_t record;  // index of its truth record, or -1 for a CTRL packet
    std::uint8_t tdc;     // TDC channels of a TDC packet
};

class LineBuilder {
public:
    LineBuilder(const StreamSettings& settings, GeneratedStream& stream)
        : m_settings(settings), m_stream(stream), m_random(settings.seed) {
        if (settings.max_late_ticks >= 32767 - 16) {
            throw std::invalid_argument("max_late_ticks must stay below the extension window");
        }
        if (settings.block_bytes == 0 || settings.block_bytes % kPacketBytes != 0) {
            throw std::invalid_argument("block_bytes must be a positive multiple of 6");
        }
        // Two DATA packets in a row may lie no further apart than the window allows: a late one
        // followed by one that comes after a quiet stretch. Timer packets cap the stretch.
        m_quiet_limit = (32767 - settings.max_late_ticks - 1) * 16;
        m_stall_start.fill(settings.start_tick * 16);
        m_stall_end.fill(0);
        for (std::uint64_t& start : m_stall_start) {
            start += NextStallIn();
        }
    }

    void Build(std::uint32_t line) {
        const StreamSettings& s = m_settings;
        const std::uint64_t start = s.start_tick + line * (s.line_ticks + s.flyback_ticks);
        const std::uint64_t end = start + s.line_ticks + s.flyback_ticks;
        m_stream.line_starts.push_back(start * 16);
        m_emissions.clear();
        const double wait_gaps =
            std::uniform_real_distribution<double>(s.min_wait_gaps, s.max_wait_gaps)(m_random);
        m_mean_wait = wait_gaps * 16.0 / s.hits_per_tick;
        AddHits(start * 16, end * 16);
        AddTdcEvents(start, end);
        AddIdlePackets(start * 16, end * 16);
        std::stable_sort(m_emissions.begin(), m_emissions.end(),
                         [](const Emission& a, const Emission& b) { return a.key < b.key; });
        EmitLine(line, start);
    }

private:
    void AddHits(std::uint64_t from, std::uint64_t to) {
        const StreamSettings& s = m_settings;
        std::exponential_distribution<double> gap(s.hits_per_tick / 16.0);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        std::uniform_int_distribution<std::uint32_t> late_by(1, std::max(1u, s.max_late_ticks));
        std::uint64_t t = from;
        for (;;) {
            t += 1 + static_cast<std::uint64_t>(gap(m_random));
            if (t >= to) {
                break;
            }
            const auto bits = m_random();
            const auto address = static_cast<std::uint32_t>(bits & 0xFFFF);
            const auto tot = static_cast<std::uint32_t>((bits >> 16) & 0x3FF);
            std::uint64_t key = t;
            if (s.disorder == Disorder::ColumnBursts) {
                key = LeavingTimeInBursts(t, address);
            } else if (s.late_fraction > 0 && unit(m_random) < s.late_fraction) {
                key += std::uint64_t{late_by(m_random)} * 16;
            }
            m_emissions.push_back({key, DataPacket(address, tot, (t >> 4) & 0xFFFF, t & 0xF),
                                   static_cast<std::int64_t>(m_hits.size()), 0});
            m_hits.push_back({address, tot, t});
        }
    }

    // A hit waits a short while in its double column, or until the column's stall ends.
    std::uint64_t LeavingTimeInBursts(std::uint64_t t, std::uint32_t address) {
        const std::uint64_t limit = std::uint64_t{m_settings.max_late_ticks} * 16;
        const std::size_t column = address >> 9;
        std::uint64_t& stall_start = m_stall_start[column];
        std::uint64_t& stall_end = m_stall_end[column];
        while (t >= stall_start) {
            stall_end =
                stall_start + std::uniform_int_distribution<std::uint64_t>(16, limit)(m_random);
            stall_start = stall_end + NextStallIn();
        }
        const auto wait = static_cast<std::uint64_t>(
            std::exponential_distribution<double>(1.0 / m_mean_wait)(m_random));
        // Hits are made in time order, so a hit before the stall's end is inside the stall.
        return std::max(t + std::min(wait, limit), t < stall_end ? stall_end : 0);
    }

    // Sixteenths of a tick until a double column's next stall.
    std::uint64_t NextStallIn() {
        const double rate = m_settings.stalls_per_column_tick;
        if (m_settings.disorder != Disorder::ColumnBursts || rate <= 0) {
            return ~std::uint64_t{0} / 2;
        }
        return 16 + static_cast<std::uint64_t>(
                        std::exponential_distribution<double>(rate / 16.0)(m_random));
    }

    void AddTdcEvents(std::uint64_t from, std::uint64_t to) {
        const StreamSettings& s = m_settings;
        if (s.tdc_channels == 0 || s.tdc_per_tick <= 0) {
            return;
        }
        std::exponential_distribution<double> gap(s.tdc_per_tick);
        std::uint64_t tick = from;
        for (;;) {
            tick += 1 + static_cast<std::uint64_t>(gap(m_random));
            if (tick >= to) {
                break;
            }
            std::uint8_t channels = 0;
            while (channels == 0) {
                channels = static_cast<std::uint8_t>(m_random() & s.tdc_channels & 0x7);
            }
            m_emissions.push_back({tick * 16, TdcPacket(tick, channels), -1, channels});
        }
    }

    void AddIdlePackets(std::uint64_t from, std::uint64_t to) {
        const double fraction = m_settings.idle_fraction;
        if (fraction <= 0) {
            return;
        }
        const auto count =
            static_cast<std::size_t>(static_cast<double>(m_emissions.size()) * fraction);
        std::uniform_int_distribution<std::uint64_t> when(from, to - 1);
        for (std::size_t i = 0; i < count; ++i) {
            m_emissions.push_back({when(m_random), kIdlePacket, -1, 0});
        }
    }

    void EmitLine(std::uint32_t line, std::uint64_t start) {
        std::vector<std::uint64_t>& packets = m_packets;
        std::vector<std::int64_t>& record_of = m_record_of;
        packets.clear();
        record_of.clear();
        packets.push_back(TimerPacket(start));
        record_of.push_back(-1);
        std::uint64_t anchor = start * 16;  // leaving time of the last packet that set the time
        for (const Emission& e : m_emissions) {
            const bool sets_time = e.record >= 0;
            if (sets_time || e.tdc != 0) {
                while (e.key > anchor + m_quiet_limit) {
                    anchor += m_quiet_limit;
                    packets.push_back(TimerPacket(anchor / 16));
                    record_of.push_back(-1);
                    anchor = anchor / 16 * 16;
                }
            }
            packets.push_back(e.packet);
            record_of.push_back(e.record);
            if (sets_time) {
                anchor = std::max(anchor, e.key);
            }
            for (unsigned channel = 0; channel < 3; ++channel) {
                if (m_settings.keep_truth && (e.tdc & (1u << channel))) {
                    m_stream.tdc[channel].push_back(e.key);
                }
            }
        }
        SplitIntoBlocks(line);
    }

    void SplitIntoBlocks(std::uint32_t line) {
        const std::size_t per_block = m_settings.block_bytes / kPacketBytes;
        const bool strip_ctrl = m_settings.line_without_ctrl == line;
        for (std::size_t first = 0; first < m_packets.size(); first += per_block) {
            const std::size_t last = std::min(first + per_block, m_packets.size());
            BlockInfo block{m_stream.bytes.size(),   0, BlockKind::Data, line,
                            m_stream.records.size(), 0};
            for (std::size_t i = first; i < last; ++i) {
                if (strip_ctrl && first == 0 && m_record_of[i] < 0) {
                    continue;
                }
                AppendPacket(m_stream.bytes, m_packets[i]);
                ++m_stream.packet_count;
                if (m_record_of[i] >= 0) {
                    ++block.record_count;
                    if (m_settings.keep_truth) {
                        m_stream.records.push_back(
                            m_hits[static_cast<std::size_t>(m_record_of[i])]);
                    }
                }
            }
            block.length = m_stream.bytes.size() - block.offset;
            if (last == m_packets.size()) {
                block.kind = BlockKind::LastData;
            }
            if (!m_settings.keep_truth) {
                block.first_record = 0;
            }
            m_stream.blocks.push_back(block);
        }
        m_hits.clear();
    }

    const StreamSettings& m_settings;
    GeneratedStream& m_stream;
    std::mt19937_64 m_random;
    std::uint64_t m_quiet_limit;
    double m_mean_wait = 0;                                     // sixteenths of a tick, this line's
    std::array<std::uint64_t, kDoubleColumns> m_stall_start{};  // of each column's next stall
    std::array<std::uint64_t, kDoubleColumns> m_stall_end{};    // of its current or last one
    std::vector<Emission> m_emissions;
    std::vector<ExpectedRecord> m_hits;  // of the current line, by hit index
    std::vector<std::uint64_t> m_packets;
    std::vector<std::int64_t> m_record_of;
};

void ApplyFaults(const StreamSettings& settings, GeneratedStream& stream) {
    if (settings.cfg_packet_block && *settings.cfg_packet_block < stream.blocks.size()) {
        const BlockInfo& block = stream.blocks[*settings.cfg_packet_block];
        const std::size_t middle = block.length / kPacketBytes / 2 * kPacketBytes;
        std::uint64_t packet = CfgPacket(0x1234, 0x2A);
        if (settings.fault_type_unknown) {
            packet =
                (packet & ~(std::uint64_t{3} << kTypeShift)) | (std::uint64_t{2} << kTypeShift);
        }
        for (std::size_t i = 0; i < kPacketBytes; ++i) {
            stream.bytes[block.offset + middle + i] = static_cast<std::uint8_t>(packet >> (8 * i));
        }
    }
    if (settings.truncated_block && *settings.truncated_block < stream.blocks.size()) {
        BlockInfo& block = stream.blocks[*settings.truncated_block];
        block.length -= std::min<std::size_t>(block.length, 3);
    }
}

}  // namespace

StreamSettings WithRealDisorder(StreamSettings settings) {
    settings.disorder = Disorder::ColumnBursts;
    settings.max_late_ticks = 18'000;
    return settings;
}

DisorderStats MeasureDisorder(const GeneratedStream& stream) {
    DisorderStats stats;
    const auto& records = stream.records;
    std::size_t steps_back = 0;
    for (std::size_t i = 1; i < records.size(); ++i) {
        if (records[i].time < records[i - 1].time) {
            ++steps_back;
            stats.max_step_back =
                std::max(stats.max_step_back, (records[i - 1].time - records[i].time) / 16);
        }
    }
    stats.step_back_fraction =
        records.size() < 2 ? 0.0 : static_cast<double>(steps_back) / (records.size() - 1);
    stats.min_block_late_fraction = 1.0;
    for (const BlockInfo& block : stream.blocks) {
        if (block.kind != BlockKind::Data || block.record_count == 0) {
            continue;  // a line's short last block says little
        }
        std::uint64_t newest = 0;
        std::size_t late = 0;
        for (std::size_t i = 0; i < block.record_count; ++i) {
            const std::uint64_t time = records[block.first_record + i].time;
            late += time < newest;
            newest = std::max(newest, time);
        }
        const double fraction = static_cast<double>(late) / block.record_count;
        stats.min_block_late_fraction = std::min(stats.min_block_late_fraction, fraction);
        stats.max_block_late_fraction = std::max(stats.max_block_late_fraction, fraction);
    }
    stats.min_block_late_fraction =
        std::min(stats.min_block_late_fraction, stats.max_block_late_fraction);
    return stats;
}

std::uint64_t DataPacket(std::uint32_t address, std::uint32_t tot, std::uint64_t coarse,
                         std::uint32_t fine) {
    return (std::uint64_t{address & 0xFFFF} << 30) | (std::uint64_t{tot & 0x3FF} << 20) |
           ((coarse & 0xFFFF) << 4) | (fine & 0xF);
}

std::uint64_t TimerPacket(std::uint64_t tick) {
    return (std::uint64_t{3} << kTypeShift) | (tick & 0xFFFF'FFFF);
}

std::uint64_t TdcPacket(std::uint64_t tick, std::uint8_t channels) {
    return TimerPacket(tick) | (std::uint64_t{channels & 0x7u} << 36);
}

std::uint64_t CfgPacket(std::uint32_t address, std::uint8_t config) {
    return (std::uint64_t{1} << kTypeShift) | (std::uint64_t{address & 0xFFFF} << 30) |
           (std::uint64_t{config & 0x3Fu} << 14);
}

void AppendPacket(std::vector<std::uint8_t>& bytes, std::uint64_t packet) {
    for (std::uint64_t i = 0; i < kPacketBytes; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(packet >> (8 * i)));
    }
}

GeneratedStream Generate(const StreamSettings& settings) {
    GeneratedStream stream;
    const double expected_hits = settings.hits_per_tick * static_cast<double>(settings.lines) *
                                 static_cast<double>(settings.line_ticks + settings.flyback_ticks);
    stream.bytes.reserve(static_cast<std::size_t>(expected_hits * 1.05 + 1024) * kPacketBytes);
    if (settings.keep_truth) {
        stream.records.reserve(static_cast<std::size_t>(expected_hits * 1.05 + 1024));
    }
    LineBuilder builder(settings, stream);
    for (std::uint32_t line = 0; line < settings.lines; ++line) {
        builder.Build(line);
    }
    ApplyFaults(settings, stream);
    return stream;
}

}  // namespace tpx3_stream
