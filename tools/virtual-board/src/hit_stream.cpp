#include "hit_stream.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <optional>

#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

using wire::GetPacket;
using wire::kPacketBytes;
using wire::PutPacket;
constexpr std::uint64_t kSixteenths = 16;
constexpr std::size_t kSegmentBytes = std::size_t{1} << 20;

// The chip's columns release a hit after a short wait, now and then a longer one, which lets
// neighbours in time swap: the stream is never more than kMaxLate ticks behind.
constexpr double kMeanWait = 80.0 * kSixteenths;
constexpr std::uint64_t kMaxLate = 2000 * kSixteenths;
// Hits drawn at most in one step of a board on the real clock.
constexpr std::uint64_t kDrawBudget = std::uint64_t{1} << 18;
// Two hit packets in a row may lie no further apart than the host's 16-bit window allows, with
// room for a late one: timer packets fill quiet stretches longer than this.
constexpr std::uint64_t kQuietLimit = (32767 - kMaxLate / kSixteenths - 1) * kSixteenths;

// A replay played as fast as the host takes it keeps this much queued.
constexpr std::uint64_t kReplayAhead = std::uint64_t{8} << 20;
constexpr std::uint64_t kPage = std::uint64_t{1} << 16;  // ticks a hit packet's time spans
constexpr std::uint64_t kLow32 = 0xFFFF'FFFF;

unsigned TypeOf(std::uint64_t packet) {
    return static_cast<unsigned>(packet >> 46) & 3;
}
bool IsControl(std::uint64_t packet) {
    return packet != kIdlePacket && TypeOf(packet) == 3;
}

std::uint64_t RoundUpToPage(std::uint64_t ticks) {
    return (ticks + kPage - 1) / kPage * kPage;
}

bool IsHit(std::uint64_t packet) {
    return packet != kIdlePacket && TypeOf(packet) == 0;
}

}  // namespace

ReplayIndex::ReplayIndex(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {
    // Timer packets set the running time; a hit's 20 bits of time lie nearest to it.
    constexpr std::uint64_t kHitSpan = std::uint64_t{1} << 20;  // sixteenths
    std::optional<std::uint64_t> first;
    std::uint64_t now = 0;
    std::uint64_t latest = 0;
    Sums sums;
    const std::uint64_t packets = bytes.size() / kPacketBytes;
    for (std::uint64_t i = 0; i < packets; ++i) {
        if (i % kMark == 0) {
            m_marks.push_back(sums);
        }
        const std::uint64_t packet = GetPacket(bytes.data() + i * kPacketBytes);
        if (IsControl(packet)) {
            m_controls.push_back(static_cast<std::uint32_t>(i));
            const std::uint64_t time = (packet & kLow32) * kSixteenths;
            first = first.value_or(time / kSixteenths);
            if ((packet >> 36 & 7) == 0) {
                now = time;  // a timer, not a TDC event
            }
            latest = std::max(latest, time);
        } else if (IsHit(packet)) {
            std::uint64_t time = (now & ~(kHitSpan - 1)) | (packet & (kHitSpan - 1));
            if (time + kHitSpan / 2 < now) {
                time += kHitSpan;
            } else if (time > now + kHitSpan / 2 && time >= kHitSpan) {
                time -= kHitSpan;
            }
            now = std::max(now, time);
            latest = std::max(latest, time);
            sums.Add(packet);
        }
    }
    if (packets % kMark == 0) {
        m_marks.push_back(sums);  // the end of the last mark's stretch
    }
    m_first = first.value_or(0);
    const std::uint64_t end = latest / kSixteenths + 1;
    m_span = RoundUpToPage(end - std::min(m_first, end)) + kPage;
}

std::span<const std::uint32_t> ReplayIndex::Controls(std::uint64_t from, std::uint64_t to) const {
    const auto begin = std::lower_bound(m_controls.begin(), m_controls.end(), from);
    const auto end = std::lower_bound(begin, m_controls.end(), to);
    return {begin, end};
}

void ReplayIndex::Sums::Add(std::uint64_t hit) {
    const auto address = static_cast<std::uint32_t>(hit >> 30) & 0xFFFF;
    const auto hit_tot = static_cast<std::uint32_t>(hit >> 20) & 0x3FF;
    ++hits;
    tot += hit_tot;
    digest += HitDigest(address, hit_tot, hit);
}

ReplayIndex::Sums ReplayIndex::Before(std::uint64_t packet) const {
    Sums sums = m_marks[packet / kMark];
    for (std::uint64_t i = packet / kMark * kMark; i < packet; ++i) {
        const std::uint64_t word = GetPacket(m_bytes.data() + i * kPacketBytes);
        if (IsHit(word)) {
            sums.Add(word);
        }
    }
    return sums;
}

ReplayIndex::Sums ReplayIndex::Between(std::uint64_t from, std::uint64_t to) const {
    const Sums start = Before(from);
    const Sums end = Before(to);
    return {end.hits - start.hits, end.tot - start.tot, end.digest - start.digest};
}

std::variant<ReplayStream, std::string> LoadReplayFile(const std::filesystem::path& path,
                                                       double packets_per_second) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return "cannot open replay file " + path.string();
    }
    ReplayStream replay{{std::istreambuf_iterator<char>(file), {}}, packets_per_second};
    if (file.bad()) {
        return "cannot read replay file " + path.string();
    }
    if (replay.bytes.empty()) {
        return "replay file " + path.string() + " is empty";
    }
    if (replay.bytes.size() % kPacketBytes != 0) {
        return "replay file " + path.string() + " holds " + std::to_string(replay.bytes.size()) +
               " bytes, not a whole number of 6-byte packets";
    }
    if (!std::isfinite(packets_per_second) || packets_per_second < 0) {
        return "a replay rate is a finite number of packets per second, not negative";
    }
    return replay;
}

void Tpx3HitStream::Open(std::uint64_t toa, const HitModel& model,
                         std::vector<std::uint8_t> masked) {
    m_open = true;
    m_opened = toa * kSixteenths;
    m_anchor = m_opened;
    ++m_counters.lines;
    m_truth.line_starts.push_back(m_opened);
    // The line's timer packet opens its first transfer: the last line ended the one before.
    Queue(tpx3_stream::TimerPacket(toa));

    m_model = model;
    m_masked = std::move(masked);
    m_random = SensorRandom(model.seed * 0xD1B54A32D192ED03ULL + (++m_lines_seen << 32));
    const auto open = static_cast<double>(std::count(m_masked.begin(), m_masked.end(), 0));
    const double rate = model.spot_rate + model.background_rate * open;
    m_mean_gap = rate > 0 ? kTicksPerSecond * kSixteenths / rate : 0.0;
    m_spot_share = rate > 0 ? model.spot_rate / rate : 0.0;
    m_arrival = static_cast<double>(m_opened) + m_random.Exponential(m_mean_gap);
    m_next_hit = m_opened + 1;
    m_pending = {};

    m_replay_at = 0;
    if (m_replay_index) {
        // The first pass starts on the page after the line's opening.
        m_replay_offset = RoundUpToPage((toa - m_replay_index->First()) & kLow32);
    }
}

void Tpx3HitStream::Advance(std::uint64_t toa) {
    if (!m_open) {
        return;
    }
    const std::uint64_t time = toa * kSixteenths;
    if (m_replay) {
        ReplayUntil(time);
        return;
    }
    DrawHitsUntil(time);
    ReleaseUntil(time);
}

void Tpx3HitStream::Close(std::uint64_t toa) {
    if (!m_open) {
        return;
    }
    Advance(toa);
    // What still waits in the columns leaves behind the line's last hits.
    ReleaseUntil(std::numeric_limits<std::uint64_t>::max());
    EndLine();
}

void Tpx3HitStream::Abandon() {
    m_pending = {};
    if (m_open) {
        EndLine();
    }
}

void Tpx3HitStream::TriggerEdge(std::uint64_t toa) {
    if (!m_open) {
        return;
    }
    Advance(toa);
    const std::uint64_t time = toa * kSixteenths;
    Heartbeats(time);
    Queue(tpx3_stream::TdcPacket(toa, 1));
    ++m_counters.tdc_sent;
    if (m_keep_truth) {
        m_truth.tdc[0].push_back(time);
    }
}

void Tpx3HitStream::PowerOn() {
    m_open = false;
    m_pending = {};
    m_fifo.clear();
    m_idle_due = false;
    m_counters.fifo_bytes = 0;
}

StreamTruth Tpx3HitStream::TakeTruth() {
    StreamTruth truth = std::move(m_truth);
    m_truth = {};
    return truth;
}

void Tpx3HitStream::DrawHitsUntil(std::uint64_t time) {
    if (m_mean_gap <= 0) {
        return;
    }
    std::uint64_t budget = m_bounded ? kDrawBudget : std::numeric_limits<std::uint64_t>::max();
    // Arrivals of a Poisson process; each hit takes a sixteenth of its own, so that no two
    // share a time.
    while (std::max(m_next_hit, static_cast<std::uint64_t>(m_arrival)) < time) {
        if (budget-- == 0) {
            // A board on the real clock that cannot draw hits as fast as the beam brings them
            // loses the rest of the stretch, counted, rather than fall behind its host.
            const double rest = static_cast<double>(time) - m_arrival;
            m_counters.hits_lost +=
                1 + static_cast<std::uint64_t>(std::max(rest, 0.0) / m_mean_gap);
            m_arrival = static_cast<double>(time) + m_random.Exponential(m_mean_gap);
            m_next_hit = std::max(m_next_hit, time);
            break;
        }
        const std::uint64_t t = std::max(m_next_hit, static_cast<std::uint64_t>(m_arrival));
        m_next_hit = t + 1;
        m_arrival += m_random.Exponential(m_mean_gap);
        std::uint32_t pixel = 0;
        if (m_random.Uniform() <= m_spot_share) {
            const double x = std::round(m_model.spot_x + m_model.spot_sigma * m_random.Gauss());
            const double y = std::round(m_model.spot_y + m_model.spot_sigma * m_random.Gauss());
            if (x < 0 || y < 0 || x >= kSensorSide || y >= kSensorSide) {
                continue;  // beside the sensor
            }
            pixel = static_cast<std::uint32_t>(y) * kSensorSide + static_cast<std::uint32_t>(x);
        } else {
            pixel = static_cast<std::uint32_t>(m_random.Next() >> 48);
        }
        if (m_masked[pixel] != 0) {
            continue;
        }
        const auto wait =
            std::min(static_cast<std::uint64_t>(m_random.Exponential(kMeanWait)), kMaxLate);
        m_pending.push({t + wait, t, PixelAddress(pixel), m_random.ToT()});
    }
}

void Tpx3HitStream::ReleaseUntil(std::uint64_t key) {
    while (!m_pending.empty() && m_pending.top().key < key) {
        const Pending hit = m_pending.top();
        m_pending.pop();
        if (m_counters.fifo_bytes + kPacketBytes > kHitFifoBytes) {
            ++m_counters.hits_lost;
            continue;
        }
        Heartbeats(hit.key);
        Queue(tpx3_stream::DataPacket(hit.address, hit.tot, hit.time >> 4, hit.time & 0xF));
        m_anchor = std::max(m_anchor, hit.key);
        ++m_counters.hits_sent;
        m_counters.tot_sent += hit.tot;
        m_counters.digest += HitDigest(hit.address, hit.tot, hit.time);
        if (m_keep_truth) {
            m_truth.records.push_back({hit.address, hit.tot, hit.time});
        }
    }
}

void Tpx3HitStream::Heartbeats(std::uint64_t key) {
    while (key > m_anchor + kQuietLimit) {
        m_anchor += kQuietLimit;
        Queue(tpx3_stream::TimerPacket(m_anchor / kSixteenths));
        m_anchor = m_anchor / kSixteenths * kSixteenths;
    }
}

void Tpx3HitStream::ReplayUntil(std::uint64_t time) {
    const double rate = m_replay->packets_per_second;
    if (rate <= 0) {
        return;  // topped up as the host takes it
    }
    const double seconds = static_cast<double>(time - m_opened) / (kTicksPerSecond * kSixteenths);
    const auto due = static_cast<std::uint64_t>(seconds * rate);
    if (due > m_replay_at) {
        ReplayPackets(due - m_replay_at);
    }
}

void Tpx3HitStream::ReplayPackets(std::uint64_t count) {
    const std::vector<std::uint8_t>& bytes = m_replay->bytes;
    const std::uint64_t packets = bytes.size() / kPacketBytes;
    while (count > 0) {
        const std::uint64_t index = m_replay_at % packets;
        const std::uint64_t offset =
            (m_replay_offset + m_replay_at / packets * m_replay_index->Span()) & kLow32;
        const std::uint64_t room = m_counters.fifo_bytes < kHitFifoBytes
                                       ? (kHitFifoBytes - m_counters.fifo_bytes) / kPacketBytes
                                       : 0;
        // Whole pieces of a segment each, or what a full FIFO drops.
        const std::uint64_t take = std::min(
            {count, packets - index, kSegmentBytes / kPacketBytes, room == 0 ? count : room});
        m_replay_at += take;
        count -= take;
        const ReplayIndex::Sums sums = m_replay_index->Between(index, index + take);
        if (room == 0) {
            m_counters.hits_lost += sums.hits;
            continue;
        }
        std::uint8_t* to = Reserve(take * kPacketBytes);
        std::memcpy(to, bytes.data() + index * kPacketBytes, take * kPacketBytes);
        for (const std::uint32_t control : m_replay_index->Controls(index, index + take)) {
            std::uint8_t* at = to + (control - index) * kPacketBytes;
            const std::uint64_t packet = GetPacket(at);
            PutPacket(at, (packet & ~kLow32) | ((packet + offset) & kLow32));
        }
        m_counters.hits_sent += sums.hits;
        m_counters.tot_sent += sums.tot;
        m_counters.digest += sums.digest;
    }
}

void Tpx3HitStream::Queue(std::uint64_t packet) {
    PutPacket(Reserve(kPacketBytes), packet);
}

std::uint8_t* Tpx3HitStream::Reserve(std::size_t bytes) {
    if (m_fifo.empty() || m_fifo.back().ends_line ||
        m_fifo.back().bytes.size() + bytes > kSegmentBytes) {
        m_fifo.emplace_back().bytes.reserve(kSegmentBytes);
    }
    std::vector<std::uint8_t>& segment = m_fifo.back().bytes;
    segment.resize(segment.size() + bytes);
    m_counters.fifo_bytes += bytes;
    return segment.data() + segment.size() - bytes;
}

void Tpx3HitStream::EndLine() {
    m_open = false;
    m_pending = {};
    if (m_fifo.empty() || m_fifo.back().ends_line) {
        m_fifo.emplace_back();
    }
    m_fifo.back().ends_line = true;
}

std::optional<Produced> Tpx3HitStream::Send(std::span<std::uint8_t> out, bool mid_transfer) {
    if (out.size() < kPacketBytes) {
        return std::nullopt;
    }
    if (m_idle_due) {
        m_idle_due = false;
        PutPacket(out.data(), kIdlePacket);
        return Produced{kPacketBytes, true};
    }
    if (m_open && m_replay && m_replay->packets_per_second <= 0 &&
        m_counters.fifo_bytes < kReplayAhead) {
        ReplayPackets((kReplayAhead - m_counters.fifo_bytes) / kPacketBytes);
    }
    std::size_t filled = 0;
    while (!m_fifo.empty()) {
        Segment& segment = m_fifo.front();
        const std::size_t count =
            std::min(out.size() - filled, segment.bytes.size() - segment.sent);
        std::copy_n(segment.bytes.begin() + static_cast<std::ptrdiff_t>(segment.sent), count,
                    out.begin() + static_cast<std::ptrdiff_t>(filled));
        filled += count;
        segment.sent += count;
        m_counters.fifo_bytes -= count;
        m_counters.bytes_sent += count;
        if (segment.sent < segment.bytes.size()) {
            return Produced{filled, false};
        }
        const bool ends_line = segment.ends_line;
        m_fifo.pop_front();
        if (ends_line) {
            if (filled == out.size()) {
                m_idle_due = true;  // the transfer is full: the next one ends the line
                return Produced{filled, false};
            }
            if (filled == 0 && !mid_transfer) {
                PutPacket(out.data(), kIdlePacket);
                return Produced{kPacketBytes, true};
            }
            return Produced{filled, true};
        }
        if (filled == out.size()) {
            return Produced{filled, false};
        }
    }
    return filled > 0 ? std::optional<Produced>(Produced{filled, false}) : std::nullopt;
}

}  // namespace ovex::vboard
