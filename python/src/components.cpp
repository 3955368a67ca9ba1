// Connected components of a plane. The library's labels are provisional and lead to a component's root through a table; here
// they become numbers without gaps, in the order of the roots.
#include <vector>

#include "arrays.h"
#include "families.h"

namespace binding {

namespace {

// The number of each component by its root; 0 for labels that are no roots.
std::vector<int32_t> numbers_of(const std::vector<uint32_t> &table, uint32_t labels) {
    std::vector<int32_t> numbers(table.size());
    int32_t count = 0;
    for (uint32_t label = 1; label <= labels; ++label) {
        if (table[label] == label) {
            numbers[label] = ++count;
        }
    }
    return numbers;
}

struct Components {
    std::vector<BlobInfo> blobs; // by number, from 1 on
};

Components label(const RealImage &image, float threshold, int32_t *labels) {
    const uint64_t capacity = (image.width + 1) / 2 * ((image.height + 1) / 2) + 1;
    std::vector<uint32_t> table(capacity);
    const uint32_t count = KoConCompRealImage(&image, threshold, labels, table.data());
    std::vector<BlobInfo> infos(size_t{count} + 1);
    KoConCompRealImageInfo(static_cast<uint32_t>(image.width), static_cast<uint32_t>(image.height), labels, table.data(),
                           infos.data());
    const std::vector<int32_t> numbers = numbers_of(table, count);
    for (uint64_t i = 0; i < image.width * image.height; ++i) {
        labels[i] = numbers[table[static_cast<uint32_t>(labels[i])]];
    }
    Components components;
    for (uint32_t root = 1; root <= count; ++root) {
        if (table[root] == root) {
            components.blobs.push_back(infos[root]);
        }
    }
    return components;
}

// Labels, boxes as left, top, right and bottom with the last two exclusive, and areas in pixels.
py::tuple components(const py::object &array, float threshold) {
    const ko::RealImagePtr image = plane_of(array);
    py::array_t<int32_t> labels({image->height, image->width});
    int32_t *const room = labels.mutable_data();
    const Components found = [&] {
        const py::gil_scoped_release unlocked;
        return label(*image, threshold, room);
    }();
    const auto count = static_cast<py::ssize_t>(found.blobs.size());
    py::array_t<uint32_t> boxes({count, py::ssize_t{4}});
    py::array_t<uint32_t> areas(count);
    for (py::ssize_t i = 0; i < count; ++i) {
        const BlobInfo &blob = found.blobs[static_cast<size_t>(i)];
        boxes.mutable_at(i, 0) = blob.min_x;
        boxes.mutable_at(i, 1) = blob.min_y;
        boxes.mutable_at(i, 2) = blob.max_x + 1;
        boxes.mutable_at(i, 3) = blob.max_y + 1;
        areas.mutable_at(i) = blob.area;
    }
    return py::make_tuple(labels, boxes, areas);
}

} // namespace

void add_components(py::module_ &module) { module.def("components", components, py::arg("plane"), py::arg("threshold")); }

} // namespace binding
