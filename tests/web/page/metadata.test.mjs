// Exif data, profile and XMP on their way from file to file, checked by another reader.
import assert from "node:assert/strict";
import {writeFileSync} from "node:fs";
import {join} from "node:path";
import {before, test} from "node:test";
import {readMetadata, writeMetadata} from "../../../web/page/metadata.js";
import {uprightExif} from "../../../web/page/exif.js";
import {damaged, describeFile, makePictures, read, sha256} from "./support.mjs";

let folder;
before(() => {
    folder = makePictures();
});

// The metadata of one file in the pixels of another.
async function carry(from, kind, into, type) {
    const written = await writeMetadata(read(folder, into), type, await readMetadata(read(folder, from), kind));
    const path = join(folder, `carried-${from}-${into}`);
    writeFileSync(path, written);
    return describeFile(path);
}

for (const [from, kind] of [
    ["camera.jpg", "JPEG"],
    ["camera.png", "PNG"],
    ["camera.webp", "WebP"],
]) {
    for (const [into, type] of [
        ["bright.jpg", "image/jpeg"],
        ["bright.png", "image/png"],
    ]) {
        test(`metadata of ${from} is carried into ${into}`, async () => {
            const found = await carry(from, kind, into, type);
            assert.equal(found.make, "Testcam");
            assert.equal(found.orientation, 1);
            assert.deepEqual(found.exifSize, [640, 427]);
            assert.equal(found.thumbnail, false);
            assert.equal(found.profile, sha256(read(folder, "profile.icc")));
            assert.match(found.xmp, /tiff:Orientation="1" tiff:Make="Testcam"/);
            assert.deepEqual(found.mean, describeFile(join(folder, into)).mean);
        });
    }
}

test("the source has what the result must not have", () => {
    const source = describeFile(join(folder, "camera.jpg"));
    assert.equal(source.orientation, 6);
    assert.equal(source.thumbnail, true);
    assert.deepEqual(source.exifSize, [427, 640]);
});

test("the bytes of the thumbnail are gone", async () => {
    const {exif} = await readMetadata(read(folder, "camera.jpg"), "JPEG");
    assert.equal(Buffer.from(exif).includes(Buffer.from([0xff, 0xd8, 0xff])), false);
    assert.ok(exif.length < 200);
});

test("a large profile is divided over segments of JPEG and joined again", async () => {
    const icc = new Uint8Array(200000).map((_, index) => (index * 7919) >> 3);
    icc.set(read(folder, "profile.icc").subarray(0, 132));
    const nothing = {exif: null, xmp: null, extended: []};
    const written = await writeMetadata(read(folder, "bright.jpg"), "image/jpeg", {...nothing, icc});
    const again = await readMetadata(written, "JPEG");
    assert.deepEqual(again.icc, icc);
    const path = join(folder, "profile.jpg");
    writeFileSync(path, written);
    assert.equal(describeFile(path).profile, sha256(icc));
});

test("a profile that is not for RGB is left out", async () => {
    const icc = read(folder, "profile.icc").slice();
    icc.set(Buffer.from("GRAY"), 16);
    const written = await writeMetadata(read(folder, "bright.jpg"), "image/jpeg", {exif: null, icc, xmp: null, extended: []});
    assert.equal((await readMetadata(written, "JPEG")).icc, null);
});

test("Exif data too long for JPEG is left out, and kept in PNG", async () => {
    const {exif} = await readMetadata(read(folder, "camera.jpg"), "JPEG");
    const long = new Uint8Array(70000);
    long.set(exif);
    const metadata = {exif: long, icc: null, xmp: null, extended: []};
    const jpeg = await writeMetadata(read(folder, "bright.jpg"), "image/jpeg", metadata);
    assert.deepEqual(jpeg, read(folder, "bright.jpg"));
    const png = await writeMetadata(read(folder, "bright.png"), "image/png", metadata);
    assert.deepEqual((await readMetadata(png, "PNG")).exif, long);
});

test("Exif data in both byte orders is set upright", () => {
    for (const [order, word, long] of [
        ["II", (v) => [v, 0], (v) => [v, 0, 0, 0]],
        ["MM", (v) => [0, v], (v) => [0, 0, 0, v]],
    ]) {
        const tag = order === "II" ? [0x12, 0x01] : [0x01, 0x12];
        const entry = [...tag, ...word(3), ...long(1), ...word(8), 0, 0];
        const block = Uint8Array.from([...Buffer.from(order), ...word(42), ...long(8), ...word(1), ...entry, ...long(0)]);
        const upright = uprightExif(block);
        assert.deepEqual([...upright.subarray(18, 20)], word(1));
        assert.deepEqual([...block.subarray(18, 20)], word(8), "the given block is not changed");
    }
});

test("damaged files neither throw nor hang", async () => {
    for (const [name, kind] of [
        ["camera.jpg", "JPEG"],
        ["camera.png", "PNG"],
        ["camera.webp", "WebP"],
    ]) {
        const started = performance.now();
        for (const bytes of damaged(read(folder, name), 300)) {
            const metadata = await readMetadata(bytes, kind);
            assert.ok(metadata.exif === null || metadata.exif.length <= bytes.length);
            await writeMetadata(read(folder, "bright.jpg"), "image/jpeg", metadata);
        }
        assert.ok(performance.now() - started < 60000);
    }
});

test("a directory that leads to itself or past the end does not hold a reader up", () => {
    const block = Uint8Array.from([0x49, 0x49, 42, 0, 8, 0, 0, 0, 0, 0, 8, 0, 0, 0]);
    assert.ok(uprightExif(block) instanceof Uint8Array);
    const past = Uint8Array.from([0x49, 0x49, 42, 0, 200, 0, 0, 0]);
    assert.equal(uprightExif(past), null);
});
