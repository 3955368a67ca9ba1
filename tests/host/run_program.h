// Runs the program and keeps its output.
#ifndef KO_TESTS_HOST_RUN_PROGRAM_H
#define KO_TESTS_HOST_RUN_PROGRAM_H

#include <cstdint>
#include <string>
#include <vector>

namespace ko_test {

struct Surroundings {
    bool terminal = false;      // the standard output and error stream are a terminal
    uint64_t largest_file = 0;  // a limit of the system on files that are written; 0 for none
    uint64_t address_space = 0; // a limit of the system on memory; 0 for none
    bool bound = false;         // the program writes only where permissions let it, even as root
};

struct Outcome {
    int status = -1; // exit status; -1 if a signal ended the program
    std::string out;
    std::string err;          // "" on a terminal, where everything is in out
    uint64_t peak_memory = 0; // bytes

    std::vector<std::string> out_lines() const;
    std::vector<std::string> err_lines() const;
};

Outcome run_program(const std::vector<std::string> &arguments, const Surroundings &surroundings = {});

} // namespace ko_test

#endif
