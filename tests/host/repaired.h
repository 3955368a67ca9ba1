// What the library makes of red eyes, called as any host would call it.
#ifndef KO_TESTS_HOST_REPAIRED_H
#define KO_TESTS_HOST_REPAIRED_H

#include <string>

#include <nlohmann/json.hpp>

#include "host.h"

namespace ko_test {

struct Repair {
    bool full = false;
    bool on_top = false;    // the full repair on the picture repaired by labels, instead of the original one
    uint64_t thickness = 0; // of frames; 0 for none
};

// The pixels of a file after the repair by a model; alpha stays.
Pixels repaired(const Pixels &given, const std::string &model, const Repair &repair = {});

// The places as the program's JSON has them.
nlohmann::json places_found(const Pixels &given, const std::string &model);

// The progress lines.
std::string logged(const Pixels &given, const std::string &model);

// Writes the patch files into a folder, whose path ends in a slash, with names that begin with "expected_x_".
void dump(const Pixels &given, const std::string &model, const std::string &folder);

} // namespace ko_test

#endif
