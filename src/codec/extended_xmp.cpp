// The two parts are joined as text, which changes nothing in either: both are RDF about the same picture, and what stands in
// the RDF element of the one may stand in that of the other. Where names would lose their meaning on the way, the parts are
// left apart.
#include "codec/extended_xmp.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>

#include "codec/jpeg_segments.h"

namespace codec {

namespace {

constexpr std::string_view mark("http://ns.adobe.com/xmp/extension/\0", 35);
constexpr std::string_view name_of_rest = "xmpNote:HasExtendedXMP";
constexpr size_t id_size = 32;
constexpr size_t header_size = mark.size() + id_size + 8; // with the size of the rest, and where in it the piece belongs

std::string_view chars(const Bytes &bytes) { return {reinterpret_cast<const char *>(bytes.data()), bytes.size()}; }

uint32_t number_at(const Bytes &bytes, size_t position) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value = value << 8 | bytes[position + i];
    }
    return value;
}

// The pieces of the rest with an id, put together; none if they are incomplete.
std::optional<std::string> rest_with(std::string_view id, const std::vector<JpegSegment> &segments) {
    std::map<uint32_t, std::string_view> pieces;
    uint32_t size = 0;
    for (const JpegSegment &segment : segments) {
        if (is_extended_xmp(segment) && chars(segment.bytes).substr(mark.size(), id_size) == id) {
            size = number_at(segment.bytes, header_size - 8);
            pieces[number_at(segment.bytes, header_size - 4)] = chars(segment.bytes).substr(header_size);
        }
    }
    std::string rest;
    for (const auto &[offset, piece] : pieces) {
        if (offset != rest.size()) {
            return std::nullopt;
        }
        rest += piece;
    }
    return !rest.empty() && rest.size() == size ? std::optional(rest) : std::nullopt;
}

// Where the packet names its rest: name, equals sign and the id between quotes.
struct Reference {
    size_t begin;
    size_t end;
    std::string_view id;
};

std::optional<Reference> reference_in(std::string_view packet) {
    const size_t begin = packet.find(name_of_rest);
    const size_t quote = begin + name_of_rest.size() + 1;
    if (begin == std::string_view::npos || packet.size() < quote + id_size + 2 || packet[quote - 1] != '=' ||
        (packet[quote] != '"' && packet[quote] != '\'') || packet[quote + 1 + id_size] != packet[quote]) {
        return std::nullopt;
    }
    return Reference{begin, quote + id_size + 2, packet.substr(quote + 1, id_size)};
}

// The content of the RDF element; none if it uses names that the elements around it declare.
std::optional<std::string_view> content_of_rdf(std::string_view rest) {
    const size_t begin = rest.find("<rdf:RDF");
    const size_t content = rest.find('>', begin);
    const size_t end = rest.rfind("</rdf:RDF>");
    if (begin == std::string_view::npos || content == std::string_view::npos || end == std::string_view::npos ||
        content >= end) {
        return std::nullopt;
    }
    std::string_view around = rest.substr(0, content);
    for (size_t next = around.find("xmlns:"); next != std::string_view::npos; next = around.find("xmlns:")) {
        around.remove_prefix(next + 6);
        if (!around.starts_with("rdf=") && !around.starts_with("x=")) {
            return std::nullopt;
        }
    }
    return rest.substr(content + 1, end - content - 1);
}

} // namespace

bool is_extended_xmp(const JpegSegment &segment) {
    return segment.marker == app1 && segment.bytes.size() >= header_size && chars(segment.bytes).starts_with(mark);
}

Bytes whole_xmp(const Metadata &metadata) {
    std::string packet(chars(metadata.xmp));
    const std::optional<Reference> reference = reference_in(packet);
    const auto rest = reference ? rest_with(reference->id, metadata.jpeg_segments) : std::nullopt;
    const auto content = rest ? content_of_rdf(*rest) : std::nullopt;
    const size_t end = packet.rfind("</rdf:RDF>");
    if (!content || end == std::string::npos || end < reference->end) {
        return metadata.xmp;
    }
    packet.insert(end, *content);
    packet.erase(reference->begin, reference->end - reference->begin);
    return {packet.begin(), packet.end()};
}

} // namespace codec
