// What the back ends share.
#include "system.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

namespace host::system {

std::string failure() { return std::generic_category().message(errno); }

File::File(File &&other) noexcept : number_(std::exchange(other.number_, -1)), owned_(other.owned_) {}

File &File::operator=(File &&other) noexcept {
    close();
    number_ = std::exchange(other.number_, -1);
    owned_ = other.owned_;
    return *this;
}

unsigned processors() { return std::max(std::thread::hardware_concurrency(), 1u); }

} // namespace host::system
