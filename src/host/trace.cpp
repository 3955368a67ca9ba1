// A PNG file has its mark in a text, every other file in its Exif data, or in a comment if that cannot be changed.
#include "trace.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <string>

#include "kohost/working_copy.h"
#include "metadata/exif.h"

namespace host {

namespace {

constexpr const char *software_keyword = "Software";

// A block of Exif data fits into one segment of a JPEG file, behind six bytes of its own.
constexpr size_t largest_exif_in_jpeg = 65527;

// From the quality of most cameras' thumbnails down to the least that is still recognisable.
constexpr std::array<int, 5> thumbnail_qualities = {85, 75, 65, 50, 35};

// What a camera makes, if nothing is known of the old thumbnail.
constexpr kohost::Size usual_thumbnail = {160, 120};

metadata::Exif exif_of(const codec::Metadata &metadata) {
    try {
        return metadata.exif.empty() ? metadata::Exif() : metadata::read_exif(metadata.exif);
    } catch (const metadata::Error &) {
        return {};
    }
}

void merge(std::optional<metadata::Mark> &all, const std::optional<metadata::Mark> &more) {
    if (!all) {
        all = more;
    } else if (more) {
        for (const std::string &deed : more->deeds) {
            all->add(deed);
        }
    }
}

// ---- the thumbnail

kohost::Size size_of(const metadata::Bytes &jpeg) {
    try {
        codec::MemoryInput input(jpeg);
        const std::unique_ptr<codec::Reader> reader = codec::open(input);
        return {reader->width(), reader->height()};
    } catch (const codec::Error &) {
        return usual_thumbnail;
    }
}

// The size of the old thumbnail if it has the picture's shape, otherwise the largest of that shape that is no longer than the
// old one: what is not part of the picture, such as bars beside it, is not made anew. No thumbnail is larger than the preview.
kohost::Size thumbnail_size(kohost::Size old, kohost::Size preview) {
    const double shape = static_cast<double>(preview.width) / preview.height;
    const bool same_shape =
        std::abs(shape * old.height - old.width) <= 1.5 && old.width <= preview.width && old.height <= preview.height;
    if (same_shape) {
        return old;
    }
    const double longest = std::min(std::max(old.width, old.height), std::max(preview.width, preview.height));
    const double scale = longest / std::max(preview.width, preview.height);
    const auto side = [scale](uint32_t pixels) { return std::max(static_cast<uint32_t>(pixels * scale + 0.5), 1u); };
    return {side(preview.width), side(preview.height)};
}

codec::Picture reduced(const kohost::Image &preview, kohost::Size size) {
    kohost::AreaAverage average(preview.size, size, preview.channels);
    average.add(preview.size.height, preview.bytes.data());
    const kohost::Image image = average.take();
    codec::Picture picture;
    picture.width = size.width;
    picture.height = size.height;
    picture.channels = 3; // thumbnails are in colour, even those of gray pictures
    picture.subsampling = {2, 2};
    picture.pixels = std::make_unique_for_overwrite<uint8_t[]>(picture.area() * 3);
    for (size_t i = 0; i < picture.area() * 3; ++i) {
        picture.pixels[i] = image.bytes[image.channels == 3 ? i : i / 3];
    }
    return picture;
}

// At the best quality at which it is no larger than the old one and can take its place; if there is none, at the first.
metadata::Thumbnail thumbnail_of(const kohost::Image &preview, const metadata::Bytes &old) {
    const kohost::Size size = thumbnail_size(size_of(old), preview.size);
    const codec::Picture picture = reduced(preview, size);
    codec::Notices none;
    metadata::Thumbnail thumbnail{{}, size.width, size.height};
    for (const int quality : thumbnail_qualities) {
        metadata::Bytes jpeg = codec::encode(picture, {codec::Format::jpeg, quality}, none);
        const bool fits = jpeg.size() <= old.size();
        if (fits || thumbnail.jpeg.empty()) {
            thumbnail.jpeg = std::move(jpeg);
        }
        if (fits) {
            break;
        }
    }
    return thumbnail;
}

metadata::ExifChange thumbnail_change(const metadata::Exif &exif, codec::Format format, const Trace &trace,
                                      codec::Notices &notices) {
    metadata::ExifChange change;
    if (trace.deeds.empty() || !exif.has_thumbnail || format == codec::Format::tiff) { // TIFF has no place for one
        return change;
    }
    const auto preview = trace.preview && !exif.thumbnail.empty() ? trace.preview() : std::nullopt;
    if (preview) {
        change.thumbnail = thumbnail_of(*preview, exif.thumbnail);
    } else {
        change.drop_thumbnail = true;
        notices.push_back("the thumbnail in the Exif data shows the old picture, cannot be made anew and is left out");
    }
    return change;
}

// ---- the mark

// Changes a block. If the result is too large, the thumbnail is left out.
metadata::Bytes changed(const metadata::Bytes &exif, metadata::ExifChange change, size_t most, codec::Notices &notices) {
    metadata::Bytes result = metadata::changed_exif(exif, change);
    if (result.size() > most && change.thumbnail) {
        change.thumbnail.reset();
        change.drop_thumbnail = true;
        result = metadata::changed_exif(exif, change);
        notices.push_back("the Exif data has no room for its new thumbnail, which is left out");
    }
    if (result.size() > most) {
        throw metadata::Error("the Exif data has no room for a mark");
    }
    return result;
}

auto find_software(std::vector<codec::PngText> &texts) {
    return std::find_if(texts.begin(), texts.end(),
                        [](const codec::PngText &text) { return text.keyword == software_keyword; });
}

void mark_text(codec::Metadata &metadata, const metadata::Mark &mark) {
    const auto found = find_software(metadata.png_texts);
    if (found != metadata.png_texts.end()) {
        found->text = with_mark(found->text, mark);
    } else {
        metadata.png_texts.push_back({codec::PngText::Kind::plain, software_keyword, with_mark("", mark)});
    }
}

// Adds the mark after the names of software in the Exif data. The name in a PNG text moves there if it is the only one.
void change_exif(codec::Metadata &metadata, codec::Format format, const Trace &trace, const metadata::Mark *mark,
                 codec::Notices &notices) {
    const size_t most = format == codec::Format::jpeg ? largest_exif_in_jpeg : SIZE_MAX;
    const metadata::Bytes block = metadata.exif.empty() ? metadata::empty_exif() : metadata.exif;
    const metadata::Exif exif = metadata::read_exif(block);
    metadata::ExifChange change = thumbnail_change(exif, format, trace, notices);
    auto moved = metadata.png_texts.end();
    if (mark != nullptr) {
        const auto text = find_software(metadata.png_texts);
        const bool has_text = text != metadata.png_texts.end();
        moved = has_text && (exif.software.empty() || exif.software == text->text) ? text : moved;
        change.software = with_mark(exif.software.empty() && has_text ? text->text : exif.software, *mark);
    }
    metadata.exif = changed(block, std::move(change), most, notices);
    if (moved != metadata.png_texts.end()) {
        metadata.png_texts.erase(moved);
    }
}

void mark_comment(std::vector<std::string> &comments, const metadata::Mark &mark) {
    const auto found = std::find_if(comments.begin(), comments.end(),
                                    [](const std::string &comment) { return metadata::mark_in(comment).has_value(); });
    std::string &comment = found != comments.end() ? *found : comments.emplace_back();
    comment = with_mark(comment, mark);
}

void leave_trace(codec::Metadata &metadata, codec::Format format, const Trace &trace, const metadata::Mark &mark,
                 codec::Notices &notices) {
    const bool is_png = format == codec::Format::png;
    if (is_png) {
        mark_text(metadata, mark);
    }
    if (is_png && (metadata.exif.empty() || !exif_of(metadata).has_thumbnail)) {
        return;
    }
    try {
        change_exif(metadata, format, trace, is_png ? nullptr : &mark, notices);
    } catch (const metadata::Error &error) {
        notices.push_back(error.what() + std::string(" and is carried over unchanged"));
        if (!is_png) {
            mark_comment(metadata.comments, mark);
        }
    }
}

} // namespace

const char *name(Deed deed) {
    switch (deed) {
    case Deed::red_eyes:
        return "red eyes repaired";
    case Deed::shadows:
        return "shadows opened";
    default:
        return "curves applied";
    }
}

std::optional<metadata::Mark> mark_of(const codec::Metadata &metadata) {
    std::optional<metadata::Mark> mark = metadata::mark_in(exif_of(metadata).software);
    for (const codec::PngText &text : metadata.png_texts) {
        merge(mark, text.keyword == software_keyword ? metadata::mark_in(text.text) : std::nullopt);
    }
    for (const std::string &comment : metadata.comments) {
        merge(mark, metadata::mark_in(comment));
    }
    return mark;
}

codec::Description traced(const codec::Description &picture, codec::Format format, const Trace &trace,
                          codec::Notices &notices) {
    codec::Description result = picture;
    std::optional<metadata::Mark> mark = mark_of(picture.metadata);
    if (trace.deeds.empty() && (!mark || format == picture.format)) {
        return result;
    }
    merge(mark, metadata::Mark{KO_VERSION, {}});
    for (const Deed deed : trace.deeds) {
        mark->version = KO_VERSION;
        mark->add(name(deed));
    }
    leave_trace(result.metadata, format, trace, *mark, notices);
    return result;
}

} // namespace host
