// A picture on its way through a command: from its file through the working copy to the target.
#ifndef KO_HOST_PICTURES_H
#define KO_HOST_PICTURES_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "codec/codec.h"
#include "files.h"
#include "jobs.h"
#include "kohost/working_copy.h"
#include "paths.h"
#include "report.h"
#include "trace.h"

namespace host {

// A picture in a file. Its rows are decoded anew for each pass, unless the whole picture is in memory.
class Source {
  public:
    // With preserve, a result gets the file's times and permissions.
    explicit Source(const std::string &path, bool preserve = false) : input_(path_of(path)), preserve_(preserve) {}

    // What the file says about the picture before its pixels. Reads no further.
    const codec::Description &look();

    // Reads the file to its end and gives the picture at the size at which it is judged. That of a picture of at most area
    // pixels is the picture itself.
    kohost::WorkingCopy working_copy(uint64_t area);

    // Reads the file to its end and gives the picture at its shape with at most area pixels.
    kohost::Image reduced(uint64_t area);

    // Reads the file to its end only for its description.
    void scan();

    // Reads the whole picture into memory, to be changed there.
    codec::Picture &load();

    // The rows once more.
    std::unique_ptr<codec::Reader> rows();

    // A small copy of the picture, with the changes made in memory.
    kohost::Image preview();

    // Reads the file to its end unless that was done before.
    void complete();

    // What follows is valid after the file was read to its end.
    const codec::Description &description() const { return description_; }
    kohost::Size size() const { return {description_.width, description_.height}; }

    codec::Input &input() { return input_; }

    // What a result takes over from the file besides its picture.
    std::optional<system::Traits> traits() const { return preserve_ ? input_.traits() : std::nullopt; }

    codec::Notices notices; // of the reading, then of the writing

  private:
    // A picture halved as far as that leaves enough pixels for a size.
    struct Halved {
        kohost::Image image;
        kohost::Size working;
    };

    // Reads the file to its end.
    Halved halve(uint64_t area);

    // Passes all rows of a reader to step(rows, pixels).
    template <class Step> void read_all(codec::Reader &reader, const Step &step);

    FileInput input_;
    bool preserve_;
    codec::Description description_;
    std::optional<kohost::Image> preview_; // of the latest working copy, of a picture with Exif data
    std::optional<codec::Picture> whole_;
    bool finished_ = false;
};

// The format that a job's picture is written in.
codec::Format target_format(const Job &job, const codec::Description &source);

// Changes rows in place on their way from one file to the next.
using RowStep = std::function<void(uint32_t rows, uint8_t *pixels)>;

// Writes a picture to the target of a job, row by row, each row through a step or unchanged without one. The result carries the
// trace of what was done.
void write_picture(const Job &job, Source &source, std::optional<int> quality, const RowStep &step, Entry &entry,
                   const Trace &trace = {});

// Writes a picture that was not changed: its file byte for byte if the format is the same.
void copy_picture(const Job &job, Source &source, std::optional<int> quality, Entry &entry);

// Reports the notices about a picture.
void report_notices(const codec::Notices &notices, Entry &entry);

} // namespace host

#endif
