// The red-eye model that a run uses: the one that is named, or the one that is installed with the program.
#ifndef KO_HOST_MODEL_H
#define KO_HOST_MODEL_H

#include <string>

#include "kohost/redeye_model.h"

namespace host {

// The value of --model that stands for no model.
inline constexpr const char *no_model = "none";

// The configuration of the installed model; "" if none is installed.
std::string installed_model();

// The model that a choice names, the installed one for "", or none. Throws ko::Error and GateError for a model that cannot
// be used.
kohost::RedEyeModel choose_model(const std::string &choice);

} // namespace host

#endif
