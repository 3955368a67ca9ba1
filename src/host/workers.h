// Processes the pictures of a command, several at the same time if allowed.
#ifndef KO_HOST_WORKERS_H
#define KO_HOST_WORKERS_H

#include <functional>
#include <vector>

#include "jobs.h"
#include "report.h"

namespace host {

// Runs a step for each job on the given number of threads and reports failures; a job that fails does not affect the others.
void for_each_job(const std::vector<Job> &jobs, unsigned threads, Report &report,
                  const std::function<void(const Job &, Entry &)> &step);

} // namespace host

#endif
