// What the commands do alike with the files of pictures.
#ifndef KO_HOST_PICTURES_H
#define KO_HOST_PICTURES_H

#include <functional>
#include <string>
#include <vector>

#include "codec/codec.h"
#include "jobs.h"
#include "report.h"

namespace host {

// A picture and the file that it came from.
struct Source {
    codec::Bytes file;
    codec::Picture picture;
    codec::Notices notices; // of the decoding, then of the writing
};

Source read_picture(const std::string &path);

// The format that a job's picture is written in.
codec::Format target_format(const Job &job, const codec::Picture &source);

// Writes a picture to the target of a job.
void write_picture(const Job &job, const codec::Picture &picture, int quality, codec::Notices &notices);

// Writes a picture that was not changed: its file byte for byte if the format is the same.
void copy_picture(const Job &job, Source &source, int quality);

// Does a step for each job and tells of failures; one that fails leaves the others alone.
void for_each_job(const std::vector<Job> &jobs, Report &report, const std::function<void(const Job &)> &step);

// Tells what came up with a picture.
void tell(const codec::Notices &notices, Report &report);

} // namespace host

#endif
