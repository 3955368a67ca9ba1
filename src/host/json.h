// JSON as this program writes it: one object per line, members in the order in which they are set, numbers in single precision
// as the library has them, a NaN or an infinity as null.
#ifndef KO_HOST_JSON_H
#define KO_HOST_JSON_H

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace host {

using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, int64_t, uint64_t, float>;

// Sets a member to a file's name. A name that is not valid UTF-8 has its bytes in a second member as hexadecimal digits: JSON
// cannot hold them otherwise.
inline void set_name(Json &object, const std::string &key, const std::string &name) {
    object[key] = name;
    try {
        object[key].dump();
    } catch (const Json::type_error &) {
        std::string digits;
        for (const char c : name) {
            constexpr const char *hexadecimal = "0123456789abcdef";
            const auto byte = static_cast<unsigned char>(c);
            digits += {hexadecimal[byte / 16], hexadecimal[byte % 16]};
        }
        object[key + "_hex"] = digits;
    }
}

// The object without a line end. Bytes of a file's name that are not valid UTF-8 become U+FFFD.
inline std::string line_of(const Json &object) { return object.dump(-1, ' ', false, Json::error_handler_t::replace); }

} // namespace host

#endif
