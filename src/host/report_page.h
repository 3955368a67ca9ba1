// The page of a run: one HTML file that shows what was done to each picture, and why. It needs no other file and no network.
#ifndef KO_HOST_REPORT_PAGE_H
#define KO_HOST_REPORT_PAGE_H

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "files.h"
#include "jobs.h"
#include "page_entry.h"

namespace host {

struct Options;

// Pictures are added from any thread and in any order. The page has them in the order of their numbers. Until it is written
// they wait in a file beside it rather than in memory: it begins with the number of each outcome, which is known only at the
// end.
class ReportPage {
  public:
    // The title is that of the run, such as "ko enhance". Throws FileError if the page cannot be written to its place.
    ReportPage(const std::filesystem::path &target, std::string title, size_t pictures);

    // A record for a picture to be filled and added.
    std::unique_ptr<PageEntry> entry(const std::string &name) const;

    // Adds a picture; every number, from 0, is added once. A failure is thrown later, by write().
    void add(size_t number, const PageEntry &entry) noexcept;

    // Writes the page. Throws FileError.
    void write();

  private:
    struct Outcome {
        PageOutcome outcome;
        size_t pictures = 0;
    };

    void take(size_t number, std::string text, const PageEntry &entry);
    void count(const PageOutcome &outcome);
    std::string summary() const;

    const std::filesystem::path target_;
    const std::string title_;
    const size_t pictures_;
    std::mutex lock_; // guards all below
    Draft spool_;     // never takes a place
    std::map<size_t, std::string> waiting_;
    size_t turn_ = 0;
    std::vector<Outcome> outcomes_; // in the order in which they first occurred
    double seconds_ = 0.0;
    std::exception_ptr failure_;
};

// The page that the options request, or null. Throws FileError if it would take the place of a file that is read or written
// otherwise, or if it cannot be written.
std::unique_ptr<ReportPage> page_for(const Options &options, const std::vector<Job> &jobs,
                                     const std::vector<std::string> &also_read = {});

} // namespace host

#endif
