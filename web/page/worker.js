// Everything that touches pixels: decoding, red eyes, shadows, previews and files. It runs apart from the page, so that the
// page stays responsive with pictures of any size. The pixels of one picture are kept, the last one; others are decoded again
// when they are needed.
import * as ko from "./ko/index.js";
import {Refusal, checkSize, limits, readHeader} from "./header.js";
import {readMetadata, writeMetadata} from "./metadata.js";
import {zip} from "./zip.js";

const previewSide = 1800;
const jpegQuality = 0.92;
const rgba = 4;

// ---- pixels

function canvasOf({data, width, height}) {
    const canvas = new OffscreenCanvas(width, height);
    canvas.getContext("2d", {willReadFrequently: true}).putImageData(new ImageData(data, width, height), 0, 0);
    return canvas;
}

function hasTransparency(data) {
    for (let at = rgba - 1; at < data.length; at += rgba) {
        if (data[at] !== 255) {
            return true;
        }
    }
    return false;
}

// Pixels as the library takes them. With a profile they keep the levels of the file, since the profile goes into the result's
// file; without one they are sRGB, which is what a file without a profile stands for.
async function decode(file, kind, hasProfile) {
    const conversion = hasProfile ? "none" : "default";
    let bitmap;
    try {
        bitmap = await createImageBitmap(file, {imageOrientation: "from-image", colorSpaceConversion: conversion});
    } catch {
        const foreign = kind === "HEIC" || kind === "AVIF";
        throw new Refusal(
            foreign ? `This browser cannot read this ${kind} file.` : `This ${kind} file is damaged and cannot be read.`,
        );
    }
    try {
        const {width, height} = bitmap;
        checkSize(width, height, mostHere);
        const context = new OffscreenCanvas(width, height).getContext("2d", {willReadFrequently: true});
        context.drawImage(bitmap, 0, 0);
        return {data: context.getImageData(0, 0, width, height).data, width, height, channels: rgba};
    } finally {
        bitmap.close();
    }
}

// Devices with little memory report so; a browser that does not say gets the common limit.
const mostHere = {...limits, megapixels: (navigator.deviceMemory ?? 8) < 4 ? 24 : limits.megapixels};

async function open(key, file) {
    if (file.size > mostHere.bytes) {
        throw new Refusal(
            `This file is too large: ${Math.round(file.size / 1e6)} MB. ${mostHere.bytes / 1e6} MB are possible.`,
        );
    }
    const bytes = new Uint8Array(await file.arrayBuffer());
    const header = readHeader(bytes, mostHere);
    const metadata = await readMetadata(bytes, header.kind);
    const original = await decode(file, header.kind, metadata.icc !== null);
    return {key, header, metadata, original, transparent: hasTransparency(original.data), eyes: null, enhanced: null};
}

// Base and top layer mixed, the strength being the share of the top one. A tone curve drawn halfway back to the diagonal gives
// the same levels, so this is the enhancement at that strength and not a second picture that shines through.
function mix(base, top, strength) {
    if (strength >= 1 || base === top) {
        return top;
    }
    const data = new Uint8ClampedArray(base.data.length);
    for (let at = 0; at < data.length; ++at) {
        data[at] = base.data[at] + (top.data[at] - base.data[at]) * strength;
    }
    return {...base, data};
}

// ---- the two steps, with what they gave last time if nothing they depend on changed

let held = null;

async function hold(key, file) {
    if (held?.key !== key) {
        held = null;
        held = await open(key, file);
    }
    return held;
}

const clamped = (pixels) => ({
    ...pixels,
    data: new Uint8ClampedArray(pixels.data.buffer, pixels.data.byteOffset, pixels.data.length),
});

async function repair(picture, skip, context) {
    const settings = skip.join();
    if (picture.eyes?.settings !== settings) {
        picture.enhanced = null;
        const result = await ko.redeye(picture.original, {skip, ...context});
        const changed = result.decision === "repaired";
        picture.eyes = {...result, settings, pixels: changed ? clamped(result.pixels) : picture.original};
    }
    return picture.eyes;
}

async function readCurves(curves) {
    const {columns, rows, entries} = curves;
    const values = await curves.toArray();
    curves.dispose();
    return {columns, rows, entries, values};
}

async function enhance(picture, policy, context) {
    if (picture.enhanced?.policy !== policy) {
        picture.enhanced = null;
        const result = await ko.enhance(picture.eyes.pixels, {policy, ...context});
        const curves = result.curves ? await readCurves(result.curves) : null;
        const changed = result.decision === "enhanced";
        picture.enhanced = {...result, curves, policy, pixels: changed ? clamped(result.pixels) : picture.eyes.pixels};
    }
    return picture.enhanced;
}

const shares = {open: [0, 0.2], eyes: [0.2, 0.5], shadows: [0.5, 0.9], preview: [0.9, 1]};

async function improve({key, file, skip, policy}, report, signal) {
    const step = (name) => ({
        signal,
        onProgress: (stage, fraction) => report(name, shares[name][0] + (shares[name][1] - shares[name][0]) * fraction),
    });
    report("open", 0);
    const picture = await hold(key, file);
    signal.throwIfAborted();
    report("eyes", shares.eyes[0]);
    await repair(picture, skip, step("eyes"));
    signal.throwIfAborted();
    report("shadows", shares.shadows[0]);
    await enhance(picture, policy, step("shadows"));
    signal.throwIfAborted();
    return picture;
}

// ---- what the page receives

async function encode(canvas, type, metadata) {
    const blob = await canvas.convertToBlob({type, quality: jpegQuality});
    if (blob.type !== type) {
        throw new Refusal("This browser cannot write a picture of this size.");
    }
    return new Blob([await writeMetadata(new Uint8Array(await blob.arrayBuffer()), type, metadata)], {type});
}

// A picture small enough to be drawn at once. It carries the profile, so that the browser shows true colours.
async function preview(pixels, picture) {
    const scale = Math.min(1, previewSide / Math.max(pixels.width, pixels.height));
    const side = (length) => Math.max(1, Math.round(length * scale));
    const canvas = new OffscreenCanvas(side(pixels.width), side(pixels.height));
    const context = canvas.getContext("2d");
    context.imageSmoothingQuality = "high";
    context.drawImage(canvasOf(pixels), 0, 0, canvas.width, canvas.height);
    const type = picture.transparent ? "image/png" : "image/jpeg";
    return encode(canvas, type, {exif: null, icc: picture.metadata.icc, xmp: null, extended: []});
}

// The type of a result that keeps the format of its original, or comes closest to it.
function typeOf({header, transparent}) {
    return header.kind === "PNG" || (header.kind !== "JPEG" && transparent) ? "image/png" : "image/jpeg";
}

async function write(picture, type, strength) {
    const canvas = canvasOf(mix(picture.eyes.pixels, picture.enhanced.pixels, strength));
    if (type === "image/jpeg" && picture.transparent) {
        const context = canvas.getContext("2d");
        context.globalCompositeOperation = "destination-over";
        context.fillStyle = "#ffffff";
        context.fillRect(0, 0, canvas.width, canvas.height);
    }
    return encode(canvas, type, picture.metadata);
}

// The file that most people ask for, while the pixels are at hand: later it would take both steps again. PNG takes too long for
// that.
function fileInAdvance(picture) {
    const changed = picture.enhanced.pixels !== picture.original;
    return changed && typeOf(picture) === "image/jpeg" ? write(picture, "image/jpeg", 1) : null;
}

async function process(job, report, signal) {
    const picture = await improve(job, report, signal);
    const {original, eyes, enhanced, header} = picture;
    report("preview", shares.preview[0]);
    const show = (pixels, below) => (pixels === below ? null : preview(pixels, picture));
    return {
        kind: header.kind,
        width: original.width,
        height: original.height,
        transparent: picture.transparent,
        deep: header.deep ?? false,
        moving: header.moving ?? false,
        type: typeOf(picture),
        file: await fileInAdvance(picture),
        before: await preview(original, picture),
        repaired: await show(eyes.pixels, original),
        after: await show(enhanced.pixels, eyes.pixels),
        eyes: {decision: eyes.decision, places: eyes.places},
        decision: enhanced.decision,
        reason: enhanced.reason,
        measures: enhanced.measures,
        curves: enhanced.curves,
    };
}

async function render(job, report, signal) {
    const picture = await improve(job, report, signal);
    report("file", shares.preview[0]);
    return write(picture, job.type, job.strength);
}

// ---- messages

function explain(error) {
    if (error instanceof Refusal) {
        return error.message;
    }
    if (/memory|allocat|array length/i.test(error.message)) {
        return "This picture is too large for the memory of this device.";
    }
    return `This picture cannot be improved: ${error.message}`;
}

const operations = {
    process,
    render,
    zip: ({files}) => zip(files),
    forget: ({key}) => {
        held = held?.key === key ? null : held;
    },
    version: () => ko.version,
};

const running = new Map();

async function run({id, operation, job}) {
    const control = new AbortController();
    running.set(id, control);
    const report = (stage, fraction) => postMessage({id, stage, fraction});
    try {
        postMessage({id, result: await operations[operation](job, report, control.signal)});
    } catch (error) {
        if (!(error instanceof Refusal) && !control.signal.aborted) {
            held = null;
        }
        postMessage({id, error: control.signal.aborted ? "" : explain(error), aborted: control.signal.aborted});
    } finally {
        running.delete(id);
    }
}

addEventListener("message", ({data}) => {
    if (data.abort !== undefined) {
        running.get(data.abort)?.abort();
    } else {
        run(data);
    }
});
