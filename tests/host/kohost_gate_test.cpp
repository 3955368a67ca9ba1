// The gate of a red-eye model: its sums against a plain recursive reading of the file, and files that are damaged in every way.
#include <charconv>
#include <clocale>
#include <cmath>
#include <filesystem>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "kohost/gate.h"

#include "files.h"
#include "pictures.h"

namespace {

using namespace ko_test;
using kohost::Gate;
using kohost::GateError;
using Words = std::vector<std::string>;

constexpr size_t input_count = std::tuple_size_v<Gate::Inputs>;

// ---- a plain reading

// What the file says, word by word, without regard to lines.
class ReferenceGate {
  public:
    explicit ReferenceGate(const std::string &text) {
        std::istringstream stream(text);
        stream.imbue(std::locale::classic());
        for (std::string word; stream >> word;) {
            words_.push_back(word);
        }
    }

    double accept() const { return number(5); }
    double reject() const { return number(6); }

    // Without a value if the counts in the file are not those of its trees.
    std::optional<double> sum(const Gate::Inputs &inputs) const {
        double sum = number(7);
        size_t at = 9;
        for (double tree = 0; tree < number(8); ++tree) {
            const double nodes = number(at);
            const size_t first = ++at;
            sum += value(at, inputs);
            if (static_cast<double>(at - first) != 2 * nodes) {
                return {};
            }
        }
        return at == words_.size() ? std::optional(sum) : std::nullopt;
    }

  private:
    double number(size_t at) const {
        double result = 0.0;
        const std::string &word = words_.at(at);
        std::from_chars(word.data(), word.data() + word.size(), result);
        return result;
    }

    // What a tree says; leaves at behind it.
    double value(size_t &at, const Gate::Inputs &inputs) const {
        const double input = number(at);
        const double bound = number(at + 1);
        at += 2;
        if (input < 0) {
            return bound;
        }
        const double left = value(at, inputs);
        const double right = value(at, inputs);
        return static_cast<double>(inputs.at(static_cast<size_t>(input))) <= bound ? left : right;
    }

    std::vector<std::string> words_;
};

// ---- files

std::string gate_text(const std::vector<std::string> &trees, const std::string &bounds = "0.5 -0.25 0.125") {
    std::string text =
        "ko red-eye gate 1\n" + std::to_string(input_count) + "\n" + bounds + "\n" + std::to_string(trees.size()) + "\n";
    for (const std::string &tree : trees) {
        text += tree;
    }
    return text;
}

constexpr const char *one_leaf = "1\n-1 0.5\n";

std::string decimal(double value) {
    std::array<char, 40> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, 9).ptr};
}

// Values of a few kinds, of which many are those of inputs.
double some_value(Noise &noise) {
    switch (noise.next() % 6) {
    case 0:
        return static_cast<double>(noise.uniform(-3.0f, 3.0f));
    case 1:
        return static_cast<double>(noise.uniform(-1.0f, 1.0f)) * 1e-12;
    default:
        return (noise.next() % 17) / 16.0;
    }
}

// The nodes below one, itself included.
std::string random_nodes(Noise &noise, int depth, size_t &count) {
    ++count;
    if (depth == 0 || noise.next() % 4 == 0) {
        return "-1 " + decimal(static_cast<double>(noise.uniform(-2.0f, 2.0f))) + "\n";
    }
    std::string text = std::to_string(noise.next() % input_count) + " " + decimal(some_value(noise)) + "\n";
    text += random_nodes(noise, depth - 1, count);
    return text += random_nodes(noise, depth - 1, count);
}

std::string random_tree(Noise &noise, int depth) {
    size_t count = 0;
    const std::string nodes = random_nodes(noise, depth, count);
    return std::to_string(count) + "\n" + nodes;
}

std::string random_gate(Noise &noise, uint32_t trees, int depth) {
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < trees; ++i) {
        texts.push_back(random_tree(noise, depth));
    }
    return gate_text(texts);
}

Gate::Inputs random_inputs(Noise &noise) {
    Gate::Inputs inputs{};
    for (float &input : inputs) {
        input = static_cast<float>(some_value(noise));
    }
    return inputs;
}

Gate gate_of(const std::string &text) {
    const TemporaryFile file("of.gate", text);
    return Gate(file.path());
}

void expect_sums(const Gate &gate, const std::string &text, uint32_t seed) {
    const ReferenceGate reference(text);
    EXPECT_DOUBLE_EQ(gate.accept(), reference.accept());
    EXPECT_DOUBLE_EQ(gate.reject(), reference.reject());
    Noise noise(seed);
    for (int i = 0; i < 20; ++i) {
        const Gate::Inputs inputs = random_inputs(noise);
        const std::optional<double> expected = reference.sum(inputs);
        ASSERT_TRUE(expected.has_value()) << "the file holds no gate";
        EXPECT_NEAR(gate.sum(inputs), *expected, 1e-9 * (1.0 + std::abs(*expected)));
    }
}

// A gate from a file that may be damaged, if it is accepted.
std::optional<Gate> accepted(const std::string &text) {
    const TemporaryFile file("damaged.gate", text);
    try {
        return Gate(file.path());
    } catch (const GateError &error) {
        EXPECT_NE(std::string(error.what()).find(file.path()), std::string::npos) << error.what();
        return {};
    }
}

bool taken(const std::string &text) { return accepted(text).has_value(); }

void expect_refused(const std::string &text) { EXPECT_FALSE(taken(text)) << text.substr(0, 300); }

// ---- sums

TEST(Gate, SumsAreThoseOfAPlainReading) {
    Noise noise(1);
    for (uint32_t i = 0; i < 200; ++i) {
        const std::string text = random_gate(noise, i % 7 + 1, static_cast<int>(i % 9));
        expect_sums(gate_of(text), text, i);
    }
}

TEST(Gate, OfManyDeepTreesSumsAsAPlainReading) {
    Noise noise(2);
    const std::string text = random_gate(noise, 300, 7);
    expect_sums(gate_of(text), text, 3);
}

TEST(Gate, TreesOfOneLeafAdd) {
    const Gate gate = gate_of(gate_text({"1\n-1 0.5\n", "1\n-1 -0.25\n", "1\n-1 4\n"}));
    EXPECT_DOUBLE_EQ(gate.sum({}), 0.125 + 4.25);
    EXPECT_DOUBLE_EQ(gate.accept(), 0.5);
    EXPECT_DOUBLE_EQ(gate.reject(), -0.25);
}

TEST(Gate, TakesTheLeftBranchUpToAndWithTheValue) {
    const Gate gate = gate_of(gate_text({"3\n23 0.5\n-1 1\n-1 2\n"}, "0 0 0"));
    Gate::Inputs inputs{};
    for (const auto &[input, sum] : std::vector<std::pair<float, double>>{
             {0.5f, 1.0}, {std::nextafter(0.5f, 1.0f), 2.0}, {std::nextafter(0.5f, 0.0f), 1.0}, {-9.0f, 1.0}, {9.0f, 2.0}}) {
        inputs.back() = input;
        EXPECT_DOUBLE_EQ(gate.sum(inputs), sum) << input;
    }
}

TEST(Gate, LooksAtEveryInput) {
    for (size_t i = 0; i < input_count; ++i) {
        const Gate gate = gate_of(gate_text({"3\n" + std::to_string(i) + " 0.5\n-1 1\n-1 2\n"}, "0 0 0"));
        Gate::Inputs inputs{};
        EXPECT_DOUBLE_EQ(gate.sum(inputs), 1.0);
        inputs[i] = 1.0f;
        EXPECT_DOUBLE_EQ(gate.sum(inputs), 2.0);
    }
}

TEST(Gate, OfAwkwardInputsHasASum) {
    Noise noise(4);
    const Gate gate = gate_of(random_gate(noise, 20, 6));
    for (const float value : {std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                              std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::denorm_min()}) {
        Gate::Inputs inputs{};
        inputs.fill(value);
        EXPECT_TRUE(std::isfinite(gate.sum(inputs)));
    }
}

// ---- locales

class DecimalComma : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(Gate, IsReadAlikeInEveryLocale) {
    Noise noise(6);
    const std::string text = random_gate(noise, 5, 5);
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new DecimalComma));
    const std::string c_before = std::setlocale(LC_ALL, nullptr);
    for (const char *name : {"de_DE.UTF-8", "de_DE", "fr_FR.UTF-8", "ru_RU.UTF-8"}) {
        if (std::setlocale(LC_ALL, name) != nullptr) {
            break;
        }
    }
    const std::optional<Gate> gate = accepted(text);
    EXPECT_FALSE(taken(gate_text({one_leaf}, "0,5 -0.25 0.125")));
    std::setlocale(LC_ALL, c_before.c_str());
    std::locale::global(before);
    ASSERT_TRUE(gate.has_value());
    expect_sums(*gate, text, 6);
}

// ---- damaged files

TEST(GateFile, ThatIsMissingOrAFolderIsRefused) {
    const TemporaryFile folder("folder.gate");
    std::filesystem::create_directory(folder.path());
    for (const std::string &path : Words{temporary_path("missing.gate"), folder.path(), folder.path() + "/none/x.gate"}) {
        try {
            const Gate gate(path);
            ADD_FAILURE() << path;
        } catch (const GateError &error) {
            EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
        }
    }
}

TEST(GateFile, OfAnotherKindIsRefused) {
    for (const std::string &text : {std::string(), std::string("\n"), std::string(1, '\0'), std::string("ko red-eye gate 1"),
                                    std::string("ko red-eye gate"), std::string(10'000, ' '),
                                    "\xef\xbb\xbf" + gate_text({one_leaf}).substr(3), "x" + gate_text({one_leaf})}) {
        expect_refused(text);
    }
    for (const std::string &kind : Words{"ko red-eye gate 2", "ko red-eye gate 11", "ko red-eye gate 1.5", "KO RED-EYE GATE 1",
                                         "ko red-eye gate -1", "ko red-eye model 1"}) {
        expect_refused(kind + gate_text({one_leaf}).substr(17));
    }
    ASSERT_TRUE(taken(gate_text({one_leaf})));
}

TEST(GateFile, ForAnotherNumberOfInputsIsRefused) {
    const std::string rest = "\n0.5 -0.25 0.125\n1\n1\n-1 0.5\n";
    for (const std::string &count : Words{"0", "1", "2", "22", "23", "25", "48", "-24", "24.5", "24x", "x", "4294967320",
                                          "18446744073709551640", "99999999999999999999999999"}) {
        expect_refused("ko red-eye gate 1\n" + count + rest);
    }
    ASSERT_TRUE(taken("ko red-eye gate 1\n24" + rest));
}

TEST(GateFile, WithNumbersThatAreNoneIsRefused) {
    for (const std::string &word : Words{"nan", "-nan", "inf", "-inf", "infinity", "NaN", "nan(1)", "1e999", "-1e999", "0.5x",
                                         "x", "1,5", "--1", "1e", "0x1p3", ".", "-", "\"1\""}) {
        expect_refused(gate_text({one_leaf}, word + " -0.25 0.125"));
        expect_refused(gate_text({one_leaf}, "0.5 " + word + " 0.125"));
        expect_refused(gate_text({one_leaf}, "0.5 -0.25 " + word));
        expect_refused(gate_text({"1\n-1 " + word + "\n"}));
        expect_refused(gate_text({"3\n0 " + word + "\n-1 1\n-1 2\n"}));
        expect_refused(gate_text({"3\n0 1\n-1 1\n-1 " + word + "\n"}));
    }
}

TEST(GateFile, WithInputsThatDoNotExistIsRefused) {
    for (const std::string &input : Words{"24", "25", "-2", "-24", "2147483647", "2147483648", "4294967295", "4294967296",
                                          "4294967301", "-2147483648", "18446744073709551615", "0.5", "1e1", "x", "nan"}) {
        expect_refused(gate_text({"3\n" + input + " 0.5\n-1 1\n-1 2\n"}));
        expect_refused(gate_text({"1\n" + input + " 0.5\n"}));
    }
}

TEST(GateFile, WithWrongCountsOfNodesIsRefused) {
    const std::string nodes = "3 0.5\n-1 1\n7 0.25\n-1 2\n-1 3\n";
    for (const std::string &count : Words{"0", "1", "2", "3", "4", "6", "7", "-5", "5.0", "5x", "1000000", "2147483647",
                                          "4294967295", "4294967301", "18446744073709551615", "18446744073709551621", "1e9"}) {
        expect_refused(gate_text({count + "\n" + nodes}));
        expect_refused(gate_text({count + "\n" + nodes, one_leaf}));
        expect_refused(gate_text({one_leaf, count + "\n" + nodes}));
    }
    ASSERT_TRUE(taken(gate_text({"5\n" + nodes})));
}

// As many nodes as are announced, but a tree that ends before its last node, or has branches missing.
TEST(GateFile, WithTreesThatAreNoneIsRefused) {
    for (const std::string &tree :
         Words{"0\n", "1\n3 0.5\n", "2\n3 0.5\n-1 1\n", "3\n-1 1\n-1 2\n-1 3\n", "3\n-1 1\n3 0.5\n-1 2\n",
               "3\n3 0.5\n4 0.5\n-1 1\n", "3\n1 1\n2 2\n3 3\n", "5\n3 0.5\n-1 1\n-1 2\n-1 3\n-1 4\n", "2\n-1 1\n-1 2\n"}) {
        expect_refused(gate_text({tree}));
        expect_refused(gate_text({tree, one_leaf}));
        expect_refused(gate_text({one_leaf, tree, one_leaf}));
    }
}

TEST(GateFile, WithWrongCountsOfTreesIsRefused) {
    const std::string trees = std::string(one_leaf) + "3\n3 0.5\n-1 1\n-1 2\n";
    for (const std::string &count : Words{"1", "3", "4", "-2", "2.5", "1000000", "2147483647", "4294967295", "4294967298",
                                          "18446744073709551615", "18446744073709551618", "x"}) {
        expect_refused("ko red-eye gate 1\n24\n0.5 -0.25 0.125\n" + count + "\n" + trees);
    }
    ASSERT_TRUE(taken("ko red-eye gate 1\n24\n0.5 -0.25 0.125\n2\n" + trees));
}

TEST(GateFile, WithMoreBehindItIsRefused) {
    for (const std::string &more : Words{"1", "-1 0.5", one_leaf, "x", "end\n"}) {
        expect_refused(gate_text({one_leaf}) + more);
    }
    expect_refused(gate_text({one_leaf}) + std::string(1, '\0'));
}

TEST(GateFile, ThatIsCutOffAnywhereIsRefused) {
    Noise noise(7);
    const std::string text = random_gate(noise, 4, 3) + "1\n";
    const std::string whole = text.substr(0, text.size() - 2); // up to the last digit, without which it is another gate
    for (size_t size = 0; size + 30 < whole.size(); ++size) {
        expect_refused(whole.substr(0, size));
    }
}

TEST(GateFile, OfManyMegabytesIsRefused) {
    const TemporaryFile file("huge.gate", gate_text({one_leaf}));
    std::filesystem::resize_file(file.path(), uint64_t{1} << 27);
    EXPECT_THROW(const Gate gate(file.path()), GateError);
    const std::string words(20'000'000, '1');
    write_bytes(file.path(), gate_text({"1\n-1 " + words + "\n"}));
    EXPECT_THROW(const Gate gate(file.path()), GateError);
}

// A branch as long as the file, to either side: it may be refused, or else it is a tree like any other.
TEST(GateFile, WithAnEndlessBranchIsHarmless) {
    constexpr int depth = 200'000;
    std::string left = std::to_string(2 * depth + 1) + "\n";
    std::string right = left;
    for (int i = 0; i < depth; ++i) {
        left += "0 0.5\n";
        right += "0 0.5\n-1 1\n";
    }
    for (int i = 0; i <= depth; ++i) {
        left += "-1 3\n";
    }
    right += "-1 3\n";
    Gate::Inputs inputs{};
    inputs.fill(1.0f);
    for (const std::string &tree : Words{left, right}) {
        try {
            EXPECT_DOUBLE_EQ(gate_of(gate_text({tree}, "0 0 0")).sum(inputs), 3.0);
        } catch (const GateError &) {
            SUCCEED();
        }
    }
}

// ---- files damaged at random

std::string awkward_word(Noise &noise) {
    static const std::vector<std::string> words = {"-1",
                                                   "0",
                                                   "24",
                                                   "23",
                                                   "nan",
                                                   "1e999",
                                                   "4294967295",
                                                   "4294967296",
                                                   "18446744073709551615",
                                                   "-2147483648",
                                                   "",
                                                   "1e-400",
                                                   "\n",
                                                   "1 1",
                                                   "-1 -1",
                                                   "2",
                                                   "3",
                                                   "1000000000",
                                                   "-0",
                                                   "+1",
                                                   "0x10",
                                                   std::string(1, '\0'),
                                                   "\t",
                                                   "\r\n",
                                                   "99999999999999999999"};
    return words[noise.next() % words.size()];
}

void damage(std::string &text, Noise &noise) {
    const size_t at = noise.next() % (text.size() + 1);
    const size_t length = std::min<size_t>(noise.next() % 12, text.size() - at);
    switch (noise.next() % 6) {
    case 0:
        text.resize(at);
        break;
    case 1:
        text.erase(at, length);
        break;
    case 2:
        text.insert(at, text.substr(noise.next() % (text.size() + 1), length));
        break;
    case 3:
        text.insert(at, 1, static_cast<char>(noise.byte()));
        break;
    case 4:
        if (at < text.size()) {
            text[at] = static_cast<char>(text[at] ^ 1 << noise.next() % 8);
        }
        break;
    default: {
        const size_t begin = text.find_last_of(" \n", at);
        const size_t end = text.find_first_of(" \n", begin == std::string::npos ? 0 : begin + 1);
        if (begin != std::string::npos && end != std::string::npos) {
            text.replace(begin + 1, end - begin - 1, awkward_word(noise));
        }
    }
    }
}

TEST(GateFile, ThatIsDamagedAtRandomIsRefusedOrReadAsItStands) {
    Noise noise(8);
    int refused = 0;
    int read = 0;
    for (uint32_t i = 0; i < 4000 && !HasFailure(); ++i) {
        std::string text = random_gate(noise, i % 4 + 1, static_cast<int>(i % 5));
        for (uint32_t times = 0; times <= i % 3; ++times) {
            damage(text, noise);
        }
        SCOPED_TRACE(text);
        try {
            if (const std::optional<Gate> gate = accepted(text)) {
                expect_sums(*gate, text, i);
                ++read;
            } else {
                ++refused;
            }
        } catch (const std::out_of_range &) {
            ADD_FAILURE() << "the file is too short";
        }
    }
    EXPECT_GT(refused, 1000);
    EXPECT_GT(read, 50);
}

} // namespace
