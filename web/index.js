// ko for browsers and Node.js: opens the shadows of photographs and repairs red eyes, in a worker.
import {Curves, curvesOf, sent} from "./curves.js";
import {enhancementOptions, repairOptions} from "./options.js";
import {pixelsOf} from "./pixels.js";
import {run} from "./thread.js";

export {Curves};
export {KoError} from "./errors.js";
export {configure} from "./thread.js";
export {version} from "./version.js";

/** Opens the shadows of a picture that benefits. */
export async function enhance(pixels, options) {
    const {values, ...watching} = enhancementOptions(options);
    const {form, picture, transfer} = sent(pixels);
    const {bytes, curves, ...decided} = await run("enhance", {picture, tuning: values}, transfer, watching);
    return {pixels: pixelsOf(bytes, form), ...decided, curves: curvesOf(curves)};
}

/** Measures what counts for and against enhancing a picture. */
export async function judge(pixels, options) {
    const {values, ...watching} = enhancementOptions(options);
    const {picture, transfer} = sent(pixels);
    return run("judge", {picture, tuning: values}, transfer, watching);
}

/** Finds and repairs red eyes. */
export async function redeye(pixels, options) {
    const {values, ...watching} = repairOptions(options);
    const {form, picture, transfer} = sent(pixels);
    const {bytes, ...eyes} = await run("redeye", {picture, choices: values}, transfer, watching);
    return {pixels: pixelsOf(bytes, form), ...eyes};
}
