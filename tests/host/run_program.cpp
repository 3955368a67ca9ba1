#include "run_program.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <sstream>

#include <fcntl.h>
#include <linux/capability.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "files.h"

namespace ko_test {

namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

void limit(decltype(RLIMIT_FSIZE) what, uint64_t value) {
    if (value != 0) {
        const rlimit bounds{value, value};
        setrlimit(what, &bounds);
    }
}

void send_to_file(int stream, const std::string &path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, stream);
    close(file);
}

// True in a process whose programs may write only where permissions let them: none of them regains what root gives up here.
bool bind_by_permissions() { return geteuid() != 0 || prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) == 0; }

[[noreturn]] void become_program(const std::vector<std::string> &arguments, const Surroundings &surroundings) {
    std::vector<char *> words{const_cast<char *>(KO_PROGRAM)};
    for (const std::string &argument : arguments) {
        words.push_back(const_cast<char *>(argument.c_str()));
    }
    words.push_back(nullptr);
    std::signal(SIGXFSZ, SIG_IGN); // so that a write beyond the limit fails
    limit(RLIMIT_FSIZE, surroundings.largest_file);
    limit(RLIMIT_AS, surroundings.address_space);
    setenv("TERM", "xterm", 1);
    if (!surroundings.bound || bind_by_permissions()) {
        execv(KO_PROGRAM, words.data());
    }
    _exit(127);
}

void finish(pid_t child, Outcome &outcome) {
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    outcome.peak_memory = static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

Outcome run_on_terminal(const std::vector<std::string> &arguments, const Surroundings &surroundings) {
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        become_program(arguments, surroundings);
    }
    Outcome outcome;
    std::array<char, 4096> room;
    for (ssize_t count = 0; (count = read(terminal, room.data(), room.size())) > 0;) {
        outcome.out.append(room.data(), static_cast<size_t>(count));
    }
    finish(child, outcome);
    close(terminal);
    return outcome;
}

} // namespace

std::vector<std::string> Outcome::out_lines() const { return lines_of(out); }
std::vector<std::string> Outcome::err_lines() const { return lines_of(err); }

Outcome run_program(const std::vector<std::string> &arguments, const Surroundings &surroundings) {
    if (surroundings.terminal) {
        return run_on_terminal(arguments, surroundings);
    }
    const TemporaryFile out("out.txt");
    const TemporaryFile err("err.txt");
    const pid_t child = fork();
    if (child == 0) {
        send_to_file(STDOUT_FILENO, out.path());
        send_to_file(STDERR_FILENO, err.path());
        become_program(arguments, surroundings);
    }
    Outcome outcome;
    finish(child, outcome);
    outcome.out = read_bytes(out.path());
    outcome.err = read_bytes(err.path());
    return outcome;
}

} // namespace ko_test
