// A resource is "8BIM", a number of two bytes, a name that begins with its length, a length of four bytes, and that many bytes;
// name and bytes are each padded to an even length. Everything is big-endian.
#include "codec/photoshop.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace codec {

namespace {

constexpr std::string_view signature = "8BIM";
constexpr uint32_t iptc_number = 0x0404;

uint32_t number_at(std::span<const uint8_t> bytes, size_t position, size_t size) {
    uint32_t value = 0;
    for (const uint8_t byte : bytes.subspan(position, size)) {
        value = value << 8 | byte;
    }
    return value;
}

constexpr size_t even(size_t size) { return size + size % 2; }

struct Resource {
    uint32_t number;
    std::span<const uint8_t> bytes;
};

// Removes the first resource from a list; none at its end or if it is damaged.
std::optional<Resource> take(std::span<const uint8_t> &list) {
    constexpr size_t name_at = signature.size() + 2;
    if (list.size() <= name_at || !std::equal(signature.begin(), signature.end(), list.begin())) {
        return std::nullopt;
    }
    const size_t size_at = name_at + even(size_t{list[name_at]} + 1);
    if (list.size() < size_at + 4) {
        return std::nullopt;
    }
    const size_t size = number_at(list, size_at, 4);
    const size_t begin = size_at + 4;
    if (list.size() - begin < size) {
        return std::nullopt;
    }
    const Resource resource{number_at(list, signature.size(), 2), list.subspan(begin, size)};
    list = list.subspan(std::min(begin + even(size), list.size()));
    return resource;
}

void add_iptc(Bytes &resources, std::span<const uint8_t> iptc) {
    resources.insert(resources.end(), signature.begin(), signature.end());
    const std::array<uint8_t, 4> number_and_name = {iptc_number >> 8, iptc_number & 0xff, 0, 0};
    resources.insert(resources.end(), number_and_name.begin(), number_and_name.end());
    for (int shift = 24; shift >= 0; shift -= 8) {
        resources.push_back(static_cast<uint8_t>(iptc.size() >> shift));
    }
    resources.insert(resources.end(), iptc.begin(), iptc.end());
    resources.resize(even(resources.size()));
}

} // namespace

Bytes iptc_among(std::span<const uint8_t> resources) {
    while (const std::optional<Resource> resource = take(resources)) {
        if (resource->number == iptc_number) {
            return {resource->bytes.begin(), resource->bytes.end()};
        }
    }
    return {};
}

Bytes without_padding(Bytes iptc) {
    constexpr size_t head_size = 5; // a mark, two numbers, and the length of two bytes
    constexpr uint8_t mark = 0x1c;
    constexpr size_t longest = 0x7fff; // a longer one has its length in another form, and is left as it is
    size_t end = 0;
    while (iptc.size() - end >= head_size && iptc[end] == mark) {
        const size_t size = number_at(iptc, end + 3, 2);
        if (size > longest || size > iptc.size() - end - head_size) {
            return iptc;
        }
        end += head_size + size;
    }
    const bool is_padding = iptc.size() - end < 4 && std::all_of(iptc.begin() + static_cast<std::ptrdiff_t>(end), iptc.end(),
                                                                 [](uint8_t byte) { return byte == 0; });
    iptc.resize(is_padding ? end : iptc.size());
    return iptc;
}

Bytes resources_with_iptc(const Metadata &metadata) {
    Bytes resources = metadata.photoshop;
    if (!metadata.iptc.empty() && iptc_among(resources).empty()) {
        resources.resize(even(resources.size()));
        add_iptc(resources, metadata.iptc);
    }
    return resources;
}

} // namespace codec
