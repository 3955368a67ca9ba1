// A host of the plug-in that is driven from outside: files_test.py has it load and save, on any system that it was built for.
//
// Each line of standard input is a JSON object that asks for one thing, and is answered by one line of JSON on standard output:
//   {"do": "slots"}                      how many of the eight slots for PNG and JPEG files hold a function
//   {"do": "matrix", "from", "to"}       a conversion matrix of the library
//   {"do": "load", "image", "file"}      a file into an image that holds 2 x 1 pixels before; "image" is "real", "rgb", "yiq"
//   or
//                                        "gray"; with "format" and, as texts, "gamma": [a, b]
//   {"do": "save", "image", "file"}      an image of "width" and "height" as a file; with "format", and "scale" and "option" as
//                                        texts; "held" names a file that is open meanwhile
//   {"do": "together", "lists": [[]]}    each list of the above by a thread of its own; with "apartment": "single" or "multi"
//   for
//                                        what such a thread of a Windows host has joined
//   {"do": "restart"}                    ends and starts the library; filled slots in between and after
// "floats" names the file with the image's pixels, plane by plane: read by a save, written by a load. Numbers that JSON does
// not have, such as NaN, are why some are texts.
#include <array>
#include <cstdint>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#ifdef _WIN32
#include <objbase.h>
#endif

#include "ko.hpp"

namespace {

using Json = nlohmann::json;

// Messages of a thread, from the print function, which runs on the thread that reports. A pointer: g++ for Windows frees the
// memory of a thread's objects before it destroys them.
thread_local std::vector<std::string> *messages = nullptr;

void keep_message(void *, const char *text) {
    if (messages != nullptr) {
        messages->emplace_back(text);
    }
}

// Collects what the thread reports while it lives, from a clear status on.
class Reports {
  public:
    Reports() {
        KoStatusClear();
        messages = &texts_;
    }
    ~Reports() { messages = nullptr; }
    Reports(const Reports &) = delete;
    Reports &operator=(const Reports &) = delete;

  private:
    std::vector<std::string> texts_;
};

Json report(int32_t result) {
    return {{"result", result},
            {"status", KoErrorGetLastError()},
            {"chain", KoErrorGetLastErrorMessage()},
            {"messages", *messages}};
}

// Null where the command does not say: the functions of the library take that for the format of the extension.
const char *text_or_null(const Json &command, const char *key) {
    const auto found = command.find(key);
    return found == command.end() || found->is_null() ? nullptr : found->get_ref<const std::string &>().c_str();
}

float number(const Json &command, const char *key) { return std::stof(command.at(key).get<std::string>()); }

const std::string &text(const Json &command, const char *key) { return command.at(key).get_ref<const std::string &>(); }

int32_t space_of(const std::string &image) {
    if (image == "rgb") {
        return KO_COLORSPACE_RGB;
    }
    if (image == "yiq") {
        return KO_COLORSPACE_YIQ;
    }
    if (image == "gray") {
        return KO_COLORSPACE_GRAY;
    }
    throw std::runtime_error("an image of an unknown kind: " + image);
}

// ---- pixels in files

void write_plane(std::ofstream &file, const RealImage &plane) {
    for (uint64_t y = 0; y < plane.height; ++y) {
        file.write(reinterpret_cast<const char *>(plane.rows[y]), static_cast<std::streamsize>(plane.width * sizeof(float)));
    }
}

void read_plane(std::ifstream &file, RealImage &plane) {
    for (uint64_t y = 0; y < plane.height; ++y) {
        file.read(reinterpret_cast<char *>(plane.rows[y]), static_cast<std::streamsize>(plane.width * sizeof(float)));
    }
    if (!file) {
        throw std::runtime_error("too few floats");
    }
}

std::ofstream output(const Json &command) {
    std::ofstream file(text(command, "floats"), std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    return file;
}

std::ifstream input(const Json &command) {
    std::ifstream file(text(command, "floats"), std::ios::binary);
    if (!file) {
        throw std::runtime_error("no floats in " + text(command, "floats"));
    }
    return file;
}

std::ifstream held_file(const Json &command) { return std::ifstream(command.value("held", ""), std::ios::binary); }

// ---- the two families

Json load_real(const Json &command) {
    const ko::RealImagePtr image = ko::real_image(std::array{7.0f, 8.0f}, 2, 1);
    Json answer = report(KoRealImageLoad(image.get(), text(command, "file").c_str(), text_or_null(command, "format")));
    answer["width"] = image->width;
    answer["height"] = image->height;
    answer["depth"] = 1;
    answer["space"] = nullptr;
    std::ofstream file = output(command);
    write_plane(file, *image);
    return answer;
}

int32_t load_color_file(ColorImage *image, const Json &command) {
    const char *name = text(command, "file").c_str();
    const char *format = text_or_null(command, "format");
    const auto gamma = command.find("gamma");
    if (gamma == command.end()) {
        return KoColorImageLoad(image, name, format);
    }
    return KoColorImageLoadSetGamma(image, name, format, std::stod(gamma->at(0).get<std::string>()),
                                    std::stod(gamma->at(1).get<std::string>()));
}

Json load_color(const Json &command) {
    const ko::ColorImagePtr image(KoColorImageNew(2, 1, space_of(text(command, "image"))));
    ko::check(image != nullptr, "no image");
    for (uint64_t c = 0; c < image->depth; ++c) {
        image->planes[c].rows[0][0] = static_cast<float>(70 + 10 * c);
        image->planes[c].rows[0][1] = static_cast<float>(71 + 10 * c);
    }
    Json answer = report(load_color_file(image.get(), command));
    answer["width"] = KoColorImageGetWidth(image.get());
    answer["height"] = KoColorImageGetHeight(image.get());
    answer["depth"] = image->depth;
    answer["space"] = KoColorSpaceGetName(image->color_space);
    std::ofstream file = output(command);
    for (uint64_t c = 0; c < image->depth; ++c) {
        write_plane(file, image->planes[c]);
    }
    return answer;
}

Json save_real(const Json &command) {
    const ko::RealImagePtr image(KoRealImageNew(command.at("width").get<uint64_t>(), command.at("height").get<uint64_t>()));
    ko::check(image != nullptr, "no image");
    std::ifstream file = input(command);
    read_plane(file, *image);
    const std::ifstream held = held_file(command);
    return report(KoRealImageSave(image.get(), text(command, "file").c_str(), text_or_null(command, "format"),
                                  number(command, "scale"), number(command, "option")));
}

Json save_color(const Json &command) {
    const ko::ColorImagePtr image(KoColorImageNew(command.at("width").get<uint32_t>(), command.at("height").get<uint32_t>(),
                                                  space_of(text(command, "image"))));
    ko::check(image != nullptr, "no image");
    std::ifstream file = input(command);
    for (uint64_t c = 0; c < image->depth; ++c) {
        read_plane(file, image->planes[c]);
    }
    const std::ifstream held = held_file(command);
    return report(KoColorImageSave(image.get(), text(command, "file").c_str(), text_or_null(command, "format"),
                                   number(command, "scale"), number(command, "option")));
}

// ---- commands

int filled_slots() {
    int filled = 0;
    for (const int32_t type : {KO_IMAGE_FORMAT_PNG, KO_IMAGE_FORMAT_JPEG}) {
        filled += KoRealImageGetLoadFunction(type) != nullptr;
        filled += KoRealImageGetSaveFunction(type) != nullptr;
        filled += KoColorImageGetLoadFunction(type) != nullptr;
        filled += KoColorImageGetSaveFunction(type) != nullptr;
    }
    return filled;
}

Json matrix(const Json &command) {
    const float *values = KoColorSpaceGetConversionMatrix(command.at("from").get<int32_t>(), command.at("to").get<int32_t>());
    return std::vector<float>(values, values + 9);
}

Json restart() {
    KoRelease();
    const int between = filled_slots();
    KoInit(nullptr, nullptr);
    return {between, filled_slots()};
}

// The apartment of COM that a host's thread is in; other systems have none.
class Apartment {
  public:
    explicit Apartment(const std::string &kind) : joined_(!kind.empty()) {
#ifdef _WIN32
        if (joined_ && FAILED(CoInitializeEx(nullptr, kind == "single" ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED))) {
            throw std::runtime_error("no apartment");
        }
#endif
    }
    ~Apartment() {
#ifdef _WIN32
        if (joined_) {
            CoUninitialize();
        }
#endif
    }
    Apartment(const Apartment &) = delete;
    Apartment &operator=(const Apartment &) = delete;

  private:
    [[maybe_unused]] bool joined_;
};

Json answer_to(const Json &command);

Json together(const Json &command) {
    const Json &lists = command.at("lists");
    const std::string kind = command.value("apartment", "");
    std::vector<Json> answers(lists.size(), Json::array());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < lists.size(); ++i) {
        threads.emplace_back([&kind, &list = lists[i], &answered = answers[i]] {
            try {
                const Apartment apartment(kind);
                for (const Json &each : list) {
                    answered.push_back(answer_to(each));
                }
            } catch (const std::exception &error) {
                answered.push_back(error.what());
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    return answers;
}

Json answer_to(const Json &command) {
    const Reports reports;
    const std::string &what = text(command, "do");
    if (what == "slots") {
        return filled_slots();
    }
    if (what == "matrix") {
        return matrix(command);
    }
    if (what == "together") {
        return together(command);
    }
    if (what == "restart") {
        return restart();
    }
    const bool real = text(command, "image") == "real";
    if (what == "load") {
        return real ? load_real(command) : load_color(command);
    }
    if (what == "save") {
        return real ? save_real(command) : save_color(command);
    }
    throw std::runtime_error("an unknown command: " + what);
}

} // namespace

int main() {
    try {
        const ko::Library library;
        KoErrorSetVerboseFunction(keep_message, nullptr);
        KoErrorSetVerboseLevel("info");
        for (std::string line; std::getline(std::cin, line);) {
            // Names in messages need not be UTF-8.
            std::cout << answer_to(Json::parse(line)).dump(-1, ' ', true, Json::error_handler_t::replace) << std::endl;
        }
        return 0;
    } catch (const std::exception &error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
