// Sizes and times of the package for JavaScript: enhancement and search for red eyes of pictures with alpha, in the module with
// SIMD and in the plain one, and of the same pictures without alpha in the Python package.
//
//     node bench/web.mjs PACKAGE [PYTHON [RUNS]]
//
// PACKAGE is the built folder, PYTHON the folder that holds the Python package. Times are the least of RUNS runs, 5 without a
// number, in one thread, and contain the copy to the worker.
import {execFileSync} from "node:child_process";
import {mkdtempSync, readdirSync, readFileSync, rmSync, statSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {dirname, join, resolve} from "node:path";
import {fileURLToPath, pathToFileURL} from "node:url";
import {gzipSync} from "node:zlib";

const [, , folder, python, runs = "5"] = process.argv;
const root = dirname(dirname(fileURLToPath(import.meta.url)));
const ko = await import(pathToFileURL(join(resolve(folder), "index.js")));

const sizes = [[1200, 800], [4000, 3000], [6000, 4000]];

/** Prints the sample, enlarged, as bytes. */
const enlarge = `
import sys
from PIL import Image
image = Image.open(sys.argv[1]).convert("RGB").resize((int(sys.argv[2]), int(sys.argv[3])), Image.BICUBIC)
open(sys.argv[4], "wb").write(image.tobytes())
`;

/** Prints the least seconds of each call. */
const nativeTimes = `
import sys, time, numpy, ko
picture = numpy.fromfile(sys.argv[1], numpy.uint8).reshape(int(sys.argv[3]), int(sys.argv[2]), 3)
for call in (lambda: ko.enhance(picture, policy="always"), lambda: ko.redeye(picture)):
    times = []
    for _ in range(int(sys.argv[4])):
        start = time.perf_counter()
        call()
        times.append(time.perf_counter() - start)
    print(min(times))
`;

const calls = [["enhance", (pixels) => ko.enhance(pixels, {policy: "always"})], ["redeye", (pixels) => ko.redeye(pixels)]];

async function least(call) {
    let best = Infinity;
    for (let i = 0; i < Number(runs); ++i) {
        const start = performance.now();
        await call();
        best = Math.min(best, performance.now() - start);
    }
    return best / 1000;
}

function withAlpha(colours, width, height) {
    const data = new Uint8ClampedArray(width * height * 4).fill(255);
    for (let from = 0, to = 0; from < colours.length; from += 3, to += 4) {
        data[to] = colours[from];
        data[to + 1] = colours[from + 1];
        data[to + 2] = colours[from + 2];
    }
    return {data, width, height, channels: 4};
}

function runPython(script, ...parts) {
    return execFileSync("/usr/bin/python3", ["-c", script, ...parts.map(String)],
                        {encoding: "utf8", env: {...process.env, PYTHONPATH: python ?? ""}});
}

function showSizes() {
    for (const name of readdirSync(folder).filter((name) => /\.(js|wasm)$/.test(name))) {
        const path = join(folder, name);
        console.log(`${name}: ${statSync(path).size} bytes, ${gzipSync(readFileSync(path), {level: 9}).length} by gzip`);
    }
}

async function showTimes([width, height], path) {
    runPython(enlarge, join(root, "samples", "rocket.jpg"), width, height, path);
    const pixels = withAlpha(readFileSync(path), width, height);
    const native = python ? runPython(nativeTimes, path, width, height, runs).trim().split("\n").map(Number) : [];
    for (const [i, [name, call]] of calls.entries()) {
        const seconds = [];
        for (const simd of [true, false]) {
            ko.configure({simd});
            await call(pixels); // loads the module
            seconds.push(await least(() => call(pixels)));
        }
        const [simd, plain] = seconds;
        const beside = native[i] ? `, native ${native[i].toFixed(3)} s, SIMD/native ${(simd / native[i]).toFixed(2)}` : "";
        console.log(`${name} ${width}x${height}: SIMD ${simd.toFixed(3)} s, plain ${plain.toFixed(3)} s, ` +
                    `plain/SIMD ${(plain / simd).toFixed(2)}${beside}`);
    }
}

const scratch = mkdtempSync(join(tmpdir(), "ko-"));
try {
    showSizes();
    for (const size of sizes) {
        await showTimes(size, join(scratch, "picture"));
    }
} finally {
    rmSync(scratch, {recursive: true});
}
