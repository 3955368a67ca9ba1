// The red-eye model that a run uses: the one that is named, or the one that is installed with the program.
#ifndef KO_HOST_MODEL_H
#define KO_HOST_MODEL_H

#include <string>
#include <vector>

#include "kohost/tuning.h"

namespace host {

// The value of --model that stands for no model.
inline constexpr const char *no_model = "none";

// The configuration of the installed model; "" if none is installed.
std::string installed_model();

// Fills in the model where none is named, with the sensitivity that it was made for, and tries it. Gives the files that it
// consists of; none, and a choice without a model, if there is none. Throws LibraryError for a model that cannot be used.
std::vector<std::string> choose_model(kohost::RedEyeChoices &choices);

} // namespace host

#endif
