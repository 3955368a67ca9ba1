// A colour profile for tests that follows a simple rule: cyan removes red, magenta green, yellow blue, and black all of them.
#ifndef KO_TESTS_HOST_CMYK_PROFILE_H
#define KO_TESTS_HOST_CMYK_PROFILE_H

#include <array>
#include <cstdint>
#include <string>

namespace ko_test {

std::string cmyk_profile();

// Red, green and blue of inks, from 0 to 255, where 255 is full ink.
std::array<uint8_t, 3> rgb_of(const std::array<uint8_t, 4> &inks);

} // namespace ko_test

#endif
