// The repair of red eyes in one picture. They are searched on a small copy; only a picture that has some is read as a whole.
#ifndef KO_HOST_REPAIR_H
#define KO_HOST_REPAIR_H

#include "kohost/redeye.h"
#include "pictures.h"

namespace host {

// Repairs a picture in the memory of its source. Throws ko::Error, and PatchFilesError.
kohost::RedEyes repair(const Job &job, Source &source, const kohost::RedEyeModel &model, const kohost::RedEyeChoices &choices,
                       Entry &entry);

// The trace of what was done in the memory of a source. Frames alone leave none.
Trace trace_of(const kohost::RedEyes &eyes, Source &source);

} // namespace host

#endif
