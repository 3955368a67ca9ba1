// Pictures and options that are refused, abort, progress, curves and memory.
import assert from "node:assert/strict";
import {copyFileSync, cpSync, mkdtempSync, rmSync} from "node:fs";
import {readFile} from "node:fs/promises";
import {createServer} from "node:http";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {test} from "node:test";
import {pathToFileURL} from "node:url";

import {darkPicture, folder, ko, picture, sum, withAlpha} from "./support.mjs";

const small = darkPicture(40, 30);

const notPictures = [
    [undefined, TypeError, /a picture is ImageData or an object/],
    [null, TypeError, /a picture is ImageData or an object/],
    [{...small, data: Array.from(small.data)}, TypeError, /the data of a picture are a Uint8Array/],
    [{...small, data: new Float32Array(3600)}, TypeError, /the data of a picture are a Uint8Array/],
    [{...small, width: "40"}, TypeError, /the width of a picture is a whole number, not string/],
    [{...small, width: 40.5}, RangeError, /the width of a picture is a whole number of pixels, not 40.5/],
    [{...small, width: NaN}, RangeError, /not NaN/],
    [{...small, height: -30}, RangeError, /the height of a picture .* not -30/],
    [{...small, width: 0}, RangeError, /the picture has no pixels/],
    [{...small, channels: 2}, RangeError, /a picture has 1, 3 or 4 channels, not 2/],
    [{...small, channels: 4}, RangeError, /40 x 30 pixels and 4 channels has 4800 bytes, not 3600/],
    [{...small, width: 20000, height: 20000}, RangeError, /20000 x 20000 pixels; at most 250000000 can be processed/],
    [{...small, width: 2 ** 40, height: 2 ** 40}, RangeError, /at most 250000000/],
];

const refusedOptions = [
    ["policy", "bold", RangeError, "policy is one of conservative, default, risky, always, not 'bold'"],
    ["policy", "toString", RangeError, "policy is one of conservative, default, risky, always, not 'toString'"],
    ["policy", 2, TypeError, "policy is a string, not number"],
    ["score", NaN, RangeError, "score is a number from 0 to 1, not NaN"],
    ["score", 1.5, RangeError, "score is a number from 0 to 1, not 1.5"],
    ["grid", 8, TypeError, "grid is a pair of whole numbers, tiles across and down"],
    ["grid", [8, 257], RangeError, "grid is a whole number from 1 to 256, not 257"],
    ["grid", [8, 2.5], RangeError, "grid is a whole number from 1 to 256, not 2.5"],
    ["maxGain", 0.5, RangeError, "maxGain is a number from 1 to 100, not 0.5"],
    ["maxGain", NaN, RangeError, "maxGain is a number from 1 to 100, not NaN"],
    ["maxGain", "3", TypeError, "maxGain is a number, not string"],
    ["strength", -1, RangeError, "strength is a number from 0 to 10000, not -1"],
    ["strength", Infinity, RangeError, "strength is a number from 0 to 10000, not Infinity"],
    ["limit", 0, RangeError, "limit is a number from 0.01 to 1, not 0"],
    ["levels", 0, RangeError, "levels is a whole number from 1 to 255, not 0"],
    ["levels", 3n, TypeError, "levels is a whole number, not bigint"],
    ["maxSlope", 256, RangeError, "maxSlope is a whole number from 0 to 255, not 256"],
    ["ratio", 1.01, RangeError, "ratio is a number from 0 to 1, not 1.01"],
    ["workingSize", 0, RangeError, "workingSize is a number from 0.01 to 250, not 0"],
    ["workingSize", "half", TypeError, "workingSize is a number, not string"],
    ["signal", true, TypeError, "signal is an AbortSignal, not boolean"],
    ["onProgress", 1, TypeError, "onProgress is a function, not number"],
    ["strenght", 1, TypeError, "there is no option 'strenght'"],
];

test("what is no picture is refused", async () => {
    for (const call of [ko.enhance, ko.judge, ko.redeye, ko.Curves.fit]) {
        for (const [pixels, kind, message] of notPictures) {
            const isExpected = (error) => error instanceof kind && message.test(error.message);
            await assert.rejects(call(pixels), isExpected, String(message));
        }
    }
});

test("options out of range are refused", async () => {
    for (const [name, value, kind, message] of refusedOptions) {
        await assert.rejects(ko.enhance(small, {[name]: value}), {name: kind.name, message});
    }
    await assert.rejects(ko.enhance(small, 3), {name: "TypeError", message: "options are an object, not number"});
});

test("options of the repair are refused", async () => {
    const cases = [
        [{sensitivity: "keen"}, "RangeError", "sensitivity is one of careful, default, eager, not 'keen'"],
        [{full: 1}, "TypeError", "full is a boolean, not number"],
        [{skip: 1}, "TypeError", "skip is an array of places, not number"],
        [{skip: [-1]}, "RangeError", "skip is a whole number from 0 to 2147483647, not -1"],
        [{skip: [0], plain: true}, "TypeError", "skip needs a repair that is not plain"],
        [{policy: "always"}, "TypeError", "there is no option 'policy'"],
    ];
    for (const [options, name, message] of cases) {
        await assert.rejects(ko.redeye(small, options), {name, message});
    }
    await assert.rejects(ko.redeye(picture("face.jpg"), {skip: [0, 99]}),
                         {name: "RangeError", message: /skip names place 99 of a picture with \d+ places/});
});

test("null and undefined are defaults", async () => {
    const given = {policy: null, score: null, grid: undefined, maxSlope: null, workingSize: null};
    const {pixels} = await ko.enhance(picture("rocket.jpg"), {...given, onProgress: null, signal: null});
    assert.equal(sum(pixels.data), sum((await ko.enhance(picture("rocket.jpg"))).pixels.data));
});

test("a damaged file of curves is a KoError with the library's chain", async () => {
    await assert.rejects(ko.Curves.load(new TextEncoder().encode("no curves\n")), (error) => {
        assert.ok(error instanceof ko.KoError);
        assert.equal(error.name, "KoError");
        assert.match(error.message, /^the curves cannot be read: /);
        assert.match(error.chain, /curves/);
        assert.ok(error.message.endsWith(error.chain));
        assert.notEqual(error.status, 0);
        return true;
    });
    await assert.rejects(ko.Curves.load("curves"), TypeError);
    assert.equal((await ko.enhance(small, {policy: "always"})).decision, "enhanced");
});

test("no cut or changed file of curves ends the worker", async () => {
    const curves = await ko.Curves.fit(picture("rocket.jpg"), {grid: [2, 2]});
    for (const form of ["text", "binary", "encoded"]) {
        const file = await curves.save(form);
        for (let i = 0; i < 60; ++i) {
            const changed = i % 2 === 0 ? file.slice(0, Math.floor(file.length * i / 60)) : file.slice();
            if (i % 2 === 1) {
                changed[(i * 7919) % Math.min(changed.length, 400)] ^= 1 << i % 8;
            }
            const outcome = await ko.Curves.load(changed).catch((error) => error);
            const isAnswer = outcome instanceof ko.Curves || outcome instanceof RangeError || outcome instanceof ko.KoError;
            assert.ok(isAnswer && !/module failed/.test(outcome.message ?? ""), `${form} ${i}: ${outcome}`);
        }
    }
});

test("exhausted memory is a KoError, and the next call works", async () => {
    // A header that names more curves than the memory holds.
    const file = await (await ko.Curves.fit(picture("rocket.jpg"), {grid: [1, 1]})).save("text");
    const lines = new TextDecoder().decode(file).split("\n");
    assert.equal(lines[1], "bits 8 1 1");
    lines[1] = "bits 8 1500 1500";
    await assert.rejects(ko.Curves.load(new TextEncoder().encode(lines.join("\n"))), (error) => {
        assert.ok(error instanceof ko.KoError, String(error));
        assert.ok([20, 21].includes(error.status), `${error.message}, status ${error.status}`);
        return true;
    });
    assert.equal((await ko.enhance(small, {policy: "always"})).decision, "enhanced");
});

test("planes that do not fit the memory are a KoError", async () => {
    const large = {data: new Uint8Array(14000 * 14000), width: 14000, height: 14000, channels: 1};
    await assert.rejects(ko.enhance(large, {workingSize: "full", policy: "always"}), (error) => {
        assert.ok(error instanceof ko.KoError);
        assert.equal(error.message.includes("the module failed"), false, error.message);
        return true;
    });
    assert.equal((await ko.enhance(small, {policy: "always"})).decision, "enhanced");
});

test("curves do not fit a picture with too few pixels", async () => {
    const curves = await ko.Curves.fit(small, {grid: [20, 15]});
    await assert.rejects(curves.apply(darkPicture(39, 30)), {
        name: "RangeError",
        message: "a picture of 39 x 30 pixels is too small for a grid of 20 x 15 tiles, " +
                 "which needs two pixels per tile each way",
    });
});

test("curves are loaded as they were saved", async () => {
    const curves = await ko.Curves.fit(picture("rocket.jpg"), {grid: [6, 4]});
    assert.deepEqual([curves.columns, curves.rows, curves.entries], [6, 4, 256]);
    for (const form of ["text", "encoded"]) {
        const again = await ko.Curves.load(await curves.save(form));
        assert.deepEqual(await again.toArray(), await curves.toArray());
    }
    await assert.rejects(curves.save("xml"), {name: "RangeError", message: "form is one of text, binary, encoded, not 'xml'"});
    assert.throws(() => new ko.Curves(), TypeError);
    curves.dispose();
    await assert.rejects(curves.toArray(), {name: "KoError", message: "the curves were disposed of"});
    assert.throws(() => curves.columns, {name: "KoError"});
});

test("curves of an enhancement give the same picture once more", async () => {
    const rocket = picture("rocket.jpg");
    const {pixels, curves} = await ko.enhance(rocket, {ratio: 0.75});
    assert.deepEqual((await curves.apply(rocket, {ratio: 0.75})).data, pixels.data);
    assert.notDeepEqual((await curves.apply(rocket, {ratio: 0})).data, pixels.data);
});

test("a gray-valued picture with alpha counts as one of three channels", async () => {
    const gray = darkPicture(64, 48);
    for (let i = 0; i < gray.data.length; i += 3) {
        gray.data.fill(gray.data[i], i, i + 3);
    }
    const {values} = await ko.judge(withAlpha(gray));
    assert.deepEqual(values, (await ko.judge(gray)).values);
    assert.notEqual(values.noise, null);
});

test("skipped places are not repaired", async () => {
    const face = picture("face.jpg");
    const all = await ko.redeye(face);
    const one = await ko.redeye(face, {skip: [1]});
    const none = await ko.redeye(face, {skip: [0, 1]});
    assert.deepEqual(one.places, all.places);
    assert.equal(all.decision, "repaired");
    assert.equal(one.decision, "repaired");
    assert.equal(none.decision, "none");
    assert.deepEqual(none.pixels.data, face.data);
    const [left, right] = [0, 1].map((i) => all.places[i].box);
    const isChanged = ({data}, [x0, y0, x1, y1]) => {
        for (let y = y0; y < y1; ++y) {
            const row = data.subarray((y * face.width + x0) * 3, (y * face.width + x1) * 3);
            if (row.some((byte, i) => byte !== face.data[(y * face.width + x0) * 3 + i])) {
                return true;
            }
        }
        return false;
    };
    assert.ok(isChanged(one.pixels, left) && !isChanged(one.pixels, right));
    assert.ok(isChanged(all.pixels, left) && isChanged(all.pixels, right));
});

test("progress goes from the first stage to the last", async () => {
    const seen = [];
    await ko.enhance(darkPicture(1500, 900), {policy: "always", onProgress: (...step) => seen.push(step)});
    const stages = [...new Set(seen.map(([stage]) => stage))];
    assert.deepEqual(stages, ["reading", "judging", "applying"]);
    for (const stage of stages) {
        const fractions = seen.filter(([name]) => name === stage).map(([, fraction]) => fraction);
        assert.deepEqual(fractions, [...fractions].sort((a, b) => a - b));
        assert.equal(fractions.at(-1), 1);
    }
    const repair = [];
    await ko.redeye(picture("face.jpg"), {onProgress: (stage) => repair.push(stage)});
    assert.deepEqual([...new Set(repair)], ["reading", "searching", "repairing"]);
});

test("an error in onProgress rejects the call", async () => {
    const thrown = new Error("enough");
    await assert.rejects(ko.enhance(small, {onProgress() { throw thrown; }}), thrown);
    assert.equal((await ko.enhance(small, {policy: "always"})).decision, "enhanced");
});

test("abort rejects with the signal's reason, and other calls go on", async () => {
    await assert.rejects(ko.enhance(small, {signal: AbortSignal.abort("early")}), (reason) => reason === "early");
    const controller = new AbortController();
    const waiting = new AbortController();
    const large = darkPicture(4000, 3000);
    const onProgress = () => controller.abort("enough");
    const running = ko.enhance(large, {policy: "always", signal: controller.signal, onProgress});
    const queued = ko.enhance(small, {signal: waiting.signal});
    const after = ko.enhance(small, {policy: "always"});
    waiting.abort();
    const [first, second, third] = await Promise.allSettled([running, queued, after]);
    assert.equal(first.reason, "enough");
    assert.equal(second.reason.name, "AbortError");
    assert.equal(third.value.decision, "enhanced");
});

test("calls at the same time have their own results", async () => {
    const pictures = [1, 2, 3, 4].map((number) => darkPicture(100 + number, 80, number));
    const together = await Promise.all(pictures.map((pixels) => ko.enhance(pixels, {policy: "always"})));
    for (const [i, pixels] of pictures.entries()) {
        const alone = await ko.enhance(pixels, {policy: "always"});
        assert.equal(sum(together[i].pixels.data), sum(alone.pixels.data));
        assert.equal(together[i].pixels.width, pixels.width);
    }
});

test("memory does not grow over a hundred pictures", async () => {
    const large = withAlpha(darkPicture(800, 600));
    const work = async (count) => {
        for (let i = 0; i < count; ++i) {
            await ko.enhance(large, {policy: "always"});
        }
        globalThis.gc?.();
        return process.memoryUsage().rss;
    };
    const before = await work(20);
    const after = await work(100);
    assert.ok(after - before < 64 * 2 ** 20, `${(after - before) / 2 ** 20} MB`);
});

test("files of the package come from another folder, by the network too", async (t) => {
    const copy = mkdtempSync(join(tmpdir(), "ko-"));
    t.after(() => rmSync(copy, {recursive: true}));
    for (const name of ["ko-plain.wasm", "ko-simd.wasm"]) {
        copyFileSync(join(folder, name), join(copy, name));
    }
    cpSync(join(folder, "redeye"), join(copy, "redeye"), {recursive: true});
    const fetched = [];
    const server = createServer(async (request, response) => {
        fetched.push(request.url);
        const bytes = await readFile(join(copy, request.url)).catch(() => null);
        const type = request.url.endsWith(".wasm") ? "application/wasm" : "text/plain";
        response.writeHead(bytes ? 200 : 404, {"content-type": type});
        response.end(bytes ?? "");
    });
    await new Promise((listening) => server.listen(0, "127.0.0.1", listening));
    t.after(() => server.close());
    t.after(() => ko.configure({base: pathToFileURL(`${folder}/`), simd: true}));

    ko.configure({base: `http://127.0.0.1:${server.address().port}`, simd: false});
    assert.equal((await ko.enhance(small, {policy: "always"})).decision, "enhanced");
    assert.deepEqual(fetched, ["/ko-plain.wasm"]);
    assert.equal((await ko.redeye(picture("face.jpg"))).decision, "repaired");
    assert.equal((await ko.redeye(picture("face.jpg"))).decision, "repaired");
    assert.equal(fetched.length, 6);

    ko.configure({base: `http://127.0.0.1:${server.address().port}/missing/`});
    await assert.rejects(ko.enhance(small), {name: "KoError", message: /missing\/ko-plain.wasm cannot be fetched: status 404/});
});
