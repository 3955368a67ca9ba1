#include "marked.h"
#include "paths.h"

namespace host {

namespace {

std::string what_was_done(Deed deed) {
    switch (deed) {
    case Deed::red_eyes:
        return "repaired its red eyes";
    case Deed::shadows:
        return "opened its shadows";
    default:
        return "applied curves to it";
    }
}

std::optional<metadata::Mark> mark_with(Source &source, Deed deed, const Options &options) {
    const auto mark = options.again ? std::nullopt : mark_of(source.look().metadata);
    return mark && mark->has(name(deed)) ? mark : std::nullopt;
}

} // namespace

bool is_marked(Source &source, Deed deed, const Options &options) { return mark_with(source, deed, options).has_value(); }

bool leave_marked(const Job &job, Source &source, Deed deed, const Options &options, Entry &entry) {
    const std::optional<metadata::Mark> mark = mark_with(source, deed, options);
    if (!mark) {
        return false;
    }
    copy_picture(job, source, options.quality, entry);
    report_notices(source.notices, entry);
    entry.done({source.size().width, source.size().height, text_of(job.target), "left as it is",
                "ko " + mark->version + " has already " + what_was_done(deed)});
    return true;
}

} // namespace host
