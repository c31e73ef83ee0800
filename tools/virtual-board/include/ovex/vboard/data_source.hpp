#pragma once

// The firmware's ends of the data endpoints: a source fills IN transfers, a sink takes OUT data.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ovex::vboard {

using Clock = std::chrono::steady_clock;

struct Produced {
    std::size_t bytes = 0;
    // A short packet ended the transfer: it completes with what it holds.
    bool end_of_transfer = false;
};

class IDataSource {
public:
    virtual ~IDataSource() = default;
    // Writes what the board has to send by `now` into `out`, at most its size.
    virtual Produced Produce(std::span<std::uint8_t> out, Clock::time_point now) = 0;
};

class IDataSink {
public:
    virtual ~IDataSink() = default;
    virtual void Consume(std::span<const std::uint8_t> data) = 0;
};

}  // namespace ovex::vboard
