// The only place where the codec uses setjmp. The C libraries leave a failed call by a jump, which must not pass over an object
// with a destructor: guarded runs a step that holds none and turns the jump into an exception, std::bad_alloc for a lack of
// memory and Error for everything else. What must be released lives outside the step.
#ifndef KO_CODEC_GUARD_H
#define KO_CODEC_GUARD_H

#include <array>
#include <csetjmp>
#include <cstdio>
#include <new>

#include "codec/codec.h"

namespace codec {

// What the C libraries' callbacks write to. They must not throw, so texts go into fixed arrays, truncated if need be.
class Trouble {
  public:
    static constexpr size_t text_size = 512;

    // Leaves the step with this text; called with no object with a destructor between here and the step.
    [[noreturn]] void fail(const char *text) {
        copy(text, error_);
        std::longjmp(jump_, 1);
    }

    // Keeps the text of a library whose failed calls return: the first one, of which later ones are consequences.
    void note(const char *text) {
        if (error_[0] == 0) {
            copy(text, error_);
        }
    }

    // Makes this the reason why the step is left, whatever text the library has for it.
    void note_exhausted_memory() { memory_is_exhausted_ = true; }

    bool noted() const { return error_[0] != 0; }

    // Turns a noted error into a warning.
    void forgive() {
        if (noted()) {
            warn(error_.data());
            error_[0] = 0;
        }
    }

    [[noreturn]] void raise() const { throw Error(readable(error_)); }

    void warn(const char *text) {
        if (warning_count_ < warnings_.size()) {
            copy(text, warnings_[warning_count_++]);
        }
    }

    // Passes the warnings on as notices, each text once.
    void tell_warnings(Notices &notices);

    template <class Step> void guarded(const Step &step) {
        if (setjmp(jump_) != 0) {
            if (memory_is_exhausted_) {
                throw std::bad_alloc();
            }
            throw Error(readable(error_));
        }
        step();
    }

  private:
    using Text = std::array<char, text_size>;

    static void copy(const char *text, Text &room) { std::snprintf(room.data(), room.size(), "%s", text); }

    // The C library's text as a clause: it begins in lower case unless it begins with a name in capitals.
    static std::string readable(const Text &text);

    std::jmp_buf jump_;
    Text error_{};
    bool memory_is_exhausted_ = false;
    std::array<Text, 8> warnings_{};
    size_t warning_count_ = 0;
};

} // namespace codec

#endif
