// Works on the pictures of a command, several at the same time if it may.
#ifndef KO_HOST_WORKERS_H
#define KO_HOST_WORKERS_H

#include <functional>
#include <vector>

#include "jobs.h"
#include "report.h"

namespace host {

// Does a step for each job, on so many threads, and reports failures; one that fails leaves the others alone.
void for_each_job(const std::vector<Job> &jobs, unsigned threads, Report &report,
                  const std::function<void(const Job &, Entry &)> &step);

} // namespace host

#endif
