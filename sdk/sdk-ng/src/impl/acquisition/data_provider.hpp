#pragma once

// What stands between the board's bulk IN transfers and an acquisition: the transfers land on
// the transfer handler thread and reach the acquisition's consumer thread through a queue.

#include <any>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <system_error>
#include <vector>

namespace tpx3_pipeline {
class Arena;
}

namespace ovex::sdk::acquisition {

class IDataProvider {
public:
    virtual ~IDataProvider() = default;
    // Starts the transfers; `size` is the size of one transfer in bytes.
    virtual std::error_code Start(std::uint64_t size) = 0;
    virtual std::error_code Stop() = 0;
    virtual bool IsRunning() = 0;
    virtual std::error_code Configure(std::any /*settings*/) {
        return std::make_error_code(std::errc::operation_not_supported);
    }
};

class IVectorDataProvider : public IDataProvider {
public:
    // Blocks until a transfer's bytes are there; a null vector means that the provider stopped.
    virtual std::error_code GetData(std::shared_ptr<std::vector<std::byte>>& data) = 0;
};

// A span of transfers that landed side by side in one arena; the consumer owns it.
struct ArenaData {
    std::shared_ptr<tpx3_pipeline::Arena> arena;  // keeps the memory alive
    std::span<std::uint8_t> data;                 // whole USB blocks, then the final short one
    bool ended_short = false;                     // the last transfer was shorter than asked
};

class IArenaDataProvider : public IDataProvider {
public:
    // Blocks until a span is there; a null item means that the provider stopped.
    virtual std::error_code GetData(std::unique_ptr<ArenaData>& data) = 0;
    // Drops what the consumer has not taken and the arenas in use; refused while running.
    virtual void Reset() = 0;
};

}  // namespace ovex::sdk::acquisition
