// Rows go from decoder to encoder in bands that stay in the processor's cache, so that a picture of any height needs no more
// memory than its working copy.
#include "pictures.h"

#include <algorithm>
#include <vector>

#include "kohost/working_copy.h"

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
    if (format_of_extension(job.target) != format) {
        const char *reason = format == source.format ? " like the input" : ", as the input's format is only read";
        notices.push_back("written as " + std::string(codec::name(format)) + reason + ", whatever the name says");
    }
}

// Half as many pixels again each way: averaged over whole pixels alone, some of the result would be sharper than others.
codec::Reduction reduction_to(kohost::Size size) {
    const auto enough = [](uint32_t pixels) { return static_cast<uint32_t>(uint64_t{pixels} * 3 / 2); };
    return {enough(size.width), enough(size.height)};
}

} // namespace

// Every pass reports the same.
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

kohost::Image Source::working_copy(uint64_t area) {
    std::unique_ptr<codec::Reader> reader = rows();
    const codec::Description &picture = reader->description();
    const uint32_t channels = picture.channels;
    const kohost::Size size = kohost::working_size({picture.width, picture.height}, area);
    if (!whole_ && size.area() < picture.area()) {
        reader = codec::open(input_, reduction_to(size));
    }
    kohost::AreaAverage average({reader->width(), reader->height()}, size, channels);
    read_all(*reader, [&](uint32_t rows, const uint8_t *pixels) { average.add(rows, pixels); });
    return average.take();
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

codec::Format target_format(const Job &job, const codec::Description &source) {
    return job.format.value_or(codec::is_written(source.format) ? source.format : codec::Format::jpeg);
}

void write_picture(const Job &job, Source &source, std::optional<int> quality, const RowStep &step, Entry &entry) {
    const codec::Description &picture = source.description();
    const codec::Format format = target_format(job, picture);
    note_name(job, format, picture, source.notices);
    Draft draft(job.target);
    const std::unique_ptr<codec::Reader> reader = source.rows();
    if (reader->width() != picture.width || reader->height() != picture.height ||
        reader->description().channels != picture.channels || reader->description().has_alpha != picture.has_alpha) {
        throw FileError("the file was changed while it was read");
    }
    const std::unique_ptr<codec::Writer> writer = codec::create(draft, picture, {format, quality}, source.notices);
    const uint32_t rows_at_once = band_rows(picture.row_bytes());
    codec::Bytes band(rows_at_once * picture.row_bytes());
    codec::Bytes alpha(picture.has_alpha ? size_t{rows_at_once} * picture.width : 0);
    uint32_t done = 0;
    for_each_band(picture.height, rows_at_once, [&](uint32_t rows) {
        entry.at(Stage::applying, static_cast<double>(done) / picture.height);
        entry.spend(Stage::reading);
        reader->read(rows, band.data(), alpha.data());
        if (step) {
            entry.spend(Stage::applying);
            step(rows, band.data());
        }
        entry.spend(Stage::writing);
        writer->write(rows, band.data(), alpha.data());
        done += rows;
    });
    codec::Notices known; // from the pass before
    reader->finish(known);
    writer->finish(source.notices);
    draft.take_place();
}

void copy_picture(const Job &job, Source &source, std::optional<int> quality, Entry &entry) {
    if (target_format(job, source.description()) != source.description().format) {
        write_picture(job, source, quality, nullptr, entry);
        return;
    }
    entry.at(Stage::writing);
    source.notices.clear(); // what the decoding changed or left out is there in the copy
    note_name(job, source.description().format, source.description(), source.notices);
    copy_file(source.input(), job.target);
}

void report_notices(const codec::Notices &notices, Entry &entry) {
    for (const std::string &notice : notices) {
        entry.notice(notice);
    }
}

} // namespace host
