#include "model.h"

#include <filesystem>
#include <system_error>

#include "paths.h"
#include "system.h"

namespace host {

std::string installed_model() {
    std::error_code error;
    const std::filesystem::path path = (system::program_folder() / KO_MODEL).lexically_normal();
    return std::filesystem::exists(path, error) ? text_of(path) : "";
}

kohost::RedEyeModel choose_model(const std::string &choice) {
    const std::string configuration = choice.empty() ? installed_model() : choice;
    return configuration.empty() || configuration == no_model
               ? kohost::RedEyeModel()
               : kohost::RedEyeModel(system::library_path(path_of(configuration)));
}

} // namespace host
