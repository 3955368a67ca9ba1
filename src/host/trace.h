// The trace that a result carries of what was done to it: a mark among the names of its software, and a thumbnail that shows
// the result.
#ifndef KO_HOST_TRACE_H
#define KO_HOST_TRACE_H

#include <functional>
#include <optional>
#include <vector>

#include "codec/codec.h"
#include "kohost/pixels.h"
#include "metadata/mark.h"

namespace host {

enum class Deed { red_eyes, shadows, curves };

// As a mark names it, such as "shadows opened".
const char *name(Deed deed);

struct Trace {
    std::vector<Deed> deeds;
    std::function<std::optional<kohost::Image>()> preview = nullptr; // the result, reduced; none if it cannot be made
};

// A picture's description for a file of a format, with a trace added to those that it has. Without deeds the picture has its
// old pixels. Adds a notice of what could not be done; the data are then carried unchanged.
codec::Description traced(const codec::Description &picture, codec::Format format, const Trace &trace, codec::Notices &notices);

// What a picture's marks say was done to it, wherever a format keeps them; none without a mark.
std::optional<metadata::Mark> mark_of(const codec::Metadata &metadata);

} // namespace host

#endif
