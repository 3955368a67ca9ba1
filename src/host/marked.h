// Pictures that an earlier run has worked on already: they are left alone, so that a folder can be gone through again.
#ifndef KO_HOST_MARKED_H
#define KO_HOST_MARKED_H

#include "options.h"
#include "pictures.h"

namespace host {

// True for a picture with a mark of a deed, unless it is to be done again.
bool is_marked(Source &source, Deed deed, const Options &options);

// Copies and reports a picture with a mark of a deed, without a look at its pixels. False for one without, to which nothing is
// done.
bool leave_marked(const Job &job, Source &source, Deed deed, const Options &options, Entry &entry);

} // namespace host

#endif
