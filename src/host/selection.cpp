// Pictures in folders are recognised by their extensions; a file that is named itself is taken whatever its name.
#include "selection.h"

#include <algorithm>
#include <array>
#include <set>
#include <system_error>

#include "files.h"
#include "paths.h"

namespace host {

namespace fs = std::filesystem;

namespace {

bool is_hidden(const fs::path &path) { return path.filename().native().starts_with('.'); }

class Lister {
  public:
    Lister(bool recursive, const fs::path &except)
        : recursive_(recursive), except_(except.empty() ? except : resolved(except)) {}

    void add(const std::string &input) {
        std::error_code error;
        if (input != standard_stream && fs::is_directory(path_of(input), error)) {
            add_folder(input);
        } else {
            add_file({input, path_of(input).filename()});
        }
    }

    std::vector<Selected> take() { return std::move(found_); }

  private:
    void add_file(const Selected &selected) {
        if (selected.input == standard_stream || known_.insert(resolved(path_of(selected.input))).second) {
            found_.push_back(selected);
        }
    }

    void add_folder(const std::string &input) {
        const size_t before = found_.size();
        walk(path_of(input), "");
        if (found_.size() == before) {
            const std::string hint = recursive_ ? "" : "; --recursive includes subfolders";
            found_.push_back({input, "", "no pictures in this folder" + hint, true});
        }
    }

    void walk(const fs::path &folder, const fs::path &place) {
        std::error_code error;
        std::vector<fs::directory_entry> entries;
        for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator(); entry.increment(error)) {
            entries.push_back(*entry);
        }
        if (error) {
            found_.push_back({text_of(folder), "", "the folder cannot be read: " + error.message(), true});
            return;
        }
        std::sort(entries.begin(), entries.end());
        for (const fs::directory_entry &entry : entries) {
            visit(entry, place / entry.path().filename());
        }
    }

    // A link to a folder is not followed: it may lead back.
    void visit(const fs::directory_entry &entry, const fs::path &place) {
        std::error_code error;
        if (is_hidden(entry.path())) {
            return;
        }
        if (entry.is_directory(error)) {
            if (recursive_ && !entry.is_symlink(error) && (except_.empty() || resolved(entry.path()) != except_)) {
                walk(entry.path(), place);
            }
        } else if (entry.is_regular_file(error) && format_of_extension(entry.path())) {
            add_file({text_of(entry.path()), place, "", true});
        }
    }

    const bool recursive_;
    const fs::path except_;
    std::vector<Selected> found_;
    std::set<fs::path> known_;
};

// One name per line, or, in a list that holds a zero byte, names that end with one.
std::vector<std::string> names_in(const std::string &path) {
    FileInput input(path_of(path));
    std::string text;
    std::array<uint8_t, 1 << 16> room;
    std::optional<size_t> count;
    while ((count = input.read(text.size(), room)) && *count > 0) {
        text.append(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(*count));
    }
    if (!count) {
        throw FileError(input.failure());
    }
    const char end = text.find('\0') != std::string::npos ? '\0' : '\n';
    std::vector<std::string> names;
    for (size_t start = 0; start < text.size();) {
        const size_t stop = std::min(text.find(end, start), text.size());
        std::string name = text.substr(start, stop - start);
        if (end == '\n' && name.ends_with('\r')) {
            name.pop_back();
        }
        if (!name.empty()) {
            names.push_back(std::move(name));
        }
        start = stop + 1;
    }
    return names;
}

} // namespace

std::vector<Selected> pictures_of(const Selection &selection, const fs::path &except) {
    Lister lister(selection.recursive, except);
    for (const std::string &input : selection.inputs) {
        lister.add(input);
    }
    if (!selection.files_from.empty()) {
        try {
            for (const std::string &name : names_in(selection.files_from)) {
                lister.add(name);
            }
        } catch (const FileError &error) {
            throw FileError(selection.files_from + ": " + error.what());
        }
    }
    return lister.take();
}

fs::path resolved(const fs::path &path) {
    std::error_code error;
    fs::path result = fs::weakly_canonical(fs::absolute(path, error), error);
    return error ? path.lexically_normal() : result;
}

} // namespace host
