#pragma once

#include <cstddef>
#include <ranges>
#include <type_traits>
#include <utility>

namespace quelta {

// Overwrites memory with zeros. The compiler cannot optimise the writes away.
inline void wipe(void* memory, std::size_t size)
{
    volatile unsigned char* at = static_cast<unsigned char*>(memory);
    for (std::size_t i = 0; i < size; ++i) at[i] = 0;
}

// Owns a secret: a record of plain fields, an array, or a vector or string of plain elements. Overwrites the value with zeros
// when the owner is destroyed, is moved from or gets another value. Reserve the capacity first: a container that grows leaves an
// unwiped copy behind.
template <class T>
class Wiped {
public:
    Wiped() = default;
    template <class... Arguments>
    requires(sizeof...(Arguments) > 0 && std::is_constructible_v<T, Arguments...> &&
             !(... || std::is_same_v<std::remove_cvref_t<Arguments>, Wiped>)) explicit Wiped(Arguments&&... arguments)
        : value_(std::forward<Arguments>(arguments)...)
    {}
    Wiped(Wiped&& other) noexcept : value_(std::move(other.value_)) { other.clear(); }
    Wiped& operator=(Wiped other) noexcept
    {
        clear();
        value_ = std::move(other.value_);
        return *this;
    }
    ~Wiped() { clear(); }

    T& operator*() { return value_; }
    const T& operator*() const { return value_; }
    T* operator->() { return &value_; }
    const T* operator->() const { return &value_; }
    bool operator==(const Wiped&) const = default;

    // Overwrites the value with zeros. A vector or string is empty afterwards.
    void clear() noexcept
    {
        if constexpr (requires { value_.capacity(); }) {
            static_assert(std::is_trivially_copyable_v<std::ranges::range_value_t<T>>);
            // An earlier, longer value may have left bytes between size and capacity.
            value_.resize(value_.capacity());
            wipe(value_.data(), value_.size() * sizeof *value_.data());
            value_.clear();
        } else {
            static_assert(std::is_trivially_copyable_v<T>);
            wipe(&value_, sizeof value_);
        }
    }

private:
    T value_{};
};

} // namespace quelta
