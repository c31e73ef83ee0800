// Std.Bitmanip: the shared byte and bit helpers, under their own names.

#include "bindings.hpp"
#include "bitmanip/bitmanip.hpp"
#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/core/values.hpp"

namespace ovex::lua::core::detail {

namespace {

namespace bm = ovex::bitmanip;

constexpr luaL_Reg kBitmanipFunctions[] = {
    {"get_byte_u32", bind::Fn<&bm::get_byte_u32>},
    {"bytes_to_u16", bind::Fn<&bm::bytes_to_u16>},
    {"bytes_to_u32", bind::Fn<&bm::bytes_to_u32>},
    {"u16_to_u32", bind::Fn<&bm::u16_to_u32>},
    {"float_from_span_le", bind::Fn<&bm::float_from_span_le>},
    {"float_from_span_be", bind::Fn<&bm::float_from_span_be>},
    {"float_to_span_le", bind::Fn<&bm::float_to_span_le>},
    {"float_to_span_be", bind::Fn<&bm::float_to_span_be>},
    {"u32_from_span_le", bind::Fn<&bm::u32_from_span_le>},
    {"u32_from_span_be", bind::Fn<&bm::u32_from_span_be>},
    {"u32_to_span_le", bind::Fn<&bm::u32_to_span_le>},
    {"u32_to_span_be", bind::Fn<&bm::u32_to_span_be>},
    {"i32_from_span_le", bind::Fn<&bm::i32_from_span_le>},
    {"i32_from_span_be", bind::Fn<&bm::i32_from_span_be>},
    {"i32_to_span_le", bind::Fn<&bm::i32_to_span_le>},
    {"i32_to_span_be", bind::Fn<&bm::i32_to_span_be>},
    {"bit_reverse_u8", bind::Fn<&bm::bit_reverse_u8>},
    {"bit_reverse_u16", bind::Fn<&bm::bit_reverse_u16>},
    {"bit_reverse_u32", bind::Fn<&bm::bit_reverse_u32>},
    {"bit_reverse_span", bind::Fn<&bm::bit_reverse_span>},
    {"get_bit_slice", bind::Fn<&bm::get_bit_slice>},
    {"set_bit_slice", bind::Fn<&bm::set_bit_slice>},
    {"left_shift_bits", bind::Fn<&bm::left_shift_bits>},
    {"lower_nibble", bind::Fn<&bm::lower_nibble>},
    {"upper_nibble", bind::Fn<&bm::upper_nibble>},
    {"get_bit", bind::Fn<&bm::get_bit>},
    {"write_bit", bind::Fn<&bm::write_bit>},
    {nullptr, nullptr},
};

}  // namespace

void AddBitmanip(lua_State* L, int std_table) {
    luaL_newlib(L, kBitmanipFunctions);
    lua_setfield(L, std_table, "Bitmanip");
}

}  // namespace ovex::lua::core::detail
