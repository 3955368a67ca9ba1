// The blur by a recursive filter of third order with an exact end of the signal.
//
// The recursion of one line waits for its own results, so lines are carried side by side: the vertical pass takes all columns
// row by row, the horizontal pass turns groups of rows so that they lie like columns. Each line gets the same arithmetic in the
// same order either way: recursion in double precision, what is stored rounded to float.
#include <algorithm>

#include "gaussian.h"
#include "matrix.h"

namespace ko {

namespace {

// A number of lines that the compiler knows.
template <uint64_t Value> struct Constant {
    constexpr operator uint64_t() const { return Value; }
};

// The recursion over lines side by side, sample by sample: start, forward for each sample from 0 on, turn at the last, backward
// for each before it. The values of a sample stand in the slot that its number has modulo 3: those of the three before it are
// then always there. Count is a type that converts to the number of lines.
template <class Count> class LineFilter {
  public:
    // The slots begin at state, spacing doubles apart; who makes a filter on the same state anew goes on with the lines.
    LineFilter(const KernelGaussian *kernel, Count lines, double *state, uint64_t spacing)
        : kernel_(kernel), lines_(lines), slots_{state, state + spacing, state + 2 * spacing} {}

    // first is the lines' first sample.
    void start(const float *first) {
        for (uint64_t l = 0; l < lines_; ++l) {
            slots_[0][l] = slots_[1][l] = slots_[2][l] = static_cast<double>(first[l]) / kernel_->scale;
        }
    }

    // output may be input.
    void forward(uint64_t sample, const float *input, float *output) {
        step(slot(sample + 2), slot(sample + 1), slot(sample), kernel_->a1, kernel_->a2, kernel_->a3,
             [=](uint64_t l) { return static_cast<double>(input[l]); });
        store(sample, output);
    }

    // output may be input.
    void backward(uint64_t sample, const float *input, float *output) {
        const double square = kernel_->scale * kernel_->scale;
        step(slot(sample + 1), slot(sample + 2), slot(sample), kernel_->backA1, kernel_->backA2, kernel_->backA3,
             [=](uint64_t l) { return square * static_cast<double>(input[l]); });
        store(sample, output);
    }

    // Turns what is left of the way there into what the way back begins with, and gives its first sample, the lines' last.
    // input is what the lines held there at first.
    void turn(uint64_t sample, const float *input, float *output) {
        const double rest = 1.0 - kernel_->a1 - kernel_->a2 - kernel_->a3;
        const double square = kernel_->scale * kernel_->scale;
        const double *m = kernel_->boundary;
        for (uint64_t l = 0; l < lines_; ++l) {
            const double u = static_cast<double>(input[l]) / rest;
            const double v = u / rest;
            const double d0 = slot(sample)[l] - u;
            const double d1 = slot(sample + 2)[l] - u;
            const double d2 = slot(sample + 1)[l] - u;
            slot(sample)[l] = (m[0] * d0 + m[1] * d1 + m[2] * d2 + v) * square;
            slot(sample + 1)[l] = (m[3] * d0 + m[4] * d1 + m[5] * d2 + v) * square;
            slot(sample + 2)[l] = (m[6] * d0 + m[7] * d1 + m[8] * d2 + v) * square;
        }
        store(sample, output);
    }

  private:
    double *slot(uint64_t sample) const { return slots_[sample % 3]; }

    // One sample of all lines, from the three nearest behind it; the newest value takes the place of the farthest.
    template <class Term>
    void step(const double *__restrict near, const double *__restrict middle, double *__restrict far, double w0, double w1,
              double w2, Term term) {
        for (uint64_t l = 0; l < lines_; ++l) {
            far[l] = term(l) + w0 * near[l] + w1 * middle[l] + w2 * far[l];
        }
    }

    void store(uint64_t sample, float *output) const {
        const double *values = slot(sample);
        for (uint64_t l = 0; l < lines_; ++l) {
            output[l] = static_cast<float>(values[l]);
        }
    }

    const KernelGaussian *kernel_;
    Count lines_;
    double *slots_[3];
};

// A square of samples being turned: columns[x][r] is row r's.
struct Square {
    float columns[blur_group][blur_group];

    void take_rows(float *const *rows, uint64_t row_count, uint64_t x0, uint64_t column_count) {
        for (uint64_t r = 0; r < row_count; ++r) {
            for (uint64_t x = 0; x < column_count; ++x) {
                columns[x][r] = rows[r][x0 + x];
            }
        }
    }

    void give_rows(float *const *rows, uint64_t row_count, uint64_t x0, uint64_t column_count) const {
        for (uint64_t r = 0; r < row_count; ++r) {
            for (uint64_t x = 0; x < column_count; ++x) {
                rows[r][x0 + x] = columns[x][r];
            }
        }
    }
};

// The horizontal pass over a group of rows. work holds the way there, column by column.
template <class Count>
void filter_rows(const KernelGaussian *kernel, float *const *in, float *const *out, Count rows, uint64_t width, float *work) {
    double state[3 * blur_group];
    LineFilter<Count> filter(kernel, rows, state, blur_group);
    Square square;
    float ends[2][blur_group] = {};
    for (uint64_t r = 0; r < rows; ++r) {
        ends[0][r] = in[r][0];
        ends[1][r] = in[r][width - 1];
    }
    filter.start(ends[0]);
    for (uint64_t x0 = 0; x0 < width; x0 += blur_group) {
        const uint64_t columns = std::min(blur_group, width - x0);
        square.take_rows(in, rows, x0, columns);
        for (uint64_t x = 0; x < columns; ++x) {
            filter.forward(x0 + x, square.columns[x], work + (x0 + x) * blur_group);
        }
    }
    const uint64_t last = width - 1;
    for (uint64_t x0 = last / blur_group * blur_group + blur_group; x0 > 0;) {
        x0 -= blur_group;
        const uint64_t columns = std::min(blur_group, width - x0);
        for (uint64_t x = columns; x-- > 0;) {
            if (x0 + x == last) {
                filter.turn(last, ends[1], square.columns[x]);
            } else {
                filter.backward(x0 + x, work + (x0 + x) * blur_group, square.columns[x]);
            }
        }
        square.give_rows(out, rows, x0, columns);
    }
}

} // namespace

float *make_blur_work(uint64_t width) { return static_cast<float *>(allocate_bytes(width, blur_group * sizeof(float))); }

void blur_row_group(const KernelGaussian *kernel, const RealImage *image, uint64_t y, RealImage *result, float *work) {
    if (image->height - y >= blur_group) {
        filter_rows(kernel, image->rows + y, result->rows + y, Constant<blur_group>(), image->width, work);
    } else {
        filter_rows(kernel, image->rows + y, result->rows + y, image->height - y, image->width, work);
    }
}

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
    for (uint64_t x = 0; x < image->width; x += blur_piece) {
        LineFilter<uint64_t> filter(kernel_, std::min(blur_piece, image->width - x), state_.get() + x, image->width);
        if (top == 0) {
            filter.start(image->rows[0] + x);
        }
        for (uint64_t y = top; y < bottom; ++y) {
            filter.forward(y, image->rows[y] + x, image->rows[y] + x);
        }
    }
}

void ColumnBlur::up(const RealImage *image, uint64_t y, uint64_t x, float *out) {
    LineFilter<uint64_t> filter(kernel_, std::min(blur_piece, image->width - x), state_.get() + x, image->width);
    if (y == image->height - 1) {
        filter.turn(y, last_.get() + x, out);
    } else {
        filter.backward(y, image->rows[y] + x, out);
    }
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
    for (uint64_t y = image->height; y-- > 0;) {
        for (uint64_t x = 0; x < image->width; x += blur_piece) {
            columns.up(*result, y, x, (*result)->rows[y] + x);
        }
    }
    return KO_OK;
}

} // namespace ko
