#pragma once

// C++ objects inside Lua full userdata. Each userdata starts with a Header that says where its
// object lives and how to destroy it; the held value follows: the object itself, or a shared
// owner of it. A state knows a type by its metatable, kept in the registry under the type's key
// (see UserType). Finalization (__gc, or closing the state) runs the C++ destructor.

#include <lua.hpp>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace ovex::lua::bind {

// The registry key of T's metatable: an address unique to T.
template <typename T>
const void* TypeKey() noexcept {
    static const char key = 0;
    return &key;
}

namespace detail {

struct Header {
    const void* type;  // the key it was made for; a metatable swapped in by a script won't match
    void* object;      // null once the object is destroyed
    void (*destroy)(Header*) noexcept;
    std::shared_ptr<void> (*share)(Header*);  // null for objects held by value
};

// Lua aligns userdata memory for the members of LUAI_MAXALIGN.
inline constexpr std::size_t kUserdataAlignment = std::max(
    {alignof(lua_Number), alignof(double), alignof(void*), alignof(lua_Integer), alignof(long)});

template <typename Held>
inline constexpr std::size_t kHeldOffset = (sizeof(Header) + alignof(Held) - 1) / alignof(Held) *
                                           alignof(Held);

template <typename Held>
Held* HeldIn(Header* header) noexcept {
    return std::launder(
        reinterpret_cast<Held*>(reinterpret_cast<char*>(header) + kHeldOffset<Held>));
}

template <typename Held>
void DestroyHeld(Header* header) noexcept {
    std::destroy_at(HeldIn<Held>(header));
}

// Pushes a new userdata, with one user value, that holds `held`; no metatable yet. If the
// move throws, the bare userdata is garbage that owns nothing.
template <typename Held>
Header* PushHeld(lua_State* L, const void* type_key, Held&& held) {
    static_assert(alignof(Held) <= kUserdataAlignment, "Lua cannot align this type");
    void* memory = lua_newuserdatauv(L, kHeldOffset<Held> + sizeof(Held), 1);
    Held* stored = new (static_cast<char*>(memory) + kHeldOffset<Held>) Held(std::move(held));
    return new (memory) Header{type_key, stored, &DestroyHeld<Held>, nullptr};
}

// Raises a Lua error unless a type with this key is registered in the state.
void RequireRegistered(lua_State* L, const void* type_key);
// Gives the userdata on top of the stack the metatable of the registered type.
void AttachMetatable(lua_State* L, const void* type_key);
// The header of the userdata at `index` if its type is the registered one, else null.
Header* FindHeader(lua_State* L, int index, const void* type_key);
// The object at `index`; raises the argument error that names the expected type.
void* CheckObject(lua_State* L, int index, const void* type_key);

// The stash: PushStashMetatable, then PushHeld, then StoreStash sets registry[key] to the
// userdata, which is finalized like any other.
void PushStashMetatable(lua_State* L);
void StoreStash(lua_State* L, const void* key);
void* StashedObject(lua_State* L, const void* key);

}  // namespace detail

// The object of type T at `index`, or null if the value there isn't one.
template <typename T>
T* TryGet(lua_State* L, int index) {
    using Type = std::remove_cv_t<T>;
    detail::Header* header = detail::FindHeader(L, index, TypeKey<Type>());
    return header == nullptr ? nullptr : static_cast<Type*>(header->object);
}

// The object of type T at `index`; anything else raises "bad argument #n ... (T expected, ...)".
template <typename T>
std::remove_cv_t<T>& Check(lua_State* L, int index) {
    using Type = std::remove_cv_t<T>;
    return *static_cast<Type*>(detail::CheckObject(L, index, TypeKey<Type>()));
}

// The shared owner of the T at `index`; null if there is no T or it is held by value.
template <typename T>
std::shared_ptr<T> Share(lua_State* L, int index) {
    detail::Header* header = detail::FindHeader(L, index, TypeKey<T>());
    if (header == nullptr || header->object == nullptr || header->share == nullptr) {
        return nullptr;
    }
    return std::static_pointer_cast<T>(header->share(header));
}

// Pushes a userdata that holds its own T, moved from `value`.
template <typename T>
void PushObject(lua_State* L, T value) {
    detail::RequireRegistered(L, TypeKey<T>());
    detail::PushHeld(L, TypeKey<T>(), std::move(value));
    detail::AttachMetatable(L, TypeKey<T>());
}

// Pushes a userdata that shares the ownership of *owner; nil for an empty owner.
template <typename T>
void PushShared(lua_State* L, std::shared_ptr<T> owner) {
    if (!owner) {
        lua_pushnil(L);
        return;
    }
    detail::RequireRegistered(L, TypeKey<T>());
    T* object = owner.get();
    detail::Header* header = detail::PushHeld(L, TypeKey<T>(), std::move(owner));
    header->object = object;
    header->share = [](detail::Header* h) -> std::shared_ptr<void> {
        return *detail::HeldIn<std::shared_ptr<T>>(h);
    };
    detail::AttachMetatable(L, TypeKey<T>());
}

// Keeps the value at `kept` alive for as long as the userdata at `holder` lives: for views such
// as a span, whose bytes belong to another userdata.
inline void KeepAlive(lua_State* L, int holder, int kept) {
    holder = lua_absindex(L, holder);
    lua_pushvalue(L, kept);
    lua_setiuservalue(L, holder, 1);
}

// Per-state C++ values that Lua doesn't see: registry[key] holds a T until the state closes or
// the value is replaced.
template <typename T>
void Stash(lua_State* L, const void* key, T value) {
    detail::PushStashMetatable(L);
    detail::PushHeld(L, key, std::move(value));
    detail::StoreStash(L, key);
}

template <typename T>
T* Stashed(lua_State* L, const void* key) {
    return static_cast<T*>(detail::StashedObject(L, key));
}

}  // namespace ovex::lua::bind
