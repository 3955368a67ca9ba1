// Recognises a picture file and reads its size from the header, so that a file is refused before it is decoded: one that is no
// picture, one that ends too early, and one whose pixels would not fit into memory.
import {Reader, crc32, startsWith} from "./bytes.js";
import {boxes, brands, jpegSegments, pngChunks, pngSignature, startOfScan, webpChunks} from "./containers.js";

// A file that is refused; the message is a sentence for the page.
export class Refusal extends Error {}

export const limits = {bytes: 200e6, side: 16384, megapixels: 64};

const isFrame = (marker) => marker >= 0xc0 && marker <= 0xcf && ![0xc4, 0xc8, 0xcc].includes(marker);

function readJpeg(bytes) {
    const segments = jpegSegments(bytes);
    const frame = segments.find(({marker, data}) => isFrame(marker) && data.length >= 6);
    const scan = segments.find(({marker}) => marker === startOfScan);
    if (!frame || !scan) {
        return {complete: false};
    }
    const reader = new Reader(frame.data);
    return {width: reader.u16(3), height: reader.u16(1), complete: hasEnd(bytes, scan.end)};
}

// Whether a JPEG file has an end marker behind its scan. Cameras append other data, so it need not be the last.
function hasEnd(bytes, from) {
    for (let at = bytes.length - 1; at > from; --at) {
        if (bytes[at] === 0xd9 && bytes[at - 1] === 0xff) {
            return true;
        }
    }
    return false;
}

// Not every browser refuses pixels whose checksum is wrong. Chunks without a capital letter first may be ignored, and are.
function isSound(bytes, {type, start, end}) {
    const isNeeded = type[0] === type[0].toUpperCase();
    return !isNeeded || crc32(bytes.subarray(start + 4, end - 4)) === new Reader(bytes).u32(end - 4);
}

function readPng(bytes) {
    const chunks = pngChunks(bytes);
    if (chunks[0]?.type !== "IHDR" || chunks[0].data.length < 13) {
        return {complete: false};
    }
    const reader = new Reader(chunks[0].data);
    return {
        width: reader.u32(0),
        height: reader.u32(4),
        deep: reader.u8(8) > 8,
        moving: chunks.some(({type}) => type === "acTL"),
        complete: chunks.some(({type}) => type === "IEND"),
        damaged: !chunks.every((chunk) => isSound(bytes, chunk)),
    };
}

// The size is in the first chunk, which comes in three kinds.
function readWebp(bytes) {
    const chunks = webpChunks(bytes);
    const first = new Reader(chunks[0]?.data ?? new Uint8Array(), true);
    const complete = new Reader(bytes, true).u32(4) + 8 <= bytes.length && chunks.length > 0;
    const moving = chunks.some(({type}) => type === "ANIM");
    if (chunks[0]?.type === "VP8X") {
        const side = (at) => 1 + (first.u16(at) | (first.u8(at + 2) << 16));
        return {width: side(4), height: side(7), moving, complete};
    }
    if (chunks[0]?.type === "VP8L") {
        const packed = first.u32(1);
        return {width: 1 + (packed & 0x3fff), height: 1 + ((packed >>> 14) & 0x3fff), complete};
    }
    return {width: first.u16(6) & 0x3fff, height: first.u16(8) & 0x3fff, complete};
}

// The largest size that any of the pictures in the file has: a large one may be made of tiles.
function readBoxes(bytes) {
    const sizes = boxes(bytes).filter(({type, data}) => type === "ispe" && data.length >= 12);
    const side = (at) => Math.max(0, ...sizes.map(({data}) => new Reader(data).u32(at)));
    const deep = boxes(bytes).some(({type, data}) => type === "pixi" && data.length > 5 && data[5] > 8);
    return {width: side(4), height: side(8), deep, complete: sizes.length > 0};
}

function readGif(bytes) {
    const reader = new Reader(bytes, true);
    return {width: reader.u16(6), height: reader.u16(8), complete: true};
}

function readBmp(bytes) {
    const reader = new Reader(bytes, true);
    const side = (at) => Math.abs(reader.view.getInt32(at, true));
    return {width: side(18), height: side(22), complete: true};
}

const hasBrand = (bytes, wanted) => brands(bytes).some((brand) => wanted.includes(brand));

const kinds = [
    {name: "JPEG", matches: (bytes) => startsWith(bytes, "\xff\xd8\xff"), read: readJpeg},
    {name: "PNG", matches: (bytes) => startsWith(bytes, pngSignature), read: readPng},
    {name: "WebP", matches: (bytes) => startsWith(bytes, "RIFF") && startsWith(bytes.subarray(8), "WEBP"), read: readWebp},
    {name: "AVIF", matches: (bytes) => hasBrand(bytes, ["avif", "avis"]), read: readBoxes},
    {name: "HEIC", matches: (bytes) => hasBrand(bytes, ["heic", "heix", "mif1", "msf1"]), read: readBoxes},
    {name: "GIF", matches: (bytes) => startsWith(bytes, "GIF8"), read: readGif},
    {name: "BMP", matches: (bytes) => startsWith(bytes, "BM"), read: readBmp},
];

function describe(bytes, kind) {
    try {
        return kind.read(bytes);
    } catch (error) {
        if (error instanceof RangeError) {
            return {complete: false};
        }
        throw error;
    }
}

// Numbers as the texts of the page show them, whatever the language of the browser.
export const grouped = (number) => number.toLocaleString("en-GB");

export function checkSize(width, height, most = limits) {
    if (!(width > 0 && height > 0)) {
        throw new Refusal("This file is damaged: its picture has no size.");
    }
    const size = `${grouped(width)} × ${grouped(height)} pixels`;
    if (Math.max(width, height) > most.side) {
        throw new Refusal(`This picture is too large: ${size}. No side may be longer than ${grouped(most.side)} pixels.`);
    }
    if (width * height > most.megapixels * 1e6) {
        throw new Refusal(`This picture is too large: ${size}. ${most.megapixels} megapixels are possible on this device.`);
    }
}

// The kind and the size of a picture; throws a Refusal if it cannot be improved here.
export function readHeader(bytes, most = limits) {
    if (bytes.length === 0) {
        throw new Refusal("This file is empty.");
    }
    const kind = kinds.find(({matches}) => matches(bytes));
    if (!kind) {
        throw new Refusal("This file is not a picture that can be read here. JPEG, PNG, WebP and AVIF files can.");
    }
    const header = describe(bytes, kind);
    if (header.width !== undefined) {
        checkSize(header.width, header.height, most);
    }
    if (!header.complete) {
        throw new Refusal(`This ${kind.name} file is incomplete: its end is missing.`);
    }
    if (header.damaged) {
        throw new Refusal(`This ${kind.name} file is damaged and cannot be read.`);
    }
    return {kind: kind.name, ...header};
}
