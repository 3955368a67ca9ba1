// Files are compared by their paths as the system resolves them, links included.
#include "jobs.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "files.h"
#include "paths.h"
#include "selection.h"

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr std::array<std::pair<const char *, codec::Format>, 10> extensions = {{{".jpg", codec::Format::jpeg},
                                                                                {".jpeg", codec::Format::jpeg},
                                                                                {".jpe", codec::Format::jpeg},
                                                                                {".png", codec::Format::png},
                                                                                {".tif", codec::Format::tiff},
                                                                                {".tiff", codec::Format::tiff},
                                                                                {".webp", codec::Format::webp},
                                                                                {".heic", codec::Format::heif},
                                                                                {".heif", codec::Format::heif},
                                                                                {".avif", codec::Format::heif}}};

std::string known_extensions() {
    std::string text;
    for (const auto &[extension, format] : extensions) {
        if (codec::is_written(format)) {
            text += (text.empty() ? "" : ", ") + std::string(extension);
        }
    }
    return text;
}

bool is_folder(const fs::path &path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

bool is_there(const fs::path &path) {
    std::error_code error;
    return fs::exists(path, error);
}

// A name without an extension is not a picture's, so it is that of a folder that does not exist yet.
bool names_folder(const fs::path &output) {
    if (output == standard_stream) {
        return false;
    }
    return !output.has_filename() || is_folder(output) || (!output.has_extension() && !is_there(output));
}

void make_folder(const fs::path &folder, const std::string &who) {
    if (is_there(folder) && !is_folder(folder)) {
        throw FileError(text_of(folder) + ": not a folder, but " + who + " need one");
    }
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw FileError(text_of(folder) + ": the folder cannot be made: " + error.message());
    }
}

void check_folder(const fs::path &folder) {
    const fs::path place = folder.empty() ? "." : folder;
    if (!is_folder(place)) {
        throw FileError(text_of(place) + (is_there(place) ? ": not a folder" : ": no such folder"));
    }
    if (!system::can_write_into(place)) {
        throw FileError(text_of(place) + ": the folder cannot be written to: " + system::failure());
    }
}

bool is_only_read(const fs::path &path) {
    const std::optional<codec::Format> format = format_of_extension(path);
    return format && !codec::is_written(*format);
}

std::string reason_against(const fs::path &target) {
    if (is_only_read(target)) {
        return "cannot write " + text_of(target) + ": HEIC and AVIF files are only read";
    }
    std::error_code error;
    const fs::file_status status = fs::status(target, error);
    if (fs::is_directory(status)) {
        return "cannot write " + text_of(target) + ": a folder has this name";
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        return "cannot write " + text_of(target) + ": not a regular file";
    }
    return "";
}

// The name that a picture keeps, except for the extension of a format in which it cannot be written.
fs::path kept_name(fs::path name) { return is_only_read(name) ? name.replace_extension(".jpg") : name; }

// ---- where each picture goes

constexpr const char *has_suffix = "its name has the suffix of a result";

class Layout {
  public:
    explicit Layout(const Destination &destination) : destination_(destination) {}

    std::vector<Job> of(const std::vector<Selected> &pictures) const {
        const bool single = pictures.size() == 1 && !pictures.front().from_folder;
        check_streams(pictures, single);
        const bool into_file = single && !destination_.output.empty() && !names_folder(path_of(destination_.output));
        if (into_file) {
            check_file_name();
        }
        std::vector<Job> jobs;
        for (const Selected &picture : pictures) {
            if (picture.from_folder && is_result(picture)) {
                continue;
            }
            jobs.push_back(
                into_file ? Job{picture.input, path_of(destination_.output), format_of_extension(path_of(destination_.output))}
                          : Job{picture.input, target_of(picture)});
            jobs.back().refusal = picture.refusal.empty() ? reason_to_refuse(jobs.back()) : picture.refusal;
            jobs.back().skipped = is_result(picture) ? has_suffix : reason_to_skip(jobs.back());
            jobs.back().dry_run = destination_.dry_run;
        }
        return jobs;
    }

    // Makes the folder to which the jobs write, if they write to one.
    void prepare(const std::vector<Job> &jobs) const {
        const bool into_folder = !destination_.output.empty() && !writes_stream() &&
                                 (jobs.size() != 1 || jobs.front().target != path_of(destination_.output));
        if (into_folder && !destination_.dry_run) {
            prepare_folder(path_of(destination_.output), "several pictures");
        }
    }

  private:
    void check_streams(const std::vector<Selected> &pictures, bool single) const {
        const auto is_stream = [](const Selected &picture) { return picture.input == standard_stream; };
        const bool reads = std::any_of(pictures.begin(), pictures.end(), is_stream);
        if (destination_.output == standard_stream && !single) {
            throw UsageError("the standard output takes one picture, not " + std::to_string(pictures.size()));
        }
        if (reads && (destination_.output.empty() || (names_folder(path_of(destination_.output)) && !writes_stream()))) {
            throw UsageError("a picture from the standard input has no name; give an output file or -");
        }
    }

    void check_file_name() const {
        if (writes_stream()) {
            return;
        }
        check_folder(path_of(destination_.output).parent_path());
        check_extension(path_of(destination_.output));
    }

    // Results beside their inputs are no inputs of the next run.
    bool is_result(const Selected &picture) const {
        return destination_.output.empty() && !destination_.suffix.empty() &&
               text_of(path_of(picture.input).stem()).ends_with(destination_.suffix);
    }

    bool writes_stream() const { return destination_.output == standard_stream; }

    // A name that is the input's own even with the suffix is refused like any other.
    fs::path target_of(const Selected &picture) const {
        if (destination_.in_place) {
            return path_of(picture.input);
        }
        const fs::path named = destination_.output.empty() ? kept_name(path_of(picture.input))
                                                           : path_of(destination_.output) / kept_name(picture.place);
        return named.parent_path() / path_of(text_of(named.stem()) + destination_.suffix + text_of(named.extension()));
    }

    std::string reason_to_refuse(const Job &job) const { return writes_stream() ? "" : reason_against(job.target); }

    std::string reason_to_skip(const Job &job) const {
        const bool skipped = job.refusal.empty() && destination_.no_clobber && !writes_stream() && is_there(job.target);
        return skipped ? text_of(job.target) + " exists" : "";
    }

    const Destination &destination_;
};

// No picture takes the place of another input, of another result or, except with --in-place, of itself.
void refuse_clashes(const std::vector<Job> &jobs, const Destination &destination, const std::vector<std::string> &also_read) {
    std::map<fs::path, std::string> readers;
    for (const std::string &path : also_read) {
        readers.emplace(resolved(path_of(path)), path);
    }
    std::set<fs::path> inputs;
    for (const Job &job : jobs) {
        if (job.skipped != has_suffix) {
            inputs.insert(resolved(path_of(job.input)));
        }
    }
    std::map<fs::path, std::string> writers;
    for (const Job &job : jobs) {
        const fs::path target = resolved(job.target);
        const std::string refusal = "cannot write " + text_of(job.target) + ": ";
        if (job.target == standard_stream || !job.refusal.empty()) {
            continue;
        }
        if (readers.contains(target)) {
            throw UsageError(refusal + "it is read by this command");
        }
        if (target == resolved(path_of(job.input))) {
            if (!destination.in_place) {
                throw UsageError(refusal + "it is the input (--in-place overwrites it)");
            }
        } else if (inputs.contains(target)) {
            throw UsageError(refusal + "it is another input");
        }
        if (const auto [writer, fresh] = writers.try_emplace(target, job.input); !fresh) {
            throw UsageError(refusal + "two inputs would become this file, " + writer->second + " and " + job.input);
        }
    }
}

} // namespace

std::optional<codec::Format> format_of_extension(const fs::path &path) {
    std::string extension = text_of(path.extension());
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    for (const auto &[known, format] : extensions) {
        if (extension == known) {
            return format;
        }
    }
    return std::nullopt;
}

void check_extension(const fs::path &path) {
    if (!format_of_extension(path)) {
        throw UsageError("cannot write " + text_of(path) + ": its extension is not one of " + known_extensions());
    }
}

void prepare_folder(const fs::path &folder, const std::string &who) {
    make_folder(folder, who);
    check_folder(folder);
}

std::vector<Job> lay_out_jobs(const Selection &selection, const Destination &destination,
                              const std::vector<std::string> &also_read) {
    const fs::path results = destination.output == standard_stream ? fs::path() : path_of(destination.output);
    const Layout layout(destination);
    std::vector<Job> jobs = layout.of(pictures_of(selection, results));
    refuse_clashes(jobs, destination, also_read);
    layout.prepare(jobs);
    return jobs;
}

Job lay_out_file(const std::string &input, const std::string &output) {
    const fs::path target = path_of(output);
    check_folder(target.parent_path());
    Job job{input, target, format_of_extension(target), reason_against(target)};
    if (job.refusal.empty() && resolved(job.target) == resolved(path_of(job.input))) {
        job.refusal = "cannot write " + output + ": it is the input";
    }
    return job;
}

void check_apart(const fs::path &file, const std::vector<Job> &jobs, const std::vector<std::string> &also_read) {
    check_folder(file.parent_path());
    if (const std::string reason = reason_against(file); !reason.empty()) {
        throw FileError(reason);
    }
    const auto same = [place = resolved(file)](const fs::path &other) { return resolved(other) == place; };
    for (const Job &job : jobs) {
        if (same(path_of(job.input)) || same(job.target)) {
            throw UsageError("cannot write " + text_of(file) + ": it is " +
                             (same(path_of(job.input)) ? "an input" : "an output"));
        }
    }
    if (std::any_of(also_read.begin(), also_read.end(), [&](const std::string &path) { return same(path_of(path)); })) {
        throw UsageError("cannot write " + text_of(file) + ": it is read by this command");
    }
}

std::vector<Job> lay_out_reading(const Selection &selection) {
    std::vector<Job> jobs;
    for (const Selected &picture : pictures_of(selection)) {
        jobs.push_back({picture.input, "", std::nullopt, picture.refusal});
    }
    return jobs;
}

} // namespace host
