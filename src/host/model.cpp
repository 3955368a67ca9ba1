#include "model.h"

#include <filesystem>
#include <system_error>

#include "kohost/redeye.h"
#include "system.h"

namespace host {

std::string installed_model() {
    std::error_code error;
    const std::filesystem::path path = (system::program_folder() / KO_MODEL).lexically_normal();
    return std::filesystem::exists(path, error) ? path.string() : "";
}

std::vector<std::string> choose_model(kohost::RedEyeChoices &choices) {
    if (choices.model.empty()) {
        choices.model = installed_model();
        choices.sensitivity = choices.sensitivity.value_or(kohost::Sensitivity::standard);
    } else if (choices.model == no_model) {
        choices.model = "";
    }
    return choices.model.empty() ? std::vector<std::string>() : kohost::try_model(choices.model);
}

} // namespace host
