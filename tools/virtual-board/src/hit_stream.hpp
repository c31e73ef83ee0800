#pragma once

// The Timepix3 chip's data-driven output and the board's FIFO behind it (ovex/vboard/
// data_driven.hpp says what a host sees). Times are on the chip's ToA clock, in ticks of 40 MHz
// at the interface and in sixteenths of a tick inside.

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <queue>
#include <span>
#include <vector>

#include "ovex/vboard/data_driven.hpp"
#include "ovex/vboard/data_source.hpp"
#include "ovex/vboard/frame_readout.hpp"
#include "sensor_model.hpp"

namespace ovex::vboard {

// A recording indexed for replay: where its time starts (its first timer packet), how many ticks
// a pass moves it on (whole pages past the latest hit, as a host extends the hits' times), where
// its timer and TDC packets stand, and the running sums of its hits every kMark packets, so that
// a pass is a copy with a few packets patched.
class ReplayIndex {
public:
    struct Sums {
        std::uint64_t hits = 0;
        std::uint64_t tot = 0;
        std::uint64_t digest = 0;
        void Add(std::uint64_t hit);  // a hit packet
    };

    explicit ReplayIndex(std::span<const std::uint8_t> bytes);

    std::uint64_t First() const { return m_first; }
    std::uint64_t Span() const { return m_span; }
    // The packets in [from, to) that carry a time to move on.
    std::span<const std::uint32_t> Controls(std::uint64_t from, std::uint64_t to) const;
    // The hits of the packets in [from, to).
    Sums Between(std::uint64_t from, std::uint64_t to) const;

private:
    static constexpr std::uint64_t kMark = 64;
    Sums Before(std::uint64_t packet) const;

    std::span<const std::uint8_t> m_bytes;
    std::uint64_t m_first = 0;
    std::uint64_t m_span = 0;
    std::vector<std::uint32_t> m_controls;
    std::vector<Sums> m_marks;  // the sums before packet i · kMark
};

class Tpx3HitStream {
public:
    // A line opens at `toa` under `model`; `masked` holds a non-zero byte for every masked host
    // pixel (65536 bytes), which records nothing. A replay, if set, stands in for the model.
    void Open(std::uint64_t toa, const HitModel& model, std::vector<std::uint8_t> masked);
    bool IsOpen() const { return m_open; }
    // The hits of the open line up to `toa` leave the chip as far as they are due.
    void Advance(std::uint64_t toa);
    // The shutter closed at `toa`: the line's last hits leave, then the line ends.
    void Close(std::uint64_t toa);
    // The chip lost its power or was reset: what has not left yet is gone; the line ends with
    // what the FIFO holds.
    void Abandon();
    // A rising edge of the trigger input at `toa`: a TDC packet on channel 0 if a line is open.
    void TriggerEdge(std::uint64_t toa);
    // The board's reset: nothing open, the FIFO empty; truth and counters stay.
    void PowerOn();

    // Fills `out` from the FIFO; nullopt while it holds nothing. A line ends the transfer under
    // way short; `mid_transfer` says whether that transfer holds data already.
    std::optional<Produced> Send(std::span<std::uint8_t> out, bool mid_transfer);

    void SetReplay(std::shared_ptr<const ReplayStream> replay) {
        m_replay_index.reset();
        if (replay) {
            m_replay_index.emplace(replay->bytes);
        }
        m_replay = std::move(replay);
    }
    void KeepTruth(bool keep) { m_keep_truth = keep; }
    // On the real clock each step draws a bounded number of hits, and counts the rest lost.
    void FollowRealTime(bool real_time) { m_bounded = real_time; }
    StreamTruth TakeTruth();
    DataDrivenCounters Counters() const { return m_counters; }

private:
    struct Pending {
        std::uint64_t key;   // when it leaves the chip, sixteenths
        std::uint64_t time;  // of the hit, sixteenths
        std::uint32_t address;
        std::uint32_t tot;
        bool operator>(const Pending& other) const { return key > other.key; }
    };
    struct Segment {
        std::vector<std::uint8_t> bytes;
        std::size_t sent = 0;
        bool ends_line = false;
    };

    void DrawHitsUntil(std::uint64_t time);
    void ReleaseUntil(std::uint64_t key);
    void ReplayUntil(std::uint64_t time);
    void ReplayPackets(std::uint64_t count);
    // Timer packets that keep the host's time anchored before a packet leaving at `key`.
    void Heartbeats(std::uint64_t key);
    void Queue(std::uint64_t packet);
    std::uint8_t* Reserve(std::size_t bytes);
    void EndLine();

    // The line.
    bool m_open = false;
    std::uint64_t m_opened = 0;  // sixteenths
    std::uint64_t m_anchor = 0;  // leaving time of the last packet that set the host's time
    SensorRandom m_random{1};
    HitModel m_model;
    std::vector<std::uint8_t> m_masked;
    double m_mean_gap = 0;           // sixteenths between hits; 0: no hits
    double m_spot_share = 0;         // of the hits
    double m_arrival = 0;            // of the next particle, sixteenths
    std::uint64_t m_next_hit = 0;    // the earliest time the next hit may take
    std::uint64_t m_drawn_to = 0;    // hits before this time are drawn
    std::uint64_t m_lines_seen = 0;  // seeds each line's own sequence
    std::priority_queue<Pending, std::vector<Pending>, std::greater<>> m_pending;

    // The replay.
    std::shared_ptr<const ReplayStream> m_replay;
    std::uint64_t m_replay_at = 0;      // next packet of this line, counting over the passes
    std::uint64_t m_replay_offset = 0;  // of this line's first pass, ticks
    std::optional<ReplayIndex> m_replay_index;  // of the bytes m_replay holds

    // The FIFO.
    std::deque<Segment> m_fifo;
    bool m_idle_due = false;  // a line ended with a full transfer: a short one must follow

    bool m_keep_truth = true;
    bool m_bounded = false;
    StreamTruth m_truth;
    DataDrivenCounters m_counters;
};

}  // namespace ovex::vboard
