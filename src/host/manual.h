// The manual page and the completions for shells, made from the description of the command line, so that they agree with
// --help.
#ifndef KO_HOST_MANUAL_H
#define KO_HOST_MANUAL_H

#include <string>

namespace CLI {
class App;
}

namespace host {

// The page for section 1 of man.
std::string manual_page(const CLI::App &app, const std::string &version);

std::string bash_completion(const CLI::App &app);
std::string zsh_completion(const CLI::App &app);

} // namespace host

#endif
