#pragma once

// Conversion of values between the Lua stack and C++. Convert<T> has
//   static bool Is(lua_State*, int index);    // the value there converts to T
//   static T Get(lua_State*, int index);      // the value, or a Lua argument error
//   static int Push(lua_State*, T value);     // pushes, returns the number of values pushed
// Numbers are checked strictly: an integer argument must hold an integral value inside the
// range of its C++ type. Any class type without a conversion of its own is a user type.

#include <lua.hpp>

#include <concepts>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "ovex/lua/bind/messages.hpp"
#include "ovex/lua/bind/userdata.hpp"

namespace ovex::lua::bind {

namespace detail {

enum class IntegerRead { kOk, kNotANumber, kNotAnInteger, kOutOfRange };

IntegerRead ReadInteger(lua_State* L, int index, lua_Integer min, lua_Integer max,
                        lua_Integer& value);
[[noreturn]] void RaiseIntegerError(lua_State* L, int index, IntegerRead result, lua_Integer min,
                                    lua_Integer max);
lua_Number CheckNumber(lua_State* L, int index);
// The string at `index` (a string, not a number); raises the argument error otherwise.
std::string_view CheckString(lua_State* L, int index);
bool CheckBoolean(lua_State* L, int index);
// "bad argument #n ... ('<type>' is not held by a shared owner)".
[[noreturn]] void RaiseNotShared(lua_State* L, int index);

template <typename T>
inline constexpr lua_Integer kLowest = static_cast<lua_Integer>(std::numeric_limits<T>::min());
template <typename T>
inline constexpr lua_Integer kHighest =
    std::cmp_greater(std::numeric_limits<T>::max(), LUA_MAXINTEGER)
        ? LUA_MAXINTEGER
        : static_cast<lua_Integer>(std::numeric_limits<T>::max());

template <typename T>
T GetInteger(lua_State* L, int index) {
    lua_Integer value = 0;
    const IntegerRead result = ReadInteger(L, index, kLowest<T>, kHighest<T>, value);
    if (result != IntegerRead::kOk) {
        RaiseIntegerError(L, index, result, kLowest<T>, kHighest<T>);
    }
    return static_cast<T>(value);
}

template <typename T>
bool IsInteger(lua_State* L, int index) {
    lua_Integer value = 0;
    return ReadInteger(L, index, kLowest<T>, kHighest<T>, value) == IntegerRead::kOk;
}

}  // namespace detail

// User types, registered in the state with UserType<T>.
template <typename T>
struct Convert {
    static_assert(std::is_class_v<T>, "no Lua conversion for this type");
    static bool Is(lua_State* L, int index) { return TryGet<T>(L, index) != nullptr; }
    static T& Get(lua_State* L, int index) { return Check<T>(L, index); }
    static int Push(lua_State* L, T value) {
        PushObject(L, std::move(value));
        return 1;
    }
};

template <>
struct Convert<bool> {
    static bool Is(lua_State* L, int index) { return lua_type(L, index) == LUA_TBOOLEAN; }
    static bool Get(lua_State* L, int index) { return detail::CheckBoolean(L, index); }
    static int Push(lua_State* L, bool value) {
        lua_pushboolean(L, value ? 1 : 0);
        return 1;
    }
};

template <typename T>
requires std::integral<T> &&(!std::same_as<T, bool>)struct Convert<T> {
    static bool Is(lua_State* L, int index) { return detail::IsInteger<T>(L, index); }
    static T Get(lua_State* L, int index) { return detail::GetInteger<T>(L, index); }
    static int Push(lua_State* L, T value) {
        lua_pushinteger(L, static_cast<lua_Integer>(value));
        return 1;
    }
};

// Enumerations travel as their numeric values.
template <typename T>
requires std::is_enum_v<T>
struct Convert<T> {
    using Underlying = std::underlying_type_t<T>;
    static bool Is(lua_State* L, int index) { return detail::IsInteger<Underlying>(L, index); }
    static T Get(lua_State* L, int index) {
        return static_cast<T>(detail::GetInteger<Underlying>(L, index));
    }
    static int Push(lua_State* L, T value) {
        lua_pushinteger(L, static_cast<lua_Integer>(value));
        return 1;
    }
};

template <std::floating_point T>
struct Convert<T> {
    static bool Is(lua_State* L, int index) { return lua_type(L, index) == LUA_TNUMBER; }
    static T Get(lua_State* L, int index) { return static_cast<T>(detail::CheckNumber(L, index)); }
    static int Push(lua_State* L, T value) {
        lua_pushnumber(L, static_cast<lua_Number>(value));
        return 1;
    }
};

// A view into the Lua string; valid while that string stays on the stack.
template <>
struct Convert<std::string_view> {
    static bool Is(lua_State* L, int index) { return lua_type(L, index) == LUA_TSTRING; }
    static std::string_view Get(lua_State* L, int index) { return detail::CheckString(L, index); }
    static int Push(lua_State* L, std::string_view value) {
        lua_pushlstring(L, value.data(), value.size());
        return 1;
    }
};

template <>
struct Convert<std::string> {
    static bool Is(lua_State* L, int index) { return lua_type(L, index) == LUA_TSTRING; }
    static std::string Get(lua_State* L, int index) {
        return std::string(detail::CheckString(L, index));
    }
    static int Push(lua_State* L, const std::string& value) {
        lua_pushlstring(L, value.data(), value.size());
        return 1;
    }
};

template <>
struct Convert<const char*> {
    static bool Is(lua_State* L, int index) { return lua_type(L, index) == LUA_TSTRING; }
    static const char* Get(lua_State* L, int index) { return detail::CheckString(L, index).data(); }
    static int Push(lua_State* L, const char* value) {
        lua_pushstring(L, value);  // nil for null
        return 1;
    }
};

// An address for C code; Lua can only pass it on.
template <>
struct Convert<void*> {
    static int Push(lua_State* L, void* value) {
        lua_pushlightuserdata(L, value);
        return 1;
    }
};

// An optional argument: absent or nil gives nullopt. As a result: the value, or nil.
template <typename T>
struct Convert<std::optional<T>> {
    static bool Is(lua_State* L, int index) {
        return lua_isnoneornil(L, index) || Convert<T>::Is(L, index);
    }
    static std::optional<T> Get(lua_State* L, int index) {
        if (lua_isnoneornil(L, index)) {
            return std::nullopt;
        }
        return Convert<T>::Get(L, index);
    }
    static int Push(lua_State* L, std::optional<T> value) {
        if (!value) {
            lua_pushnil(L);
            return 1;
        }
        return Convert<T>::Push(L, std::move(*value));
    }
};

// A result that is one of several types, such as a value or an error code.
template <typename... T>
struct Convert<std::variant<T...>> {
    static int Push(lua_State* L, std::variant<T...> value) {
        return std::visit(
            [L](auto&& alternative) {
                using Alternative = std::remove_cvref_t<decltype(alternative)>;
                return Convert<Alternative>::Push(L,
                                                  std::forward<decltype(alternative)>(alternative));
            },
            std::move(value));
    }
};

// A result list: a Lua sequence, 1-based.
template <typename T>
struct Convert<std::vector<T>> {
    static int Push(lua_State* L, std::vector<T> values) {
        lua_createtable(L, static_cast<int>(values.size()), 0);
        lua_Integer position = 1;
        for (auto& value : values) {
            Convert<T>::Push(L, std::move(value));
            lua_rawseti(L, -2, position++);
        }
        return 1;
    }
};

// A user type held by a shared owner; an argument must have been pushed with PushShared.
template <typename T>
struct Convert<std::shared_ptr<T>> {
    static bool Is(lua_State* L, int index) { return TryGet<T>(L, index) != nullptr; }
    static std::shared_ptr<T> Get(lua_State* L, int index) {
        Check<T>(L, index);
        auto owner = Share<T>(L, index);
        if (!owner) {
            detail::RaiseNotShared(L, index);
        }
        return owner;
    }
    static int Push(lua_State* L, std::shared_ptr<T> value) {
        PushShared(L, std::move(value));
        return 1;
    }
};

}  // namespace ovex::lua::bind
