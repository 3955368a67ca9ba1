// Carries Exif data, the colour profile and XMP from the file of a picture over to the file of its result. They are held in the
// form that all formats share - a TIFF block, a profile, a text - and each format wraps them in its own way.
import {Reader, concatenate, fromLatin1, latin1, startsWith} from "./bytes.js";
import {jpegSegment, jpegSegments, mostInSegment, pngChunk, pngChunks, pngSignature, webpChunks} from "./containers.js";
import {uprightExif} from "./exif.js";

const app1 = 0xe1;
const app2 = 0xe2;
const headings = {
    exif: "Exif\0\0",
    icc: "ICC_PROFILE\0",
    xmp: "http://ns.adobe.com/xap/1.0/\0",
    extended: "http://ns.adobe.com/xmp/extension/\0",
};
const xmpKeyword = "XML:com.adobe.xmp\0";
const mostInflated = 16e6;

// ---- reading

const without = (data, heading) => data.subarray(heading.length);

// A profile may be spread over segments, which carry their number and how many there are.
function joinProfile(parts) {
    const ordered = parts.filter((part) => part.length > 2).sort((one, other) => one[0] - other[0]);
    const whole = ordered.length > 0 && ordered.every((part, index) => part[0] === index + 1 && part[1] === ordered.length);
    return whole ? concatenate(ordered.map((part) => part.subarray(2))) : null;
}

function readJpeg(bytes) {
    const segments = jpegSegments(bytes);
    const all = (marker, heading) => segments.filter((item) => item.marker === marker && startsWith(item.data, heading));
    const bodies = (marker, heading) => all(marker, heading).map(({data}) => without(data, heading));
    return {
        exif: bodies(app1, headings.exif)[0] ?? null,
        icc: joinProfile(bodies(app2, headings.icc)),
        xmp: bodies(app1, headings.xmp)[0] ?? null,
        extended: all(app1, headings.extended).map(({data}) => data),
    };
}

// Bytes through a stream that compresses or inflates; null if they are damaged or more than a profile or a text can need.
async function pass(bytes, stream) {
    const parts = [];
    let length = 0;
    try {
        const reader = new Blob([bytes]).stream().pipeThrough(stream).getReader();
        for (let piece = await reader.read(); !piece.done; piece = await reader.read()) {
            parts.push(piece.value);
            length += piece.value.length;
            if (length > mostInflated) {
                await reader.cancel();
                return null;
            }
        }
    } catch {
        return null;
    }
    return concatenate(parts);
}

const inflate = (bytes) => pass(bytes, new DecompressionStream("deflate"));
const deflate = (bytes) => pass(bytes, new CompressionStream("deflate"));

// The text of an international text chunk: a keyword, whether it is compressed, how, a language and a translated keyword.
async function readText(data) {
    const flags = xmpKeyword.length;
    const language = data.indexOf(0, flags + 2);
    const translated = language < 0 ? -1 : data.indexOf(0, language + 1);
    if (translated < 0) {
        return null;
    }
    const text = data.subarray(translated + 1);
    return data[flags] === 1 ? inflate(text) : text;
}

async function readPng(bytes) {
    const chunks = pngChunks(bytes);
    const find = (type, heading = "") => chunks.find((item) => item.type === type && startsWith(item.data, heading))?.data;
    const profile = find("iCCP");
    const text = find("iTXt", xmpKeyword);
    return {
        exif: find("eXIf") ?? null,
        icc: profile ? await inflate(profile.subarray(profile.indexOf(0) + 2)) : null,
        xmp: text ? await readText(text) : null,
        extended: [],
    };
}

function readWebp(bytes) {
    const find = (type) => webpChunks(bytes).find((item) => item.type === type)?.data ?? null;
    const exif = find("EXIF");
    return {
        exif: exif && startsWith(exif, headings.exif) ? without(exif, headings.exif) : exif,
        icc: find("ICCP"),
        xmp: find("XMP "),
        extended: [],
    };
}

const readers = {JPEG: readJpeg, PNG: readPng, WebP: readWebp};
const none = {exif: null, icc: null, xmp: null, extended: []};

// Results are RGB: a profile for inks or for gray would misstate their colours.
function isForRgb(profile) {
    return (
        profile !== null &&
        profile.length > 128 &&
        new Reader(profile).text(16, 4) === "RGB " &&
        startsWith(profile.subarray(36), "acsp")
    );
}

// XMP repeats the orientation; an upright picture must not be turned again.
function uprightXmp(packet) {
    const upright = latin1(packet).replace(/(tiff:Orientation(?:=["']|>)\s*)[2-8]/g, "$11");
    return fromLatin1(upright);
}

// What the file of a picture holds besides pixels, for pixels that are upright. Formats that are not known here hold nothing.
export async function readMetadata(bytes, kind) {
    const found = kind in readers ? await readers[kind](bytes) : none;
    return {
        exif: found.exif && uprightExif(found.exif),
        icc: isForRgb(found.icc) ? found.icc : null,
        xmp: found.xmp && uprightXmp(found.xmp),
        extended: found.extended,
    };
}

// ---- writing

function profileSegments(profile) {
    const most = mostInSegment - headings.icc.length - 2;
    const count = Math.ceil(profile.length / most);
    return Array.from({length: count}, (_, index) => {
        const numbered = concatenate([fromLatin1(headings.icc), Uint8Array.of(index + 1, count)]);
        return jpegSegment(app2, concatenate([numbered, profile.subarray(index * most, (index + 1) * most)]));
    });
}

const fits = (body, heading) => body !== null && body.length + heading.length <= mostInSegment;

function writeJpeg(bytes, {exif, icc, xmp, extended}) {
    const wrap = (body, heading) => jpegSegment(app1, concatenate([fromLatin1(heading), body]));
    const added = [];
    if (fits(exif, headings.exif)) {
        added.push(wrap(exif, headings.exif));
    }
    if (fits(xmp, headings.xmp)) {
        added.push(wrap(xmp, headings.xmp), ...extended.map((data) => jpegSegment(app1, data)));
    }
    if (icc && icc.length <= 255 * (mostInSegment - headings.icc.length - 2)) {
        added.push(...profileSegments(icc));
    }
    // Readers expect the header of JFIF first, which the browser's encoder writes.
    const segments = jpegSegments(bytes);
    const at = segments[0]?.marker === 0xe0 ? segments[0].end : 2;
    const kept = [];
    let from = at;
    for (const {marker, data, start, end} of icc ? segments : []) {
        if (marker === app2 && startsWith(data, headings.icc)) {
            kept.push(bytes.subarray(from, start));
            from = end;
        }
    }
    return concatenate([bytes.subarray(0, at), ...added, ...kept, bytes.subarray(from)]);
}

const colourChunks = ["cHRM", "cICP", "gAMA", "iCCP", "sRGB"];

async function writePng(bytes, {exif, icc, xmp}) {
    const added = [];
    if (icc) {
        added.push(pngChunk("iCCP", concatenate([fromLatin1("ICC profile\0\0"), await deflate(icc)])));
    }
    if (exif) {
        added.push(pngChunk("eXIf", exif));
    }
    if (xmp) {
        added.push(pngChunk("iTXt", concatenate([fromLatin1(xmpKeyword + "\0\0\0\0"), xmp])));
    }
    const kept = pngChunks(bytes).filter(({type}) => !(icc && colourChunks.includes(type)));
    const [header, ...others] = kept.map(({start, end}) => bytes.subarray(start, end));
    return concatenate([fromLatin1(pngSignature), header, ...added, ...others]);
}

// The bytes of an encoded picture with metadata put in. Exif data or XMP too long for a segment of JPEG is left out.
export function writeMetadata(bytes, type, metadata) {
    return type === "image/png" ? writePng(bytes, metadata) : writeJpeg(bytes, metadata);
}
