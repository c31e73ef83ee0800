#pragma once

// Registration of a C++ type for Lua. A user type has a metatable, used by every userdata of
// the type, and a type table that scripts see (`T.new(...)` and whatever else is put in it):
//
//   bind::UserType<Range>(L, "Range")
//       .Constructor(bind::Overloads<&MakeEmpty, &MakeRange>)
//       .Method("contains", bind::Fn<&Range::Contains>)
//       .Getter("min", bind::Field<&Range::min>)
//       .Meta("__tostring", bind::Fn<&RangeText>)
//       .SetIn(table);    // table.Range = the type table
//
// Fields are read-only: assigning to any name of a user type raises a Lua error. The type
// table is kept by the metatable, so the builder itself holds nothing and may go at any time.

#include <lua.hpp>

#include <cstdint>
#include <span>
#include <string>

#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/userdata.hpp"

namespace ovex::lua::bind {

namespace detail {

enum class MemberKind { kMethod, kGetter, kMeta, kElementRead, kElementWrite };

// Creates the metatable and the type table; raises if the key is already registered.
void RegisterType(lua_State* L, const void* type_key, const char* name);
void AddMember(lua_State* L, const void* type_key, MemberKind kind, const char* name,
               lua_CFunction function);
void PushTypeTable(lua_State* L, const void* type_key);

// The container protocol over a block of bytes; the object is argument 1.
int ReadElement(lua_State* L, std::span<const std::uint8_t> bytes);
int WriteElement(lua_State* L, std::span<std::uint8_t> bytes);
int FindElement(lua_State* L, std::span<const std::uint8_t> bytes);
int RefuseClear(lua_State* L);
int RefuseInsert(lua_State* L);
int RefuseAdd(lua_State* L);

template <typename T, std::span<std::uint8_t> (*Bytes)(T&)>
struct ByteContainerOf {
    static int Read(lua_State* L) { return ReadElement(L, Bytes(Check<T>(L, 1))); }
    static int Write(lua_State* L) { return WriteElement(L, Bytes(Check<T>(L, 1))); }
    static int Find(lua_State* L) { return FindElement(L, Bytes(Check<T>(L, 1))); }
    static int Length(lua_State* L) {
        lua_pushinteger(L, static_cast<lua_Integer>(Bytes(Check<T>(L, 1)).size()));
        return 1;
    }
};

}  // namespace detail

template <typename T>
class UserType {
public:
    UserType(lua_State* L, const char* name) : m_state(L), m_name(name) {
        detail::RegisterType(L, TypeKey<T>(), name);
    }

    // T.new(...)
    UserType& Constructor(lua_CFunction function) { return Static("new", function); }

    // T.name(...), a function in the type table.
    UserType& Static(const char* name, lua_CFunction function) {
        PushTable();
        lua_pushcfunction(m_state, function);
        lua_setfield(m_state, -2, name);
        lua_pop(m_state, 1);
        return *this;
    }

    // object:name(...)
    UserType& Method(const char* name, lua_CFunction function) {
        return Add(detail::MemberKind::kMethod, name, function);
    }

    // object.name, computed by function(object).
    UserType& Getter(const char* name, lua_CFunction function) {
        return Add(detail::MemberKind::kGetter, name, function);
    }

    // A metamethod such as "__tostring", "__eq" or "__len".
    UserType& Meta(const char* name, lua_CFunction function) {
        return Add(detail::MemberKind::kMeta, name, function);
    }

    // Makes T a fixed-size container of the bytes that Bytes gives: object[i] reads and writes
    // the byte at 1-based position i (reads outside give nil), #object, object:find(byte).
    // It does not grow: clear, insert and add raise "sol: cannot call <name> on '<type>'".
    template <std::span<std::uint8_t> (*Bytes)(T&)>
    UserType& ByteContainer() {
        using Container = detail::ByteContainerOf<T, Bytes>;
        Add(detail::MemberKind::kElementRead, nullptr, Raw<&Container::Read>);
        Add(detail::MemberKind::kElementWrite, nullptr, Raw<&Container::Write>);
        Add(detail::MemberKind::kMeta, "__len", Raw<&Container::Length>);
        Add(detail::MemberKind::kMethod, "find", Raw<&Container::Find>);
        Add(detail::MemberKind::kMethod, "clear", &detail::RefuseClear);
        Add(detail::MemberKind::kMethod, "insert", &detail::RefuseInsert);
        return Add(detail::MemberKind::kMethod, "add", &detail::RefuseAdd);
    }

    void PushTable() const { detail::PushTypeTable(m_state, TypeKey<T>()); }

    // table[name] = the type table; `table` is a stack index.
    UserType& SetIn(int table) {
        table = lua_absindex(m_state, table);
        PushTable();
        lua_setfield(m_state, table, m_name.c_str());
        return *this;
    }

private:
    UserType& Add(detail::MemberKind kind, const char* name, lua_CFunction function) {
        detail::AddMember(m_state, TypeKey<T>(), kind, name, function);
        return *this;
    }

    lua_State* m_state;
    std::string m_name;
};

}  // namespace ovex::lua::bind
