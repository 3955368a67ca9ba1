// What is carried beside a picture through the codec: from each format to each, and what is reported about the rest.
#include <algorithm>

#include <gtest/gtest.h>

#include "codec_files.h"
#include "exif_files.h"
#include "image_files.h"
#include "pictures.h"

namespace {

using namespace ko_test;
using codec::Format;
using codec::Notices;
using codec::Picture;

// A file on its way through the codec, and everything that is reported about it.
struct Passage {
    std::string file;
    Notices notices;
    codec::Metadata metadata; // as it was read
};

Passage passed(const std::string &file, Format format) {
    Passage passage;
    const Picture picture = codec::decode(bytes_of(file), passage.notices);
    passage.metadata = picture.metadata;
    passage.file = text_of(codec::encode(picture, {format, std::nullopt}, passage.notices));
    return passage;
}

Notices notices_of(const std::string &file) {
    Notices notices;
    codec::decode(bytes_of(file), notices);
    return notices;
}

std::string jpeg_with(const std::vector<Segment> &segments) { return jpeg_file({.segments = segments}, soft); }

std::string png_with(const std::vector<Chunk> &before, const std::vector<Chunk> &after = {}) {
    return png_file({.before = before, .after = after}, soft);
}

std::string zero(const std::string &text) { return text + '\0'; }

const std::string exif_mark("Exif\0\0", 6);
const std::string xmp_mark = zero("http://ns.adobe.com/xap/1.0/");
const std::string photoshop_mark = zero("Photoshop 3.0");

// Image resource: number, content; names are empty.
std::string resource(int number, const std::string &content) {
    std::string text = "8BIM";
    text += static_cast<char>(number >> 8);
    text += static_cast<char>(number & 0xff);
    return text + std::string(2, '\0') + big_endian(static_cast<uint32_t>(content.size())) + content +
           std::string(content.size() % 2, '\0');
}

const std::string iptc = "\x1c\x02\x78" + std::string("\0\7", 2) + "Caption";
const std::string resources = resource(1005, "resolution") + resource(0x0404, iptc) + resource(1050, "odd");

// The chunks of a type.
std::vector<std::string> chunks_of(const std::string &png, const std::string &type) {
    std::vector<std::string> found;
    for (const auto &[name, data] : png_chunks(png)) {
        if (name == type) {
            found.push_back(data);
        }
    }
    return found;
}

// The application segments and comments, without the header that libjpeg writes.
std::vector<Segment> segments_of(const std::string &jpeg) {
    std::vector<Segment> segments = jpeg_segments(jpeg);
    std::erase_if(segments, [](const Segment &segment) {
        return !((segment.first >= 0xe0 && segment.first <= 0xef) || segment.first == 0xfe) ||
               segment.second.starts_with("JFIF");
    });
    return segments;
}

// ---- JPEG to JPEG

TEST(JpegToJpeg, CarriesEverySegment) {
    std::vector<Segment> segments = {{0xe1, exif_mark + exif_file({})},
                                     {0xe1, xmp_mark + "<x:xmpmeta/>"},
                                     {0xed, photoshop_mark + resources},
                                     {0xe0, "CIFF of a camera"}};
    for (int marker = 0xe3; marker <= 0xef; ++marker) {
        segments.emplace_back(marker, "Segment of a camera " + std::to_string(marker));
    }
    segments.emplace_back(0xe1, "FLIR");
    segments.emplace_back(0xe2, "FPXR");
    segments.emplace_back(0xfe, "A comment");
    segments.emplace_back(0xfe, "Another one");
    const Passage passage = passed(jpeg_with(segments), Format::jpeg);
    EXPECT_EQ(segments_of(passage.file), segments);
    EXPECT_EQ(passage.notices, Notices{});
    EXPECT_EQ(text_of(passage.metadata.iptc), iptc);
}

TEST(JpegToJpeg, ImageResourcesAreOneList) {
    const std::string large = resource(1036, std::string(100000, 'r'));
    const std::vector<Segment> segments = {{0xed, photoshop_mark + large.substr(0, 40000)},
                                           {0xed, "Adobe_CM"},
                                           {0xed, photoshop_mark + large.substr(40000, 50000)},
                                           {0xed, photoshop_mark + large.substr(90000) + resource(0x0404, iptc)}};
    const Passage passage = passed(jpeg_with(segments), Format::jpeg);
    std::string found;
    for (const auto &[marker, data] : segments_of(passage.file)) {
        found += data.starts_with(photoshop_mark) ? data.substr(photoshop_mark.size()) : "";
    }
    EXPECT_EQ(found, large + resource(0x0404, iptc));
    EXPECT_EQ(jpeg_segment(passage.file, 0xed, "Adobe"), "Adobe_CM");
    EXPECT_EQ(text_of(passage.metadata.iptc), iptc);
}

TEST(JpegToJpeg, LeavesOutWhatBelongsToTheOldFile) {
    const std::string jfif = std::string("JFIF\0\1\2\0\0\1\0\1\0\0", 14);
    const std::string box = std::string("JP\0\1\0\0\0\1", 8) + big_endian(100) + "jumb" + big_endian(50) + "jumdc2pa";
    const std::string rest_of_box = std::string("JP\0\1\0\0\0\2", 8) + big_endian(100) + "jumb and more";
    const std::string other_box = std::string("JP\0\2\0\0\0\1", 8) + big_endian(100) + "jumb of a globe";
    const Passage passage = passed(jpeg_with({{0xe0, jfif},
                                              {0xe0, std::string("JFXX\0\x10 thumbnail", 16)},
                                              {0xeb, box},
                                              {0xeb, rest_of_box},
                                              {0xeb, other_box},
                                              {0xee, std::string("Adobe\0\x64\0\0\0\0\1", 12)}}),
                                   Format::jpeg);
    EXPECT_EQ(segments_of(passage.file), (std::vector<Segment>{{0xeb, other_box}}));
    EXPECT_EQ(passage.notices, (Notices{"the thumbnail in the JFIF header is left out",
                                        "the content credentials (C2PA) are not valid for a changed file and are left out"}));
}

TEST(JpegToJpeg, AThumbnailInTheHeaderItselfIsNamed) {
    const std::string pixel = std::string("JFIF\0\1\2\0\0\1\0\1\1\1", 14) + "rgb";
    EXPECT_EQ(notices_of(jpeg_with({{0xe0, pixel}})), Notices{"the thumbnail in the JFIF header is left out"});
}

// ---- JPEG to PNG and back

TEST(JpegToPng, PutsEverythingWhereItBelongs) {
    const std::string exif = exif_file({});
    const Passage passage = passed(jpeg_with({{0xe1, exif_mark + exif},
                                              {0xe1, xmp_mark + "<x:xmpmeta/>"},
                                              {0xed, photoshop_mark + resources},
                                              {0xfe, "A comment"},
                                              {0xfe, "Gr\xc3\xb6\xc3\x9f"
                                                     "e"},
                                              {0xfe, "Gr\xf6\xdf"
                                                     "e"},
                                              {0xfe, zero("ended")}}),
                                   Format::png);
    EXPECT_EQ(passage.notices, Notices{});
    EXPECT_EQ(png_chunk_data(passage.file, "eXIf"), exif);
    EXPECT_EQ(chunks_of(passage.file, "iTXt"),
              (std::vector<std::string>{zero("XML:com.adobe.xmp") + std::string(4, '\0') + "<x:xmpmeta/>",
                                        zero("Comment") + std::string(4, '\0') +
                                            "Gr\xc3\xb6\xc3\x9f"
                                            "e"}));
    EXPECT_EQ(chunks_of(passage.file, "tEXt"), (std::vector<std::string>{zero("Comment") + "A comment",
                                                                         zero("Comment") + "Gr\xf6\xdf"
                                                                                           "e",
                                                                         zero("Comment") + "ended"}));
    const std::string profile = png_chunk_data(passage.file, "zTXt");
    const std::string keyword = zero("Raw profile type iptc") + '\0';
    ASSERT_TRUE(profile.starts_with(keyword));
    const std::string text = inflated(profile.substr(keyword.size()));
    EXPECT_TRUE(text.starts_with("\niptc\n      " + std::to_string(resources.size()) + "\n3842494d")) << text;
    const Passage back = passed(passage.file, Format::jpeg);
    EXPECT_EQ(back.notices, Notices{});
    EXPECT_EQ(jpeg_segment(back.file, 0xe1, "http"), xmp_mark + "<x:xmpmeta/>");
    EXPECT_EQ(jpeg_segment(back.file, 0xed), photoshop_mark + resources);
    EXPECT_EQ(text_of(back.metadata.iptc), iptc);
}

TEST(JpegToPng, NamesWhatHasNoPlace) {
    const Passage passage = passed(jpeg_with({{0xec, zero("Ducky") + "quality"},
                                              {0xec, zero("Ducky") + "again"},
                                              {0xe5, "\1\2"},
                                              {0xe1, exif_mark + exif_file({})},
                                              {0xe1, exif_mark + "the rest"},
                                              {0xfe, std::string("one\0two", 7)}}),
                                   Format::png);
    EXPECT_EQ(passage.notices, (Notices{"the comment is cut at a zero byte, which a PNG text cannot hold",
                                        "the JPEG segment APP12 'Ducky' is left out", "the JPEG segment APP5 is left out",
                                        "the JPEG segment APP1 'Exif' is left out"}));
    EXPECT_EQ(png_chunk_data(passage.file, "tEXt"), zero("Comment") + "one");
}

// ---- PNG

std::string itxt(const std::string &keyword, bool packed, const std::string &language, const std::string &translated,
                 const std::string &text) {
    return zero(keyword) + (packed ? '\1' : '\0') + '\0' + zero(language) + zero(translated) + (packed ? deflated(text) : text);
}

const std::vector<Chunk> all_texts = {{"tEXt", zero("Author") + "J\xfcrgen"},
                                      {"tEXt", zero("Author") + "Another"},
                                      {"zTXt", zero("Title") + '\0' + deflated(std::string(300, 't'))},
                                      {"iTXt", itxt("Description", false, "de", "Beschreibung",
                                                    "Gr\xc3\xb6\xc3\x9f"
                                                    "e")},
                                      {"iTXt", itxt("Copyright", true, "", "", std::string(300, 'c'))}};

TEST(PngToPng, CarriesEveryText) {
    for (const bool behind : {false, true}) {
        const Passage passage = passed(behind ? png_with({}, all_texts) : png_with(all_texts), Format::png);
        EXPECT_EQ(passage.notices, Notices{});
        std::vector<Chunk> texts = png_chunks(passage.file);
        std::erase_if(texts, [](const Chunk &chunk) { return !chunk.first.ends_with("TXt") && !chunk.first.ends_with("EXt"); });
        ASSERT_EQ(texts.size(), all_texts.size());
        for (size_t i = 0; i < texts.size(); ++i) {
            EXPECT_EQ(texts[i].first, all_texts[i].first);
            if (i == 2 || i == 4) {
                const size_t packed = i == 2 ? zero("Title").size() + 1 : zero("Copyright").size() + 4;
                EXPECT_EQ(inflated(texts[i].second.substr(packed)), std::string(300, i == 2 ? 't' : 'c'));
            } else {
                EXPECT_EQ(texts[i].second, all_texts[i].second);
            }
        }
    }
}

TEST(PngToPng, CarriesChunksThatDoNotDependOnThePixels) {
    const std::vector<Chunk> before = {{"cICP", std::string("\1\xd\0\1", 4)},
                                       {"bKGD", std::string("\0\1\0\2\0\3", 6)},
                                       {"oFFs", std::string(9, '\0')},
                                       {"sCAL", "\1" + zero("1.5") + "2"},
                                       {"prVt", "private"},
                                       {"tIME", std::string("\7\xe4\1\2\3\4\5", 7)}};
    const std::vector<Chunk> after = {{"prVt", "behind"}};
    const Passage passage = passed(png_with(before, after), Format::png);
    EXPECT_EQ(passage.notices, Notices{});
    std::vector<Chunk> expected = before;
    expected.insert(expected.begin(), {"IHDR", png_chunk_data(passage.file, "IHDR")});
    expected.emplace_back("IDAT", png_chunk_data(passage.file, "IDAT"));
    expected.insert(expected.end(), after.begin(), after.end());
    expected.emplace_back("IEND", "");
    EXPECT_EQ(png_chunks(passage.file), expected);
}

TEST(PngToPng, NamesChunksThatDo) {
    const std::string frame(26, '\0');
    const Passage passage = passed(png_with({{"acTL", std::string("\0\0\0\2\0\0\0\0", 8)},
                                             {"fcTL", frame},
                                             {"iDOT", "offsets"},
                                             {"prVT", "private"},
                                             {"caBX", "credentials"},
                                             {"sBIT", "\5\5\5"}},
                                            {{"fcTL", frame}, {"fdAT", "frame"}, {"prVT", "again"}}),
                                   Format::png);
    EXPECT_EQ(passage.notices,
              (Notices{"a PNG file with an animation: its further pictures are left out", "the PNG chunk 'prVT' is left out",
                       "the content credentials (C2PA) are not valid for a changed file and are left out"}));
    EXPECT_EQ(png_chunks(passage.file).size(), 3u);
}

TEST(PngToPng, ABackgroundGoesWithTheColoursThatItIsSaidIn) {
    const std::string file = png_file({.depth = 16, .before = {{"bKGD", std::string(6, '\1')}}}, soft);
    EXPECT_EQ(notices_of(file), (Notices{"the PNG chunk 'bKGD' is left out", "16 bits per channel reduced to 8"}));
}

TEST(PngToPng, AnUnknownCriticalChunkIsAnError) { EXPECT_THROW(notices_of(png_with({{"CrIT", "?"}})), codec::Error); }

TEST(PngToJpeg, TakesCommentsAndNamesTheRest) {
    std::vector<Chunk> chunks = all_texts;
    chunks.insert(chunks.end(), {{"tEXt", zero("Comment") + "Gr\xf6\xdf"
                                                            "e"},
                                 {"iTXt", itxt("Comment", false, "", "",
                                               "Gr\xc3\xb6\xc3\x9f"
                                               "e")},
                                 {"tIME", std::string("\7\xe4\1\2\3\4\5", 7)},
                                 {"iTXt", itxt("XML:com.adobe.xmp", true, "", "", "<x:xmpmeta/>")}});
    const Passage passage = passed(png_with(chunks), Format::jpeg);
    EXPECT_EQ(segments_of(passage.file), (std::vector<Segment>{{0xe1, xmp_mark + "<x:xmpmeta/>"},
                                                               {0xfe, "Gr\xc3\xb6\xc3\x9f"
                                                                      "e"},
                                                               {0xfe, "Gr\xc3\xb6\xc3\x9f"
                                                                      "e"}}));
    EXPECT_EQ(passage.notices, (Notices{"the PNG text 'Author' is left out", "the PNG text 'Title' is left out",
                                        "the PNG text 'Description' is left out", "the PNG text 'Copyright' is left out",
                                        "the PNG chunk 'tIME' is left out"}));
}

TEST(PngToJpeg, ALongCommentIsSpreadOverSegments) {
    const std::string comment(70000, 'c');
    const Passage passage = passed(png_with({{"tEXt", zero("Comment") + comment}}), Format::jpeg);
    EXPECT_EQ(segments_of(passage.file),
              (std::vector<Segment>{{0xfe, comment.substr(0, 65533)}, {0xfe, comment.substr(65533)}}));
}

std::string hexadecimal(const std::string &bytes) {
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        constexpr std::string_view digits = "0123456789abcdef";
        const auto byte = static_cast<uint8_t>(bytes[i]);
        text += i % 36 == 0 ? "\n" : "";
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text + "\n";
}

// A text as common programs write blocks.
Chunk raw_profile(const std::string &kind, const std::string &bytes) {
    const std::string text = "\n" + kind + "\n    " + std::to_string(bytes.size()) + hexadecimal(bytes);
    return {"zTXt", zero("Raw profile type " + kind) + '\0' + deflated(text)};
}

TEST(RawProfile, OfEveryKindGoesWhereItBelongs) {
    const std::string exif = exif_file({});
    const std::string icc = icc_profile("RGB ", 500);
    const codec::Metadata metadata = passed(png_with({raw_profile("exif", exif_mark + exif), raw_profile("xmp", "<x:xmpmeta/>"),
                                                      raw_profile("icc", icc), raw_profile("8bim", resources)}),
                                            Format::jpeg)
                                         .metadata;
    EXPECT_EQ(text_of(metadata.exif), exif);
    EXPECT_EQ(text_of(metadata.xmp), "<x:xmpmeta/>");
    EXPECT_EQ(text_of(metadata.icc_profile), icc);
    EXPECT_EQ(text_of(metadata.photoshop), resources);
    EXPECT_EQ(text_of(metadata.iptc), iptc);
    EXPECT_TRUE(metadata.png_texts.empty());
    EXPECT_EQ(text_of(passed(png_with({raw_profile("APP1", xmp_mark + "<x/>")}), Format::png).metadata.xmp), "<x/>");
    EXPECT_EQ(text_of(passed(png_with({raw_profile("APP1", exif_mark + exif)}), Format::png).metadata.exif), exif);
}

TEST(RawProfile, OfRecordsAloneIsWrappedForJpeg) {
    const Passage passage = passed(png_with({raw_profile("iptc", iptc)}), Format::jpeg);
    EXPECT_EQ(text_of(passage.metadata.iptc), iptc);
    EXPECT_EQ(jpeg_segment(passage.file, 0xed), photoshop_mark + resource(0x0404, iptc));
    EXPECT_EQ(passage.notices, Notices{});
}

TEST(RawProfile, ThatIsDamagedOrSecondStaysAText) {
    const std::string exif = exif_file({});
    for (const std::string text : {"", "\n", "\nexif\n", "\nexif\n  4\n4578", "\nexif\n  x\n45", "exif\n  2\n4578",
                                   "\nexif\n 1\n4g", "\nexif\n  2\n45786", "\nexif\n  2\n4578"}) {
        const Passage passage = passed(png_with({{"tEXt", zero("Raw profile type exif") + text}}), Format::png);
        EXPECT_EQ(passage.metadata.png_texts.size(), 1u) << text;
        EXPECT_EQ(png_chunk_data(passage.file, "tEXt"), zero("Raw profile type exif") + text);
    }
    const Passage passage = passed(png_with({{"eXIf", exif}, raw_profile("exif", exif_mark + "MM and another")}), Format::png);
    EXPECT_EQ(text_of(passage.metadata.exif), exif);
    EXPECT_EQ(passage.metadata.png_texts.size(), 1u);
}

// ---- XMP

const std::string id(32, 'A');

std::string packet(const std::string &attributes, const std::string &content = "") {
    return "<?xpacket begin=''?><x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF "
           "xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>"
           "<rdf:Description rdf:about=''" +
           attributes + "/>" + content + "</rdf:RDF></x:xmpmeta><?xpacket end='w'?>";
}

const std::string rest_content = "<rdf:Description xmlns:a='b' a:c='d'/>";
const std::string rest =
    "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>" + rest_content +
    "</rdf:RDF></x:xmpmeta>";
const std::string reference = " xmpNote:HasExtendedXMP=\"" + id + "\"";

Segment piece(const std::string &of, size_t offset, size_t size) {
    return {0xe1, zero("http://ns.adobe.com/xmp/extension/") + id + big_endian(static_cast<uint32_t>(of.size())) +
                      big_endian(static_cast<uint32_t>(offset)) + of.substr(offset, size)};
}

std::string xmp_of_png(const std::string &png) {
    for (const std::string &text : chunks_of(png, "iTXt")) {
        const std::string begin = zero("XML:com.adobe.xmp") + std::string(4, '\0');
        if (text.starts_with(begin)) {
            return text.substr(begin.size());
        }
    }
    return "";
}

TEST(ExtendedXmp, IsOnePacketInOtherFormats) {
    const std::vector<Segment> segments = {{0xe1, xmp_mark + packet(reference)}, piece(rest, 50, 1000), piece(rest, 0, 50)};
    const Passage passage = passed(jpeg_with(segments), Format::png);
    EXPECT_EQ(xmp_of_png(passage.file), packet(" ", rest_content));
    EXPECT_EQ(passage.notices, Notices{});
    EXPECT_EQ(segments_of(passed(jpeg_with(segments), Format::jpeg).file), segments) << "JPEG carries it as it is";
}

TEST(ExtendedXmp, ThatIsNotWholeOrCannotBeJoinedIsNamed) {
    const std::string other_names = "<x:xmpmeta xmlns:x='x' xmlns:q='y'><rdf:RDF xmlns:rdf='r'><q:z/></rdf:RDF></x:xmpmeta>";
    const std::vector<std::vector<Segment>> cases = {
        {{0xe1, xmp_mark + packet(reference)}, piece(rest, 0, 50)},
        {{0xe1, xmp_mark + packet(reference)}, piece(rest, 50, 1000)},
        {{0xe1, xmp_mark + packet("")}, piece(rest, 0, 1000)},
        {{0xe1, xmp_mark + packet(" xmpNote:HasExtendedXMP='B'")}, piece(rest, 0, 1000)},
        {{0xe1, xmp_mark + packet(reference)}, piece(other_names, 0, 1000)},
        {{0xe1, xmp_mark + packet(reference)}, piece("no RDF", 0, 1000)},
        {{0xe1, xmp_mark + reference}, piece(rest, 0, 1000)}};
    for (const std::vector<Segment> &segments : cases) {
        const Passage passage = passed(jpeg_with(segments), Format::png);
        EXPECT_EQ(passage.notices, Notices{"the extended XMP data is left out"});
        EXPECT_EQ(xmp_mark + xmp_of_png(passage.file), segments[0].second);
    }
}

TEST(Xmp, IsCutToFitAJpegFileWhereItHasRoomForEditors) {
    const auto jpeg = [](const std::string &xmp) {
        return passed(png_with({{"iTXt", itxt("XML:com.adobe.xmp", true, "", "", xmp)}}), Format::jpeg);
    };
    const std::string content(65000, 'x');
    const std::string end = "<?xpacket end='w'?>";
    EXPECT_EQ(jpeg_segment(jpeg(content + std::string(100, ' ') + end).file, 0xe1),
              xmp_mark + content + std::string(100, ' ') + end);
    const Passage cut = jpeg(content + std::string(1000, ' ') + end);
    EXPECT_EQ(jpeg_segment(cut.file, 0xe1), xmp_mark + content + end);
    EXPECT_EQ(cut.notices, Notices{});
    const Passage large = jpeg(content + content + end);
    EXPECT_EQ(jpeg_segment(large.file, 0xe1), "");
    EXPECT_EQ(large.notices, Notices{"the XMP data is too large for a JPEG file and left out"});
}

// ---- files with more than a picture

// The table of a file with several pictures of the given kinds, the first of which is the picture itself.
std::string multi_picture_table(const std::vector<uint32_t> &kinds) {
    const auto count = static_cast<uint32_t>(kinds.size());
    const auto entry = [](uint32_t tag, uint32_t type, uint32_t number, uint32_t value) {
        return big_endian(tag << 16 | type) + big_endian(number) + big_endian(value);
    };
    std::string table = zero("MPF") + "MM" + std::string("\0*\0\0\0\x08\0\2", 8) + entry(0xb001, 4, 1, count) +
                        entry(0xb002, 7, 16 * count, 38) + big_endian(0);
    for (const uint32_t kind : kinds) {
        table += big_endian(kind) + std::string(12, '\0');
    }
    return table;
}

std::string with_table(const std::vector<uint32_t> &kinds, std::vector<Segment> more = {}) {
    more.emplace_back(0xe2, multi_picture_table(kinds));
    return jpeg_with(more);
}

TEST(MorePictures, AreNamed) {
    const std::string other = jpeg_with({});
    const std::string gain_map = jpeg_with({{0xe1, xmp_mark + "xmlns:hdrgm='http://ns.adobe.com/hdr-gain-map/1.0/'"}});
    const std::string video = std::string("\0\0\0\x18", 4) + "ftypmp42" + std::string(100, 'v');
    const Segment gain_map_xmp = {0xe1, xmp_mark + "Item:Semantic='GainMap'"};
    const Segment video_xmp = {0xe1, xmp_mark + "GCamera:MotionPhoto='1'"};
    const std::vector<std::pair<std::string, Notices>> cases = {
        {jpeg_with({}), {}},
        {jpeg_with({}) + std::string(4000, '\0'), {}},
        {with_table({0x030000, 0}), {}},
        {jpeg_with({gain_map_xmp}), {}},
        {jpeg_with({}) + "trailer", {"7 bytes behind the picture are left out"}},
        {jpeg_with({}) + std::string(100000, '\1'), {"100000 bytes behind the picture are left out"}},
        {jpeg_with({}) + other, {"a further picture in the file is left out"}},
        {with_table({0x030000, 0x020002}) + other, {"a further picture in the file is left out"}},
        {with_table({0x030000, 0x020002, 0x020002}) + other + other, {"2 further pictures in the file are left out"}},
        {with_table({0x030000, 0x010001}) + other, {"a large preview is left out"}},
        {with_table({0x030000, 0x010001, 0x010002, 0}) + other,
         {"2 large previews are left out", "a further picture in the file is left out"}},
        {with_table({0x030000, 0}) + gain_map, {"a gain map is left out"}},
        {with_table({0x030000, 0}, {gain_map_xmp}) + gain_map, {"a gain map is left out, which the XMP data still describes"}},
        {jpeg_with({{0xe2, zero("urn:iso:std:iso:ts:21496:-1") + "version"}}) + other, {"a gain map is left out"}},
        {jpeg_with({}) + video, {"a video behind the picture is left out"}},
        {jpeg_with({video_xmp}) + video, {"a video behind the picture is left out, which the XMP data still describes"}},
        {jpeg_with({}) + std::string("\0\0\x30\x0a\x10\0\0\0MotionPhoto_Data", 24) + video,
         {"a video behind the picture is left out"}},
    };
    for (const auto &[file, notices] : cases) {
        EXPECT_EQ(notices_of(file), notices);
        EXPECT_EQ(jpeg_segment(passed(file, Format::jpeg).file, 0xe2), "") << "a table of offsets into the old file";
    }
}

TEST(MorePictures, ADamagedTableNamesNothingOfItsOwn) {
    const std::string table = multi_picture_table({0x030000, 0x020002, 0x020002});
    for (size_t i = 4; i < table.size(); ++i) {
        for (const int mask : {0x01, 0x80, 0xff}) {
            std::string damaged = table;
            damaged[i] = static_cast<char>(damaged[i] ^ mask);
            EXPECT_EQ(notices_of(jpeg_with({{0xe2, damaged}}) + "trailer").size(), 1u);
        }
        EXPECT_EQ(notices_of(jpeg_with({{0xe2, table.substr(0, i)}}) + "trailer").size(), 1u);
    }
}

TEST(ImageResources, ThatAreDamagedAreCarriedAsTheyAre) {
    const std::string twice = resources + resource(0x0404, "second");
    for (size_t size = 1; size < twice.size(); ++size) {
        const Passage passage = passed(jpeg_with({{0xed, photoshop_mark + twice.substr(0, size)}}), Format::jpeg);
        EXPECT_EQ(jpeg_segment(passage.file, 0xed), photoshop_mark + twice.substr(0, size));
        EXPECT_TRUE(passage.metadata.iptc.empty() || text_of(passage.metadata.iptc) == iptc);
    }
}

// ---- reading

TEST(Metadata, IsKnownBeforeThePixels) {
    for (const std::string &file : {png_with({{"tEXt", zero("Comment") + "here"}}, {{"tEXt", zero("Comment") + "behind"}}),
                                    jpeg_file({.progressive = true, .segments = {{0xfe, "here"}}}, soft)}) {
        codec::MemoryInput input(bytes_of(file));
        const auto reader = codec::open(input);
        const codec::Metadata &metadata = reader->description().metadata;
        EXPECT_EQ(metadata.comments.empty() ? metadata.png_texts.at(0).text : metadata.comments.at(0), "here");
        EXPECT_LE(metadata.png_texts.size(), 1u);
    }
}

} // namespace
