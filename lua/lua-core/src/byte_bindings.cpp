// Std.MemSlab and Std.ByteSpan: byte blocks for the byte arguments of the device bindings.

#include <string_view>

#include "bindings.hpp"
#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/user_type.hpp"
#include "ovex/lua/core/mem_slab.hpp"
#include "ovex/lua/core/values.hpp"

namespace ovex::lua::core::detail {

namespace {

using impl::MemSlab;

std::string_view AsText(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

MemSlab SlabOfSize(std::size_t size) {
    return MemSlab(size);
}
MemSlab SlabOfText(std::string_view bytes) {
    return MemSlab(bytes);
}
std::size_t SlabSize(const MemSlab& slab) {
    return slab.size();
}
void* SlabData(MemSlab& slab) {
    return slab.data();
}
std::string_view SlabText(MemSlab& slab) {
    return AsText(slab.as_span());
}
std::span<std::uint8_t> SlabBytes(MemSlab& slab) {
    return slab.as_span();
}

// The span holds on to its slab, so it can't outlive the bytes it shows.
int SlabAsSpan(lua_State* L) {
    MemSlab& slab = bind::Check<MemSlab>(L, 1);
    bind::PushObject(L, slab.as_span());
    bind::KeepAlive(L, -1, 1);
    return 1;
}

// Iterator closure; upvalues: the slab and the next position.
int NextByte(lua_State* L) {
    const auto bytes = bind::Check<MemSlab>(L, lua_upvalueindex(1)).as_span();
    const lua_Integer position = lua_tointeger(L, lua_upvalueindex(2));
    if (position > static_cast<lua_Integer>(bytes.size())) {
        return 0;
    }
    lua_pushinteger(L, position + 1);
    lua_replace(L, lua_upvalueindex(2));
    lua_pushinteger(L, bytes[static_cast<std::size_t>(position - 1)]);
    return 1;
}

// for byte in slab:as_iter() do ... end
int SlabIterator(lua_State* L) {
    bind::Check<MemSlab>(L, 1);
    lua_settop(L, 1);
    lua_pushinteger(L, 1);
    lua_pushcclosure(L, bind::Raw<&NextByte>, 2);
    return 1;
}

std::size_t SpanSize(const ByteSpan& span) {
    return span.size();
}
void* SpanData(ByteSpan& span) {
    return span.data();
}
std::string_view SpanText(ByteSpan& span) {
    return AsText(span);
}
std::span<std::uint8_t> SpanBytes(ByteSpan& span) {
    return span;
}

}  // namespace

void AddMemSlab(lua_State* L, int std_table) {
    bind::UserType<MemSlab>(L, "MemSlab")
        .Constructor(bind::Overloads<&SlabOfSize, &SlabOfText>)
        .Method("size", bind::Fn<&SlabSize>)
        .Method("data", bind::Fn<&SlabData>)
        .Method("as_span", bind::Raw<&SlabAsSpan>)
        .Method("as_iter", bind::Raw<&SlabIterator>)
        .Meta("__tostring", bind::Fn<&SlabText>)
        .ByteContainer<&SlabBytes>()
        .SetIn(std_table);
}

void AddByteSpan(lua_State* L, int std_table) {
    // No constructor: spans come from MemSlab.as_span only.
    bind::UserType<ByteSpan>(L, "ByteSpan")
        .Method("size", bind::Fn<&SpanSize>)
        .Method("data", bind::Fn<&SpanData>)
        .Meta("__tostring", bind::Fn<&SpanText>)
        .ByteContainer<&SpanBytes>()
        .SetIn(std_table);
}

}  // namespace ovex::lua::core::detail
