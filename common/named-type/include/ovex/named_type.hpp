#pragma once

namespace ovex {

// A number that carries its meaning in its type, so that a state id can't be passed where a
// command id is expected. The tag is an empty struct that exists only to tell the kinds apart.
template <typename T, typename Tag>
class NamedType {
public:
    using ValueType = T;

    constexpr NamedType() noexcept = default;
    constexpr explicit NamedType(T value) noexcept : m_value(value) {}

    [[nodiscard]] constexpr T get() const noexcept { return m_value; }

    friend constexpr bool operator==(const NamedType&, const NamedType&) = default;

private:
    T m_value{};
};

}  // namespace ovex
