#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace ovex::lua::core::impl {

// An owning block of bytes whose size is fixed when it is made, so that a span over it stays
// valid for the block's life.
class MemSlab {
public:
    // `size` zero bytes.
    explicit MemSlab(std::size_t size) : m_bytes(size) {}
    // A copy of the bytes, embedded zeros included.
    explicit MemSlab(std::string_view bytes) : m_bytes(bytes.begin(), bytes.end()) {}

    std::size_t size() const noexcept { return m_bytes.size(); }
    std::uint8_t* data() noexcept { return m_bytes.data(); }
    std::span<std::uint8_t> as_span() noexcept { return m_bytes; }

private:
    std::vector<std::uint8_t> m_bytes;
};

}  // namespace ovex::lua::core::impl
