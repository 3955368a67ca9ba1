// Rows go from decoder to encoder in bands that stay in the processor's cache, so that a picture of any height needs no more
// memory than its working copy.
#include "pictures.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "page_entry.h"

namespace host {

namespace {

constexpr uint64_t band_bytes = 1 << 18;

uint32_t band_rows(uint64_t row_bytes) {
    return static_cast<uint32_t>(std::clamp(band_bytes / row_bytes, uint64_t{1}, uint64_t{64}));
}

// Calls step(rows) for each band of a picture from the top.
template <class Step> void for_each_band(uint32_t height, uint32_t rows, const Step &step) {
    for (uint32_t row = 0; row < height; row += rows) {
        step(std::min(rows, height - row));
    }
}

void note_name(const Job &job, codec::Format format, const codec::Description &source, codec::Notices &notices) {
    if (job.target != standard_stream && format_of_extension(job.target) != format) {
        const char *reason = format == source.format ? " like the input" : ", as the input's format is only read";
        notices.push_back("written as " + std::string(codec::name(format)) + reason + ", whatever the name says");
    }
}

// A working copy smaller than the preview is of no use for it: the picture is read once more.
void show_copied(PageEntry &page, Source &source, Entry &entry) {
    if (!page.before) {
        entry.at(Stage::reading);
        keep_before(page, source.working_copy(page.preview_area).average.pixels());
    }
    keep_description(page, source.description());
}

// Most pixels of a picture that are kept for its thumbnail.
constexpr uint64_t preview_area = 500'000;

} // namespace

// Every pass over a file reports the same notices.
template <class Step> void Source::read_all(codec::Reader &reader, const Step &step) {
    const size_t row_bytes = size_t{reader.width()} * reader.description().channels;
    const uint32_t rows_at_once = band_rows(row_bytes);
    codec::Bytes band(rows_at_once * row_bytes);
    for_each_band(reader.height(), rows_at_once, [&](uint32_t rows) {
        reader.read(rows, band.data(), nullptr);
        step(rows, band.data());
    });
    codec::Notices found;
    reader.finish(found);
    if (!finished_) {
        description_ = reader.description();
        notices = std::move(found);
        finished_ = true;
    }
}

Source::Halved Source::halve(uint64_t area) {
    std::unique_ptr<codec::Reader> reader = rows();
    const codec::Description &picture = reader->description();
    const uint32_t channels = picture.channels;
    const kohost::Size working = kohost::working_size({picture.width, picture.height}, area);
    const kohost::Size halved = kohost::halved_size({picture.width, picture.height}, working);
    if (!whole_ && halved.area() < picture.area()) {
        reader = codec::open(input_, {halved.width, halved.height});
    }
    kohost::AreaAverage average({reader->width(), reader->height()}, halved, channels);
    read_all(*reader, [&](uint32_t rows, const uint8_t *pixels) { average.add(rows, pixels); });
    return {average.take(), working};
}

kohost::WorkingCopy Source::working_copy(uint64_t area) {
    Halved halved = halve(area);
    kohost::WorkingCopy copy = kohost::make_working_copy(std::move(halved.image), halved.working);
    preview_.reset();
    if (!description_.metadata.exif.empty()) {
        preview_ = kohost::reduced(copy.average.pixels(), kohost::working_size(copy.average.size, preview_area));
    }
    return copy;
}

kohost::Image Source::reduced(uint64_t area) {
    const Halved halved = halve(area);
    return kohost::reduced(halved.image.pixels(), halved.working);
}

void Source::scan() {
    read_all(*codec::open(input_, {1, 1}), [](uint32_t, const uint8_t *) {});
}

codec::Picture &Source::load() {
    if (!whole_) {
        whole_ = codec::read(input_, notices);
        description_ = *whole_;
        finished_ = true;
    }
    return *whole_;
}

std::unique_ptr<codec::Reader> Source::rows() { return whole_ ? codec::rows_of(*whole_) : codec::open(input_); }

const codec::Description &Source::look() {
    if (!finished_) {
        description_ = rows()->description();
    }
    return description_;
}

kohost::Image Source::preview() { return preview_ ? *preview_ : working_copy(preview_area).average; }

void Source::complete() {
    if (!finished_) {
        scan();
    }
}

codec::Format target_format(const Job &job, const codec::Description &source) {
    return job.format.value_or(codec::is_written(source.format) ? source.format : codec::Format::jpeg);
}

void write_picture(const Job &job, Source &source, std::optional<int> quality, const RowStep &step, Entry &entry,
                   const Trace &trace) {
    const codec::Format format = target_format(job, source.description());
    const codec::Description picture = traced(source.description(), format, trace, source.notices);
    note_name(job, format, picture, source.notices);
    if (job.dry_run) {
        return;
    }
    const std::unique_ptr<Target> target = open_target(job.target, source.traits());
    const std::unique_ptr<codec::Reader> reader = source.rows();
    if (reader->width() != picture.width || reader->height() != picture.height ||
        reader->description().channels != picture.channels || reader->description().has_alpha != picture.has_alpha) {
        throw FileError("the file was changed while it was read");
    }
    const std::unique_ptr<codec::Writer> writer = codec::create(*target, picture, {format, quality}, source.notices);
    const uint32_t rows_at_once = band_rows(picture.row_bytes());
    codec::Bytes band(rows_at_once * picture.row_bytes());
    codec::Bytes alpha(picture.has_alpha ? size_t{rows_at_once} * picture.width : 0);
    Previews previews(entry.page(), picture);
    uint32_t done = 0;
    for_each_band(picture.height, rows_at_once, [&](uint32_t rows) {
        entry.at(Stage::applying, static_cast<double>(done) / picture.height);
        entry.spend(Stage::reading);
        reader->read(rows, band.data(), alpha.data());
        previews.before(rows, band.data());
        if (step) {
            entry.spend(Stage::applying);
            step(rows, band.data());
        }
        entry.spend(Stage::writing);
        previews.after(rows, band.data());
        writer->write(rows, band.data(), alpha.data());
        done += rows;
    });
    codec::Notices known; // from an earlier pass
    reader->finish(known);
    writer->finish(source.notices);
    target->take_place();
    previews.keep();
}

void copy_picture(const Job &job, Source &source, std::optional<int> quality, Entry &entry) {
    if (target_format(job, source.description()) != source.description().format) {
        source.complete();
        write_picture(job, source, quality, nullptr, entry);
        return;
    }
    if (PageEntry *page = entry.page()) {
        show_copied(*page, source, entry);
    }
    entry.at(Stage::writing);
    source.notices.clear(); // what the decoding changed or left out is still in the copy
    note_name(job, source.description().format, source.description(), source.notices);
    if (!job.dry_run) {
        copy_file(source.input(), job.target, source.traits());
    }
}

void report_notices(const codec::Notices &notices, Entry &entry) {
    for (const std::string &notice : notices) {
        entry.notice(notice);
    }
}

} // namespace host
