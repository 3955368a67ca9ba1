// Which picture goes to which file, decided before the first one is read or written.
#ifndef KO_HOST_JOBS_H
#define KO_HOST_JOBS_H

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "codec/codec.h"

namespace host {

// The command line is wrong; the text says how.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Job {
    std::string input;
    std::filesystem::path target;
    std::optional<codec::Format> format = {}; // that of the target's extension; without one, the input's own
    std::string refusal = {};                 // why this picture cannot be processed, "" if it can
    std::string skipped = {};                 // why this picture is skipped, "" if it is not
    bool dry_run = false;                     // nothing is to be written
};

// The inputs of a command.
struct Selection {
    std::vector<std::string> inputs; // pictures, folders, and standard_stream
    std::string files_from;          // a file that names further ones, or ""
    bool recursive = false;          // folders include their subfolders
};

// Where the results go: to output, beside the inputs under names with a suffix, or in place of them.
struct Destination {
    std::string output;
    std::string suffix;
    bool in_place = false;
    bool no_clobber = false; // existing files are left alone, and their pictures skipped
    bool dry_run = false;    // nothing is written, no folder made
};

// The format that a name's extension specifies; none without a known extension.
std::optional<codec::Format> format_of_extension(const std::filesystem::path &path);

// Throws UsageError for a name without such an extension.
void check_extension(const std::filesystem::path &path);

// Makes a folder if it is missing. Throws FileError, in which who is what needs the folder, if no file can be written to it.
void prepare_folder(const std::filesystem::path &folder, const std::string &who);

// Lays out the jobs. Several inputs, and one whose output is a folder, keep their names there, and those from subfolders their
// place below it. Throws UsageError, with nothing done, if a job would write what another one reads or writes, or a file of
// also_read, and FileError if no picture can be written to the output.
std::vector<Job> lay_out_jobs(const Selection &selection, const Destination &destination,
                              const std::vector<std::string> &also_read = {});

// Lays out the single job of a command whose result is not its input's picture: it must not take the place of its input. Throws
// FileError if no file can be written to its folder.
Job lay_out_file(const std::string &input, const std::string &output);

// Checks the place of a file that is written besides the pictures. Throws FileError if a job or the command reads it, if a job
// writes it, or if no file can be written to its folder.
void check_apart(const std::filesystem::path &file, const std::vector<Job> &jobs, const std::vector<std::string> &also_read);

// Lays out jobs that write no files.
std::vector<Job> lay_out_reading(const Selection &selection);

} // namespace host

#endif
