// Writes a ZIP archive. Files are stored as they are: pictures are compressed already. The archive is made of pieces, so that
// it needs no second copy of the pictures in memory.
import {concatenate, crc32} from "./bytes.js";

const utf8Names = 0x0800;
const most = 0xffffffff; // larger archives would need the 64-bit form, which no browser's memory could serve anyway

function little(...fields) {
    const bytes = new Uint8Array(fields.reduce((sum, [size]) => sum + size, 0));
    const view = new DataView(bytes.buffer);
    let at = 0;
    for (const [size, value] of fields) {
        size === 2 ? view.setUint16(at, value, true) : view.setUint32(at, value, true);
        at += size;
    }
    return bytes;
}

// Date and time as the format counts them: from 1980, in steps of two seconds.
function stamp(date) {
    const day = ((Math.max(date.getFullYear(), 1980) - 1980) << 9) | ((date.getMonth() + 1) << 5) | date.getDate();
    return {time: (date.getHours() << 11) | (date.getMinutes() << 5) | (date.getSeconds() >> 1), day};
}

// The fields that the header of a file and its line in the directory share.
function common({crc, size, name}, {time, day}) {
    return [
        [2, 20],
        [2, utf8Names],
        [2, 0],
        [2, time],
        [2, day],
        [4, crc],
        [4, size],
        [4, size],
        [2, name.length],
        [2, 0],
    ];
}

const header = (file, date) => concatenate([little([4, 0x04034b50], ...common(file, date)), file.name]);

function line(file, date) {
    const fields = [[4, 0x02014b50], [2, 20], ...common(file, date), [2, 0], [2, 0], [2, 0], [4, 0], [4, file.offset]];
    return concatenate([little(...fields), file.name]);
}

// Names that differ within the archive, also where capitals do not count; the later one gets a number.
export function distinct(names) {
    const used = new Set();
    return names.map((name) => {
        const dot = name.lastIndexOf(".");
        const [stem, ending] = dot > 0 ? [name.slice(0, dot), name.slice(dot)] : [name, ""];
        let candidate = name;
        for (let number = 2; used.has(candidate.toLowerCase()); ++number) {
            candidate = `${stem} (${number})${ending}`;
        }
        used.add(candidate.toLowerCase());
        return candidate;
    });
}

// A name that unpacks into the folder where the archive is unpacked, on every system.
const safe = (name) => name.replace(/[\\/:*?"<>|\x00-\x1f]/g, "_").replace(/^\.+/, "_") || "_";

// An archive of files, {name, blob} each, as a Blob.
export async function zip(files, now = new Date()) {
    const date = stamp(now);
    const names = distinct(files.map(({name}) => safe(name)));
    const parts = [];
    const directory = [];
    let offset = 0;
    for (const [index, {blob}] of files.entries()) {
        const crc = crc32(new Uint8Array(await blob.arrayBuffer()));
        const file = {name: new TextEncoder().encode(names[index]), crc, size: blob.size, offset};
        const head = header(file, date);
        parts.push(head, blob);
        directory.push(line(file, date));
        offset += head.length + blob.size;
    }
    const list = concatenate(directory);
    if (offset + list.length > most || files.length > 0xffff) {
        throw new RangeError("the archive is too large");
    }
    const end = little(
        [4, 0x06054b50],
        [2, 0],
        [2, 0],
        [2, files.length],
        [2, files.length],
        [4, list.length],
        [4, offset],
        [2, 0],
    );
    return new Blob([...parts, list, end], {type: "application/zip"});
}
