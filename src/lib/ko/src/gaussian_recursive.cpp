// The blur by a recursive filter of third order with an exact end of the signal.
//
// The recursion of one line waits for its own results, so lines are carried side by side: the vertical pass takes columns
// through several rows at a time, the horizontal pass transposes groups of rows. Each line gets the
// same arithmetic in the same order either way: recursion in double precision, what is stored rounded to float.
#include <algorithm>
#include <utility>

#include "gaussian.h"
#include "lanes.h"
#include "matrix.h"

namespace ko {

namespace {

// The weights of the three nearest values, and what a sample is multiplied by on the way back.
struct Weights {
    double near;
    double middle;
    double far;
    double sample;
};

Weights weights_there(const KernelGaussian *kernel) { return {kernel->a1, kernel->a2, kernel->a3, 1.0}; }

Weights weights_back(const KernelGaussian *kernel) {
    return {kernel->backA1, kernel->backA2, kernel->backA3, kernel->scale * kernel->scale};
}

enum class Way { there, back };

// The recursion over lines side by side, sample by sample: start, there from the first sample to the last, turn at the last,
// back from the one before it to the first. A value is a double or a vector of doubles, one line per element. Between
// calls the three nearest values of the lines are kept in memory, nearest first, each spacing doubles behind the one before.
template <class Value, uint64_t Values> class Lines {
  public:
    static constexpr uint64_t value_lines = sizeof(Value) / sizeof(double);
    static constexpr uint64_t count = Values * value_lines;

    Lines(double *state, uint64_t spacing) : near_(state), middle_(state + spacing), far_(state + 2 * spacing) {}

    // first is the lines' first sample.
    void start(const KernelGaussian *kernel, const float *first) {
        for (uint64_t l = 0; l < count; l += value_lines) {
            const Value value = widened<Value>(first + l) / kernel->scale;
            for (double *to : {near_, middle_, far_}) {
                store(value, to + l);
            }
        }
    }

    // Through samples that lie a number of floats apart. output may be input. Three at a time, so that each of the nearest
    // values comes back to its place.
    template <Way way>
    void run(const Weights &weights, const float *input, int64_t input_step, float *output, int64_t output_step,
             uint64_t samples) {
        Set near(near_);
        Set middle(middle_);
        Set far(far_);
        for (uint64_t rounds = samples / 3; rounds != 0; --rounds) {
            step<way>(weights, input, near, middle, far, output);
            step<way>(weights, input + input_step, far, near, middle, output + output_step);
            step<way>(weights, input + 2 * input_step, middle, far, near, output + 2 * output_step);
            input += 3 * input_step;
            output += 3 * output_step;
        }
        switch (samples % 3) {
        case 0:
            return save(near, middle, far);
        case 1:
            step<way>(weights, input, near, middle, far, output);
            return save(far, near, middle);
        default:
            step<way>(weights, input, near, middle, far, output);
            step<way>(weights, input + input_step, far, near, middle, output + output_step);
            return save(middle, far, near);
        }
    }

    // Converts the state at the end of the way there into that at the beginning of the way back, and gives the latter's first
    // sample, which is the lines' last. input holds the lines' last samples as they were.
    void turn(const KernelGaussian *kernel, const float *input, float *output) {
        const double rest = 1.0 - kernel->a1 - kernel->a2 - kernel->a3;
        const double square = kernel->scale * kernel->scale;
        const double *m = kernel->boundary;
        for (uint64_t l = 0; l < count; l += value_lines) {
            const Value u = widened<Value>(input + l) / rest;
            const Value v = u / rest;
            const Value d0 = load<Value>(near_ + l) - u;
            const Value d1 = load<Value>(middle_ + l) - u;
            const Value d2 = load<Value>(far_ + l) - u;
            const Value first = (m[0] * d0 + m[1] * d1 + m[2] * d2 + v) * square;
            store(first, near_ + l);
            store((m[3] * d0 + m[4] * d1 + m[5] * d2 + v) * square, middle_ + l);
            store((m[6] * d0 + m[7] * d1 + m[8] * d2 + v) * square, far_ + l);
            store_narrowed(first, output + l);
        }
    }

  private:
    // Values in registers.
    struct Set {
        Value values[Values];

        explicit Set(const double *from) {
            for (uint64_t i = 0; i < Values; ++i) {
                values[i] = load<Value>(from + i * value_lines);
            }
        }
        void save(double *to) const {
            for (uint64_t i = 0; i < Values; ++i) {
                store(values[i], to + i * value_lines);
            }
        }
    };

    void save(const Set &near, const Set &middle, const Set &far) const {
        near.save(near_);
        middle.save(middle_);
        far.save(far_);
    }

    // One sample of all lines, from the three nearest before it; the newest value takes the place of the farthest.
    template <Way way>
    static void step(const Weights &weights, const float *input, const Set &near, const Set &middle, Set &far, float *output) {
        for (uint64_t i = 0; i < Values; ++i) {
            Value sample = widened<Value>(input + i * value_lines);
            if constexpr (way == Way::back) {
                sample = weights.sample * sample;
            }
            far.values[i] =
                sample + weights.near * near.values[i] + weights.middle * middle.values[i] + weights.far * far.values[i];
            store_narrowed(far.values[i], output + i * value_lines);
        }
    }

    double *near_;
    double *middle_;
    double *far_;
};

// As many lines as the registers hold.
using Bundle = Lines<Doubles, 4>;
static_assert(blur_group % Bundle::count == 0);

// Calls take(lines, first) for each whole bundle of count lines; gives the first line that is left over.
template <class Take> uint64_t for_each_bundle(double *state, uint64_t spacing, uint64_t count, Take take) {
    uint64_t first = 0;
    for (; first + Bundle::count <= count; first += Bundle::count) {
        take(Bundle(state + first, spacing), first);
    }
    return first;
}

// The same, and then for the lines that are left one by one.
template <class Take> void for_all_lines(double *state, uint64_t spacing, uint64_t count, Take take) {
    for (uint64_t line = for_each_bundle(state, spacing, count, take); line < count; ++line) {
        take(Lines<double, 1>(state + line, spacing), line);
    }
}

// ---- the horizontal pass

// The rows of a group. One that is cut short by the end of the image has its last row more than once.
struct Group {
    float *rows[blur_group];

    Group(const RealImage *image, uint64_t y) {
        for (uint64_t r = 0; r < blur_group; ++r) {
            rows[r] = image->rows[std::min(y + r, image->height - 1)];
        }
    }
};

// Columns that are transposed at a time.
constexpr uint64_t transposed_columns = 48;

// Columns x to end - 1 of a group, column after column.
void take_columns(const Group &group, uint64_t x, uint64_t end, float *columns) {
    for (; x + square_side <= end; x += square_side, columns += square_side * blur_group) {
        for (uint64_t r = 0; r < blur_group; r += square_side) {
            transpose_square([&](uint64_t i) { return group.rows[r + i] + x; },
                             [&](uint64_t i) { return columns + i * blur_group + r; });
        }
    }
    for (; x < end; ++x, columns += blur_group) {
        for (uint64_t r = 0; r < blur_group; ++r) {
            columns[r] = group.rows[r][x];
        }
    }
}

// The way back.
void give_columns(const Group &group, uint64_t x, uint64_t end, const float *columns) {
    for (; x + square_side <= end; x += square_side, columns += square_side * blur_group) {
        for (uint64_t r = 0; r < blur_group; r += square_side) {
            transpose_square([&](uint64_t i) { return columns + i * blur_group + r; },
                             [&](uint64_t i) { return group.rows[r + i] + x; });
        }
    }
    for (; x < end; ++x, columns += blur_group) {
        for (uint64_t r = 0; r < blur_group; ++r) {
            group.rows[r][x] = columns[r];
        }
    }
}

// work holds all columns of the group: as they were, then the way there, then the way back.
void filter_rows(const KernelGaussian *kernel, const Group &in, const Group &out, uint64_t width, float *work) {
    constexpr auto column_step = static_cast<int64_t>(blur_group);
    const Weights there = weights_there(kernel);
    const Weights back = weights_back(kernel);
    double state[3 * blur_group];
    float last[blur_group];
    for (uint64_t x = 0; x < width; x += transposed_columns) {
        const uint64_t end = std::min(x + transposed_columns, width);
        float *columns = work + x * blur_group;
        take_columns(in, x, end, columns);
        if (end == width) {
            std::copy_n(work + (width - 1) * blur_group, blur_group, last);
        }
        for_each_bundle(state, blur_group, blur_group, [&](auto lines, uint64_t r) {
            if (x == 0) {
                lines.start(kernel, columns + r);
            }
            lines.template run<Way::there>(there, columns + r, column_step, columns + r, column_step, end - x);
        });
    }
    for_each_bundle(state, blur_group, blur_group,
                    [&](auto lines, uint64_t r) { lines.turn(kernel, last + r, work + (width - 1) * blur_group + r); });
    for (uint64_t end = width; end != 0;) {
        const uint64_t x = (end - 1) / transposed_columns * transposed_columns;
        const uint64_t open = std::min(end, width - 1); // the last column is done
        for_each_bundle(state, blur_group, blur_group, [&](auto lines, uint64_t r) {
            if (open == x) {
                return;
            }
            float *first = work + (open - 1) * blur_group + r;
            lines.template run<Way::back>(back, first, -column_step, first, -column_step, open - x);
        });
        give_columns(out, x, end, work + x * blur_group);
        end = x;
    }
}

} // namespace

float *make_blur_work(uint64_t width) { return static_cast<float *>(allocate_bytes(width, blur_group * sizeof(float))); }

void blur_row_group(const KernelGaussian *kernel, const RealImage *image, uint64_t y, RealImage *result, float *work) {
    filter_rows(kernel, Group(image, y), Group(result, y), image->width, work);
}

// ---- the vertical pass

bool ColumnBlur::init(const KernelGaussian *kernel, uint64_t width) {
    kernel_ = kernel;
    state_.reset(static_cast<double *>(allocate_bytes(width, 3 * sizeof(double))));
    last_.reset(state_ ? allocate<float>(width) : nullptr);
    return static_cast<bool>(last_);
}

void ColumnBlur::down(RealImage *image, uint64_t top) {
    const uint64_t bottom = std::min(top + blur_group, image->height);
    if (bottom == image->height) {
        std::copy_n(image->rows[bottom - 1], image->width, last_.get());
    }
    const Weights weights = weights_there(kernel_);
    const auto row_step = static_cast<int64_t>(stride(image));
    for_all_lines(state_.get(), image->width, image->width, [&](auto lines, uint64_t x) {
        float *first = image->rows[top] + x;
        if (top == 0) {
            lines.start(kernel_, first);
        }
        lines.template run<Way::there>(weights, first, row_step, first, row_step, bottom - top);
    });
}

void ColumnBlur::up(const RealImage *image, uint64_t y, uint64_t rows, uint64_t x, float *out, int64_t step) {
    const Weights weights = weights_back(kernel_);
    const auto row_step = -static_cast<int64_t>(stride(image));
    const bool turns = y == image->height - 1;
    const uint64_t count = std::min(blur_piece, image->width - x);
    for_all_lines(state_.get() + x, image->width, count, [&](auto lines, uint64_t i) {
        const float *input = image->rows[y] + x + i;
        float *output = out + i;
        if (turns) {
            lines.turn(kernel_, last_.get() + x + i, output);
            if (rows > 1) {
                lines.template run<Way::back>(weights, input + row_step, row_step, output + step, step, rows - 1);
            }
        } else {
            lines.template run<Way::back>(weights, input, row_step, output, step, rows);
        }
    });
}

int32_t convolve_recursive(const KernelGaussian *kernel, const RealImage *image, RealImage **result) {
    *result = nullptr;
    Block<float> work(make_blur_work(image->width));
    ColumnBlur columns;
    if (!work || !columns.init(kernel, image->width)) {
        return KoErrorGetLastError();
    }
    *result = KoRealImageNew(image->width, image->height);
    if (*result == nullptr || image->width == 0 || image->height == 0) {
        return KO_OK;
    }
    for (uint64_t y = 0; y < image->height; y += blur_group) {
        blur_row_group(kernel, image, y, *result, work.get());
        columns.down(*result, y);
    }
    const auto step = -static_cast<int64_t>(stride(*result));
    for (uint64_t bottom = image->height; bottom != 0;) {
        const uint64_t rows = std::min(bottom, blur_rise);
        for (uint64_t x = 0; x < image->width; x += blur_piece) {
            columns.up(*result, bottom - 1, rows, x, (*result)->rows[bottom - 1] + x, step);
        }
        bottom -= rows;
    }
    return KO_OK;
}

} // namespace ko
