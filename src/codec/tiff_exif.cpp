#include "codec/tiff_exif.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>
#include <string>

#include "codec/exif.h"
#include "codec/exif_layout.h"
#include "codec/left_out.h"

namespace codec {

namespace {

using Entry = TiffStructure::Entry;
using Entries = std::vector<Entry>;

constexpr uint32_t tag_layers = 37724;

// Tags by which a TIFF file says how it stores its pixels, and those of metadata that is read in another way.
constexpr auto storage_tags = std::to_array<uint32_t>(
    {254,   255,   256,        257,   258,   259,   262,   263,   264,   265,   266,   273,   277,   278,   279,   280,
     281,   284,   288,        289,   290,   291,   292,   293,   297,   300,   301,   317,   320,   321,   322,   323,
     324,   325,   326,        327,   328,   330,   332,   333,   334,   336,   337,   338,   339,   340,   341,   342,
     343,   345,   347,        351,   512,   513,   514,   515,   517,   518,   519,   520,   521,   529,   530,   531,
     532,   559,   700,        32995, 32996, 32997, 32998, 33723, 34377, 34675, 34016, 34017, 34018, 34019, 34020, 34021,
     34022, 34023, tag_layers, 34024, 34025, 34026, 34027, 34028, 34029, 34030, 50838, 50839});

// Tags that a TIFF file has even without Exif data.
constexpr auto usual_tags =
    std::to_array<uint32_t>({TIFFTAG_ORIENTATION, TIFFTAG_XRESOLUTION, TIFFTAG_YRESOLUTION, TIFFTAG_RESOLUTIONUNIT});

bool is_among(std::span<const uint32_t> tags, uint32_t tag) { return std::find(tags.begin(), tags.end(), tag) != tags.end(); }

// The elements of a value in the byte order of this machine.
Bytes native_value(TiffStructure &block, const Entry &entry) {
    Bytes value = block.value(entry);
    const size_t size = size_of(entry.type);
    if (block.big_endian() != (std::endian::native == std::endian::big)) {
        for (size_t at = 0; at + size <= value.size(); at += size) {
            const auto element = value.begin() + static_cast<std::ptrdiff_t>(at);
            std::reverse(element, element + static_cast<std::ptrdiff_t>(size));
        }
    }
    return value;
}

class Putter {
  public:
    Putter(TIFF *tiff, TiffStructure &block, const TiffReports &reports, Notices &notices)
        : tiff_(tiff), block_(block), reports_(reports), notices_(notices) {}

    void put(const Entry &entry) {
        const bool is_pointer = entry.tag == tag::exif_directory || entry.tag == tag::gps_directory;
        const bool good = is_pointer                       ? put_pointer(entry)
                          : entry.type == ValueType::ascii ? put_text(entry)
                                                           : put_numbers(entry);
        if (!good) {
            notices_.push_back("the Exif value with tag " + std::to_string(entry.tag) +
                               " has no place in a TIFF file and is left out");
        }
    }

    // X and Y, each a quotient, and their unit.
    void put_resolution(const Entries &directory) {
        const Entry *unit = find(directory, TIFFTAG_RESOLUTIONUNIT);
        const auto x = quotient(find(directory, TIFFTAG_XRESOLUTION));
        const auto y = quotient(find(directory, TIFFTAG_YRESOLUTION));
        if (x && y) {
            const uint64_t stored = unit != nullptr ? block_.number(unit->position, 2).value_or(0) : 0;
            set(TIFFTAG_XRESOLUTION, *x);
            set(TIFFTAG_YRESOLUTION, *y);
            set(TIFFTAG_RESOLUTIONUNIT, stored == RESUNIT_CENTIMETER ? RESUNIT_CENTIMETER : RESUNIT_INCH);
        }
    }

  private:
    template <class... Values> void set(uint32_t tag, Values... values) {
        reports_.check(TIFFSetField(tiff_, tag, values...) == 1);
    }

    std::optional<double> quotient(const Entry *entry) {
        if (entry == nullptr || entry->type != ValueType::rational) {
            return std::nullopt;
        }
        const auto above = block_.number(entry->position, 4);
        const auto below = block_.number(entry->position + 4, 4);
        const bool sensible = above && below && *above > 0 && *below > 0;
        return sensible ? std::optional(static_cast<double>(*above) / static_cast<double>(*below)) : std::nullopt;
    }

    // The directory has the same position in the file as in the block.
    bool put_pointer(const Entry &entry) {
        const auto position = entry.size() == 4 ? block_.number(entry.position, 4) : std::nullopt;
        if (!position || !block_.directory(*position)) {
            return false;
        }
        set(entry.tag, *position);
        return true;
    }

    // libtiff has kinds of its own for the values that it knows. Of those, only texts are the same in Exif data.
    bool is_known(const Entry &entry) const { return TIFFFindField(tiff_, entry.tag, TIFF_ANY) != nullptr; }

    void introduce(const Entry &entry, short count, unsigned char passes_count) {
        static char name[] = "Exif"; // libtiff requires one that is not const
        const TIFFFieldInfo info = {entry.tag,    count, count,        static_cast<TIFFDataType>(entry.type),
                                    FIELD_CUSTOM, 1,     passes_count, name};
        reports_.check(TIFFMergeFieldInfo(tiff_, &info, 1) == 0);
    }

    bool put_text(const Entry &entry) {
        if (!is_known(entry)) {
            introduce(entry, TIFF_VARIABLE, 0);
        }
        const TIFFField *field = TIFFFindField(tiff_, entry.tag, TIFF_ANY);
        if (TIFFFieldDataType(field) != TIFF_ASCII || TIFFFieldPassCount(field) != 0) {
            return false;
        }
        const Bytes value = block_.value(entry);
        const std::string text(value.begin(), value.end());
        const size_t end = std::min(text.find('\0'), text.size());
        if (text.find_first_not_of('\0', end) != std::string::npos) {
            add_once(notices_, "a text in the Exif data is cut at a zero byte, which a TIFF file cannot hold");
        }
        set(entry.tag, text.substr(0, end).c_str());
        return true;
    }

    // Two that libtiff knows, the white point and the primaries.
    bool put_quotients(const Entry &entry) {
        const uint64_t expected = entry.tag == TIFFTAG_WHITEPOINT ? 2 : entry.tag == TIFFTAG_PRIMARYCHROMATICITIES ? 6 : 0;
        std::array<float, 6> values{};
        for (uint64_t i = 0; i < std::min(entry.count, expected); ++i) {
            const auto above = block_.number(entry.position + 8 * i, 4);
            const auto below = block_.number(entry.position + 8 * i + 4, 4);
            values[i] =
                below.value_or(0) > 0 ? static_cast<float>(static_cast<double>(*above) / static_cast<double>(*below)) : 0.0f;
        }
        const bool good = expected > 0 && entry.count == expected && entry.type == ValueType::rational;
        if (good) {
            set(entry.tag, values.data());
        }
        return good;
    }

    bool put_numbers(const Entry &entry) {
        if (entry.type == ValueType::rational) {
            return put_quotients(entry);
        }
        if (entry.type == ValueType::signed_rational || entry.type == ValueType::directory || entry.count == 0 ||
            is_known(entry)) {
            return false;
        }
        introduce(entry, TIFF_VARIABLE2, 1);
        set(entry.tag, static_cast<uint32_t>(entry.count), native_value(block_, entry).data());
        return true;
    }

    TIFF *tiff_;
    TiffStructure &block_;
    const TiffReports &reports_;
    Notices &notices_;
};

void tell(const ExifLayout &layout, Notices &notices) {
    if (layout.damaged) {
        notices.push_back("parts of the Exif data are damaged and left out");
    }
    if (layout.too_large) {
        notices.push_back("the Exif data is too large, and parts of it are left out");
    }
    if (layout.moved_maker_note) {
        notices.push_back("the maker note in the Exif data was moved, and programs may no longer understand it");
    }
}

} // namespace

Bytes exif_in_tiff(TiffStructure &file, const Entries &first, Notices &notices) {
    if (find(first, tag_layers) != nullptr) {
        notices.push_back("the Photoshop layers are left out");
    }
    Entries described;
    std::copy_if(first.begin(), first.end(), std::back_inserter(described),
                 [](const Entry &entry) { return !is_among(storage_tags, entry.tag); });
    const bool says_something = std::any_of(described.begin(), described.end(), [&file](const Entry &entry) {
        const bool is_turned = entry.tag == tag::orientation && file.number(entry.position, 2) != upright;
        return is_turned || !is_among(usual_tags, entry.tag);
    });
    if (!says_something) {
        return {};
    }
    ExifLayout layout = lay_out_exif(file, described);
    tell(layout, notices);
    return std::move(layout.block);
}

Bytes exif_for_tiff(const Bytes &exif, Notices &notices) {
    if (exif.empty()) {
        return {};
    }
    MemoryInput input(exif);
    std::optional<TiffStructure> structure = TiffStructure::of(input);
    const auto first = structure && !structure->large() ? structure->directory(structure->first()) : std::nullopt;
    if (!first) {
        notices.push_back("the Exif data is damaged and left out");
        return {};
    }
    if (structure->behind(structure->first()) != 0) {
        notices.push_back("a TIFF file cannot hold the thumbnail in the Exif data, which is left out");
    }
    ExifLayout layout = lay_out_exif(*structure, first->entries);
    layout.damaged |= !first->whole;
    if (!layout.damaged) {
        return exif;
    }
    tell(layout, notices);
    return std::move(layout.block);
}

void put_exif(TIFF *tiff, std::span<const uint8_t> exif, bool has_density, const TiffReports &reports, Notices &notices) {
    MemoryInput input(exif);
    std::optional<TiffStructure> structure = TiffStructure::of(input);
    const auto first = structure ? structure->directory(structure->first()) : std::nullopt;
    if (!first) {
        return;
    }
    Putter putter(tiff, *structure, reports, notices);
    if (!has_density) {
        putter.put_resolution(first->entries);
    }
    for (const Entry &entry : first->entries) {
        if (!is_among(storage_tags, entry.tag) && !is_among(usual_tags, entry.tag)) {
            putter.put(entry);
        }
    }
}

} // namespace codec
