// Kinds and sizes of picture files, and refusals of those that cannot be improved.
import assert from "node:assert/strict";
import {execFileSync} from "node:child_process";
import {join} from "node:path";
import {before, test} from "node:test";
import {Refusal, readHeader} from "../../../web/page/header.js";
import {damaged, describeFile, makePictures, read, runPython, samples} from "./support.mjs";

let folder;
before(() => {
    folder = makePictures();
    const save = "import sys; from PIL import Image; p = Image.open(sys.argv[1]).convert('RGB');";
    for (const [name, options] of [
        ["a.webp", "lossless=True"],
        ["b.webp", "quality=80"],
        ["a.gif", ""],
        ["a.bmp", ""],
    ]) {
        runPython(`${save} p.save(sys.argv[2] ${options && `, ${options}`})`, join(samples, "rocket.jpg"), join(folder, name));
    }
    runPython(`${save} p.save(sys.argv[2], progressive=True)`, join(samples, "rocket.jpg"), join(folder, "progressive.jpg"));
});

test("sizes are those that another reader finds", () => {
    const names = ["camera.jpg", "progressive.jpg", "bright.png", "camera.webp", "a.webp", "b.webp", "a.gif", "a.bmp"];
    for (const name of names) {
        const header = readHeader(read(folder, name));
        const other = describeFile(join(folder, name));
        assert.deepEqual([header.width, header.height], other.size, name);
        assert.equal(header.kind.toUpperCase(), other.format, name);
        assert.equal(header.complete, true);
    }
});

test("the size of an AVIF file is read", {skip: !hasAvif()}, () => {
    const path = join(folder, "a.avif");
    execFileSync("avifenc", ["-s", "10", join(samples, "rocket.jpg"), path], {stdio: "ignore"});
    const header = readHeader(read(path));
    assert.deepEqual([header.kind, header.width, header.height], ["AVIF", 640, 427]);
});

function hasAvif() {
    try {
        execFileSync("avifenc", ["--version"], {stdio: "ignore"});
        return true;
    } catch {
        return false;
    }
}

const refusals = [
    ["empty.jpg", /is empty/],
    ["text.jpg", /not a picture/],
    ["truncated.jpg", /JPEG file is incomplete/],
    ["truncated.png", /PNG file is incomplete/],
    ["broken.png", /PNG file is damaged/],
    ["wide.png", /too large: 30,000 × 40 pixels/],
    ["huge.png", /64 megapixels/],
];
for (const [name, text] of refusals) {
    test(`${name} is refused with one line`, () => {
        assert.throws(
            () => readHeader(read(folder, name)),
            (error) => {
                assert.ok(error instanceof Refusal);
                assert.match(error.message, text);
                return true;
            },
        );
    });
}

test("a JPEG file cut off behind its thumbnail's end is incomplete", () => {
    const bytes = read(folder, "camera.jpg");
    assert.throws(() => readHeader(bytes.slice(0, bytes.length - 2000)), /incomplete/);
});

test("damaged files are refused or described, and nothing else", () => {
    for (const name of ["camera.jpg", "camera.png", "camera.webp", "a.webp", "a.gif", "a.bmp"]) {
        for (const bytes of damaged(read(folder, name), 300)) {
            try {
                const header = readHeader(bytes);
                assert.ok(header.width > 0 && header.width <= 16384 && header.height > 0, name);
            } catch (error) {
                assert.ok(error instanceof Refusal, `${name}: ${error.stack}`);
            }
        }
    }
});
