// A stand-in for the package, for tests of the page alone: the same interface, without a library. It brightens dark pictures,
// leaves others, and takes strongly red spots of faces to be in two fixed places.

export const version = "0.0-mock";

export class KoError extends Error {
    constructor(message, chain, status) {
        super(message);
        this.chain = chain;
        this.status = status;
    }
}

const [columns, rows, entries] = [8, 8, 256];

// A pause during which a call can be aborted.
function pause(signal, time) {
    return new Promise((resolve, reject) => {
        signal?.throwIfAborted();
        const timer = setTimeout(resolve, time);
        signal?.addEventListener(
            "abort",
            () => {
                clearTimeout(timer);
                reject(signal.reason);
            },
            {once: true},
        );
    });
}

async function proceed({signal, onProgress}, stage) {
    for (let step = 0; step <= 4; ++step) {
        await pause(signal, 10);
        onProgress?.(stage, step / 4);
    }
}

const curve = (tile) =>
    Uint8Array.from({length: entries}, (_, level) => Math.round(255 * (level / 255) ** (0.45 + 0.006 * tile)));

export class Curves {
    columns = columns;
    rows = rows;
    entries = entries;

    async toArray() {
        const values = new Uint8Array(columns * rows * entries);
        for (let tile = 0; tile < columns * rows; ++tile) {
            values.set(curve(tile), tile * entries);
        }
        return values;
    }

    dispose() {}
}

function mean({data, channels}) {
    let sum = 0;
    let count = 0;
    for (let at = 1; at < data.length; at += channels * 7) {
        sum += data[at];
        ++count;
    }
    return sum / count;
}

const copy = (pixels) => ({...pixels, data: pixels.data.slice()});

export async function enhance(pixels, {policy = "default", ...context} = {}) {
    await proceed(context, "judging");
    const bright = mean(pixels) > 90;
    const measures =
        policy === "always"
            ? null
            : {
                  score: {value: null, limit: 0.5},
                  detail: {value: bright ? 64 : 40, limit: 63},
                  entropy: {value: 3, limit: 60},
                  noise: {value: 0, limit: 40},
              };
    if (bright && policy !== "always") {
        const reason = "it has no detail hidden in its shadows: 64 of 64 blocks would gain too little detail (limit 63)";
        return {pixels: copy(pixels), decision: "left", reason, measures, curves: null};
    }
    const result = copy(pixels);
    const levels = curve(8);
    for (let at = 0; at < result.data.length; ++at) {
        result.data[at] = (at & 3) === 3 ? result.data[at] : levels[result.data[at]];
    }
    return {pixels: result, decision: "enhanced", reason: null, measures, curves: new Curves()};
}

const boxes = [
    [117, 91, 134, 107],
    [227, 131, 244, 148],
];

function blacken({data, width}, [left, top, right, bottom]) {
    for (let y = top; y < bottom; ++y) {
        for (let x = left; x < right; ++x) {
            const at = 4 * (y * width + x);
            if (data[at] > 1.5 * data[at + 1]) {
                data[at] = data[at + 1];
            }
        }
    }
}

export async function redeye(pixels, {skip = [], ...context} = {}) {
    await proceed(context, "red eyes");
    const result = copy(pixels);
    const isFace = pixels.width === 360 && pixels.height === 300;
    const places = (isFace ? boxes : []).map((box) => ({
        box,
        window: 0,
        label: "accepted",
        score: 0.9,
        feScore: 0,
        beScore: 0,
    }));
    const repaired = places.filter((_, index) => !skip.includes(index));
    repaired.forEach(({box}) => blacken(result, box));
    return {pixels: result, decision: repaired.length > 0 ? "repaired" : "none", places};
}
