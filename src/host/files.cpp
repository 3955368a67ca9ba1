// An input stays open while its target is replaced, so that a picture can be written over itself.
#include "files.h"
#include "paths.h"

#include <array>
#include <mutex>
#include <set>
#include <system_error>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr size_t largest_kept = size_t{1} << 30;

// The drafts that exist, by path.
std::mutex drafts_lock;
std::set<fs::path> drafts;

// The real path of a target: a link stays a link.
fs::path place_of(const fs::path &target) {
    std::error_code missing;
    const fs::path real = fs::canonical(target, missing);
    return missing ? target : real;
}

// Keeps the reason for a call's failure, unless memory for the text is lacking.
void explain(std::string &failure, const char *what, const std::string &name) noexcept {
    try {
        failure = what + name + ": " + system::failure();
    } catch (...) {
        failure.clear();
    }
}

} // namespace

// ---- reading

FileInput::FileInput(const fs::path &path) {
    if (path == standard_stream) {
        file_ = system::File::standard_input();
    } else if (!file_.open(path)) {
        throw FileError("cannot be read: " + system::failure());
    }
    if (!file_.has_places()) {
        keep_all();
        return;
    }
    traits_ = file_.traits();
}

std::optional<size_t> FileInput::read(uint64_t offset, std::span<uint8_t> room) noexcept {
    if (is_kept_) {
        return codec::MemoryInput(kept_).read(offset, room);
    }
    const int64_t count = file_.read_at(offset, room);
    if (count < 0) {
        explain(failure_, "cannot be read", {});
        return std::nullopt;
    }
    return static_cast<size_t>(count);
}

std::optional<uint64_t> FileInput::size() noexcept {
    if (is_kept_) {
        return kept_.size();
    }
    const std::optional<uint64_t> size = file_.size();
    if (!size) {
        explain(failure_, "cannot be read", {});
    }
    return size;
}

void FileInput::keep_all() {
    is_kept_ = true;
    std::array<uint8_t, 1 << 16> room;
    int64_t count = 0;
    while ((count = file_.read(room)) > 0) {
        if (static_cast<size_t>(count) > largest_kept - kept_.size()) {
            throw FileError("larger than 1 GiB");
        }
        kept_.insert(kept_.end(), room.data(), room.data() + count);
    }
    if (count < 0) {
        throw FileError("cannot be read: " + system::failure());
    }
}

// ---- writing

bool Target::write(std::span<const uint8_t> bytes) noexcept {
    if (file_.write(bytes)) {
        return true;
    }
    explain(failure_, "cannot write ", name_);
    return false;
}

bool Target::rewrite(uint64_t offset, std::span<const uint8_t> bytes) noexcept {
    if (file_.write_at(offset, bytes)) {
        return true;
    }
    explain(failure_, "cannot write ", name_);
    return false;
}

void Target::fail() const { throw FileError("cannot write " + name_ + ": " + system::failure()); }

Draft::Draft(const fs::path &target, const std::optional<system::Traits> &traits)
    : Target(text_of(target)), target_(place_of(target)), traits_(traits) {
    const std::lock_guard<std::mutex> guard(drafts_lock);
    system::File::Made made = system::File::Made::exists;
    for (int number = 0; made == system::File::Made::exists; ++number) {
        path_ = target_.parent_path() /
                path_of(".ko-" + std::to_string(system::process()) + "-" + std::to_string(number) + ".part");
        made = file_.make(path_);
    }
    if (made == system::File::Made::no) {
        fail();
    }
    drafts.insert(path_);
}

Draft::~Draft() {
    file_.close();
    if (placed_) {
        return; // by now another draft may have this one's path
    }
    const std::lock_guard<std::mutex> guard(drafts_lock);
    drafts.erase(path_);
    std::error_code error;
    fs::remove(path_, error);
}

void Draft::check_room() {
    if (!file_.has_room()) {
        fail();
    }
}

// Times come last: everything else changes them.
void Draft::take_place() {
    if (!traits_) {
        take_permissions();
    }
    if (!file_.sync() || (traits_ && !file_.take(*traits_)) || !file_.close()) {
        fail();
    }
    const std::lock_guard<std::mutex> guard(drafts_lock);
    if (!system::rename(path_, target_)) {
        fail();
    }
    drafts.erase(path_);
    placed_ = true;
}

void Draft::take_permissions() {
    std::error_code error;
    const fs::file_status present = fs::status(target_, error);
    if (fs::is_regular_file(present)) {
        fs::permissions(path_, present.permissions(), error); // as far as the system permits
    }
}

// The lock is kept, so that no thread goes on with a draft until the program has ended.
void Draft::abandon_all() {
    drafts_lock.lock();
    for (const fs::path &draft : drafts) {
        std::error_code error;
        fs::remove(draft, error);
    }
}

namespace {

// The picture is held back until it is complete: a part of one is of no use to the reader.
class StandardOutput : public Target {
  public:
    StandardOutput() : Target("the standard output") { file_ = system::File::standard_output(); }

    bool write(std::span<const uint8_t> bytes) noexcept override { return held_.write(bytes); }
    bool rewrite(uint64_t offset, std::span<const uint8_t> bytes) noexcept override { return held_.rewrite(offset, bytes); }
    const char *failure() const noexcept override { return held_.failure(); }

    void take_place() override {
        if (!file_.write(held_.bytes())) {
            fail();
        }
    }

  private:
    codec::MemoryOutput held_;
};

} // namespace

std::unique_ptr<Target> open_target(const fs::path &target, const std::optional<system::Traits> &traits) {
    if (target == standard_stream) {
        return std::make_unique<StandardOutput>();
    }
    std::error_code error;
    if (const fs::path folder = target.parent_path(); !folder.empty() && !fs::exists(folder, error)) {
        fs::create_directories(folder, error);
        if (error) {
            throw FileError("cannot write " + text_of(target) + ": the folder cannot be made: " + error.message());
        }
    }
    return std::make_unique<Draft>(target, traits);
}

void copy_file(codec::Input &input, const fs::path &target, const std::optional<system::Traits> &traits) {
    const std::unique_ptr<Target> output = open_target(target, traits);
    std::array<uint8_t, 1 << 16> room;
    uint64_t offset = 0;
    while (const std::optional<size_t> count = input.read(offset, room)) {
        if (*count == 0) {
            return output->take_place();
        }
        if (!output->write({room.data(), *count})) {
            throw FileError(output->failure());
        }
        offset += *count;
    }
    throw FileError(input.failure());
}

void write_file_by(const fs::path &target, const DraftStep &write, const DraftStep &look) {
    Draft draft(target);
    try {
        write(draft.path());
    } catch (const std::exception &) {
        draft.check_room(); // a full disk is the better reason
        throw;
    }
    draft.check_room();
    if (look) {
        look(draft.path());
    }
    draft.take_place();
}

} // namespace host
