// A band lies in the room. Colours beside alpha are copied to a band of their own and back, so that alpha keeps its bytes.
#include "pictures.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "kohost/curves.h"
#include "module.h"

namespace web {

namespace {

constexpr uint32_t with_alpha = 4;
constexpr uint32_t colours = 3;

// Copies the colours of pixels that are from and to bytes apart.
void copy_colours(const uint8_t *source, uint32_t from, uint64_t pixels, uint8_t *target, uint32_t to) {
    for (const uint8_t *end = source + pixels * from; source != end; source += from, target += to) {
        target[0] = source[0];
        target[1] = source[1];
        target[2] = source[2];
    }
}

// The rows of one picture that are still to come.
class Bands {
  public:
    explicit Bands(const Form &form) : form_(form), left_(form.size.height) {}

    const Form &form() const { return form_; }
    bool ended() const { return left_ == 0; }
    void start_again() { left_ = form_.size.height; }

    // The colours of the next rows, to be changed in place.
    uint8_t *take(uint32_t rows) {
        if (rows > left_ || pixels(rows) * form_.samples > room().size()) {
            throw Refused("more rows than the picture or the room has");
        }
        left_ -= rows;
        if (form_.samples != with_alpha) {
            return room().data();
        }
        band_.resize(pixels(rows) * colours);
        copy_colours(room().data(), with_alpha, pixels(rows), band_.data(), colours);
        return band_.data();
    }

    // Puts the colours of the rows last taken back into the room.
    void put_back() { copy_colours(band_.data(), colours, band_.size() / colours, room().data(), with_alpha); }

  private:
    uint64_t pixels(uint32_t rows) const { return uint64_t{rows} * form_.size.width; }

    Form form_;
    uint32_t left_;
    std::vector<uint8_t> band_; // of a picture with alpha
};

struct Reading {
    Bands bands;
    kohost::Size working;
    kohost::AreaAverage average;
};

struct Applying {
    Bands bands;
    std::unique_ptr<kohost::Application> application; // none for a picture that no curve changes
};

struct Held {
    Bands bands;
    std::vector<uint8_t> bytes;
    uint8_t *next = nullptr;
};

std::unique_ptr<Reading> reading;
std::unique_ptr<Applying> applying;
std::unique_ptr<Held> held;

template <class State> State &present(const std::unique_ptr<State> &state) {
    if (state == nullptr) {
        throw Refused("there is no picture");
    }
    return *state;
}

kohost::Image taken_average() {
    if (!present(reading).bands.ended()) {
        throw Refused("rows of the picture are missing");
    }
    return reading->average.take();
}

void check_fit(const kohost::Grid &grid, kohost::Size picture) {
    const kohost::Grid fitting = kohost::fitting_grid(grid, picture);
    if (fitting.columns != grid.columns || fitting.rows != grid.rows) {
        throw Refused("a picture of " + std::to_string(picture.width) + " x " + std::to_string(picture.height) +
                      " pixels is too small for a grid of " + std::to_string(grid.columns) + " x " + std::to_string(grid.rows) +
                      " tiles, which needs two pixels per tile each way");
    }
}

void start_applying(const Form &form, float ratio) {
    if (curves() == nullptr) {
        throw Refused("there are no curves");
    }
    const kohost::Grid grid{KoTileTRCGetNumStripsX(curves().get()), KoTileTRCGetNumStripsY(curves().get())};
    check_fit(grid, form.size);
    std::unique_ptr<kohost::Application> application;
    if (!kohost::stays(form.channels(), grid)) {
        application = std::make_unique<kohost::Application>(*curves(), ratio, form.size, form.channels());
    }
    applying.reset(new Applying{Bands(form), std::move(application)});
}

uint64_t held_band(uint32_t rows) { return uint64_t{rows} * held->bands.form().size.width * held->bands.form().channels(); }

} // namespace

Form read_form() { return present(reading).bands.form(); }

kohost::WorkingCopy take_working_copy() {
    kohost::Image halved = taken_average();
    return kohost::make_working_copy(std::move(halved), reading->working);
}

kohost::Image take_reduced() {
    const kohost::Image halved = taken_average();
    return kohost::reduced(halved.pixels(), reading->working);
}

uint8_t *held_bytes() { return present(held).bytes.data(); }

} // namespace web

using namespace web;

// Starts to read a picture for a working copy of about an area.
KO_WEB int32_t ko_web_read(uint32_t width, uint32_t height, uint32_t samples, double area) {
    return answered([=] {
        reading.reset();
        const Form form{{width, height}, samples};
        const kohost::Size working = kohost::working_size(form.size, static_cast<uint64_t>(area));
        reading.reset(new Reading{Bands(form), working,
                                  kohost::AreaAverage(form.size, kohost::halved_size(form.size, working), form.channels())});
    });
}

KO_WEB int32_t ko_web_read_rows(uint32_t rows) {
    return answered([=] { present(reading).average.add(rows, reading->bands.take(rows)); });
}

// Starts to apply the curves to a picture.
KO_WEB int32_t ko_web_apply(uint32_t width, uint32_t height, uint32_t samples, float ratio) {
    return answered([=] {
        applying.reset();
        start_applying({{width, height}, samples}, ratio);
    });
}

// Applies the curves to the rows in the room.
KO_WEB int32_t ko_web_apply_rows(uint32_t rows) {
    return answered([=] {
        uint8_t *const pixels = present(applying).bands.take(rows);
        if (applying->application != nullptr) {
            applying->application->apply(rows, pixels);
            applying->bands.put_back();
        }
    });
}

// Starts to hold a whole picture in memory.
KO_WEB int32_t ko_web_hold(uint32_t width, uint32_t height, uint32_t samples) {
    return answered([=] {
        held.reset();
        const Form form{{width, height}, samples};
        held.reset(new Held{Bands(form), std::vector<uint8_t>(form.size.area() * form.channels())});
        held->next = held->bytes.data();
    });
}

KO_WEB int32_t ko_web_hold_rows(uint32_t rows) {
    return answered([=] {
        const uint8_t *pixels = present(held).bands.take(rows);
        held->next = std::copy_n(pixels, held_band(rows), held->next);
        if (held->bands.ended()) {
            held->bands.start_again();
            held->next = held->bytes.data();
        }
    });
}

// Gives rows of the held picture back, from the top, to the room, where the same rows lie as they were passed.
KO_WEB int32_t ko_web_held_rows(uint32_t rows) {
    return answered([=] {
        uint8_t *const pixels = present(held).bands.take(rows);
        std::copy_n(held->next, held_band(rows), pixels);
        held->next += held_band(rows);
        held->bands.put_back();
    });
}

// Ends what a call left; the files and the model stay.
KO_WEB void ko_web_end() {
    reading.reset();
    applying.reset();
    held.reset();
    curves().reset();
    std::vector<uint8_t>().swap(room());
    answer() = {};
}
