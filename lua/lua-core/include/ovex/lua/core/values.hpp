#pragma once

// The values of the `Std` table as other bindings meet them. Bindings take a ByteSpan argument
// as a parameter of type std::span<std::uint8_t> (or std::span<const std::uint8_t>), and give
// an ErrorCode back by returning std::error_code; these helpers are for code that works on the
// stack itself. All need AddStdBindings to have run on the state.

#include <lua.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <system_error>

#include "ovex/lua/bind/convert.hpp"
#include "ovex/lua/bind/userdata.hpp"

namespace ovex::lua::core {

using ErrorCode = std::error_code;
using FilePath = std::filesystem::path;
// Made only by MemSlab.as_span; it keeps its block alive.
using ByteSpan = std::span<std::uint8_t>;

inline void PushErrorCode(lua_State* L, std::error_code code) {
    bind::PushObject(L, code);
}

// The code at `index`; nullopt if the value there isn't an ErrorCode.
inline std::optional<std::error_code> ToErrorCode(lua_State* L, int index) {
    const auto* code = bind::TryGet<std::error_code>(L, index);
    return code != nullptr ? std::optional<std::error_code>(*code) : std::nullopt;
}

// The ByteSpan at `index`; anything else raises "bad argument ... (ByteSpan expected, ...)".
inline std::span<std::uint8_t> CheckByteSpan(lua_State* L, int index) {
    return bind::Check<ByteSpan>(L, index);
}

}  // namespace ovex::lua::core

namespace ovex::lua::bind {

// A read-only view of a ByteSpan argument.
template <>
struct Convert<std::span<const std::uint8_t>> {
    static bool Is(lua_State* L, int index) { return TryGet<core::ByteSpan>(L, index) != nullptr; }
    static std::span<const std::uint8_t> Get(lua_State* L, int index) {
        return Check<core::ByteSpan>(L, index);
    }
};

}  // namespace ovex::lua::bind
