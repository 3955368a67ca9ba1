// What the tests share: the package, pictures, sums.
import {createHash} from "node:crypto";
import {readFileSync} from "node:fs";
import {join} from "node:path";
import {pathToFileURL} from "node:url";

function needed(name) {
    const value = process.env[name];
    if (!value) {
        throw new Error(`the environment lacks ${name}`);
    }
    return value;
}

/** The folder of the package. */
export const folder = needed("KO_WEB_PACKAGE");

export const ko = await import(pathToFileURL(join(folder, "index.js")));

const expectedFolder = needed("KO_WEB_EXPECTED");

/** Pictures, each with the calls that were made of it. */
export const expected = JSON.parse(readFileSync(join(expectedFolder, "expected.json")));

/** A picture of expected.json. */
export function pictureOf({name, width, height, channels}) {
    return {data: new Uint8Array(readFileSync(join(expectedFolder, `${name}.raw`))), width, height, channels};
}

/** One of them by its name. */
export function picture(name) {
    return pictureOf(expected.find((one) => one.name === name));
}

/** A picture of three channels with alpha, which differs from pixel to pixel. */
export function withAlpha({data, width, height}) {
    const result = new Uint8ClampedArray(width * height * 4);
    for (let i = 0; i < width * height; ++i) {
        result.set(data.subarray(i * 3, i * 3 + 3), i * 4);
        result[i * 4 + 3] = i * 7;
    }
    return {data: result, width, height, channels: 4};
}

/** A dark picture of three channels, the same for the same number. */
export function darkPicture(width, height, number = 1) {
    const data = new Uint8Array(width * height * 3);
    let state = number >>> 0;
    for (let i = 0; i < data.length; ++i) {
        state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
        data[i] = (i / 3 % width) * 90 / width + state / 2 ** 29;
    }
    return {data, width, height, channels: 3};
}

export function sum(bytes) {
    const view = new Uint8Array(bytes.buffer, bytes.byteOffset, bytes.byteLength);
    return createHash("sha256").update(view).digest("hex");
}

/** Options as Python names them, in the package's names. */
export function renamed(options) {
    return Object.fromEntries(Object.entries(options).map(([name, value]) => {
        const renamedName = name.replace(/_(.)/g, (_, letter) => letter.toUpperCase());
        return [renamedName, name === "working_size" && value === null ? "full" : value];
    }));
}
