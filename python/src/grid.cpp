// Grids of tone curves: from and to arrays and files, and onto pictures, at once or by rows.
#include "grid.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <string>

#include <pybind11/stl/filesystem.h>

#include "arrays.h"
#include "families.h"
#include "kohost/curves.h"

namespace binding {

namespace {

constexpr uint64_t byte_levels = 256;
constexpr uint64_t most_entries = 65536;
constexpr uint64_t most_values = uint64_t{1} << 29; // that the library's memory for one grid holds

ko::TileTRCPtr make_grid(uint64_t entries, uint64_t columns, uint64_t rows) {
    KoStatusClear();
    ko::TileTRCPtr grid(KoTileTRCNew(entries, columns, rows));
    ko::check(grid != nullptr && (columns == 0 || grid->array != nullptr), "the curves cannot be made");
    return grid;
}

uint64_t values_of(const TileTRC &grid) { return grid.size * grid.numStripsX * grid.numStripsY; }

// Throws value_error for an entry that is no level of its curve.
void check_entries(const TileTRC &grid) {
    const uint32_t *first = grid.array;
    const uint32_t *end = first + values_of(grid);
    const uint32_t *over = std::find_if(first, end, [&](uint32_t entry) { return entry >= grid.size; });
    if (over != end) {
        const auto at = static_cast<uint64_t>(over - grid.array);
        const uint64_t tile = at / grid.size;
        throw py::value_error("entry " + std::to_string(at % grid.size) + " of the curve in row " +
                              std::to_string(tile / grid.numStripsX) + ", column " + std::to_string(tile % grid.numStripsX) +
                              " is not between 0 and " + std::to_string(grid.size - 1));
    }
}

// Throws value_error unless pictures can be processed with curves of a shape.
void check_shape(uint64_t entries, uint64_t columns, uint64_t rows) {
    if (columns == 0 || rows == 0) {
        throw py::value_error("a grid of " + std::to_string(columns) + " x " + std::to_string(rows) + " tiles has no curves");
    }
    if (entries < byte_levels || entries > most_entries || entries % byte_levels != 0) {
        throw py::value_error("a curve has a multiple of 256 entries, up to 65536, not " + std::to_string(entries));
    }
    if (rows > most_values / entries / columns) {
        throw py::value_error("a grid of " + std::to_string(columns) + " x " + std::to_string(rows) + " tiles is too large");
    }
}

// Whole numbers of any width in native byte order; a value that does not fit 64 bits becomes one that is refused.
std::shared_ptr<Grid> from_array(const py::array &array) {
    if (array.ndim() != 3) {
        throw py::value_error("curves have the shape (rows, columns, entries)");
    }
    const auto rows = static_cast<uint64_t>(array.shape(0));
    const auto columns = static_cast<uint64_t>(array.shape(1));
    const auto entries = static_cast<uint64_t>(array.shape(2));
    check_shape(entries, columns, rows);
    using Numbers = py::array_t<int64_t, py::array::c_style | aligned | py::array::forcecast>;
    const Numbers numbers = present(Numbers::ensure(array));
    ko::TileTRCPtr grid = make_grid(entries, columns, rows);
    std::transform(numbers.data(), numbers.data() + values_of(*grid), grid->array, [](int64_t number) {
        return number >= 0 && number < static_cast<int64_t>(most_entries) ? static_cast<uint32_t>(number)
                                                                          : std::numeric_limits<uint32_t>::max();
    });
    check_entries(*grid);
    return std::make_shared<Grid>(std::move(grid));
}

// The entries where they lie, not to be written.
py::array array_of(const py::object &self) {
    const Grid &grid = self.cast<const Grid &>();
    py::array_t<uint32_t> array({grid.rows(), grid.columns(), grid.entries()}, grid.curves().array, self);
    array.attr("setflags")(py::arg("write") = false);
    return array;
}

// ---- files

// Every file of a grid says in its second line how many curves it holds; the library takes memory for all of them.
std::shared_ptr<Grid> load(const std::filesystem::path &path) {
    ko::TileTRCPtr grid = make_grid(0, 0, 0);
    const std::string text = path.string();
    {
        const py::gil_scoped_release unlocked;
        ko::check(KoTileTRCLoad(grid.get(), text.c_str()) == KO_OK, "the curves cannot be read");
    }
    check_shape(grid->size, grid->numStripsX, grid->numStripsY);
    check_entries(*grid);
    return std::make_shared<Grid>(std::move(grid));
}

// The library's result of a save covers only the opening of the file, and two of the forms lose some curves silently: what was
// saved is loaded again and compared. Gives whether the file holds the curves.
bool save(const Grid &grid, const std::filesystem::path &path, int32_t form) {
    ko::TileTRCPtr again = make_grid(0, 0, 0);
    const std::string text = path.string();
    const py::gil_scoped_release unlocked;
    ko::check(KoTileTRCSave(&grid.curves(), text.c_str(), form, 1) == KO_OK, "the curves cannot be saved");
    const bool loaded = KoTileTRCLoad(again.get(), text.c_str()) == KO_OK;
    if (!loaded && (KoErrorGetLastError() == KO_ERR_ALLOC || KoErrorGetLastError() == KO_ERR_CREATE_OBJECT)) {
        throw ko::Error("the saved curves cannot be checked");
    }
    return loaded && KoTileTRCCompare(again.get(), &grid.curves()) != 0;
}

// ---- pictures

// A gray picture stays as it is under a single curve.
bool stays(const Grid &grid, uint32_t channels) { return kohost::stays(channels, {grid.columns(), grid.rows()}); }

py::array apply(const Grid &grid, const py::object &picture, float ratio) {
    const Form form = form_of(picture);
    grid.check_fit(form.size);
    if (stays(grid, form.channels)) {
        return copy_of(picture, form);
    }
    Bytes bytes = new_bytes_of(picture, form);
    uint8_t *const room = bytes.mutable_data();
    {
        const py::gil_scoped_release unlocked;
        KoStatusClear();
        kohost::Application(grid.curves(), ratio, form.size, form.channels).apply(form.size.height, room);
    }
    return like(bytes, form);
}

// The application of a grid to a picture whose rows come in pieces. Threads that use one take turns.
class Rows {
  public:
    Rows(std::shared_ptr<Grid> grid, py::ssize_t width, py::ssize_t height, bool colour, float ratio) : grid_(std::move(grid)) {
        check_sides(width, height);
        size_ = {static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
        channels_ = colour ? 3 : 1;
        grid_->check_fit(size_);
        if (!stays(*grid_, channels_)) {
            KoStatusClear();
            application_ = std::make_unique<kohost::Application>(grid_->curves(), ratio, size_, channels_);
        }
    }

    py::array apply(const py::object &rows) {
        const Form form = form_of(rows);
        if (form.size.width != size_.width || form.channels != channels_) {
            throw py::value_error("the rows have not the width and the channels of the picture");
        }
        Bytes bytes = new_bytes_of(rows, form);
        uint8_t *const room = bytes.mutable_data();
        {
            const py::gil_scoped_release unlocked;
            apply_to(form.size.height, room);
        }
        return application_ != nullptr ? like(bytes, form) : copy_of(rows, form);
    }

    uint32_t left() {
        const py::gil_scoped_release unlocked;
        const std::lock_guard<std::mutex> turn(turn_);
        return size_.height - done_;
    }

  private:
    void apply_to(uint32_t rows, uint8_t *room) {
        const std::lock_guard<std::mutex> turn(turn_);
        if (rows > size_.height - done_) {
            throw py::value_error("more rows than the picture has left: " + std::to_string(rows) + " of " +
                                  std::to_string(size_.height - done_));
        }
        if (application_ != nullptr) {
            KoStatusClear();
            application_->apply(rows, room);
        }
        done_ += rows;
    }

    std::shared_ptr<Grid> grid_;
    kohost::Size size_;
    uint32_t channels_ = 0;
    std::unique_ptr<kohost::Application> application_;
    std::mutex turn_; // taken without the interpreter's lock alone
    uint32_t done_ = 0;
};

} // namespace

void Grid::check_fit(kohost::Size picture) const {
    const auto fits = [](uint64_t strips, uint64_t pixels) { return strips == 1 || strips <= pixels / 2; };
    if (!fits(columns(), picture.width) || !fits(rows(), picture.height)) {
        throw py::value_error("a picture of " + std::to_string(picture.width) + " x " + std::to_string(picture.height) +
                              " pixels is too small for a grid of " + std::to_string(columns()) + " x " +
                              std::to_string(rows()) + " tiles, which needs two pixels per tile each way");
    }
}

void add_grid(py::module_ &module) {
    py::class_<Grid, std::shared_ptr<Grid>>(module, "Grid")
        .def(py::init(&from_array), py::arg("array"))
        .def_static("load", load, py::arg("path"))
        .def("save", save, py::arg("path"), py::arg("form"))
        .def("apply", apply, py::arg("picture"), py::arg("ratio"))
        .def("equals", [](const Grid &a, const Grid &b) { return KoTileTRCCompare(&a.curves(), &b.curves()) != 0; })
        .def_property_readonly("array", array_of);
    py::class_<Rows>(module, "Rows")
        .def(py::init<std::shared_ptr<Grid>, py::ssize_t, py::ssize_t, bool, float>(), py::arg("grid"), py::arg("width"),
             py::arg("height"), py::arg("colour"), py::arg("ratio"))
        .def("apply", &Rows::apply, py::arg("rows"))
        .def_property_readonly("left", &Rows::left);
}

} // namespace binding
