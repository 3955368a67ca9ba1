// Which file each picture goes to, settled before the first one is touched.
#ifndef KO_HOST_JOBS_H
#define KO_HOST_JOBS_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "codec/codec.h"

namespace host {

struct Job {
    std::string input;
    std::filesystem::path target;
    std::optional<codec::Format> format; // that of the target's extension; without one, the input's own
    std::string refusal;                 // why this picture must not be written, "" if nothing speaks against it
};

// The format that a name promises; none for one without a well-known extension.
std::optional<codec::Format> format_of_extension(const std::filesystem::path &path);

// Makes a folder if it is missing. Throws FileError, in which who are those that need it, if it can take no file.
void prepare_folder(const std::filesystem::path &folder, const std::string &who);

// Lays out the jobs. Several inputs, and one whose output is a folder, keep their names in the folder, which is made if it is
// missing. No job writes what another one reads or writes, nor a file of also_read. Throws FileError if the output can take no
// picture at all.
std::vector<Job> lay_out_jobs(const std::vector<std::string> &inputs, const std::string &output,
                              const std::vector<std::string> &also_read = {});

// Lays out the one job of a file that is no enhanced picture: it must not take the place of its input. Throws FileError if its
// folder can take no file.
Job lay_out_file(const std::string &input, const std::string &output);

// Checks the place of a file beside the pictures. Throws FileError if it is what a job or somebody else reads or what a job
// writes, or if its folder can take no file.
void check_apart(const std::filesystem::path &file, const std::vector<Job> &jobs, const std::vector<std::string> &also_read);

// Lays out jobs that write no files.
std::vector<Job> lay_out_reading(const std::vector<std::string> &inputs);

} // namespace host

#endif
