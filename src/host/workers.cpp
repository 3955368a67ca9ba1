// A job fails with an exception, whose text becomes that of the error.
#include "workers.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <system_error>
#include <thread>

#include "files.h"
#include "paths.h"

namespace host {

namespace {

void work(const Job &job, Entry &entry, const std::function<void(const Job &, Entry &)> &step) {
    try {
        if (!job.refusal.empty()) {
            throw FileError(job.refusal);
        }
        if (!job.skipped.empty()) {
            return entry.skipped(text_of(job.target), job.skipped);
        }
        step(job, entry);
    } catch (const std::bad_alloc &) {
        entry.failed("not enough memory");
    } catch (const std::exception &error) {
        entry.failed(error.what());
    }
}

} // namespace

void for_each_job(const std::vector<Job> &jobs, unsigned threads, Report &report,
                  const std::function<void(const Job &, Entry &)> &step) {
    report.expect(jobs.size());
    std::atomic<size_t> next = 0;
    const auto work_off = [&] {
        for (size_t number = next++; number < jobs.size(); number = next++) {
            work(jobs[number], *report.begin(number, jobs[number].input), step);
        }
    };
    std::vector<std::jthread> others;
    try {
        for (size_t i = 1; i < std::min<size_t>(threads, jobs.size()); ++i) {
            others.emplace_back(work_off);
        }
    } catch (const std::system_error &) { // no further thread can be made: those that run do the work
    }
    work_off();
}

} // namespace host
