// The pictures that a command line names.
#ifndef KO_HOST_SELECTION_H
#define KO_HOST_SELECTION_H

#include <filesystem>
#include <string>
#include <vector>

#include "jobs.h"

namespace host {

struct Selected {
    std::string input;
    std::filesystem::path place; // below the folder in which it was found, or its bare name
    std::string refusal = {};    // why it cannot be processed, "" if it can
    bool from_folder = false;
};

// Lists the pictures of a selection in the order in which it names them, those of a folder by name. Hidden files, and what is
// in the folder except, are skipped; a picture that is named twice is listed once. Throws FileError if a list of files cannot
// be read.
std::vector<Selected> pictures_of(const Selection &selection, const std::filesystem::path &except = {});

// A path as files are compared: absolute, links resolved as far as it exists.
std::filesystem::path resolved(const std::filesystem::path &path);

} // namespace host

#endif
