// Options with numbers or names as values: each is checked here, so that the module gets only valid ones. An option that is
// undefined or null has its default.

const policies = {conservative: 1, default: 2, risky: 3, always: 4};
const sensitivities = {careful: 0, default: 1, eager: 2};

/** Forms of a file of curves. */
export const forms = {text: 1, binary: 2, encoded: 3};

const noScore = -1;
const ownSlope = -1;
const wholePicture = Number.MAX_SAFE_INTEGER;

const common = ["signal", "onProgress"];
const enhancement = ["policy", "score", "grid", "maxSlope", "maxGain", "strength", "limit", "levels", "workingSize", "ratio"];
const repair = ["sensitivity", "full", "plain", "frames", "skip"];

function typeName(value) {
    return value === null ? "null" : Array.isArray(value) ? "array" : typeof value;
}

function shown(value) {
    return typeof value === "string" ? `'${value}'` : String(value);
}

/** A whole number from low to high. */
function whole(name, value, low, high) {
    if (typeof value !== "number") {
        throw new TypeError(`${name} is a whole number, not ${typeName(value)}`);
    }
    if (!Number.isInteger(value) || value < low || value > high) {
        throw new RangeError(`${name} is a whole number from ${low} to ${high}, not ${value}`);
    }
    return value;
}

/** A number from low to high; NaN is in no range. */
function number(name, value, low, high) {
    if (typeof value !== "number") {
        throw new TypeError(`${name} is a number, not ${typeName(value)}`);
    }
    if (!(value >= low && value <= high)) {
        throw new RangeError(`${name} is a number from ${low} to ${high}, not ${value}`);
    }
    return value;
}

/** What a name stands for. */
export function choice(name, value, choices) {
    if (typeof value !== "string") {
        throw new TypeError(`${name} is a string, not ${typeName(value)}`);
    }
    if (!Object.hasOwn(choices, value)) {
        throw new RangeError(`${name} is one of ${Object.keys(choices).join(", ")}, not ${shown(value)}`);
    }
    return choices[value];
}

function flag(name, value) {
    if (typeof value !== "boolean") {
        throw new TypeError(`${name} is a boolean, not ${typeName(value)}`);
    }
    return value;
}

function tiles(value) {
    if (!Array.isArray(value) || value.length !== 2) {
        throw new TypeError("grid is a pair of whole numbers, tiles across and down");
    }
    return value.map((side) => whole("grid", side, 1, 256));
}

function workingArea(value) {
    return value === "full" ? wholePicture : Math.trunc(number("workingSize", value, 0.01, 250) * 1e6);
}

function places(value) {
    if (!Array.isArray(value)) {
        throw new TypeError(`skip is an array of places, not ${typeName(value)}`);
    }
    return value.map((place) => whole("skip", place, 0, 2 ** 31 - 1));
}

/** Throws a TypeError unless options are an object whose names are all known. */
function checkNames(options, known) {
    if (typeof options !== "object" || Array.isArray(options)) {
        throw new TypeError(`options are an object, not ${typeName(options)}`);
    }
    for (const name of Object.keys(options)) {
        if (!known.includes(name)) {
            throw new TypeError(`there is no option ${shown(name)}`);
        }
    }
}

/** What applies to every call: how it is watched and ended. */
function watching(options) {
    const {signal, onProgress} = options;
    if (signal !== undefined && signal !== null && typeof signal.addEventListener !== "function") {
        throw new TypeError(`signal is an AbortSignal, not ${typeName(signal)}`);
    }
    if (onProgress !== undefined && onProgress !== null && typeof onProgress !== "function") {
        throw new TypeError(`onProgress is a function, not ${typeName(onProgress)}`);
    }
    return {signal: signal ?? null, onProgress: onProgress ?? null};
}

/** The options of enhance, judge and Curves.fit, each of which takes those of the others too. */
export function enhancementOptions(options) {
    const given = options ?? {};
    checkNames(given, [...enhancement, ...common]);
    const values = {
        grid: tiles(given.grid ?? [8, 8]),
        maxGain: number("maxGain", given.maxGain ?? 3, 1, 100),
        strength: number("strength", given.strength ?? 40, 0, 10000),
        limit: number("limit", given.limit ?? 0.6275, 0.01, 1),
        levels: whole("levels", given.levels ?? 5, 1, 255),
        maxSlope: whole("maxSlope", given.maxSlope ?? 0, 0, 255),
        area: workingArea(given.workingSize ?? 0.5),
        ratio: number("ratio", given.ratio ?? 0.5, 0, 1),
        policy: choice("policy", given.policy ?? "default", policies),
        score: given.score === undefined || given.score === null ? noScore : number("score", given.score, 0, 1),
    };
    if (given.maxSlope === undefined || given.maxSlope === null) {
        values.maxSlope = ownSlope;
    }
    return {values, ...watching(given)};
}

/** The options of Curves.apply. */
export function applyOptions(options) {
    const given = options ?? {};
    checkNames(given, ["ratio", ...common]);
    return {values: {ratio: number("ratio", given.ratio ?? 0.5, 0, 1)}, ...watching(given)};
}

/** The options of redeye. */
export function repairOptions(options) {
    const given = options ?? {};
    checkNames(given, [...repair, ...common]);
    const values = {
        sensitivity: choice("sensitivity", given.sensitivity ?? "default", sensitivities),
        full: flag("full", given.full ?? false),
        plain: flag("plain", given.plain ?? false),
        frames: flag("frames", given.frames ?? false),
        skip: places(given.skip ?? []),
    };
    if (values.plain && values.skip.length > 0) {
        throw new TypeError("skip needs a repair that is not plain");
    }
    return {values, ...watching(given)};
}
