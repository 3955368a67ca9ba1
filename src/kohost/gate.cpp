// The file is text: "ko red-eye gate 1", the number of inputs, the two bounds and the base of all sums, and the number of
// trees; then each tree as its number of nodes and the nodes, the left branch of a node before its right one. A node is an
// input and the value up to which its left branch is taken; a leaf is -1 and what it adds.
#include "kohost/gate.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

#include "kohost/numbers.h"

namespace kohost {

namespace {

constexpr std::string_view heading = "ko red-eye gate 1\n";
constexpr size_t most_bytes = 4'000'000;
constexpr uint32_t most_nodes = 1000; // of a tree
constexpr uint32_t most_trees = 10'000;
constexpr double most = 1e6; // of a value

// The numbers of a file, one after the other, in any locale.
class Numbers {
  public:
    Numbers(std::string path, std::string_view text) : path_(std::move(path)), text_(text) {}

    template <class Number> Number next(Number low, Number high) {
        skip_spaces();
        Number number{};
        const bool read = read_number(text_, number);
        const bool separate = text_.empty() || spaces.find(text_.front()) != spaces.npos;
        if (!read || !separate || !(number >= low && number <= high)) {
            fail();
        }
        return number;
    }

    void expect_end() {
        skip_spaces();
        if (!text_.empty()) {
            fail();
        }
    }

    [[noreturn]] void fail() const { throw GateError("damaged gate of a red-eye model: " + path_); }

  private:
    static constexpr std::string_view spaces = " \n";

    void skip_spaces() { text_.remove_prefix(std::min(text_.find_first_not_of(spaces), text_.size())); }

    std::string path_;
    std::string_view text_;
};

std::string contents(const std::string &path) {
    std::string text(most_bytes, '\0');
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    text.resize(file != nullptr ? std::fread(text.data(), 1, most_bytes, file.get()) : 0);
    if (file == nullptr || std::ferror(file.get()) != 0) {
        throw GateError("the gate of a red-eye model cannot be read: " + path);
    }
    return text;
}

} // namespace

Gate::Gate(const std::string &path) {
    const std::string text = contents(path);
    const bool headed = text.size() < most_bytes && text.starts_with(heading);
    Numbers numbers(path, headed ? std::string_view(text).substr(heading.size()) : std::string_view());
    numbers.next<uint32_t>(input_count, input_count);
    accept_ = numbers.next(-most, most);
    reject_ = numbers.next(-most, accept_);
    base_ = numbers.next(-most, most);
    const auto trees = numbers.next<uint32_t>(0, most_trees);
    for (uint32_t tree = 0; tree < trees; ++tree) {
        std::vector<uint32_t> open; // inner nodes whose left branch is being read
        uint32_t missing = 1;       // nodes that the tree needs for its branches so far
        roots_.push_back(static_cast<uint32_t>(nodes_.size()));
        for (auto left = numbers.next<uint32_t>(1, most_nodes); left > 0; --left) {
            if (missing == 0) {
                numbers.fail();
            }
            const auto input = numbers.next<int32_t>(-1, input_count - 1);
            nodes_.push_back({input, 0, numbers.next(-most, most)});
            if (input >= 0) {
                open.push_back(static_cast<uint32_t>(nodes_.size() - 1));
                ++missing;
            } else if (--missing > 0) {
                nodes_[open.back()].right = static_cast<uint32_t>(nodes_.size());
                open.pop_back();
            }
        }
        if (missing > 0) {
            numbers.fail();
        }
    }
    numbers.expect_end();
}

double Gate::sum(const Inputs &inputs) const {
    double sum = base_;
    for (const uint32_t root : roots_) {
        uint32_t at = root;
        while (nodes_[at].input >= 0) {
            const Node &node = nodes_[at];
            at = inputs[static_cast<size_t>(node.input)] <= node.value ? at + 1 : node.right;
        }
        sum += nodes_[at].value;
    }
    return sum;
}

} // namespace kohost
