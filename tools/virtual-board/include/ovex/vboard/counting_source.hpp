#pragma once

// A byte stream that counts: the 64-bit little-endian word at stream offset 8k holds k. Any
// lost, repeated or reordered byte shows, whatever the transfer sizes. It is sent at a chosen
// rate (0: as fast as the host takes it) and may stop after a given number of bytes: the
// transfer that carries the last of them ends short there.

#include <cstdint>
#include <mutex>
#include <optional>

#include "ovex/vboard/data_source.hpp"

namespace ovex::vboard {

class CountingSource final : public IDataSource {
public:
    struct Settings {
        double bytes_per_second = 0.0;
        std::optional<std::uint64_t> total_bytes;
    };

    CountingSource() = default;
    explicit CountingSource(Settings settings) : m_settings(settings) {}

    Produced Produce(std::span<std::uint8_t> out, Clock::time_point now) override;

    std::uint64_t BytesSent() const;

    // The byte the stream holds at `offset`.
    static std::uint8_t ByteAt(std::uint64_t offset) {
        return static_cast<std::uint8_t>((offset / 8) >> (8 * (offset % 8)));
    }

private:
    Settings m_settings;
    mutable std::mutex m_mutex;
    std::optional<Clock::time_point> m_start;
    std::uint64_t m_offset = 0;
};

}  // namespace ovex::vboard
