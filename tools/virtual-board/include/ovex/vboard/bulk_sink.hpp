#pragma once

// The bulk OUT endpoint's receiver: keeps every byte the host wrote, in order.

#include <cstdint>
#include <mutex>
#include <vector>

#include "ovex/vboard/data_source.hpp"

namespace ovex::vboard {

class BulkSink final : public IDataSink {
public:
    void Consume(std::span<const std::uint8_t> data) override;
    std::vector<std::uint8_t> Received() const;

private:
    mutable std::mutex m_mutex;
    std::vector<std::uint8_t> m_received;
};

}  // namespace ovex::vboard
