// Walks the segments of JPEG, the chunks of PNG and WebP, and the boxes of AVIF and HEIC. Each walk ends quietly where a file
// is damaged: what was read up to there is still of use, and the decoder has the last word on the pixels.
import {Reader, concatenate, big32, crc32, fromLatin1, latin1} from "./bytes.js";

// What a walk yields until the bytes end.
function collect(walk) {
    const found = [];
    try {
        for (const item of walk) {
            found.push(item);
        }
    } catch (error) {
        if (!(error instanceof RangeError)) {
            throw error;
        }
    }
    return found;
}

// ---- JPEG

const standsAlone = (marker) => marker === 0x01 || (marker >= 0xd0 && marker <= 0xd8);
export const startOfScan = 0xda;

function* walkJpeg(bytes) {
    const reader = new Reader(bytes);
    let at = 2;
    for (;;) {
        while (reader.u8(at + 1) === 0xff) {
            ++at;
        }
        const marker = reader.u8(at + 1);
        if (reader.u8(at) !== 0xff || marker === 0xd9) {
            return;
        }
        if (standsAlone(marker)) {
            at += 2;
            continue;
        }
        const length = reader.u16(at + 2);
        if (length < 2) {
            return;
        }
        const end = at + 2 + length;
        yield {marker, data: reader.slice(at + 4, end), start: at, end};
        if (marker === startOfScan) {
            return;
        }
        at = end;
    }
}

// The segments up to the first scan.
export const jpegSegments = (bytes) => collect(walkJpeg(bytes));

export const mostInSegment = 65533;

export function jpegSegment(marker, data) {
    const length = data.length + 2;
    return concatenate([Uint8Array.of(0xff, marker, length >> 8, length & 0xff), data]);
}

// ---- PNG

export const pngSignature = "\x89PNG\r\n\x1a\n";

function* walkPng(bytes) {
    const reader = new Reader(bytes);
    for (let at = pngSignature.length; at < bytes.length;) {
        const length = reader.u32(at);
        const end = at + 12 + length;
        reader.slice(at, end);
        yield {type: reader.text(at + 4, 4), data: reader.slice(at + 8, at + 8 + length), start: at, end};
        at = end;
    }
}

export const pngChunks = (bytes) => collect(walkPng(bytes));

export function pngChunk(type, data) {
    const content = concatenate([fromLatin1(type), data]);
    return concatenate([big32(data.length), content, big32(crc32(content))]);
}

// ---- WebP

function* walkWebp(bytes) {
    const reader = new Reader(bytes, true);
    for (let at = 12; at < bytes.length;) {
        const length = reader.u32(at + 4);
        yield {type: reader.text(at, 4), data: reader.slice(at + 8, at + 8 + length)};
        at += 8 + length + (length & 1);
    }
}

export const webpChunks = (bytes) => collect(walkWebp(bytes));

// ---- AVIF and HEIC

const boxesWithin = {meta: 4, iprp: 0, ipco: 0};
const mostBoxes = 10000;

// Boxes inside boxes, depth first; those that hold no others are yielded.
function* walkBoxes(bytes) {
    const reader = new Reader(bytes);
    const spans = [[0, bytes.length]];
    for (let count = 0; spans.length > 0 && count < mostBoxes; ++count) {
        const [at, end] = spans.pop();
        if (at + 8 > end) {
            continue;
        }
        const size = reader.u32(at) || end - at;
        const type = reader.text(at + 4, 4);
        if (size < 8 || at + size > end) {
            continue;
        }
        spans.push([at + size, end]);
        if (type in boxesWithin) {
            spans.push([at + 8 + boxesWithin[type], at + size]);
        } else {
            yield {type, data: reader.slice(at + 8, at + size)};
        }
    }
}

export const boxes = (bytes) => collect(walkBoxes(bytes));

// The brands of the box at the start of the file.
export function brands(bytes) {
    const first = boxes(bytes.subarray(0, 4096))[0];
    return first?.type === "ftyp" ? (latin1(first.data).match(/.{4}/gs) ?? []) : [];
}
