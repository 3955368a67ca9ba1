// Pictures that an earlier run has processed already: they are left alone, so that a folder can be processed again.
#ifndef KO_HOST_MARKED_H
#define KO_HOST_MARKED_H

#include "options.h"
#include "pictures.h"

namespace host {

// True for a picture whose mark names the deed, unless it is to be repeated.
bool is_marked(Source &source, Deed deed, const Options &options);

// Copies and reports a picture whose mark names the deed, without looking at its pixels. Returns false for any other picture,
// to which nothing is done.
bool leave_marked(const Job &job, Source &source, Deed deed, const Options &options, Entry &entry);

} // namespace host

#endif
