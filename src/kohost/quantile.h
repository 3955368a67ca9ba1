#ifndef KO_KOHOST_QUANTILE_H
#define KO_KOHOST_QUANTILE_H

#include <algorithm>
#include <cstddef>

namespace kohost {

// The value of an array or a vector below which a share of all its values lies; 0 of none.
template <class Values> float quantile(Values values, double share) {
    if (values.empty()) {
        return 0.0f;
    }
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

} // namespace kohost

#endif
