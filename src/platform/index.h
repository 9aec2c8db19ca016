// The index of a fixed-capacity array from a count or position that the records hold as int.
#pragma once

#include <cstddef>

namespace tervo {

inline constexpr std::size_t At(int i) {
    return static_cast<std::size_t>(i);
}

} // namespace tervo
