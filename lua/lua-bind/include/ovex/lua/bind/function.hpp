#pragma once

// C++ functions as Lua C functions. Every function made here runs inside the exception guard:
// a std::exception that leaves it is shown to the state's ExceptionHandler and raised as a Lua
// error whose value is the exception's text.
//
//   Fn<&F>            F a free function or a member function (the object is argument 1, as
//                     with the colon syntax); arguments and result go through Convert, and a
//                     parameter of type lua_State* receives the state without taking an argument
//   Overloads<&F...>  the first F whose arguments match in number and type
//   Field<&C::member> reads a data member of the object at argument 1
//   Raw<&F>           F a lua_CFunction that does its own stack work

#include <lua.hpp>

#include <array>
#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "ovex/lua/bind/convert.hpp"
#include "ovex/lua/bind/messages.hpp"
#include "ovex/lua/bind/userdata.hpp"

namespace ovex::lua::bind {

namespace detail {

// Runs body, turning an escaping std::exception into a Lua error.
int Guard(lua_State* L, lua_CFunction body);

template <lua_CFunction Body>
int Guarded(lua_State* L) {
    return Guard(L, Body);
}

template <typename F>
struct Signature;

template <typename R, typename... A, bool NE>
struct Signature<R (*)(A...) noexcept(NE)> {
    using Result = R;
    using Class = void;
    using Args = std::tuple<A...>;
};

template <typename R, typename C, typename... A, bool NE>
struct Signature<R (C::*)(A...) noexcept(NE)> {
    using Result = R;
    using Class = C;
    using Args = std::tuple<A...>;
};

template <typename R, typename C, typename... A, bool NE>
struct Signature<R (C::*)(A...) const noexcept(NE)> {
    using Result = R;
    using Class = const C;
    using Args = std::tuple<A...>;
};

template <typename A>
inline constexpr bool kIsState = std::is_same_v<std::remove_cv_t<A>, lua_State*>;

template <typename A>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <typename A>
using ConvertOf = Convert<std::remove_cvref_t<A>>;

// What one argument is held as while the call is made: a reference for user types, else a value.
template <typename A>
struct ArgHolderOf {
    using type = decltype(ConvertOf<A>::Get(nullptr, 0));
};
template <>
struct ArgHolderOf<lua_State*> {
    using type = lua_State*;
};
template <typename A>
using ArgHolder = typename ArgHolderOf<std::remove_cv_t<A>>::type;

template <typename A>
ArgHolder<A> GetArg(lua_State* L, int index) {
    if constexpr (kIsState<A>) {
        return L;
    } else {
        return ConvertOf<A>::Get(L, index);
    }
}

template <typename A>
bool IsArg(lua_State* L, int index) {
    if constexpr (kIsState<A>) {
        return true;
    } else {
        return ConvertOf<A>::Is(L, index);
    }
}

// Where each argument of F stands on the stack, and how many Lua arguments F takes.
template <typename F, typename Args = typename Signature<F>::Args>
struct Layout;

template <typename F, typename... A>
struct Layout<F, std::tuple<A...>> {
    static constexpr bool kMember = !std::is_void_v<typename Signature<F>::Class>;
    static constexpr int kFirst = kMember ? 2 : 1;

    static constexpr std::array<int, sizeof...(A)> Positions() {
        std::array<int, sizeof...(A)> positions{};
        const bool state[] = {kIsState<A>..., false};
        int next = kFirst;
        for (std::size_t i = 0; i < sizeof...(A); ++i) {
            positions[i] = next;
            next += state[i] ? 0 : 1;
        }
        return positions;
    }
    static constexpr std::array<int, sizeof...(A)> kPositions = Positions();

    static constexpr int kMaxArgs = kFirst - 1 + (0 + ... + (kIsState<A> ? 0 : 1));
    static constexpr int MinArgs() {
        const bool optional[] = {IsOptional<std::remove_cvref_t<A>>::value..., false};
        const bool state[] = {kIsState<A>..., false};
        int min = kMaxArgs;
        for (std::size_t i = sizeof...(A); i > 0; --i) {
            if (state[i - 1]) {
                continue;
            }
            if (!optional[i - 1]) {
                break;
            }
            --min;
        }
        return min;
    }
    static constexpr int kMinArgs = MinArgs();

    static bool Accepts(int count) { return count >= kMinArgs && count <= kMaxArgs; }

    static bool Matches(lua_State* L) {
        if constexpr (kMember) {
            using C = typename Signature<F>::Class;
            if (TryGet<C>(L, 1) == nullptr) {
                return false;
            }
        }
        return MatchArgs(L, std::index_sequence_for<A...>{});
    }

    template <std::size_t... I>
    static bool MatchArgs([[maybe_unused]] lua_State* L, std::index_sequence<I...>) {
        return (true && ... && IsArg<A>(L, kPositions[I]));
    }
};

template <typename R, typename Body>
int PushResult(lua_State* L, Body&& body) {
    if constexpr (std::is_void_v<R>) {
        body();
        return 0;
    } else {
        return ConvertOf<R>::Push(L, body());
    }
}

template <auto F, typename... A, std::size_t... I>
int CallWith([[maybe_unused]] lua_State* L, std::tuple<A...>*, std::index_sequence<I...>) {
    using S = Signature<decltype(F)>;
    using C = typename S::Class;
    constexpr auto& positions = Layout<decltype(F)>::kPositions;
    if constexpr (std::is_void_v<C>) {
        // A braced list evaluates left to right: argument errors come in argument order.
        std::tuple<ArgHolder<A>...> args{GetArg<A>(L, positions[I])...};
        return PushResult<typename S::Result>(L, [&]() -> decltype(auto) {
            return F(static_cast<ArgHolder<A>&&>(std::get<I>(args))...);
        });
    } else {
        C& self = Check<C>(L, 1);
        std::tuple<ArgHolder<A>...> args{GetArg<A>(L, positions[I])...};
        return PushResult<typename S::Result>(L, [&]() -> decltype(auto) {
            return (self.*F)(static_cast<ArgHolder<A>&&>(std::get<I>(args))...);
        });
    }
}

template <auto F>
int Invoke(lua_State* L) {
    using Args = typename Signature<decltype(F)>::Args;
    return CallWith<F>(L, static_cast<Args*>(nullptr),
                       std::make_index_sequence<std::tuple_size_v<Args>>{});
}

template <auto... F>
int InvokeOverload(lua_State* L) {
    const int count = lua_gettop(L);
    const int fitting = (0 + ... + (Layout<decltype(F)>::Accepts(count) ? 1 : 0));
    int results = 0;
    // With a single candidate for this number of arguments, its own conversions report what is
    // wrong with an argument.
    const bool called =
        (false || ... ||
         (Layout<decltype(F)>::Accepts(count) &&
          (fitting == 1 || Layout<decltype(F)>::Matches(L)) && ((results = Invoke<F>(L)), true)));
    if (!called) {
        return luaL_error(L, "%s", message::kNoMatchingOverload);
    }
    return results;
}

template <auto Member>
struct FieldOf;
template <typename M, typename C, M C::*Member>
struct FieldOf<Member> {
    static int Read(lua_State* L) { return ConvertOf<M>::Push(L, Check<C>(L, 1).*Member); }
};

}  // namespace detail

template <auto F>
inline constexpr lua_CFunction Fn = &detail::Guarded<&detail::Invoke<F>>;

template <auto... F>
inline constexpr lua_CFunction Overloads = &detail::Guarded<&detail::InvokeOverload<F...>>;

template <auto Member>
inline constexpr lua_CFunction Field = &detail::Guarded<&detail::FieldOf<Member>::Read>;

template <lua_CFunction F>
inline constexpr lua_CFunction Raw = &detail::Guarded<F>;

}  // namespace ovex::lua::bind
