// Which picture goes to which file, decided before the first one is touched.
#ifndef KO_HOST_JOBS_H
#define KO_HOST_JOBS_H

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "codec/codec.h"

namespace host {

// The command line asks for what makes no sense; the text says what.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Job {
    std::string input;
    std::filesystem::path target;
    std::optional<codec::Format> format = {}; // that of the target's extension; without one, the input's own
    std::string refusal = {};                 // why this picture cannot be worked on, "" if nothing speaks against it
    std::string skipped = {};                 // why nothing is to be done, "" if there is
    bool dry_run = false;                     // nothing is to be written
};

// The inputs of a command.
struct Selection {
    std::vector<std::string> inputs; // pictures, folders, and standard_stream
    std::string files_from;          // a file that names further ones, or ""
    bool recursive = false;          // folders with all that is below them
};

// Where the results go: to output, beside the inputs under names with a suffix, or in place of them.
struct Destination {
    std::string output;
    std::string suffix;
    bool in_place = false;
    bool no_clobber = false; // existing files are left as they are, and their pictures alone
    bool dry_run = false;    // nothing is written, no folder made
};

// The format that a name promises; none for one without a well-known extension.
std::optional<codec::Format> format_of_extension(const std::filesystem::path &path);

// Throws UsageError for a name without such an extension.
void check_extension(const std::filesystem::path &path);

// Makes a folder if it is missing. Throws FileError, in which who are those that need it, if it can take no file.
void prepare_folder(const std::filesystem::path &folder, const std::string &who);

// Lays out the jobs. Several inputs, and one whose output is a folder, keep their names there, and what comes from below a
// folder its place below it. Throws UsageError, with nothing done, where a job would write what another one reads or writes, or
// a file of also_read, and FileError if the output can take no picture at all.
std::vector<Job> lay_out_jobs(const Selection &selection, const Destination &destination,
                              const std::vector<std::string> &also_read = {});

// Lays out the one job of a file that is no picture or another one: it must not take the place of its input. Throws FileError
// if its folder can take no file.
Job lay_out_file(const std::string &input, const std::string &output);

// Checks the place of a file beside the pictures. Throws FileError if it is what a job or somebody else reads or what a job
// writes, or if its folder can take no file.
void check_apart(const std::filesystem::path &file, const std::vector<Job> &jobs, const std::vector<std::string> &also_read);

// Lays out jobs that write no files.
std::vector<Job> lay_out_reading(const Selection &selection);

} // namespace host

#endif
