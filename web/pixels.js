// Pictures as callers pass them, and results in the same form.

/** Most pixels of a picture, as of the program's. */
const largestArea = 250_000_000;

function isImageData(pixels) {
    return typeof ImageData !== "undefined" && pixels instanceof ImageData;
}

function side(name, value) {
    if (typeof value !== "number") {
        throw new TypeError(`the ${name} of a picture is a whole number, not ${typeof value}`);
    }
    if (!Number.isInteger(value) || value < 0) {
        throw new RangeError(`the ${name} of a picture is a whole number of pixels, not ${value}`);
    }
    return value;
}

function checkSides(width, height) {
    if (width === 0 || height === 0) {
        throw new RangeError("the picture has no pixels");
    }
    if (height > Math.floor(largestArea / width)) {
        throw new RangeError(`a picture of ${width} x ${height} pixels; at most ${largestArea} can be processed`);
    }
}

/** The form of what a caller passed: its sides, its samples per pixel and the class of its bytes. */
export function formOf(pixels) {
    if (typeof pixels !== "object" || pixels === null) {
        throw new TypeError(`a picture is ImageData or an object with data, width, height and channels, not ${typeof pixels}`);
    }
    const {data} = pixels;
    if (!(data instanceof Uint8Array || data instanceof Uint8ClampedArray)) {
        throw new TypeError("the data of a picture are a Uint8Array or a Uint8ClampedArray");
    }
    const width = side("width", pixels.width);
    const height = side("height", pixels.height);
    const samples = isImageData(pixels) ? 4 : pixels.channels ?? 4;
    if (![1, 3, 4].includes(samples)) {
        throw new RangeError(`a picture has 1, 3 or 4 channels, not ${samples}`);
    }
    checkSides(width, height);
    if (data.length !== width * height * samples) {
        throw new RangeError(`a picture of ${width} x ${height} pixels and ${samples} channels has ` +
                             `${width * height * samples} bytes, not ${data.length}`);
    }
    return {width, height, samples, clamped: data instanceof Uint8ClampedArray,
            colorSpace: isImageData(pixels) ? pixels.colorSpace ?? "srgb" : null};
}

/** A copy of a picture's bytes, to be transferred to the worker. */
export function copiedBytes(pixels) {
    return new Uint8Array(pixels.data);
}

/** Bytes as a picture of a form. */
export function pixelsOf(bytes, {width, height, samples, clamped, colorSpace}) {
    const data = clamped ? new Uint8ClampedArray(bytes.buffer) : bytes;
    return colorSpace === null ? {data, width, height, channels: samples} : new ImageData(data, width, height, {colorSpace});
}
