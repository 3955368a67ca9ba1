// What JavaScript calls are functions of numbers. Each gives a Status; an answer is left in numbers and a text, and bytes pass
// through one block of memory, the room. JavaScript reads all three where they lie.
//
// A picture passes in bands of whole rows, so that the module never holds a picture that JavaScript holds already.
#ifndef KO_WEB_MODULE_H
#define KO_WEB_MODULE_H

#include <emscripten/emscripten.h>

#include <cstdint>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ko.hpp"

#define KO_WEB extern "C" EMSCRIPTEN_KEEPALIVE

namespace web {

enum Status : int32_t {
    done,
    failed, // the library, or a file; the text is the failure's, then the library's chain
    out_of_memory,
    refused // an argument that is out of range
};

// An argument that is out of range; what() is the text.
class Refused : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Answer {
    std::vector<double> numbers; // NaN for what does not exist
    std::string text;
    std::string chain;     // of a failure: the library's messages
    int32_t ko_status = 0; // of a failure
};

Answer &answer();

// The room's bytes.
std::vector<uint8_t> &room();

// The grid of curves that calls leave and use; null if there is none.
ko::TileTRCPtr &curves();

// Describes the exception that is being handled in the answer.
Status failure();

// Runs a call with an empty answer and a thread's status that is clear.
template <class Call> Status answered(const Call &call) {
    try {
        answer() = {};
        KoStatusClear();
        call();
        return done;
    } catch (...) {
        return failure();
    }
}

void give(double number);
void give(std::optional<double> number);

// Lines of the answer's text.
void give(const std::string &line);

} // namespace web

#endif
