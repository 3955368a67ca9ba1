// Where directories and values end up does not matter to a reader, but for the notes of cameras, which may point to places in
// the whole. They stay at their place wherever that can be.
#include "codec/tiff_exif.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>
#include <string>

#include "codec/exif.h"
#include "codec/left_out.h"

namespace codec {

namespace {

using Entry = TiffStructure::Entry;
using Directory = std::vector<Entry>;

constexpr uint32_t tag_interoperability = 40965;
constexpr uint32_t tag_maker_note = 37500;
constexpr uint32_t tag_layers = 37724;

// Tags by which a TIFF file says how it stores its pixels, and those of metadata that is read in another way.
constexpr auto storage_tags = std::to_array<uint32_t>(
    {254,   255,   256,        257,   258,   259,   262,   263,   264,   265,   266,   273,   277,   278,   279,   280,
     281,   284,   288,        289,   290,   291,   292,   293,   297,   300,   301,   317,   320,   321,   322,   323,
     324,   325,   326,        327,   328,   330,   332,   333,   334,   336,   337,   338,   339,   340,   341,   342,
     343,   345,   347,        351,   512,   513,   514,   515,   517,   518,   519,   520,   521,   529,   530,   531,
     532,   559,   700,        32995, 32996, 32997, 32998, 33723, 34377, 34675, 34016, 34017, 34018, 34019, 34020, 34021,
     34022, 34023, tag_layers, 34024, 34025, 34026, 34027, 34028, 34029, 34030, 50838, 50839});

// Tags that a TIFF file has even if nobody says anything of the picture.
constexpr auto usual_tags =
    std::to_array<uint32_t>({TIFFTAG_ORIENTATION, TIFFTAG_XRESOLUTION, TIFFTAG_YRESOLUTION, TIFFTAG_RESOLUTIONUNIT});

bool is_among(std::span<const uint32_t> tags, uint32_t tag) { return std::find(tags.begin(), tags.end(), tag) != tags.end(); }

// ---- out of a file

// Lays out a block anew: values and directories one behind the other, each directory behind what it points to.
class BlockBuilder {
  public:
    explicit BlockBuilder(TiffStructure &file) : file_(file) {}

    Bytes build(const Directory &first) {
        bytes_.resize(header_size);
        place_maker_note(first);
        const uint64_t directory = add_directory(first, first_pointers);
        Bytes header(2, static_cast<uint8_t>(file_.big_endian() ? 'M' : 'I'));
        add_number(header, 42, 2);
        add_number(header, directory, 4);
        std::copy(header.begin(), header.end(), bytes_.begin());
        return std::move(bytes_);
    }

    void tell(Notices &notices) const {
        if (too_large_) {
            notices.push_back("the Exif data is too large, and parts of it are left out");
        }
        if (moved_maker_note_) {
            notices.push_back("the maker note in the Exif data was moved, and programs may no longer understand it");
        }
    }

  private:
    static constexpr size_t header_size = 8;
    static constexpr size_t inline_size = 4;
    static constexpr size_t largest = size_t{1} << 20;

    // A place further behind would leave little room in the segment of a JPEG file.
    static constexpr size_t furthest_maker_note = size_t{1} << 15;

    static constexpr std::array<uint32_t, 2> first_pointers = {tag::exif_directory, tag::gps_directory};
    static constexpr std::array<uint32_t, 1> exif_pointers = {tag_interoperability};

    void add_number(Bytes &bytes, uint64_t value, size_t size) const {
        for (size_t i = 0; i < size; ++i) {
            bytes.push_back(static_cast<uint8_t>(value >> 8 * (file_.big_endian() ? size - 1 - i : i)));
        }
    }

    bool has_room(uint64_t size) const { return size <= largest - std::min(largest, bytes_.size()); }

    std::optional<Directory> directory_at(const Entry &pointer) {
        const auto position = pointer.size() == inline_size ? file_.number(pointer.position, inline_size) : std::nullopt;
        return position ? file_.directory(*position) : std::nullopt;
    }

    void place_maker_note(const Directory &first) {
        const Entry *pointer = find(first, tag::exif_directory);
        const auto directory = pointer != nullptr ? directory_at(*pointer) : std::nullopt;
        const Entry *note = directory ? find(*directory, tag_maker_note) : nullptr;
        if (note != nullptr && note->position >= header_size && note->position <= furthest_maker_note &&
            has_room(note->size())) {
            bytes_.resize(note->position);
            const Bytes value = file_.value(*note);
            bytes_.insert(bytes_.end(), value.begin(), value.end());
            maker_note_ = note->position;
        }
    }

    // Values and directories begin at even places.
    size_t add(const Bytes &bytes) {
        bytes_.resize(bytes_.size() + bytes_.size() % 2);
        const size_t position = bytes_.size();
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return position;
    }

    Bytes number_bytes(uint64_t value) const {
        Bytes bytes;
        add_number(bytes, value, inline_size);
        return bytes;
    }

    // What an entry holds at its end: a short value, or the place of a long one.
    Bytes value_or_place(const Entry &entry) {
        if (entry.tag == tag_maker_note && maker_note_ == entry.position) {
            return number_bytes(*maker_note_);
        }
        Bytes value = file_.value(entry);
        if (entry.size() > inline_size) {
            moved_maker_note_ |= entry.tag == tag_maker_note;
            return number_bytes(add(value));
        }
        value.resize(inline_size);
        return value;
    }

    // The directory that an entry points to, without pointers of its own but the one that Exif data has there.
    std::optional<Bytes> place_of_directory(const Entry &pointer) {
        const auto directory = directory_at(pointer);
        if (!directory) {
            return std::nullopt;
        }
        const bool is_exif = pointer.tag == tag::exif_directory;
        return number_bytes(
            add_directory(*directory, is_exif ? std::span<const uint32_t>(exif_pointers) : std::span<const uint32_t>()));
    }

    size_t add_directory(const Directory &directory, std::span<const uint32_t> pointers) {
        Bytes entries;
        uint64_t count = 0;
        for (const Entry &entry : directory) {
            if (!has_room(entry.size())) {
                too_large_ = true;
                continue;
            }
            const bool leads_on = is_among(pointers, entry.tag);
            if (const auto end = leads_on ? place_of_directory(entry) : value_or_place(entry)) {
                add_number(entries, entry.tag, 2);
                add_number(entries, static_cast<uint32_t>(entry.type), 2);
                add_number(entries, entry.count, 4);
                entries.insert(entries.end(), end->begin(), end->end());
                ++count;
            }
        }
        Bytes bytes;
        add_number(bytes, count, 2);
        bytes.insert(bytes.end(), entries.begin(), entries.end());
        add_number(bytes, 0, 4); // none follows
        return add(bytes);
    }

    TiffStructure &file_;
    Bytes bytes_;
    std::optional<uint64_t> maker_note_; // where it stands, if it stays
    bool moved_maker_note_ = false;
    bool too_large_ = false;
};

// ---- into a file

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

    // X and Y, each a quotient, and the unit in which they count.
    void put_resolution(const Directory &directory) {
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

    // The directory stands in the file where it stood in the block.
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
        static char name[] = "Exif"; // libtiff asks for one that may be changed
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

    bool put_numbers(const Entry &entry) {
        const bool is_quotient = entry.type == ValueType::rational || entry.type == ValueType::signed_rational;
        if (is_quotient || entry.type == ValueType::directory || entry.count == 0 || is_known(entry)) {
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

} // namespace

Bytes exif_in_tiff(TiffStructure &file, const Directory &first, Notices &notices) {
    if (find(first, tag_layers) != nullptr) {
        notices.push_back("the Photoshop layers are left out");
    }
    Directory described;
    std::copy_if(first.begin(), first.end(), std::back_inserter(described),
                 [](const Entry &entry) { return !is_among(storage_tags, entry.tag); });
    const bool says_something = std::any_of(described.begin(), described.end(), [&file](const Entry &entry) {
        const bool is_turned = entry.tag == tag::orientation && file.number(entry.position, 2) != upright;
        return is_turned || !is_among(usual_tags, entry.tag);
    });
    if (!says_something) {
        return {};
    }
    BlockBuilder builder(file);
    Bytes block = builder.build(described);
    builder.tell(notices);
    return block;
}

void put_exif(TIFF *tiff, std::span<const uint8_t> exif, bool has_density, const TiffReports &reports, Notices &notices) {
    MemoryInput input(exif);
    std::optional<ExifStructure> found = exif_structure(input);
    const auto first = found ? found->structure.directory(found->first) : std::nullopt;
    if (!first) {
        notices.push_back("the Exif data is damaged and left out");
        return;
    }
    Putter putter(tiff, found->structure, reports, notices);
    if (!has_density) {
        putter.put_resolution(*first);
    }
    for (const Entry &entry : *first) {
        if (!is_among(storage_tags, entry.tag) && !is_among(usual_tags, entry.tag)) {
            putter.put(entry);
        }
    }
    if (found->structure.behind(found->first) != 0) {
        notices.push_back("a TIFF file has no room for the thumbnail in the Exif data, which is left out");
    }
}

} // namespace codec
