// Numbers from and to text, in the notation of the C locale whatever the locale of the process is.
#ifndef KO_KOHOST_NUMBERS_H
#define KO_KOHOST_NUMBERS_H

#include <cstdint>
#include <string>
#include <string_view>

namespace kohost {

// The fewest digits that give back the same number in single precision.
std::string shortest_text(float number);

// Reads the number that a text starts with, and removes it from the text. Gives false if there is none or it is out of range.
bool read_number(std::string_view &text, uint32_t &number);
bool read_number(std::string_view &text, int32_t &number);
bool read_number(std::string_view &text, double &number);

} // namespace kohost

#endif
