// A job fails by an exception, whose text is the error's.
#include "pictures.h"

#include <new>

#include "files.h"

namespace host {

namespace {

void note_name(const Job &job, codec::Format format, codec::Notices &notices) {
    if (format_of_extension(job.target) != format) {
        notices.push_back("written as " + std::string(codec::name(format)) + " like the input, whatever the name says");
    }
}

} // namespace

Source read_picture(const std::string &path) {
    Source source;
    source.file = read_file(path);
    source.picture = codec::decode(source.file, source.notices);
    return source;
}

codec::Format target_format(const Job &job, const codec::Picture &source) { return job.format.value_or(source.format); }

void write_picture(const Job &job, const codec::Picture &picture, int quality, codec::Notices &notices) {
    const codec::Format format = target_format(job, picture);
    note_name(job, format, notices);
    write_file(job.target, codec::encode(picture, format, quality, notices));
}

void copy_picture(const Job &job, Source &source, int quality) {
    if (target_format(job, source.picture) != source.picture.format) {
        write_picture(job, source.picture, quality, source.notices);
        return;
    }
    source.notices.clear(); // what the decoding changed or left out is there in the copy
    note_name(job, source.picture.format, source.notices);
    write_file(job.target, source.file);
}

void for_each_job(const std::vector<Job> &jobs, Report &report, const std::function<void(const Job &)> &step) {
    for (const Job &job : jobs) {
        report.begin(job.input);
        try {
            if (!job.refusal.empty()) {
                throw FileError(job.refusal);
            }
            step(job);
        } catch (const std::bad_alloc &) {
            report.failed("not enough memory");
        } catch (const std::exception &error) {
            report.failed(error.what());
        }
    }
}

void tell(const codec::Notices &notices, Report &report) {
    for (const std::string &notice : notices) {
        report.notice(notice);
    }
}

} // namespace host
