// Grids of tone curves on the caller's side: numbers that the worker gets with each call, so that no worker has to keep them.
import {KoError} from "./errors.js";
import {applyOptions, choice, enhancementOptions, forms} from "./options.js";
import {copiedBytes, formOf, pixelsOf} from "./pixels.js";
import {allocated, run} from "./thread.js";

const own = Symbol("curves");

/** A picture as the worker gets it. */
export function sent(pixels) {
    const form = formOf(pixels);
    const bytes = allocated(() => copiedBytes(pixels));
    return {form, picture: {bytes, width: form.width, height: form.height, samples: form.samples}, transfer: [bytes.buffer]};
}

export class Curves {
    #shape;

    /** Curves are fitted, loaded or given by an enhancement. */
    constructor(key, shape) {
        if (key !== own) {
            throw new TypeError("curves are made by Curves.fit, Curves.load and enhance");
        }
        this.#shape = shape;
    }

    static async fit(pixels, options) {
        const {values, ...watching} = enhancementOptions(options);
        const {picture, transfer} = sent(pixels);
        return new Curves(own, await run("fit", {picture, tuning: values}, transfer, watching));
    }

    static async load(bytes) {
        if (!(bytes instanceof Uint8Array || bytes instanceof ArrayBuffer)) {
            throw new TypeError("a file of curves is a Uint8Array or an ArrayBuffer");
        }
        const copy = allocated(() => new Uint8Array(bytes instanceof ArrayBuffer ? bytes.slice(0) : new Uint8Array(bytes)));
        return new Curves(own, await run("load", {bytes: copy}, [copy.buffer]));
    }

    /** The shape with the entries, unless they were given up. */
    #present() {
        if (this.#shape === null) {
            throw new KoError("the curves were disposed of");
        }
        return this.#shape;
    }

    /** Tiles across. */
    get columns() {
        return this.#present().columns;
    }

    /** Tiles down. */
    get rows() {
        return this.#present().rows;
    }

    /** Entries of a curve. */
    get entries() {
        return this.#present().entries;
    }

    async toArray() {
        return this.#present().array.slice();
    }

    async save(form = "text") {
        const number = choice("form", form, forms);
        return run("save", {curves: this.#present(), form: number}, []);
    }

    async apply(pixels, options) {
        const {values, ...watching} = applyOptions(options);
        const curves = this.#present();
        const {form, picture, transfer} = sent(pixels);
        return pixelsOf(await run("apply", {picture, curves, ratio: values.ratio}, transfer, watching), form);
    }

    dispose() {
        this.#shape = null;
    }
}

/** The curves of a worker's answer; null if there are none. */
export function curvesOf(shape) {
    return shape === null ? null : new Curves(own, shape);
}
