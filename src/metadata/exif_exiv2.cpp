// Exiv2 reads and compares; it does not write. What it would write is laid out anew, with maker notes at other places, whose
// content it knows only in part. XMP, whose parser is not made for several threads, is left alone.
#include "metadata/exif_values.h"

#include <algorithm>
#include <new>

#include <exiv2/exiv2.hpp>

namespace metadata {

namespace {

// Exiv2 reports damage on the standard error stream unless it is silenced, which is done once for all threads.
void silence() {
    static const bool silent = [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        return true;
    }();
    static_cast<void>(silent);
}

Exiv2::ExifData decoded(const Bytes &block) {
    silence();
    Exiv2::ExifData data;
    try {
        Exiv2::ExifParser::decode(data, block.data(), static_cast<uint32_t>(block.size()));
    } catch (const std::bad_alloc &) {
        throw;
    } catch (const std::exception &) {
        throw Error("the Exif data is damaged");
    }
    return data;
}

bool is_of_thumbnail(const Exiv2::Exifdatum &datum) { return datum.groupName() == "Thumbnail"; }

} // namespace

Exif read_exif(const Bytes &block) {
    const Exiv2::ExifData data = decoded(block);
    Exif exif;
    for (const Exiv2::Exifdatum &datum : data) {
        if (datum.key() == "Exif.Image.Software" && exif.software.empty()) {
            exif.software = datum.toString();
        }
        exif.has_thumbnail |= is_of_thumbnail(datum);
    }
    const Exiv2::ExifThumbC thumbnail(data);
    if (exif.has_thumbnail && std::string(thumbnail.mimeType()) == "image/jpeg") {
        const Exiv2::DataBuf bytes = thumbnail.copy();
        exif.thumbnail.assign(bytes.pData_, bytes.pData_ + bytes.size_);
    }
    return exif;
}

std::vector<Value> lasting_values(const Bytes &block) {
    std::vector<Value> values;
    for (const Exiv2::Exifdatum &datum : decoded(block)) {
        if (!is_of_thumbnail(datum) && datum.key() != "Exif.Image.Software") {
            Bytes bytes(static_cast<size_t>(std::max(datum.size(), 0L)));
            if (!bytes.empty()) {
                datum.copy(bytes.data(), Exiv2::bigEndian);
            }
            values.emplace_back(datum.key(), std::move(bytes));
        }
    }
    std::sort(values.begin(), values.end());
    return values;
}

} // namespace metadata
