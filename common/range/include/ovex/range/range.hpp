#pragma once

namespace ovex::range {

// A closed interval [min, max]. A maximum below the minimum (or a NaN maximum) is stored as the
// minimum, so min() <= max() holds for every Range that was built from comparable values.
template <typename T>
class Range {
public:
    constexpr Range() noexcept = default;
    constexpr Range(T min, T max) noexcept : m_min(min), m_max(max >= min ? max : min) {}

    [[nodiscard]] constexpr T min() const noexcept { return m_min; }
    [[nodiscard]] constexpr T max() const noexcept { return m_max; }

    // A NaN compares false with everything, so it is never inside.
    [[nodiscard]] constexpr bool Contains(T value) const noexcept {
        return m_min <= value && value <= m_max;
    }

    friend constexpr bool operator==(const Range&, const Range&) = default;

private:
    T m_min{};
    T m_max{};
};

}  // namespace ovex::range
