// The token stream of a curve in its plainest form: an encoder that plans and writes step by step, and a decoder.
#ifndef KO_TESTS_REFERENCE_TRCCOMPRESS_H
#define KO_TESTS_REFERENCE_TRCCOMPRESS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ko_test {

// An entry's place in a run of small steps: where the run begins and its length up to the entry; (0, 0) in no run. The element
// at the run's start holds the length of the whole run.
struct PlainRun {
    uint64_t start = 0;
    uint64_t length = 0;
};

enum class PlainKind { one_bit, two_bits, literal };

// A planned token, by its first entry.
struct PlainToken {
    PlainKind kind;
    uint64_t first;
    uint64_t length;
};

struct PlainPlan {
    std::vector<PlainToken> tokens; // by rising first entry
    uint64_t bytes = 0;
};

// What a kind of token holds and costs.
struct PlainPacking {
    PlainKind kind;
    uint64_t limit;
    uint64_t least;
    uint64_t entries_a_byte;
};

inline constexpr PlainPacking plain_packings[] = {{PlainKind::one_bit, 64, 2, 8}, {PlainKind::two_bits, 32, 1, 4}};

class PlainEncoder {
  public:
    explicit PlainEncoder(std::vector<uint32_t> entries) : entries_(std::move(entries)) {
        const size_t size = entries_.size();
        rle_runs.resize(size);
        one_bit_runs.resize(size);
        two_bit_runs.resize(size);
        size_t segment = 0;
        for (size_t i = 0; i < size; ++i) {
            const auto d = static_cast<int32_t>(step(i));
            if (d >= 0 && d <= 3) {
                join_runs(i, d);
                continue;
            }
            write_segment(segment, i);
            segment = i + 1;
        }
        // A segment of one entry at the very end is not written.
        if (size > 0 && segment < size - 1) {
            write_segment(segment, size - 1);
        }
    }

    std::string bytes;
    std::vector<PlainRun> rle_runs;
    std::vector<PlainRun> one_bit_runs;
    std::vector<PlainRun> two_bit_runs;
    int forward_plans = 0;  // segments written by a forward plan that the backward one would have written otherwise
    int backward_plans = 0; // segments written by a backward plan

  private:
    uint32_t step(size_t i) const { return i == 0 ? entries_[0] : entries_[i] - entries_[i - 1]; }

    static void join(std::vector<PlainRun> &runs, size_t i) {
        const uint64_t before = i == 0 ? 0 : (runs[i - 1].length == 0 ? 0 : i - runs[i - 1].start);
        runs[i] = {i - before, before + 1};
        runs[i - before].length = before + 1;
    }

    void join_runs(size_t i, int32_t d) {
        join(two_bit_runs, i);
        const int32_t before = i == 0 ? 0 : static_cast<int32_t>(step(i - 1));
        if (d == before) {
            join(rle_runs, i);
        } else {
            rle_runs[i] = {i, 1};
        }
        if (d <= 1) {
            join(one_bit_runs, i);
        }
    }

    const PlainRun &run_at(const PlainPacking &packing, uint64_t pos) const {
        return (packing.kind == PlainKind::one_bit ? one_bit_runs : two_bit_runs)[pos];
    }

    // Entries of the run at pos from pos on.
    uint64_t entries_after(const PlainPacking &packing, uint64_t pos) const {
        const PlainRun &run = run_at(packing, pos);
        if (run.length == 0) {
            return 0;
        }
        return run_at(packing, run.start).length - (pos - run.start);
    }

    // Entries of the run at pos up to pos.
    uint64_t entries_before(const PlainPacking &packing, uint64_t pos) const {
        const PlainRun &run = run_at(packing, pos);
        return run.length == 0 ? 0 : pos - run.start + 1;
    }

    // The token at pos with the best ratio of entries to bytes, and its bytes; a run of one step never beats a literal.
    template <class Entries> std::pair<PlainToken, uint64_t> best_token(uint64_t pos, Entries entries) const {
        PlainToken best{PlainKind::literal, pos, 1};
        uint64_t best_cost = 1;
        float best_ratio = 1.0f;
        for (const PlainPacking &packing : plain_packings) {
            const uint64_t count = std::min(entries(packing, pos), packing.limit);
            if (count < packing.least) {
                continue;
            }
            const uint64_t cost = (count + packing.entries_a_byte - 1) / packing.entries_a_byte + 1;
            const float ratio = static_cast<float>(count) / static_cast<float>(cost);
            if (ratio > best_ratio) {
                best = {packing.kind, pos, count};
                best_cost = cost;
                best_ratio = ratio;
            }
        }
        return {best, best_cost};
    }

    PlainPlan forward_plan(uint64_t start, uint64_t end) const {
        PlainPlan plan;
        for (uint64_t pos = start; pos <= end;) {
            const auto [token, cost] =
                best_token(pos, [this](const auto &kind, uint64_t at) { return entries_after(kind, at); });
            plan.tokens.push_back(token);
            plan.bytes += cost;
            pos += token.length;
        }
        return plan;
    }

    PlainPlan backward_plan(uint64_t start, uint64_t end) const {
        PlainPlan plan;
        uint64_t left = end - start + 1; // entries not planned yet
        while (left > 1) {
            const uint64_t pos = start + left - 1;
            auto [token, cost] = best_token(pos, [this](const auto &kind, uint64_t at) { return entries_before(kind, at); });
            token.first = pos - (token.length - 1);
            plan.tokens.insert(plan.tokens.begin(), token);
            plan.bytes += cost;
            left -= token.length;
        }
        if (left == 1) {
            plan.tokens.insert(plan.tokens.begin(), PlainToken{PlainKind::literal, start, 1});
            plan.bytes += 1;
        }
        return plan;
    }

    void write_segment(uint64_t start, uint64_t end) {
        const PlainPlan forward = forward_plan(start, end);
        const PlainPlan backward = backward_plan(start, end);
        const bool goes_forward = forward.bytes <= backward.bytes;
        const std::string backward_bytes = written(backward);
        const std::string forward_bytes = written(forward);
        backward_plans += !goes_forward;
        forward_plans += goes_forward && forward_bytes != backward_bytes;
        bytes += goes_forward ? forward_bytes : backward_bytes;
    }

    std::string written(const PlainPlan &plan) const {
        std::string text;
        for (const PlainToken &token : plan.tokens) {
            if (token.kind == PlainKind::literal) {
                write_literal(text, token.first);
            } else if (token.kind == PlainKind::one_bit) {
                write_packed(text, token, ((token.length - 1) << 2) | 2, 1);
            } else {
                write_packed(text, token, ((token.length - 1) << 3) | 4, 2);
            }
        }
        return text;
    }

    void write_literal(std::string &text, uint64_t i) const {
        const uint32_t d = step(i);
        if (d < 16) {
            text += static_cast<char>(d << 4 | 8);
        } else {
            text += static_cast<char>((d >> 8 & 15) << 4);
            text += static_cast<char>(d & 255);
        }
    }

    // The low bits of each step, the first entry in the lowest bits of the first byte.
    void write_packed(std::string &text, const PlainToken &token, uint64_t head, uint64_t bits) const {
        text += static_cast<char>(head);
        const uint64_t entries_a_byte = 8 / bits;
        for (uint64_t k = 0; k < token.length; k += entries_a_byte) {
            uint64_t byte = 0;
            for (uint64_t j = k; j < std::min(k + entries_a_byte, token.length); ++j) {
                byte |= uint64_t{step(token.first + j)} << ((j - k) * bits);
            }
            text += static_cast<char>(byte);
        }
    }

    std::vector<uint32_t> entries_;
};

inline std::string plain_encoded(const std::vector<uint32_t> &entries) { return PlainEncoder(entries).bytes; }

// What a reading of one curve gives.
struct PlainDecoding {
    bool complete = false;
    std::vector<uint32_t> entries; // all that whole tokens gave: with the last token, up to 63 past the size
    size_t used = 0;               // bytes up to the end of the last whole token
};

class PlainDecoder {
  public:
    PlainDecoder(const std::string &bytes, size_t from) : bytes_(bytes), at_(from) {}

    PlainDecoding read(uint64_t size) {
        PlainDecoding decoding;
        decoding.used = at_;
        while (decoding.entries.size() < size) {
            std::vector<uint32_t> steps;
            if (!read_token(steps)) {
                return decoding;
            }
            for (const uint32_t d : steps) {
                decoding.entries.push_back((decoding.entries.empty() ? 0 : decoding.entries.back()) + d);
            }
            decoding.used = at_;
        }
        decoding.complete = true;
        return decoding;
    }

  private:
    bool take(uint32_t &byte) {
        if (at_ == bytes_.size()) {
            return false;
        }
        byte = static_cast<unsigned char>(bytes_[at_++]);
        return true;
    }

    bool read_token(std::vector<uint32_t> &steps) {
        uint32_t head = 0;
        if (!take(head)) {
            return false;
        }
        if ((head & 1) != 0) {
            steps.assign((head >> 1 & 31) + 1, head >> 6);
            return true;
        }
        if ((head & 2) != 0) {
            return read_packed(steps, (head >> 2) + 1, 1);
        }
        if ((head & 4) != 0) {
            return read_packed(steps, (head >> 3) + 1, 2);
        }
        if ((head & 8) != 0) {
            steps.push_back(head >> 4);
            return true;
        }
        uint32_t low = 0;
        if (!take(low)) {
            return false;
        }
        steps.push_back((head >> 4) * 256 + low);
        return true;
    }

    bool read_packed(std::vector<uint32_t> &steps, uint32_t count, uint32_t bits) {
        uint32_t byte = 0;
        for (uint32_t k = 0; k < count; ++k) {
            const uint32_t place = k * bits % 8;
            if (place == 0 && !take(byte)) {
                return false;
            }
            steps.push_back(byte >> place & ((1u << bits) - 1));
        }
        return true;
    }

    const std::string &bytes_;
    size_t at_;
};

// Reads one curve of size entries, beginning with byte from.
inline PlainDecoding plain_decoded(const std::string &bytes, uint64_t size, size_t from = 0) {
    return PlainDecoder(bytes, from).read(size);
}

} // namespace ko_test

#endif
