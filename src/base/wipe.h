#pragma once

#include <cstddef>
#include <ranges>
#include <type_traits>
#include <utility>

namespace quelta {

// Overwrites memory with zeros in a way that the compiler keeps.
inline void wipe(void* memory, std::size_t size)
{
    volatile unsigned char* at = static_cast<unsigned char*>(memory);
    for (std::size_t i = 0; i < size; ++i) at[i] = 0;
}

// Owns what must not stay in memory: a record of plain fields, an array, or a vector or string of such. Overwritten when it goes,
// when it is moved from, and before another value takes its place. A container that outgrows its room leaves a copy behind, so
// reserve first.
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

    // What is left is zeros, or nothing where the value can be empty.
    void clear() noexcept
    {
        if constexpr (requires { value_.capacity(); }) {
            static_assert(std::is_trivially_copyable_v<std::ranges::range_value_t<T>>);
            // What an earlier, longer value left behind lies between size and capacity.
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
