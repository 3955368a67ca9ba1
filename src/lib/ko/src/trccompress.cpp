// TRCCompress: a curve as tokens of its steps. A save cuts the curve at every step that only a single token can carry, and for
// each segment makes two greedy plans, from the front and from the back, and writes the cheaper. Which runs an entry belongs
// to is in the run tables: the element at a run's start holds the run's whole length, every other one its length so far.
#include "trccompress.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

#include "alloc.h"
#include "lanes.h"
#include "platform.h"
#include "report.h"

namespace ko {

namespace {

// Methods of a plan.
constexpr uint8_t one_bit = 1;
constexpr uint8_t two_bits = 2;
constexpr uint8_t literal = 4;

// Longest tokens, in entries.
constexpr uint64_t longest_rle = 32;
constexpr uint64_t longest_one_bit = 64;
constexpr uint64_t longest_two_bits = 32;

// Steps that a run can hold, and the first that a short literal can't.
constexpr uint32_t last_run_step = 3;
constexpr uint32_t first_long_step = 16;

// Bytes of a token's steps, bits a step.
constexpr uint64_t packed_bytes(uint64_t entries, uint64_t bits) { return (entries * bits + 7) / 8; }

// ---- writing tokens

uint32_t step_at(const uint32_t *entries, uint64_t i) { return entries[i] - (i == 0 ? 0 : entries[i - 1]); }

// Where tokens go: each is written at once, so that one that is refused ends its segment and no other.
class TokenSink {
  public:
    TokenSink(FILE *stream, const char *path) : stream_(stream), path_(path) {}

    int32_t write(const uint8_t *token, uint64_t bytes) {
        return stream_.write(token, bytes) ? static_cast<int32_t>(KO_OK) : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_WRITE_FILE, path_);
    }

  private:
    HeldStream stream_;
    const char *path_;
};

// Writes a run as tokens of at most longest entries; make_token fills the bytes of one and gives their number.
template <class MakeToken>
int32_t write_run(uint64_t first, uint64_t length, uint64_t longest, TokenSink *sink, MakeToken make_token) {
    while (length > 0) {
        const uint64_t count = std::min(length, longest);
        uint8_t token[9] = {};
        const int32_t status = sink->write(token, make_token(first, count, token));
        if (status != KO_OK) {
            return status;
        }
        first += count;
        length -= count;
    }
    return KO_OK;
}

// Packs the values of steps, bits of each, the first lowest, behind a token's first byte; gives the token's length in bytes.
template <uint64_t Bits, class Value>
uint64_t pack_steps(const uint32_t *entries, uint64_t first, uint64_t count, uint8_t *token, Value value) {
    uint64_t packed = 0;
    for (uint64_t k = 0; k < count; ++k) {
        packed |= uint64_t{value(step_at(entries, first + k))} << (k * Bits);
    }
    static_assert(std::endian::native == std::endian::little, "low bits are stored first");
    std::memcpy(token + 1, &packed, packed_bytes(count, Bits));
    return 1 + packed_bytes(count, Bits);
}

int32_t write_rle(const uint32_t *entries, uint64_t first, uint64_t length, TokenSink *sink) {
    const uint32_t step = length == 0 ? 0 : step_at(entries, first);
    return write_run(first, length, longest_rle, sink, [=](uint64_t, uint64_t count, uint8_t *token) {
        token[0] = static_cast<uint8_t>(step << 6 | (count - 1) << 1 | 1);
        return uint64_t{1};
    });
}

int32_t write_one_bit(const uint32_t *entries, uint64_t first, uint64_t length, TokenSink *sink) {
    return write_run(first, length, longest_one_bit, sink, [=](uint64_t at, uint64_t count, uint8_t *token) {
        token[0] = static_cast<uint8_t>((count - 1) << 2 | 2);
        return pack_steps<1>(entries, at, count, token, [](uint32_t step) { return uint32_t{step != 0}; });
    });
}

int32_t write_two_bits(const uint32_t *entries, uint64_t first, uint64_t length, TokenSink *sink) {
    return write_run(first, length, longest_two_bits, sink, [=](uint64_t at, uint64_t count, uint8_t *token) {
        token[0] = static_cast<uint8_t>((count - 1) << 3 | 4);
        return pack_steps<2>(entries, at, count, token, [](uint32_t step) { return step & 3; });
    });
}

int32_t write_literal(const uint32_t *entries, uint64_t index, TokenSink *sink) {
    const uint32_t step = step_at(entries, index);
    if (step < first_long_step) {
        const uint8_t token = static_cast<uint8_t>(step << 4 | 8);
        return sink->write(&token, 1);
    }
    const uint8_t token[] = {static_cast<uint8_t>((step >> 8 & 15) << 4), static_cast<uint8_t>(step)};
    return sink->write(token, sizeof(token));
}

// ---- planning

// A token, and what it is worth: entries a byte.
struct Candidate {
    uint8_t method;
    uint8_t entries;
    uint8_t bytes;
    float ratio;
};

// The best token, given how much is left of the runs on one side of an entry, up to the longest token. One of one step,
// run-length coded, would be worth 1 at any length and never more than a literal: it is read but never written.
class BestTokens {
  public:
    constexpr BestTokens() {
        for (uint64_t one = 0; one <= longest_one_bit; ++one) {
            for (uint64_t two = 0; two <= longest_two_bits; ++two) {
                Candidate &best = best_[one][two];
                best = {literal, 1, 1, 1.0f};
                if (one > 1) {
                    consider(one_bit, one, 1, &best);
                }
                if (two != 0) {
                    consider(two_bits, two, 2, &best);
                }
            }
        }
    }

    const Candidate &at(uint64_t one_bit_left, uint64_t two_bits_left) const {
        return best_[std::min(one_bit_left, longest_one_bit)][std::min(two_bits_left, longest_two_bits)];
    }

  private:
    // Takes the token of a method with so many bits a step if it beats the best so far.
    static constexpr void consider(uint8_t method, uint64_t entries, uint64_t bits, Candidate *best) {
        const uint64_t bytes = packed_bytes(entries, bits) + 1;
        const float ratio = static_cast<float>(entries) / static_cast<float>(bytes);
        if (ratio > best->ratio) {
            *best = {method, static_cast<uint8_t>(entries), static_cast<uint8_t>(bytes), ratio};
        }
    }

    Candidate best_[longest_one_bit + 1][longest_two_bits + 1] = {};
};

constexpr BestTokens best_tokens;

uint64_t left_after(const TRCCompressRun *runs, uint64_t i) {
    const TRCCompressRun &run = runs[i];
    return run.length == 0 ? 0 : runs[run.start].length - (i - run.start);
}

uint64_t left_before(const TRCCompressRun *runs, uint64_t i) {
    const TRCCompressRun &run = runs[i];
    return run.length == 0 ? 0 : i - run.start + 1;
}

// Both plans give the bytes that they count on: a literal counts one, although a long one has two.
uint64_t plan_forward(const TRCCompress *compress, uint64_t start, uint64_t end) {
    uint64_t bytes = 0;
    for (uint64_t i = start; i <= end;) {
        const Candidate &token = best_tokens.at(left_after(compress->oneBitRuns, i), left_after(compress->twoBitRuns, i));
        compress->forwardPlan[i] = {token.method, token.entries};
        bytes += token.bytes;
        i += token.entries;
    }
    return bytes;
}

uint64_t plan_backward(const TRCCompress *compress, uint64_t start, uint64_t end) {
    uint64_t bytes = 0;
    uint64_t behind = end + 1; // the entries from here on are planned
    while (behind > start) {
        const uint64_t i = behind - 1;
        const Candidate &token = best_tokens.at(left_before(compress->oneBitRuns, i), left_before(compress->twoBitRuns, i));
        behind -= token.entries;
        compress->backwardPlan[behind] = {token.method, token.entries};
        bytes += token.bytes;
    }
    return bytes;
}

int32_t write_plan(const TRCCompress *compress, const TRCCompressToken *plan, uint64_t start, uint64_t end, TokenSink *sink) {
    int32_t status = KO_OK;
    for (uint64_t i = start; i <= end && status == KO_OK; i += plan[i].length) {
        if (plan[i].method == one_bit) {
            status = write_one_bit(compress->array, i, plan[i].length, sink);
        } else if (plan[i].method == two_bits) {
            status = write_two_bits(compress->array, i, plan[i].length, sink);
        } else {
            status = write_literal(compress->array, i, sink);
        }
    }
    return status;
}

int32_t write_segment(const TRCCompress *compress, uint64_t start, uint64_t end, TokenSink *sink) {
    const uint64_t forward = plan_forward(compress, start, end);
    const uint64_t backward = plan_backward(compress, start, end);
    const TRCCompressToken *plan = forward <= backward ? compress->forwardPlan : compress->backwardPlan;
    return write_plan(compress, plan, start, end, sink);
}

// ---- runs

// The run that the previous entry of a table belongs to; its length is 0 if that entry is in none. Which entries join depends
// on the data, so the code has no branches for the processor to mispredict.
class OpenRun {
  public:
    explicit OpenRun(TRCCompressRun *runs) : runs_(runs) {}

    // Entry i joins the run, or begins one.
    void join(uint64_t i, bool continues) {
        const uint64_t before = continues ? length_ : 0;
        start_ = before != 0 ? start_ : i;
        length_ = before + 1;
        runs_[i] = {start_, length_};
        runs_[start_].length = length_;
    }

    // The same, unless entry i is no member of any run.
    void join_if(uint64_t i, bool member) {
        start_ = length_ != 0 ? start_ : i;
        length_ = member ? length_ + 1 : 0;
        runs_[i] = {member ? start_ : 0, length_};
        runs_[member ? start_ : i].length = length_;
    }

  private:
    TRCCompressRun *runs_;
    uint64_t start_ = 0;
    uint64_t length_ = 0;
};

// Makes the tables at the first save; each run table has an element before its first.
int32_t prepare(TRCCompress *compress) {
    if (compress->workspace == nullptr) {
        const uint64_t elements = compress->size + 1;
        compress->workspace = allocate_bytes(elements, 5 * sizeof(TRCCompressRun));
        if (compress->workspace == nullptr) {
            return KoErrorGetLastError();
        }
        auto *runs = static_cast<TRCCompressRun *>(compress->workspace);
        compress->rleRuns = runs + 1;
        compress->oneBitRuns = runs + elements + 1;
        compress->twoBitRuns = runs + 2 * elements + 1;
        compress->forwardPlan = reinterpret_cast<TRCCompressToken *>(runs + 3 * elements);
        compress->backwardPlan = reinterpret_cast<TRCCompressToken *>(runs + 4 * elements);
    }
    compress->rleRuns[-1] = compress->oneBitRuns[-1] = compress->twoBitRuns[-1] = {};
    return KO_OK;
}

// ---- reading tokens

using FourEntries = uint32_t __attribute__((vector_size(16)));

// What four packed steps of so many bits add up to, one after the other.
template <uint32_t Bits> class StepSums {
  public:
    constexpr StepSums() {
        for (uint32_t packed = 0; packed < count; ++packed) {
            uint32_t sum = 0;
            for (uint32_t k = 0; k < 4; ++k) {
                sum += packed >> (k * Bits) & ((1u << Bits) - 1);
                sums_[packed][k] = sum;
            }
        }
    }

    // Of the lowest four steps.
    const uint32_t *of(uint64_t packed) const { return sums_[packed % count]; }

  private:
    static constexpr uint32_t count = 1u << 4 * Bits;

    uint32_t sums_[count][4] = {};
};

template <uint32_t Bits> constexpr StepSums<Bits> step_sums;

// Where decoded entries go: each is the one before it plus a step, and what has no room is dropped.
class Decoder {
  public:
    // The first scratch entries are this object's to write to before they are decoded.
    Decoder(uint32_t *entries, uint64_t room, uint64_t scratch) : entries_(entries), room_(room), scratch_(scratch) {}

    uint64_t filled() const { return filled_; }

    void add(uint32_t step) {
        value_ += step;
        if (filled_ < room_) {
            entries_[filled_] = value_;
        }
        ++filled_;
    }

    // count steps of so many bits each, the first lowest; at most longest.
    template <uint32_t Bits, uint64_t longest> void add_packed(uint64_t packed, uint64_t count) {
        if (filled_ + longest <= scratch_) {
            return add_longest<Bits, longest>(packed, count);
        }
        for (uint64_t k = 0; k < count; ++k, packed >>= Bits) {
            add(static_cast<uint32_t>(packed) & ((1u << Bits) - 1));
        }
    }

  private:
    // As many entries as the longest token has, so that the processor has no number of steps to mispredict. Those behind the
    // token are written again by the next ones.
    template <uint32_t Bits, uint64_t longest> void add_longest(uint64_t packed, uint64_t count) {
        uint32_t *out = entries_ + filled_;
        uint32_t value = value_;
        for (uint64_t k = 0; k < longest; k += 4, packed >>= 4 * Bits) {
            const uint32_t *sums = step_sums<Bits>.of(packed);
            store(load<FourEntries>(sums) + value, out + k);
            value += sums[3];
        }
        value_ = out[count - 1];
        filled_ += count;
    }

    uint32_t *entries_;
    uint64_t room_;
    uint64_t scratch_;
    uint64_t filled_ = 0;
    uint32_t value_ = 0;
};

// Reads one token; false if the stream ends within it.
bool read_token(Decoder *decoder, HeldStream *stream) {
    const int byte = stream->next();
    if (byte == EOF) {
        return false;
    }
    const auto head = static_cast<uint32_t>(byte);
    uint64_t more = 0;
    const auto read_more = [&](uint64_t count) {
        for (uint64_t k = 0; k < count; ++k) { // few bytes, for which fread takes longer
            const int next = stream->next();
            if (next == EOF) {
                return false;
            }
            more |= static_cast<uint64_t>(next) << (8 * k);
        }
        return true;
    };
    if ((head & 1) != 0) {
        for (uint32_t k = 0; k <= (head >> 1 & 31); ++k) {
            decoder->add(head >> 6);
        }
    } else if ((head & 2) != 0) {
        const uint64_t count = (head >> 2) + 1;
        if (!read_more(packed_bytes(count, 1))) {
            return false;
        }
        decoder->add_packed<1, longest_one_bit>(more, count);
    } else if ((head & 4) != 0) {
        const uint64_t count = (head >> 3) + 1;
        if (!read_more(packed_bytes(count, 2))) {
            return false;
        }
        decoder->add_packed<2, longest_two_bits>(more, count);
    } else if ((head & 8) != 0) {
        decoder->add(head >> 4);
    } else {
        if (!read_more(1)) {
            return false;
        }
        decoder->add((head >> 4) * 256 + static_cast<uint32_t>(more));
    }
    return true;
}

} // namespace

int32_t read_tokens(uint32_t *entries, uint64_t size, uint64_t room, FILE *stream, const char *path) {
    if (size == 0) {
        return KO_OK;
    }
    // A curve that is not too large is kept as it was, for the case that the stream ends early.
    constexpr uint64_t most_kept = 1024;
    uint32_t kept[most_kept];
    const uint64_t scratch = size <= most_kept && size <= room ? size : 0;
    std::memcpy(kept, entries, scratch * sizeof(*entries));
    Decoder decoder(entries, room, scratch);
    HeldStream held(stream);
    while (decoder.filled() < size) {
        if (!read_token(&decoder, &held)) {
            if (decoder.filled() < scratch) {
                std::memcpy(entries + decoder.filled(), kept + decoder.filled(),
                            (scratch - decoder.filled()) * sizeof(*entries));
            }
            return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_READ_FILE, path);
        }
    }
    return KO_OK;
}

} // namespace ko

using namespace ko;

int32_t KoTRCCompressInit(TRCCompress *compress, uint64_t size) {
    *compress = {};
    compress->size = size;
    return KO_OK;
}

TRCCompress *KoTRCCompressNew(uint64_t size) {
    return make_object<TRCCompress>(
        "KoTRCCompressFast", [=](TRCCompress *compress) { return KoTRCCompressInit(compress, size); }, [](TRCCompress *) {});
}

int32_t KoTRCCompressFree(TRCCompress *) { return KO_OK; }

int32_t KoTRCCompressDelete(TRCCompress *compress) {
    if (compress != nullptr) {
        KoFree(compress->workspace);
        KoFree(compress);
    }
    return KO_OK;
}

int32_t KoTRCCompressSetTRC(TRCCompress *compress, uint32_t *entries) {
    compress->array = entries;
    return KO_OK;
}

int32_t KoTRCCompressSave(TRCCompress *compress, FILE *stream, const char *path) {
    if (compress->size == 0) {
        return KO_OK;
    }
    if (compress->array == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    int32_t status = prepare(compress);
    if (status != KO_OK) {
        return status;
    }
    TokenSink sink(stream, path);
    OpenRun rle(compress->rleRuns);
    OpenRun one_bit_run(compress->oneBitRuns);
    OpenRun two_bit_run(compress->twoBitRuns);
    uint64_t start = 0;
    uint32_t previous_step = 0;
    const uint32_t *entries = compress->array;
    const uint64_t size = compress->size;
    for (uint64_t i = 0; i < size; ++i) {
        const uint32_t step = step_at(entries, i); // a falling one is a high number
        if (step <= last_run_step) {
            two_bit_run.join(i, true);
            rle.join(i, step == previous_step);
            one_bit_run.join_if(i, step <= 1);
        } else {
            two_bit_run.join_if(i, false);
            rle.join_if(i, false);
            one_bit_run.join_if(i, false);
            status = write_segment(compress, start, i, &sink);
            start = i + 1;
        }
        previous_step = step;
    }
    // See "A last segment of one entry" in docs/compatibility.md.
    return start < size - 1 ? write_segment(compress, start, size - 1, &sink) : status;
}

int32_t KoTRCCompressLoad(TRCCompress *compress, FILE *stream, const char *path) {
    if (compress->array == nullptr && compress->size != 0) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    return read_tokens(compress->array, compress->size, UINT64_MAX, stream, path);
}

int32_t _KoTRCCompressSaveRLE(const uint32_t *entries, uint64_t first, uint64_t length, FILE *stream, const char *path) {
    TokenSink sink(stream, path);
    return write_rle(entries, first, length, &sink);
}

int32_t _KoTRCCompressSave1Bit(const uint32_t *entries, uint64_t first, uint64_t length, FILE *stream, const char *path) {
    TokenSink sink(stream, path);
    return write_one_bit(entries, first, length, &sink);
}

int32_t _KoTRCCompressSave2Bits(const uint32_t *entries, uint64_t first, uint64_t length, FILE *stream, const char *path) {
    TokenSink sink(stream, path);
    return write_two_bits(entries, first, length, &sink);
}

int32_t _KoTRCCompressSaveNBits(const uint32_t *entries, uint64_t index, FILE *stream, const char *path) {
    TokenSink sink(stream, path);
    return write_literal(entries, index, &sink);
}
