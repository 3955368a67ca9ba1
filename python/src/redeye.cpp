// The repair of red eyes, on the road of the program.
#include <filesystem>
#include <memory>

#include <pybind11/stl/filesystem.h>

#include "arrays.h"
#include "families.h"
#include "kohost/correction.h"

namespace binding {

namespace {

using kohost::RedEyeModel;
using kohost::RedEyes;

const char *name(kohost::RedEyeDecision decision) {
    switch (decision) {
    case kohost::RedEyeDecision::repaired:
        return "repaired";
    case kohost::RedEyeDecision::gray:
        return "gray";
    case kohost::RedEyeDecision::too_many:
        return "too many";
    default:
        return "none";
    }
}

py::tuple box_of(const kohost::Box &box) { return py::make_tuple(box.x0, box.y0, box.x1, box.y1); }

// Box, window, label, score, and the scores of the two classifiers; None for what a place does not have.
py::tuple tuple_of(const kohost::Place &place) {
    const py::object score = place.score ? py::object(shortest(*place.score)) : py::none();
    if (!place.judged) {
        return py::make_tuple(box_of(place.box), py::none(), py::none(), score, py::none(), py::none());
    }
    return py::make_tuple(box_of(place.box), box_of(place.window), kohost::name_of_label(place.label), score,
                          shortest(place.fe_score), shortest(place.be_score));
}

py::list places_of(const RedEyes &eyes) {
    py::list places;
    for (const kohost::Place &place : eyes.places) {
        places.append(tuple_of(place));
    }
    return places;
}

// A float picture keeps its levels wherever the repair changed no byte.
py::array merged(const py::object &picture, const Form &form, const Bytes &before, const Bytes &after) {
    py::array result = copy_of(picture, form);
    auto *levels = static_cast<float *>(result.mutable_data());
    for (uint64_t i = 0; i < form.size.area() * form.channels; ++i) {
        if (after.data()[i] != before.data()[i]) {
            levels[i] = static_cast<float>(after.data()[i]);
        }
    }
    return result;
}

py::tuple repair(const py::object &picture, const RedEyeModel &model, int32_t sensitivity, bool full, bool plain, bool frames) {
    const Form form = form_of(picture);
    Bytes bytes = new_bytes_of(picture, form);
    uint8_t *const room = bytes.mutable_data();
    kohost::RedEyeChoices choices;
    choices.sensitivity = static_cast<kohost::Sensitivity>(sensitivity);
    choices.full = full;
    choices.plain = plain;
    choices.frames = frames;
    const RedEyes eyes = [&] {
        const py::gil_scoped_release unlocked;
        KoStatusClear();
        return kohost::correct_red_eyes(room, form.size, form.channels, model, choices, nullptr);
    }();
    const py::array result = form.is_float ? merged(picture, form, bytes_of(picture, form), bytes) : py::array(bytes);
    return py::make_tuple(result, name(eyes.decision), eyes.found, eyes.limit, places_of(eyes));
}

std::unique_ptr<RedEyeModel> load(const std::filesystem::path &configuration) {
    const py::gil_scoped_release unlocked;
    return std::make_unique<RedEyeModel>(configuration.string());
}

} // namespace

void add_red_eyes(py::module_ &module) {
    py::class_<RedEyeModel>(module, "RedEyeModel")
        .def(py::init(&load), py::arg("configuration"))
        .def_property_readonly("configuration", &RedEyeModel::configuration);
    module.def("repair", repair, py::arg("picture"), py::arg("model"), py::arg("sensitivity"), py::arg("full"),
               py::arg("plain"), py::arg("frames"));
}

} // namespace binding
