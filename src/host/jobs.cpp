// Files are compared by what the system makes of their paths, links resolved.
#include "jobs.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <iterator>
#include <map>
#include <set>
#include <system_error>

#include <unistd.h>

#include "files.h"

namespace host {

namespace fs = std::filesystem;

namespace {

bool is_folder(const fs::path &path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

bool is_there(const fs::path &path) {
    std::error_code error;
    return fs::exists(path, error);
}

bool names_folder(const fs::path &output) { return !output.has_filename() || is_folder(output); }

void make_folder(const fs::path &folder, const std::string &who) {
    if (is_there(folder) && !is_folder(folder)) {
        throw FileError(folder.string() + ": not a folder, but " + who + " need one");
    }
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw FileError(folder.string() + ": the folder cannot be made: " + error.message());
    }
}

void check_folder(const fs::path &folder) {
    const fs::path place = folder.empty() ? "." : folder;
    if (!is_folder(place)) {
        throw FileError(place.string() + (is_there(place) ? ": not a folder" : ": there is no such folder"));
    }
    if (::access(place.c_str(), W_OK | X_OK) != 0) {
        throw FileError(place.string() + ": the folder cannot be written to: " + std::generic_category().message(errno));
    }
}

fs::path resolved(const fs::path &path) {
    std::error_code error;
    fs::path result = fs::weakly_canonical(path, error);
    return error ? path.lexically_normal() : result;
}

bool is_only_read(const fs::path &path) {
    const std::optional<codec::Format> format = format_of_extension(path);
    return format && !codec::is_written(*format);
}

std::string reason_against(const fs::path &target) {
    if (is_only_read(target)) {
        return "cannot write " + target.string() + ": HEIC and AVIF files are only read";
    }
    std::error_code error;
    const fs::file_status status = fs::status(target, error);
    if (fs::is_directory(status)) {
        return "cannot write " + target.string() + ": a folder has this name";
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        return "cannot write " + target.string() + ": not a regular file";
    }
    return "";
}

// The name that a picture keeps in a folder, but for the extension of a format that it cannot be written in.
fs::path kept_name(const fs::path &input) {
    fs::path name = input.filename();
    return is_only_read(name) ? name.replace_extension(".jpg") : name;
}

// The first picture with a target gets it, unless the target is what another picture is read from.
void refuse_clashes(std::vector<Job> &jobs, const std::vector<std::string> &also_read) {
    std::set<fs::path> inputs;
    std::set<fs::path> others;
    std::transform(also_read.begin(), also_read.end(), std::inserter(others, others.end()), resolved);
    for (const Job &job : jobs) {
        inputs.insert(resolved(job.input));
    }
    std::map<fs::path, std::string> writers;
    for (Job &job : jobs) {
        const fs::path target = resolved(job.target);
        if (!job.refusal.empty()) {
            continue;
        }
        if (others.contains(target) || (inputs.contains(target) && target != resolved(job.input))) {
            job.refusal = "cannot write " + job.target.string() + ": it is another input";
        } else if (const auto [writer, fresh] = writers.try_emplace(target, job.input); !fresh) {
            job.refusal = "cannot write " + job.target.string() + ": taken by " + writer->second;
        }
    }
}

} // namespace

std::optional<codec::Format> format_of_extension(const fs::path &path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    if (extension == ".png") {
        return codec::Format::png;
    }
    if (extension == ".jpg" || extension == ".jpeg" || extension == ".jpe") {
        return codec::Format::jpeg;
    }
    if (extension == ".tif" || extension == ".tiff") {
        return codec::Format::tiff;
    }
    if (extension == ".webp") {
        return codec::Format::webp;
    }
    if (extension == ".heic" || extension == ".heif" || extension == ".avif") {
        return codec::Format::heif;
    }
    return std::nullopt;
}

void prepare_folder(const fs::path &folder, const std::string &who) {
    make_folder(folder, who);
    check_folder(folder);
}

std::vector<Job> lay_out_jobs(const std::vector<std::string> &inputs, const std::string &output,
                              const std::vector<std::string> &also_read) {
    std::vector<Job> jobs;
    if (inputs.size() == 1 && !names_folder(output)) {
        check_folder(fs::path(output).parent_path());
        jobs.push_back({inputs.front(), output, format_of_extension(output), ""});
    } else {
        prepare_folder(output, "several pictures");
        for (const std::string &input : inputs) {
            jobs.push_back({input, output / kept_name(input), std::nullopt, ""});
        }
    }
    for (Job &job : jobs) {
        job.refusal = reason_against(job.target);
    }
    refuse_clashes(jobs, also_read);
    return jobs;
}

Job lay_out_file(const std::string &input, const std::string &output) {
    check_folder(fs::path(output).parent_path());
    Job job{input, output, format_of_extension(output), reason_against(output)};
    if (job.refusal.empty() && resolved(job.target) == resolved(job.input)) {
        job.refusal = "cannot write " + output + ": it is the input";
    }
    return job;
}

std::vector<Job> lay_out_reading(const std::vector<std::string> &inputs) {
    std::vector<Job> jobs;
    for (const std::string &input : inputs) {
        jobs.push_back({input, "", std::nullopt, ""});
    }
    return jobs;
}

} // namespace host
