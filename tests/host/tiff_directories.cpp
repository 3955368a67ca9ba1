#include "tiff_directories.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace ko_test {

namespace {

constexpr uint32_t exif_tag = 34665;
constexpr uint32_t gps_tag = 34853;
constexpr uint32_t interoperability_tag = 40965;

bool is_of_bytes(uint32_t type) { return type == 1 || type == 2 || type == 6 || type == 7; }

size_t size_of_item(uint32_t type) {
    switch (type) {
    case 3:
    case 8:
        return 2;
    case 4:
    case 9:
    case 11:
    case 13:
        return 4;
    case 5:
    case 10:
    case 12:
    case 16:
    case 17:
    case 18:
        return 8;
    default:
        return 1;
    }
}

// The numbers that an item is made of: fractions and numbers of 64 bits are of two.
size_t parts_of_item(uint32_t type) { return size_of_item(type) == 8 ? 2 : 1; }

class Builder {
  public:
    explicit Builder(const TiffForm &form) : form_(form) {
        file_ = form.little ? "II" : "MM";
        file_ += number(form.large ? 43 : 42, 2);
        file_ += form.large ? number(8, 2) + number(0, 2) : "";
        file_ += number(0, word());
    }

    std::string number(uint64_t value, size_t size) const {
        std::string text;
        for (size_t i = 0; i < size; ++i) {
            text += static_cast<char>(value >> 8 * (form_.little ? i : size - 1 - i));
        }
        return text;
    }

    uint64_t add_bytes(const std::string &bytes) {
        file_ += std::string(file_.size() % 2, '\0');
        const uint64_t at = file_.size();
        file_ += bytes;
        return at;
    }

    // Puts values with a specified position there, before anything else is written.
    void place(const TiffTree &tree) {
        for (const TiffValues *values : {&tree.first, &tree.exif, &tree.gps, &tree.interoperability, &tree.thumbnail}) {
            for (const TiffValue &value : *values) {
                if (value.at != 0) {
                    file_.resize(std::max<size_t>(file_.size(), value.at));
                    file_.replace(value.at, std::string::npos, bytes_of(value));
                }
            }
        }
    }

    // Writes a directory and returns its position.
    uint64_t add_directory(TiffValues values, uint64_t next) {
        if (values.empty()) {
            return 0;
        }
        std::stable_sort(values.begin(), values.end(),
                         [](const TiffValue &one, const TiffValue &other) { return one.tag < other.tag; });
        std::string entries = number(values.size(), form_.large ? 8 : 2);
        for (const TiffValue &value : values) {
            const std::string bytes = bytes_of(value);
            const uint64_t count = value.count.value_or(bytes.size() / size_of_item(value.type));
            entries += number(value.tag, 2) + number(value.type, 2) + number(count, word());
            if (value.offset || bytes.size() > word()) {
                const uint64_t at = value.offset ? *value.offset : value.at != 0 ? value.at : add_bytes(bytes);
                entries += number(at, word());
            } else {
                entries += bytes + std::string(word() - bytes.size(), '\0');
            }
        }
        return add_bytes(entries + number(next, word()));
    }

    uint64_t add_tree(TiffTree tree) {
        const auto point = [&](TiffValues &from, uint32_t tag, const TiffValues &to) {
            if (!to.empty()) {
                from.push_back(tiff_longs(tag, {static_cast<uint32_t>(add_directory(to, 0))}));
            }
        };
        point(tree.exif, interoperability_tag, tree.interoperability);
        point(tree.first, exif_tag, tree.exif);
        point(tree.first, gps_tag, tree.gps);
        if (!tree.jpeg.empty()) {
            tree.thumbnail.push_back(tiff_longs(0x0201, {static_cast<uint32_t>(add_bytes(tree.jpeg))}));
            tree.thumbnail.push_back(tiff_longs(0x0202, {static_cast<uint32_t>(tree.jpeg.size())}));
        }
        return add_directory(tree.first, add_directory(tree.thumbnail, 0));
    }

    std::string finished(uint64_t first) {
        file_.replace(form_.large ? 8 : 4, word(), number(first, word()));
        return file_;
    }

  private:
    size_t word() const { return form_.large ? 8 : 4; }

    std::string bytes_of(const TiffValue &value) const {
        if (is_of_bytes(value.type)) {
            return value.bytes;
        }
        std::string bytes;
        for (const uint32_t part : value.numbers) {
            bytes += number(part, size_of_item(value.type) / parts_of_item(value.type));
        }
        return bytes;
    }

    TiffForm form_;
    std::string file_;
};

class Parser {
  public:
    explicit Parser(const std::string &file) : file_(file) {
        form_.little = file.at(0) == 'I';
        form_.large = number(2, 2) == 43;
    }

    const TiffForm &form() const { return form_; }
    uint64_t first() const { return form_.large ? number(8, 8) : number(4, 4); }

    uint64_t number(uint64_t at, size_t size) const {
        uint64_t value = 0;
        for (size_t i = 0; i < size; ++i) {
            value = value << 8 | static_cast<uint8_t>(file_.at(at + (form_.little ? size - 1 - i : i)));
        }
        return value;
    }

    TiffFoundValues directory(uint64_t at, uint64_t *next = nullptr) const {
        TiffFoundValues found;
        const size_t word = form_.large ? 8 : 4;
        const uint64_t count = number(at, form_.large ? 8 : 2);
        uint64_t entry = at + (form_.large ? 8 : 2);
        for (uint64_t i = 0; i < count; ++i, entry += 4 + 2 * word) {
            const auto tag = static_cast<uint32_t>(number(entry, 2));
            EXPECT_FALSE(found.contains(tag)) << "tag " << tag << " twice";
            EXPECT_TRUE(found.empty() || found.rbegin()->first < tag) << "tag " << tag << " is not in its place";
            found[tag] = value(entry, word);
        }
        if (next != nullptr) {
            *next = number(entry, word);
        }
        return found;
    }

    // What a directory points to by a tag.
    TiffFoundValues below(const TiffFoundValues &values, uint32_t tag) const {
        const auto found = values.find(tag);
        return found == values.end() ? TiffFoundValues{} : directory(found->second.numbers.at(0));
    }

  private:
    TiffFound value(uint64_t entry, size_t word) const {
        TiffFound found;
        found.type = static_cast<uint32_t>(number(entry + 2, 2));
        found.count = number(entry + 4, word);
        const uint64_t size = found.count * size_of_item(found.type);
        found.at = size > word ? number(entry + 4 + word, word) : entry + 4 + word;
        if (found.at > file_.size() || size > file_.size() - found.at) {
            throw std::out_of_range("a value outside of the file");
        }
        found.bytes = file_.substr(found.at, size);
        const size_t part = size_of_item(found.type) / parts_of_item(found.type);
        for (uint64_t i = 0; !is_of_bytes(found.type) && i < size / part; ++i) {
            found.numbers.push_back(static_cast<uint32_t>(number(found.at + i * part, part)));
        }
        return found;
    }

    const std::string &file_;
    TiffForm form_;
};

uint32_t tree_level(uint32_t x, uint32_t y, uint32_t c) { return (x * 37 + y * 91 + c * 53) & 0xff; }

} // namespace

TiffValue tiff_text(uint32_t tag, const std::string &text) { return {.tag = tag, .type = 2, .bytes = text + '\0'}; }

TiffValue tiff_bytes_of(uint32_t tag, uint32_t type, const std::string &bytes) {
    return {.tag = tag, .type = type, .bytes = bytes};
}

TiffValue tiff_shorts(uint32_t tag, const std::vector<uint32_t> &numbers) {
    return {.tag = tag, .type = 3, .numbers = numbers};
}

TiffValue tiff_longs(uint32_t tag, const std::vector<uint32_t> &numbers) { return {.tag = tag, .type = 4, .numbers = numbers}; }

TiffValue tiff_fraction(uint32_t tag, uint32_t numerator, uint32_t denominator) {
    return {.tag = tag, .type = 5, .numbers = {numerator, denominator}};
}

std::string exif_of_tree(const TiffTree &tree, bool little) {
    Builder builder({little, false});
    builder.place(tree);
    return builder.finished(builder.add_tree(tree));
}

std::string tiff_of_tree(const TiffTree &tree, const TiffTreeRecipe &recipe) {
    Builder builder(recipe.form);
    builder.place(tree);
    const std::vector<uint8_t> pixels = tiff_tree_pixels(recipe.width, recipe.height);
    const uint64_t at = builder.add_bytes({pixels.begin(), pixels.end()});
    TiffTree whole = tree;
    const TiffValues storage = {tiff_longs(256, {recipe.width}),
                                tiff_longs(257, {recipe.height}),
                                tiff_shorts(258, {8, 8, 8}),
                                tiff_shorts(259, {1}),
                                tiff_shorts(262, {2}),
                                tiff_longs(273, {static_cast<uint32_t>(at)}),
                                tiff_shorts(277, {3}),
                                tiff_longs(278, {recipe.height}),
                                tiff_longs(279, {static_cast<uint32_t>(pixels.size())}),
                                tiff_shorts(284, {1})};
    whole.first.insert(whole.first.end(), storage.begin(), storage.end());
    return builder.finished(builder.add_tree(whole));
}

std::vector<uint8_t> tiff_tree_pixels(uint32_t width, uint32_t height) {
    std::vector<uint8_t> pixels;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t i = 0; i < width * 3; ++i) {
            pixels.push_back(static_cast<uint8_t>(tree_level(i / 3, y, i % 3)));
        }
    }
    return pixels;
}

TiffFoundTree tiff_tree(const std::string &file) {
    const Parser parser(file);
    TiffFoundTree tree;
    tree.form = parser.form();
    uint64_t next = 0;
    tree.first = parser.directory(parser.first(), &next);
    tree.exif = parser.below(tree.first, exif_tag);
    tree.gps = parser.below(tree.first, gps_tag);
    tree.interoperability = parser.below(tree.exif, interoperability_tag);
    tree.second = next == 0 ? TiffFoundValues{} : parser.directory(next);
    return tree;
}

void expect_values(const TiffFoundValues &found, const TiffValues &values) {
    for (const TiffValue &value : values) {
        const auto item = found.find(value.tag);
        if (item == found.end()) {
            ADD_FAILURE() << "no tag " << value.tag;
            continue;
        }
        EXPECT_EQ(item->second.type, value.type) << "tag " << value.tag;
        EXPECT_EQ(is_of_bytes(value.type) ? item->second.bytes : "", value.bytes) << "tag " << value.tag;
        EXPECT_EQ(item->second.numbers, value.numbers) << "tag " << value.tag;
    }
}

} // namespace ko_test
