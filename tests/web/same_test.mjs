// The results are those of the Python package, byte by byte and number by number, in the module with SIMD and in the plain one.
import assert from "node:assert/strict";
import {test} from "node:test";

import {expected, ko, pictureOf, renamed, sum, withAlpha} from "./support.mjs";

const forms = ["text", "binary", "encoded"];

async function enhanced(pixels, options) {
    const {pixels: result, curves, ...decided} = await ko.enhance(pixels, options);
    return {pixels: sum(result.data), ...decided, curves: curves && sum(await curves.toArray())};
}

async function judged(pixels, options) {
    const judgement = await ko.judge(pixels, options);
    for (const [name, scores] of Object.entries(judgement.blocks)) {
        judgement.blocks[name] = scores && sum(scores.map((score) => Number.isNaN(score) ? NaN : score));
    }
    return judgement;
}

async function saved(curves, form) {
    try {
        return sum(await curves.save(form));
    } catch (error) {
        assert.ok(error instanceof RangeError);
        return `the form '${form}' does not hold these curves`;
    }
}

async function fitted(pixels, options) {
    const curves = await ko.Curves.fit(pixels, options);
    const files = {};
    for (const form of forms) {
        files[form] = await saved(curves, form);
    }
    const applied = await curves.apply(pixels, {ratio: 0.25});
    return {grid: [curves.columns, curves.rows], array: sum(await curves.toArray()), files, applied: sum(applied.data)};
}

async function repaired(pixels, options) {
    const {pixels: result, decision, places} = await ko.redeye(pixels, options);
    return {pixels: sum(result.data), decision, places};
}

const calls = {enhance: enhanced, judge: judged, fit: fitted, redeye: repaired};

for (const simd of [true, false]) {
    for (const one of expected) {
        test(`${one.name}, ${simd ? "SIMD" : "plain"}`, async () => {
            ko.configure({simd});
            const pixels = pictureOf(one);
            const before = sum(pixels.data);
            for (const {call, options, result} of one.calls) {
                const found = await calls[call](pixels, renamed(options));
                assert.deepEqual(found, result, `${call} ${JSON.stringify(options)}`);
            }
            assert.equal(sum(pixels.data), before, "the input was changed");
        });
    }
}

/** The colours of a picture with alpha. */
function coloursOf({data, width, height}) {
    const colours = new Uint8Array(width * height * 3);
    for (let i = 0; i < width * height; ++i) {
        colours.set(data.subarray(i * 4, i * 4 + 3), i * 3);
    }
    return colours;
}

function alphasOf({data}) {
    return data.filter((_, i) => i % 4 === 3);
}

const resultsWithPixels = {enhance: ko.enhance, redeye: ko.redeye};

test("colours beside alpha become those of a picture without it, and alpha stays", async () => {
    for (const one of expected.filter(({channels, name}) => channels === 3 && /\.|1$/.test(name))) {
        const pixels = withAlpha(pictureOf(one));
        for (const {call, options, result} of one.calls.filter(({call}) => call in resultsWithPixels)) {
            const found = await resultsWithPixels[call](pixels, renamed(options));
            assert.equal(sum(coloursOf(found.pixels)), result.pixels, `${one.name} ${call} ${JSON.stringify(options)}`);
            assert.deepEqual(alphasOf(found.pixels), alphasOf(pixels));
            assert.ok(found.pixels.data instanceof Uint8ClampedArray);
        }
    }
});
