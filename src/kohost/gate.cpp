// The file is text: "ko red-eye gate 1", the number of inputs, the two bounds and the base of all sums, and the number of
// trees; then each tree as its number of nodes and the nodes, the left branch of a node before its right one. A node is an
// input and the value up to which its left branch is taken; a leaf is -1 and what it adds.
#include "kohost/gate.h"

#include <charconv>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

namespace kohost {

namespace {

constexpr std::string_view heading = "ko red-eye gate 1\n";
constexpr uint32_t most_nodes = 1000; // of a tree
constexpr uint32_t most_trees = 10'000;

// The numbers of a file, one after the other, in any locale.
class Numbers {
  public:
    Numbers(std::string path, std::string_view text) : path_(std::move(path)), text_(text) {}

    template <class Number> Number next(Number low, Number high) {
        text_.remove_prefix(std::min(text_.find_first_not_of(" \n"), text_.size()));
        Number number{};
        const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), number);
        if (error != std::errc() || !(number >= low && number <= high)) {
            fail();
        }
        text_.remove_prefix(static_cast<size_t>(end - text_.data()));
        return number;
    }

    [[noreturn]] void fail() const { throw GateError("damaged gate of a red-eye model: " + path_); }

  private:
    std::string path_;
    std::string_view text_;
};

std::string contents(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw GateError("the gate of a red-eye model cannot be read: " + path);
    }
    return text;
}

} // namespace

Gate::Gate(const std::string &path) {
    constexpr double most = 1e6;
    const std::string text = contents(path);
    Numbers numbers(path, text.starts_with(heading) ? std::string_view(text).substr(heading.size()) : std::string_view());
    numbers.next<uint32_t>(std::tuple_size_v<Inputs>, std::tuple_size_v<Inputs>);
    accept_ = numbers.next(-most, most);
    reject_ = numbers.next(-most, accept_);
    base_ = numbers.next(-most, most);
    const auto trees = numbers.next<uint32_t>(0, most_trees);
    for (uint32_t tree = 0; tree < trees; ++tree) {
        const auto root = static_cast<uint32_t>(nodes_.size());
        const auto count = numbers.next<uint32_t>(1, most_nodes);
        std::vector<uint32_t> open; // inner nodes whose left branch is being read
        roots_.push_back(root);
        for (uint32_t i = 0; i < count; ++i) {
            Node node;
            node.input = numbers.next<int32_t>(-1, std::tuple_size_v<Inputs> - 1);
            node.value = numbers.next(-most, most);
            nodes_.push_back(node);
            if (node.input >= 0) {
                open.push_back(root + i);
            } else if (!open.empty()) {
                nodes_[open.back()].right = root + i + 1;
                open.pop_back();
            } else if (i + 1 < count) {
                numbers.fail(); // nodes behind the end of the tree
            }
            if (i + 1 == count && (node.input >= 0 || !open.empty())) {
                numbers.fail(); // a branch is missing
            }
        }
    }
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
