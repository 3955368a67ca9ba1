// The program over files of all formats, as users have them.
#include <filesystem>

#include "cmyk_profile.h"
#include "codec_files.h"
#include "exif_files.h"
#include "heif_stored.h"
#include "host.h"
#include "tiff_directories.h"
#include "tiff_files.h"
#include "webp_files.h"

namespace {

using namespace ko_test;

Outcome enhance(const Words &inputs, const std::string &output, Words options = {}) {
    options.push_back("--force");
    return run_command("enhance", inputs, output, options);
}

TiffRecipe tiff_recipe() { return {.width = 96, .height = 80}; }
WebpRecipe webp_recipe() { return {.width = 96, .height = 80}; }

class HostFormats : public Host {
  protected:
    // What the program makes of the same pixels in a PNG file.
    Pixels enhanced_png() const {
        const std::string name = put("reference/in.png", dark_png());
        expect_success(enhance({name}, path("reference/out.png")));
        const Pixels pixels = png_pixels(read_bytes(path("reference/out.png")));
        EXPECT_NE(pixels, png_pixels(dark_png()));
        std::filesystem::remove_all(path("reference"));
        return pixels;
    }
};

std::string written(const std::string &path) {
    std::string file = read_bytes(path);
    EXPECT_NE(file, "") << path;
    return file;
}

TEST_F(HostFormats, TiffIsEnhancedLikeOthers) {
    const std::string name = put("in.tif", tiff_file(tiff_recipe(), dark));
    expect_success(enhance({name}, path("out.tif")));
    EXPECT_EQ(tiff_pixels(written(path("out.tif"))), enhanced_png());
    EXPECT_EQ(tiff_number(written(path("out.tif")), TIFFTAG_COMPRESSION), COMPRESSION_NONE);
}

TEST_F(HostFormats, WebpIsEnhancedLikeOthers) {
    const std::string name = put("in.webp", webp_file(webp_recipe(), dark));
    expect_success(enhance({name}, path("out.webp")));
    EXPECT_EQ(webp_pixels(written(path("out.webp")), false), enhanced_png()) << "lossless like the input";
}

TEST_F(HostFormats, EachBecomesEveryOther) {
    const Words inputs = {put("a.tif", tiff_file(tiff_recipe(), dark)), put("b.webp", webp_file(webp_recipe(), dark)),
                          put("c.png", dark_png())};
    for (const std::string &input : inputs) {
        for (const auto &[extension, format] :
             {std::pair("png", codec::Format::png), std::pair("jpeg", codec::Format::jpeg),
              std::pair("TIFF", codec::Format::tiff), std::pair("webp", codec::Format::webp)}) {
            const std::string output = path(std::string("out.") + extension);
            expect_success(enhance({input}, output));
            EXPECT_EQ(codec::recognise(bytes_of(written(output))), format) << input << " to " << output;
        }
        EXPECT_EQ(png_pixels(written(path("out.png"))), enhanced_png()) << input;
        EXPECT_EQ(tiff_pixels(written(path("out.TIFF"))), enhanced_png()) << input;
    }
}

TEST_F(HostFormats, QualityIsForWebpToo) {
    const std::string name = put("in.webp", webp_file(webp_recipe(), dark));
    expect_success(enhance({name}, path("low.webp"), {"--quality", "20"}));
    expect_success(enhance({name}, path("high.webp"), {"--quality", "95"}));
    EXPECT_LT(written(path("low.webp")).size(), written(path("high.webp")).size());
    EXPECT_NE(webp_chunk_data(written(path("low.webp")), "VP8 "), "");
}

TEST_F(HostFormats, APictureThatStaysIsCopied) {
    const auto plain = [](uint32_t, uint32_t, uint32_t) { return 200u; };
    const std::string tiff =
        tiff_file({.width = 96, .height = 80, .bits = 16, .tile = 16}, [](uint32_t, uint32_t, uint32_t) { return 50000u; });
    const std::string webp = webp_file(webp_recipe(), plain);
    const Words inputs = {put("a.tif", tiff), put("b.webp", webp)};
    expect_success(run_command("enhance", inputs, path("out")));
    EXPECT_EQ(read_bytes(path("out/a.tif")), tiff) << "16 bits and tiles";
    EXPECT_EQ(read_bytes(path("out/b.webp")), webp);
}

TEST_F(HostFormats, ATiffFileMayBeWrittenOverItself) {
    const std::string name = put("in.tif", tiff_file(tiff_recipe(), dark));
    expect_success(enhance({name}, "", {"--in-place"}));
    EXPECT_EQ(tiff_pixels(written(name)), enhanced_png());
    EXPECT_EQ(left(), std::set<std::string>{"in.tif"});
}

TEST_F(HostFormats, OrientationIsCarried) {
    TiffRecipe recipe = tiff_recipe();
    recipe.orientation = 6;
    const std::string name = put("in.tif", tiff_file(recipe, dark));
    expect_success(enhance({name}, path("out.tif")));
    EXPECT_EQ(tiff_number(written(path("out.tif")), TIFFTAG_ORIENTATION), 6u);
    expect_success(enhance({name}, path("out.webp")));
    const std::string exif = webp_chunk_data(written(path("out.webp")), "EXIF");
    const std::string entry = exif.starts_with("II") ? std::string("\x12\x01\x03\0\x01\0\0\0\x06\0", 10)
                                                     : std::string("\x01\x12\0\x03\0\0\0\x01\0\x06", 10);
    EXPECT_NE(exif.find(entry), std::string::npos) << "tag 0x112, one short number, 6";
}

const std::string mark = "ko 0.1.0 (shadows opened)";

// What a picture's metadata may say about it, and about who wrote it.
TiffTree described(const std::string &software) {
    TiffTree tree = {.first = {tiff_text(271, "Camera works"), tiff_shorts(274, {6}), tiff_text(33432, "(c) Jo")},
                     .exif = {tiff_fraction(33434, 1, 250),
                              tiff_text(36867, "2021:05:04 03:02:01"),
                              {.tag = 37500, .type = 7, .bytes = std::string(300, 'n'), .at = 1000}},
                     .gps = {tiff_text(1, "N"), {.tag = 2, .type = 5, .numbers = {52, 1, 31, 1, 1234, 100}}},
                     .interoperability = {tiff_text(1, "R98")}};
    if (!software.empty()) {
        tree.first.push_back(tiff_text(305, software));
    }
    return tree;
}

// Its values must be present in a file or a block.
void expect_described(const std::string &file, const std::string &software) {
    const TiffTree tree = described(software);
    const TiffFoundTree found = tiff_tree(file);
    expect_values(found.first, tree.first);
    expect_values(found.exif, tree.exif);
    expect_values(found.gps, tree.gps);
    expect_values(found.interoperability, tree.interoperability);
    EXPECT_EQ(found.exif.at(37500).at, 1000u) << "the maker note is where it was";
}

std::string exif_of_jpeg(const std::string &jpeg) {
    const std::string begin("Exif\0\0", 6);
    const std::string segment = jpeg_segment(jpeg, 0xe1, begin);
    return segment.empty() ? "" : segment.substr(begin.size());
}

// The name of the software in a TIFF file or a block, "" without one.
std::string software_in(const std::string &file) {
    const TiffFoundValues values = tiff_tree(file).first;
    return values.contains(305) ? values.at(305).bytes.substr(0, values.at(305).bytes.size() - 1) : "";
}

TEST_F(HostFormats, AJpegFileKeepsWhatItSaysThroughATiffFile) {
    const std::string xmp = "<?xpacket begin=''?><x:xmpmeta xmlns:x='adobe:ns:meta/'/><?xpacket end='w'?>";
    const std::string xmp_mark("http://ns.adobe.com/xap/1.0/\0", 29);
    const std::string iptc = std::string("\x1c\x02\x78\0\7", 5) + "Caption";
    const std::string resources = "8BIM\4\4" + std::string("\0\0\0\0\0\x0c", 6) + iptc;
    const std::string resources_mark("Photoshop 3.0\0", 14);
    const std::vector<Segment> segments = {{0xe1, std::string("Exif\0\0", 6) + exif_of_tree(described("Firmware"), false)},
                                           {0xe1, xmp_mark + xmp},
                                           {0xed, resources_mark + resources}};
    put("in.jpg", dark_jpeg({.segments = segments}));
    expect_success(enhance({path("in.jpg")}, path("out.tif")));
    const std::string tiff = written(path("out.tif"));
    expect_described(tiff, "Firmware; " + mark);
    EXPECT_EQ(tiff_bytes(tiff, TIFFTAG_XMLPACKET), xmp);
    EXPECT_EQ(tiff_tree(tiff).first.at(33723).bytes, iptc);
    EXPECT_EQ(tiff_bytes(tiff, TIFFTAG_PHOTOSHOP), resources);
    for (const Words &options : {Words{}, Words{"--again"}}) { // as it is, and enhanced a second time
        expect_success(enhance({path("out.tif")}, path("back.jpg"), options));
        const std::string jpeg = written(path("back.jpg"));
        expect_described(exif_of_jpeg(jpeg), "Firmware; " + mark);
        EXPECT_EQ(jpeg_segment(jpeg, 0xe1, xmp_mark), xmp_mark + xmp);
        EXPECT_EQ(jpeg_segment(jpeg, 0xed), resources_mark + resources);
    }
}

TEST_F(HostFormats, AJpegFileKeepsItsXmpInAWebpFile) {
    const std::string xmp = "<?xpacket begin=''?><x:xmpmeta xmlns:x='adobe:ns:meta/'/><?xpacket end='w'?>";
    put("in.jpg", dark_jpeg({.segments = {{0xe1, std::string("http://ns.adobe.com/xap/1.0/\0", 29) + xmp}}}));
    expect_success(enhance({path("in.jpg")}, path("out.webp")));
    EXPECT_EQ(webp_chunk_data(written(path("out.webp")), "XMP "), xmp);
}

void expect_left_alone(const Outcome &outcome) {
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(matches(outcome.out, ", left as it is: ko 0\\.1\\.0 has already opened its shadows, " + time_shown))
        << outcome.out;
}

TEST_F(HostFormats, ATiffFileIsMarkedOnce) {
    put("plain.tif", tiff_file(tiff_recipe(), dark));
    put("named.tif", tiff_of_tree(described("Firmware 1.2"), {.form = {false, false}, .width = 96, .height = 80}));
    for (const auto &[name, software] : {std::pair("plain.tif", mark), std::pair("named.tif", "Firmware 1.2; " + mark)}) {
        expect_success(enhance({path(name)}, path("first.tif")));
        const std::string first = written(path("first.tif"));
        EXPECT_EQ(software_in(first), software);
        expect_left_alone(enhance({path("first.tif")}, path("second.tif")));
        EXPECT_EQ(written(path("second.tif")), first);
        expect_success(enhance({path("first.tif")}, path("again.tif"), {"--again"}));
        const std::string again = written(path("again.tif"));
        EXPECT_NE(tiff_pixels(again), tiff_pixels(first));
        EXPECT_EQ(software_in(again), software) << "one mark";
    }
    expect_described(written(path("again.tif")), "Firmware 1.2; " + mark);
}

TEST_F(HostFormats, AWebpFileIsMarkedOnce) {
    WebpRecipe named = webp_recipe();
    named.chunks = {{"EXIF", exif_of_tree(described("Firmware 1.2"))}};
    put("plain.webp", webp_file(webp_recipe(), dark));
    put("named.webp", webp_file(named, dark));
    for (const auto &[name, software] : {std::pair("plain.webp", mark), std::pair("named.webp", "Firmware 1.2; " + mark)}) {
        expect_success(enhance({path(name)}, path("first.webp")));
        const std::string first = written(path("first.webp"));
        EXPECT_EQ(exif_software(webp_chunk_data(first, "EXIF")), software);
        expect_left_alone(enhance({path("first.webp")}, path("second.webp")));
        EXPECT_EQ(written(path("second.webp")), first);
        expect_success(enhance({path("first.webp")}, path("again.webp"), {"--again"}));
        const std::string again = written(path("again.webp"));
        EXPECT_NE(webp_pixels(again, false), webp_pixels(first, false));
        EXPECT_EQ(exif_software(webp_chunk_data(again, "EXIF")), software) << "one mark";
    }
    expect_described(webp_chunk_data(written(path("again.webp")), "EXIF"), "Firmware 1.2; " + mark);
}

// From one format into another, in which the mark has another place.
TEST_F(HostFormats, AMarkGoesFromFormatToFormat) {
    put("in.png", dark_png());
    expect_success(enhance({path("in.png")}, path("a.tif")));
    EXPECT_EQ(software_in(written(path("a.tif"))), mark);
    expect_left_alone(enhance({path("a.tif")}, path("b.webp")));
    EXPECT_EQ(exif_software(webp_chunk_data(written(path("b.webp")), "EXIF")), mark);
    expect_left_alone(enhance({path("b.webp")}, path("c.jpg")));
    EXPECT_EQ(exif_software(exif_of_jpeg(written(path("c.jpg")))), mark);
    expect_left_alone(enhance({path("c.jpg")}, path("d.tif")));
    EXPECT_EQ(software_in(written(path("d.tif"))), mark);
    expect_left_alone(enhance({path("d.tif")}, path("e.png")));
    expect_left_alone(enhance({path("e.png")}, path("f.tif")));
    EXPECT_EQ(software_in(written(path("f.tif"))), mark);
}

TEST_F(HostFormats, CmykBecomesSrgb) {
    JpegRecipe recipe{.colour = JpegColour::ycck, .segments = icc_segments(cmyk_profile())};
    const std::string name = put("in.jpg", dark_jpeg(recipe));
    const Outcome outcome = enhance({name}, path("out.jpg"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "ko: " + name + ": notice: CMYK converted to sRGB through its profile\n");
    EXPECT_EQ(jpeg_pixels(written(path("out.jpg"))).channels, 3u);
    EXPECT_EQ(jpeg_icc_profile(written(path("out.jpg"))), "");
}

TEST_F(HostFormats, DamagedFilesLeaveNothing) {
    const std::string tiff = put("a.tif", tiff_file(tiff_recipe(), dark).substr(0, 9000));
    const std::string whole = webp_file(webp_recipe(), dark);
    const std::string webp = put("b.webp", whole.substr(0, whole.size() / 2));
    const Outcome outcome = enhance({tiff, webp}, path("out"));
    EXPECT_EQ(outcome.status, 1);
    ASSERT_EQ(outcome.err_lines().size(), 2u) << outcome.err;
    EXPECT_TRUE(outcome.err_lines()[0].starts_with("ko: " + tiff + ": "));
    EXPECT_EQ(outcome.err_lines()[1], "ko: " + webp + ": truncated WebP file");
    EXPECT_EQ(left(), (std::set<std::string>{"a.tif", "b.webp", "out"}));
}

TEST_F(HostFormats, HeifCannotBeWritten) {
    const std::string name = put("in.png", dark_png());
    for (const char *extension : {"heic", "HEIF", "avif"}) {
        const std::string output = path(std::string("out.") + extension);
        expect_one_error(enhance({name}, output), name + ": cannot write " + output + ": HEIC and AVIF files are only read");
    }
    EXPECT_EQ(left(), std::set<std::string>{"in.png"});
}

TEST_F(HostFormats, OthersAreNamed) {
    const std::string name = put("in.gif", "GIF89a" + std::string(40, '\0'));
    expect_one_error(enhance({name}, path("out.png")), name + ": a GIF file, which cannot be read");
}

#ifdef KO_READS_HEIF

TEST_F(HostFormats, HeifBecomesJpegInAFolder) {
    const Words inputs = {put("a.heic", stored_heic()), put("b.AVIF", stored_avif())};
    expect_success(enhance(inputs, path("out")));
    for (const char *name : {"out/a.jpg", "out/b.jpg"}) {
        const std::string file = written(path(name));
        EXPECT_EQ(codec::recognise(bytes_of(file)), codec::Format::jpeg);
        EXPECT_EQ(jpeg_segment(file, 0xe1)[25], '\1') << "upright";
    }
    EXPECT_EQ(left(), (std::set<std::string>{"a.heic", "b.AVIF", "out", "out/a.jpg", "out/b.jpg"}));
}

TEST_F(HostFormats, HeifThatStaysBecomesJpegToo) {
    const std::string name = put("a.heic", stored_heic());
    expect_success(run_command("enhance", {name}, path("out") + "/", {"--policy", "conservative", "--score", "1"}));
    EXPECT_EQ(codec::recognise(bytes_of(written(path("out/a.jpg")))), codec::Format::jpeg);
}

TEST_F(HostFormats, HeifIsJpegUnlessTheNameSaysAnother) {
    const std::string name = put("a.avif", stored_avif());
    const Outcome outcome = enhance({name}, "-");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(codec::recognise(bytes_of(outcome.out)), codec::Format::jpeg);
    expect_success(enhance({name}, path("out.webp")));
    EXPECT_EQ(codec::recognise(bytes_of(written(path("out.webp")))), codec::Format::webp);
}

// Two pictures whose names differ only in their formats get the same name.
TEST_F(HostFormats, NoJpegReplacesAnother) {
    const Words inputs = {put("a.heic", stored_heic()), put("a.avif", stored_avif())};
    const Outcome outcome = enhance(inputs, path("out"));
    expect_wrong_usage(outcome, "cannot write " + path("out/a.jpg") + ": two inputs would become this file, " + inputs[0] +
                                    " and " + inputs[1]);
}

#endif

} // namespace
