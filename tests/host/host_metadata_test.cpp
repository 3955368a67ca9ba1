// The trace that results carry of what was done to them, seen from the outside: marks, thumbnails, times and permissions; and
// that nothing of a picture's metadata is lost on the way.
#include <filesystem>

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "exif_files.h"
#include "host.h"
#include "judged_pictures.h"
#include "red_eye_pictures.h"

namespace {

using namespace ko_test;
namespace fs = std::filesystem;

const std::string exif_mark("Exif\0\0", 6);
const std::string mark = "ko 0.1.0 (shadows opened)";

class HostMetadata : public Host {
  protected:
    Outcome enhance(const Words &inputs, const std::string &output, Words options = {"--force"}) const {
        return run_command("enhance", inputs, output, options);
    }

    // The result of a picture of its own, without a notice.
    std::string enhanced(const std::string &name, const std::string &file, const std::string &result) const {
        expect_success(enhance({put(name, file)}, path(result)));
        return read_bytes(path(result));
    }
};

// The Exif data of a JPEG file.
std::string exif_of(const std::string &jpeg) {
    const std::string segment = jpeg_segment(jpeg, 0xe1, exif_mark);
    return segment.empty() ? "" : segment.substr(exif_mark.size());
}

Segment exif_segment(const ExifRecipe &recipe) { return {0xe1, exif_mark + exif_file(recipe)}; }

std::string text_chunk(const std::string &keyword, const std::string &text) { return keyword + '\0' + text; }

void expect_left_alone(const Outcome &outcome, const std::string &done = "opened its shadows") {
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(matches(outcome.out, ", left as it is: ko 0\\.1\\.0 has already " + done + ", " + time_shown)) << outcome.out;
}

double mean(const Pixels &pixels) {
    double sum = 0;
    for (const uint8_t level : pixels.bytes) {
        sum += level;
    }
    return sum / static_cast<double>(pixels.bytes.size());
}

// ---- marks

TEST_F(HostMetadata, AJpegFileIsMarkedInItsExifData) {
    EXPECT_EQ(exif_software(exif_of(enhanced("plain.jpg", dark_jpeg(), "a.jpg"))), mark);
    const std::string with_name = dark_jpeg({.segments = {exif_segment({.software = "Firmware 1.2"})}});
    EXPECT_EQ(exif_software(exif_of(enhanced("named.jpg", with_name, "b.jpg"))), "Firmware 1.2; " + mark);
}

TEST_F(HostMetadata, APngFileIsMarkedInAText) {
    const std::string exif = exif_file({.software = "Firmware 1.2"});
    const std::string plain = enhanced("plain.png", dark_png(png_rgb, {{"eXIf", exif}}), "a.png");
    EXPECT_EQ(png_chunk_data(plain, "tEXt"), text_chunk("Software", mark));
    EXPECT_EQ(png_chunk_data(plain, "eXIf"), exif);
    const std::string named = enhanced("named.png", dark_png(png_rgb, {{"tEXt", text_chunk("Software", "Draw 2")}}), "b.png");
    EXPECT_EQ(png_chunk_data(named, "tEXt"), text_chunk("Software", "Draw 2; " + mark));
}

TEST_F(HostMetadata, AMarkedPictureIsLeftAlone) {
    put("a.jpg", dark_jpeg({.progressive = true}));
    put("b.png", dark_png());
    expect_success(enhance({path("a.jpg"), path("b.png")}, path("first")));
    for (const std::string name : {"a.jpg", "b.png"}) {
        const std::string first = read_bytes(path("first/" + name));
        expect_left_alone(enhance({path("first/" + name)}, path("second/")));
        EXPECT_EQ(read_bytes(path("second/" + name)), first);
        expect_success(enhance({path("first/" + name)}, path("again/"), {"--force", "--again"}));
        const std::string again = read_bytes(path("again/" + name));
        EXPECT_NE(again, first);
        expect_left_alone(enhance({path("again/" + name)}, "", {"--in-place"}));
    }
    EXPECT_EQ(exif_software(exif_of(read_bytes(path("again/a.jpg")))), mark) << "one mark";
}

TEST_F(HostMetadata, AMarkGoesWithThePictureIntoAnotherFormat) {
    enhanced("in.jpg", dark_jpeg({.segments = {exif_segment({.software = "Firmware 1.2"})}}), "a.jpg");
    expect_left_alone(enhance({path("a.jpg")}, path("b.png")));
    EXPECT_EQ(png_chunk_data(read_bytes(path("b.png")), "tEXt"), text_chunk("Software", mark));
    expect_left_alone(enhance({path("b.png")}, path("c.png")));
    enhanced("in.png", dark_png(), "d.png");
    expect_left_alone(enhance({path("d.png")}, path("e.jpg")));
    EXPECT_EQ(exif_software(exif_of(read_bytes(path("e.jpg")))), mark);
    expect_left_alone(enhance({path("e.jpg")}, path("f.jpg")));
}

TEST_F(HostMetadata, APngFilesSoftwareMovesIntoExifDataThatNamesNone) {
    const std::string file = dark_png(png_rgb, {{"tEXt", text_chunk("Software", "Draw 2")}});
    EXPECT_EQ(exif_software(exif_of(enhanced("in.png", file, "out.jpg"))), "Draw 2; " + mark);
    const std::string both =
        dark_png(png_rgb, {{"eXIf", exif_file({.software = "Firmware"})}, {"tEXt", text_chunk("Software", "Draw 2")}});
    const Outcome outcome = enhance({put("both.png", both)}, path("both.jpg"));
    EXPECT_NE(outcome.err.find("notice: the PNG text 'Software' is left out"), std::string::npos) << outcome.err;
    EXPECT_EQ(exif_software(exif_of(read_bytes(path("both.jpg")))), "Firmware; " + mark);
}

TEST_F(HostMetadata, APictureThatIsTurnedDownIsNotMarked) {
    const std::string file = judged_png({.low_detail = 64});
    const Outcome outcome = enhance({put("in.png", file)}, path("out.png"), {});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(read_bytes(path("out.png")), file);
}

TEST_F(HostMetadata, JsonSaysWhyAPictureIsLeftAlone) {
    enhanced("in.png", dark_png(), "a.png");
    const Outcome outcome = enhance({path("a.png")}, path("b.png"), {"--json"});
    const nlohmann::json object = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(object["decision"], "left as it is");
    EXPECT_EQ(object["reason"], "ko 0.1.0 has already opened its shadows");
    EXPECT_EQ(object["width"], png_pixels(read_bytes(path("a.png"))).width);
}

TEST_F(HostMetadata, DamagedExifDataIsCarriedAndTheMarkIsInAComment) {
    const std::string damaged = exif_file({.thumbnail = jpeg_file({}, dark)}).substr(0, 120);
    put("in.jpg", dark_jpeg({.segments = {{0xe1, exif_mark + damaged}}}));
    const Outcome outcome = enhance({path("in.jpg")}, path("out.jpg"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(matches(outcome.err, "notice: the Exif data .* and is carried over unchanged")) << outcome.err;
    const std::string result = read_bytes(path("out.jpg"));
    EXPECT_EQ(exif_of(result), damaged);
    EXPECT_EQ(jpeg_segment(result, 0xfe), mark);
    expect_left_alone(enhance({path("out.jpg")}, path("again.jpg")));
    EXPECT_EQ(enhance({path("out.jpg")}, path("again.jpg"), {"--force", "--again"}).status, 0);
    std::vector<Segment> comments = jpeg_segments(read_bytes(path("again.jpg")));
    std::erase_if(comments, [](const Segment &segment) { return segment.first != 0xfe; });
    EXPECT_EQ(comments.size(), 1u);
}

// ---- other commands

TEST_F(HostMetadata, RepairedEyesAreMarkedAndRepairedOnce) {
    const Words model = {"--model", put_model(path("model"))};
    put("in.png", eyes_png());
    expect_success(run_command("redeye", {path("in.png")}, path("out.png"), model));
    EXPECT_EQ(png_chunk_data(read_bytes(path("out.png")), "tEXt"), text_chunk("Software", "ko 0.1.0 (red eyes repaired)"));
    expect_left_alone(run_command("redeye", {path("out.png")}, path("again.png"), model), "repaired its red eyes");
    expect_success(enhance({path("out.png")}, path("both.png")));
    EXPECT_EQ(png_chunk_data(read_bytes(path("both.png")), "tEXt"),
              text_chunk("Software", "ko 0.1.0 (red eyes repaired, shadows opened)"));
}

TEST_F(HostMetadata, FramesAloneAreNoRepair) {
    put("in.png", eyes_png({{230, 60, 8, 60}}));
    const Words options = {"--frames", "--model", put_model(path("model"))};
    expect_success(run_command("redeye", {path("in.png")}, path("out.png"), options));
    EXPECT_NE(png_pixels(read_bytes(path("out.png"))), png_pixels(read_bytes(path("in.png"))));
    EXPECT_EQ(png_chunk_data(read_bytes(path("out.png")), "tEXt"), "");
}

TEST_F(HostMetadata, AutoMarksAllThatItDid) {
    const Words options = {"--force", "--model", put_model(path("model"))};
    put("in.png", eyes_png());
    expect_success(run_command("auto", {path("in.png")}, path("out.png"), options));
    EXPECT_EQ(png_chunk_data(read_bytes(path("out.png")), "tEXt"),
              text_chunk("Software", "ko 0.1.0 (red eyes repaired, shadows opened)"));
    expect_left_alone(run_command("auto", {path("out.png")}, path("again.png"), options));
}

TEST_F(HostMetadata, CurvesAreAppliedOnce) {
    put("in.png", dark_png());
    expect_success(run_command("curves", {path("in.png")}, path("curves")));
    expect_success(run_command("apply", {path("curves"), path("in.png")}, path("out.png")));
    EXPECT_EQ(png_chunk_data(read_bytes(path("out.png")), "tEXt"), text_chunk("Software", "ko 0.1.0 (curves applied)"));
    expect_left_alone(run_command("apply", {path("curves"), path("out.png")}, path("again.png")), "applied curves to it");
}

// ---- thumbnails

// A thumbnail of dark pictures, of another brightness than theirs.
std::string old_thumbnail(uint32_t width = 48, uint32_t height = 40) {
    return jpeg_file({.width = width, .height = height}, [](uint32_t x, uint32_t y, uint32_t) { return (x * y) % 251; });
}

TEST_F(HostMetadata, AThumbnailShowsTheResult) {
    const Segment exif = exif_segment({.thumbnail = old_thumbnail()});
    const std::string result = enhanced("in.jpg", dark_jpeg({.segments = {exif}}), "out.jpg");
    const Pixels thumbnail = jpeg_pixels(exif_thumbnail(exif_of(result)));
    EXPECT_EQ(thumbnail.width, 48u);
    EXPECT_EQ(thumbnail.height, 40u);
    EXPECT_NEAR(mean(thumbnail), mean(jpeg_pixels(result)), 3.0);
    EXPECT_GT(std::abs(mean(thumbnail) - mean(jpeg_pixels(dark_jpeg()))), 6.0);
    expect_success(enhance({path("in.jpg")}, path("out.png")));
    const std::string in_png = exif_thumbnail(png_chunk_data(read_bytes(path("out.png")), "eXIf"));
    EXPECT_NEAR(mean(jpeg_pixels(in_png)), mean(thumbnail), 1.0);
}

TEST_F(HostMetadata, AThumbnailHasThePicturesShape) {
    const Segment exif = exif_segment({.thumbnail = old_thumbnail(60, 60)});
    const std::string result =
        enhanced("in.jpg", jpeg_file({.width = 200, .height = 100, .segments = {exif}}, dark), "out.jpg");
    const Pixels thumbnail = jpeg_pixels(exif_thumbnail(exif_of(result)));
    EXPECT_EQ(thumbnail.width, 60u);
    EXPECT_EQ(thumbnail.height, 30u);
}

TEST_F(HostMetadata, AThumbnailOfRepairedEyesHasNone) {
    const Words model = {"--model", put_model(path("model"))};
    const std::string file = png_file(
        {eyes_width, eyes_height, 8, png_rgb, false, {{"eXIf", exif_file({.thumbnail = old_thumbnail(160, 100)})}}, {}},
        skin_with(four_eyes));
    put("in.png", file);
    expect_success(run_command("redeye", {path("in.png")}, path("out.png"), model));
    const Pixels thumbnail = jpeg_pixels(exif_thumbnail(png_chunk_data(read_bytes(path("out.png")), "eXIf")));
    ASSERT_EQ(thumbnail.width, 160u);
    const uint8_t *eye = thumbnail.bytes.data() + (30 * 160 + 30) * 3;
    EXPECT_LT(eye[0] - eye[1], 80) << "the accepted eye at its middle";
    EXPECT_GT(eye[0] + eye[1] + eye[2], 0);
}

TEST_F(HostMetadata, AGrayPicturesThumbnailIsInColour) {
    const Segment exif = exif_segment({.thumbnail = old_thumbnail()});
    const JpegRecipe recipe{.width = 96, .height = 80, .colour = JpegColour::gray, .segments = {exif}};
    EXPECT_EQ(jpeg_pixels(exif_thumbnail(exif_of(enhanced("in.jpg", dark_jpeg(recipe), "out.jpg")))).channels, 3u);
}

TEST_F(HostMetadata, APictureThatIsCopiedKeepsItsThumbnail) {
    const std::string file =
        png_file({judged_side, judged_side, 8, png_rgb, false, {{"eXIf", exif_file({.thumbnail = old_thumbnail()})}}, {}},
                 judged_samples({.low_detail = 64}));
    EXPECT_EQ(enhance({put("in.png", file)}, path("out.jpg"), {}).status, 0);
    EXPECT_EQ(exif_thumbnail(exif_of(read_bytes(path("out.jpg")))), old_thumbnail());
}

TEST_F(HostMetadata, AThumbnailOfAnOldKindIsLeftOut) {
    const Segment exif = exif_segment({.thumbnail = std::string(300, 'p'), .thumbnail_compression = 1});
    put("in.jpg", dark_jpeg({.segments = {exif}}));
    const Outcome outcome = enhance({path("in.jpg")}, path("out.jpg"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(matches(outcome.err, "notice: the thumbnail in the Exif data .* is left out")) << outcome.err;
    EXPECT_TRUE(exif_entries(exif_of(read_bytes(path("out.jpg"))), 1).empty());
}

// The old thumbnail is so small that none of its size is a picture, and the block is as large as a segment.
TEST_F(HostMetadata, AThumbnailThatDoesNotFitIsLeftOut) {
    ExifRecipe recipe{.maker_note = std::string(64000, 'n'),
                      .thumbnail = jpeg_file({.width = 160, .height = 160, .quality = 1}, dark)};
    recipe.maker_note.resize(64000 + (65400 - exif_file(recipe).size()));
    put("in.jpg", jpeg_file({.width = 400, .height = 400, .segments = {exif_segment(recipe)}}, dark));
    const Outcome outcome = enhance({path("in.jpg")}, path("out.jpg"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(matches(outcome.err, "notice: the Exif data has no room for its new thumbnail, which is left out"))
        << outcome.err;
    const std::string exif = exif_of(read_bytes(path("out.jpg")));
    EXPECT_EQ(exif_software(exif), mark);
    EXPECT_TRUE(exif_entries(exif, 1).empty());
    EXPECT_NE(exif.find(recipe.maker_note), std::string::npos);
}

TEST_F(HostMetadata, ExifDataWithoutRoomForAMarkIsCarried) {
    ExifRecipe recipe{.maker_note = std::string(64000, 'n')};
    recipe.maker_note.resize(64000 + (65520 - exif_file(recipe).size()));
    put("in.jpg", dark_jpeg({.segments = {exif_segment(recipe)}}));
    const Outcome outcome = enhance({path("in.jpg")}, path("out.jpg"));
    EXPECT_TRUE(matches(outcome.err, "notice: the Exif data has no room for a mark and is carried over unchanged"))
        << outcome.err;
    EXPECT_EQ(exif_of(read_bytes(path("out.jpg"))), exif_file(recipe));
    expect_left_alone(enhance({path("out.jpg")}, path("again.jpg")));
}

// ---- all of it

TEST_F(HostMetadata, WhatTheProgramDoesNotChangeArrives) {
    const std::string xmp = std::string("http://ns.adobe.com/xap/1.0/\0", 29) + "<x:xmpmeta/>";
    const std::string captions = std::string("Photoshop 3.0\0", 14) + "8BIM";
    const std::vector<Segment> segments = {
        exif_segment({.software = "Firmware", .maker_note = "notes", .thumbnail = old_thumbnail()}),
        {0xe1, xmp},
        {0xed, captions},
        {0xe4, "Of the camera"},
        {0xfe, "A comment"}};
    const std::string result = enhanced("in.jpg", dark_jpeg({.segments = segments}), "out.jpg");
    for (size_t i = 1; i < segments.size(); ++i) {
        EXPECT_EQ(jpeg_segment(result, segments[i].first, segments[i].second.substr(0, 2)), segments[i].second);
    }
    EXPECT_EQ(exif_number(exif_of(result), 0, 0x0112), 6u);
    EXPECT_EQ(exif_entries(exif_of(result), 0)[0x010f].bytes, std::string("Camera works\0", 13));
    EXPECT_NE(exif_of(result).find("notes"), std::string::npos);
}

TEST_F(HostMetadata, WhatIsLostIsNamedUnlessTheFileIsCopied) {
    const std::string file = judged_png({.low_detail = 64});
    put("in.png", file.substr(0, 33) + png_chunk("tEXt", text_chunk("Author", "me")) + file.substr(33));
    EXPECT_EQ(enhance({path("in.png")}, path("copy.png"), {}).err, "");
    EXPECT_EQ(enhance({path("in.png")}, path("out.jpg"), {}).err,
              "ko: " + path("in.png") + ": notice: the PNG text 'Author' is left out\n");
    put("in.jpg", dark_jpeg() + dark_jpeg());
    EXPECT_EQ(enhance({path("in.jpg")}, path("out.jpg")).err,
              "ko: " + path("in.jpg") + ": notice: a further picture in the file is left out\n");
}

// ---- times and permissions

TEST_F(HostMetadata, PreserveKeepsTimesAndPermissions) {
    const auto old_time = fs::file_time_type::clock::now() - std::chrono::hours(1000);
    const auto permissions_of = [](const std::string &name) { return fs::status(name).permissions(); };
    const fs::perms wanted = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    put("in.png", dark_png());
    put("copied.png", judged_png({.low_detail = 64}));
    for (const std::string name : {"in.png", "copied.png"}) {
        fs::permissions(path(name), wanted);
        fs::last_write_time(path(name), old_time);
        const std::string output = path("out-" + name);
        EXPECT_EQ(enhance({path(name)}, output, {}).status, 0);
        EXPECT_NE(fs::last_write_time(output), fs::last_write_time(path(name)));
        fs::permissions(output, fs::perms::owner_all);
        EXPECT_EQ(enhance({path(name)}, output, {}).status, 0);
        EXPECT_EQ(permissions_of(output), fs::perms::owner_all) << "the target's own";
        EXPECT_EQ(enhance({path(name)}, output, {"-p"}).status, 0);
        EXPECT_EQ(permissions_of(output), wanted);
        EXPECT_EQ(fs::last_write_time(output), fs::last_write_time(path(name)));
        EXPECT_EQ(enhance({path(name)}, "", {"--in-place", "--preserve"}).status, 0);
        EXPECT_EQ(fs::last_write_time(path(name)), fs::last_write_time(output)) << "written over itself";
    }
}

} // namespace
