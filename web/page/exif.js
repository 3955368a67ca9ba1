// Adapts the Exif data of a picture to pixels that were set upright: the orientation becomes "upright", the sizes are exchanged
// if the picture was turned by a quarter, and the thumbnail, which shows the picture as it was, is removed. Values are changed
// where they lie: the notes of camera makers hold offsets of their own, which would break if anything moved.
import {Reader} from "./bytes.js";

const tags = {width: 0x100, height: 0x101, orientation: 0x112, exif: 0x8769, exifWidth: 0xa002, exifHeight: 0xa003};
const thumbnailTags = {offset: 0x201, length: 0x202};
const types = {short: 3, long: 4};
const entryBytes = 12;

function openTiff(block) {
    const order = block.length >= 8 ? String.fromCharCode(block[0], block[1]) : "";
    if (order !== "II" && order !== "MM") {
        return null;
    }
    const reader = new Reader(block, order === "II");
    return reader.u16(2) === 42 ? reader : null;
}

// One number of a directory, with the place where it lies.
function readEntry(reader, at) {
    const type = reader.u16(at + 2);
    if (reader.u32(at + 4) !== 1 || (type !== types.short && type !== types.long)) {
        return null;
    }
    const short = type === types.short;
    return {
        value: short ? reader.u16(at + 8) : reader.u32(at + 8),
        set: (value) => (short ? reader.set16(at + 8, value) : reader.set32(at + 8, value)),
    };
}

// The numbers of the directory at an offset, by tag, and where the offset of the next directory lies.
function readDirectory(reader, offset) {
    const entries = new Map();
    const count = reader.u16(offset);
    for (let index = 0; index < count; ++index) {
        const at = offset + 2 + index * entryBytes;
        reader.slice(at, at + entryBytes);
        const entry = readEntry(reader, at);
        if (entry) {
            entries.set(reader.u16(at), entry);
        }
    }
    return {entries, next: offset + 2 + count * entryBytes};
}

function exchange(entries, first, second) {
    const [one, other] = [entries.get(first), entries.get(second)];
    if (one && other) {
        const value = one.value;
        one.set(other.value);
        other.set(value);
    }
}

// Takes the second directory out of the chain and overwrites the thumbnail it leads to; a block that ends with it is shortened.
function removeThumbnail(reader, link) {
    const offset = reader.u32(link);
    if (offset === 0) {
        return reader.bytes;
    }
    reader.set32(link, 0);
    const {entries} = readDirectory(reader, offset);
    const start = entries.get(thumbnailTags.offset)?.value ?? 0;
    const end = start + (entries.get(thumbnailTags.length)?.value ?? 0);
    if (start <= link || end > reader.length) {
        return reader.bytes;
    }
    reader.bytes.fill(0, start, end);
    return reader.length - end < 4 ? reader.bytes.subarray(0, start) : reader.bytes;
}

function adapt(block) {
    const reader = openTiff(block);
    if (!reader) {
        return null;
    }
    const {entries, next} = readDirectory(reader, reader.u32(4));
    const orientation = entries.get(tags.orientation);
    const turned = orientation !== undefined && orientation.value >= 5 && orientation.value <= 8;
    orientation?.set(1);
    if (turned) {
        exchange(entries, tags.width, tags.height);
        const within = entries.get(tags.exif);
        if (within) {
            exchange(readDirectory(reader, within.value).entries, tags.exifWidth, tags.exifHeight);
        }
    }
    return removeThumbnail(reader, next);
}

// A copy of a TIFF block for pixels that are upright; null for a damaged one, which is better left out than carried on.
export function uprightExif(block) {
    try {
        return adapt(block.slice());
    } catch (error) {
        if (error instanceof RangeError) {
            return null;
        }
        throw error;
    }
}
