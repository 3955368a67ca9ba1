#include "codec/png_chunks.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "codec/left_out.h"

namespace codec {

namespace {

// About the whole picture or its colours, which stay.
constexpr std::array<std::string_view, 7> kept = {"cICP", "cLLI", "cLLi", "mDCV", "mDCv", "sCAL", "tIME"};

// About how the old file was encoded: nothing is lost with them.
constexpr std::array<std::string_view, 1> without_content = {"iDOT"};

template <size_t Count> bool is_one_of(const std::array<std::string_view, Count> &names, const std::string &name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// A small fourth letter says that the chunk does not depend on the pixels.
bool is_safe(const std::string &name) { return name.size() == 4 && name[3] >= 'a' && name[3] <= 'z'; }

std::string lost(const PngChunk &chunk) {
    if (chunk.name == "acTL") {
        return "a PNG file with an animation: its further pictures are left out";
    }
    if (chunk.name == "caBX") {
        return "the content credentials (C2PA) are not valid for a changed file and are left out";
    }
    return "the PNG chunk '" + chunk.name + "' is left out";
}

} // namespace

void ChunkSorter::add(const PngChunk &chunk, Metadata &metadata, Notices &notices) const {
    if (is_safe(chunk.name) || is_one_of(kept, chunk.name) || (chunk.name == "bKGD" && plain_colours_)) {
        metadata.png_chunks.push_back(chunk);
    } else if (!is_one_of(without_content, chunk.name)) {
        add_once(notices, lost(chunk));
    }
}

} // namespace codec
