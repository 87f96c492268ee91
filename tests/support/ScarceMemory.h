/// Memory that ends at a chosen allocation of this thread, by C++ or by libcrypto.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace scarce {

/// The allocations to the one that fails; none fails at 0.
inline thread_local int left = 0;
/// What that becomes when the present Plenty ends, unless it is 0.
inline thread_local int next = 0;
/// Takes of each allocation a number that stands for the place in the code and its callers.
inline thread_local std::vector<std::size_t>* places = nullptr;

/// Whoever holds this is not meant.
class Plenty {
public:
    Plenty() = default;
    Plenty(const Plenty&) = delete;
    Plenty& operator=(const Plenty&) = delete;
    ~Plenty()
    {
        left = next != 0 ? std::exchange(next, 0) : left != 0 ? left : m_left;
        places = m_places;
    }

private:
    const int m_left = std::exchange(left, 0);
    std::vector<std::size_t>* const m_places = std::exchange(places, nullptr);
};

} // namespace scarce
