// The same bits as a value of another type: std::bit_cast, which not all standard libraries of supported compilers have.
#ifndef KO_SRC_BITS_H
#define KO_SRC_BITS_H

namespace ko {

template <class To, class From> constexpr To bit_cast(const From &value) { return __builtin_bit_cast(To, value); }

} // namespace ko

#endif
