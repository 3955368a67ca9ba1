// The WebAssembly module behind plain calls: its choice and its loading, its memory, its answers as values, and pictures that
// pass through it in bands.
import {KoError, status} from "./errors.js";

/** A function of one SIMD instruction: only an engine that has SIMD accepts it. */
const simdProbe = new Uint8Array([0, 97, 115, 109, 1, 0, 0, 0, 1, 5, 1, 96, 0, 1, 123, 3, 2, 1, 0, 10, 10, 1, 8, 0, 65, 0,
                                  253, 15, 253, 98, 11]);

const modelFiles = ["redeye.cfg", "redeye.gate", "redeye.projection", "redeye_RE_BE", "redeye_RE_FE"];

/** Bytes of a band: it stays in the processor's cache. */
const bandBytes = 2 ** 18;
const mostBandRows = 64;

const outcomes = {done: 0, failed: 1, outOfMemory: 2, refused: 3};

const decoder = new TextDecoder();
const encoder = new TextEncoder();

/** The response for a file of the package. Files of the disk are read by Node.js, whose fetch has no access to them. */
async function fetched(url) {
    try {
        if (url.protocol === "file:") {
            const {readFile} = await import(/* webpackIgnore: true */ /* @vite-ignore */ "node:fs/promises");
            return new Response(await readFile(url), {headers: {"content-type": "application/wasm"}});
        }
        const response = await fetch(url);
        if (!response.ok) {
            throw new Error(`status ${response.status}`);
        }
        return response;
    } catch (error) {
        throw new KoError(`${url.href} cannot be fetched: ${error.message}`, "", status.openRead);
    }
}

/** Instantiates a file while it arrives, where the server names its type. */
async function instantiated(url, imports) {
    const response = await fetched(url);
    if (response.headers.get("content-type") === "application/wasm") {
        return (await WebAssembly.instantiateStreaming(response, imports)).instance;
    }
    return (await WebAssembly.instantiate(await response.arrayBuffer(), imports)).instance;
}

export class Engine {
    #module;
    #base;
    #hasModel = false;

    constructor(module, base) {
        this.#module = module;
        this.#base = base;
        module._ko_web_start();
    }

    /** Loads the module from base, or from beside this file; the one with SIMD where that exists, unless simd decides. */
    static async load(base, simd) {
        const useSimd = simd ?? WebAssembly.validate(simdProbe);
        const {default: make} = useSimd ? await import("./ko-simd.js") : await import("./ko-plain.js");
        const beside = useSimd ? new URL("./ko-simd.wasm", import.meta.url) : new URL("./ko-plain.wasm", import.meta.url);
        const url = base === null ? beside : new URL(useSimd ? "ko-simd.wasm" : "ko-plain.wasm", base);
        const module = await new Promise((resolve, reject) => {
            make({
                printErr() {}, // the same texts are in the chain of a failure
                instantiateWasm(imports, receive) {
                    instantiated(url, imports).then(receive, reject);
                    return {};
                },
            }).then(resolve, reject);
        });
        return new Engine(module, base);
    }

    /** Bytes of the module's memory. */
    get bytes() {
        return this.#module.HEAPU8.length;
    }

    /** Calls a function that gives an outcome. */
    call(name, ...values) {
        const outcome = this.#module[`_ko_web_${name}`](...values);
        if (outcome === outcomes.done) {
            return;
        }
        const text = this.text();
        if (outcome === outcomes.refused) {
            throw new RangeError(text);
        }
        const chain = this.#string(this.#module._ko_web_chain());
        throw new KoError(outcome === outcomes.outOfMemory && text === "" ? "not enough memory" : text, chain,
                          this.#module._ko_web_status());
    }

    /** Gives what a function gives that cannot fail. */
    value(name, ...values) {
        return this.#module[`_ko_web_${name}`](...values);
    }

    /** The numbers of the last answer. */
    numbers() {
        const at = this.#module._ko_web_numbers() >>> 0;
        return new Float64Array(this.#module.HEAPU8.buffer, at, this.#module._ko_web_count()).slice();
    }

    /** The text of the last answer. */
    text() {
        return this.#string(this.#module._ko_web_text());
    }

    #string(pointer) {
        const heap = this.#module.HEAPU8;
        const at = pointer >>> 0;
        return decoder.decode(heap.subarray(at, heap.indexOf(0, at)));
    }

    /** Bytes of the module's memory where they lie, until the next call. */
    #view(pointer, length) {
        return this.#module.HEAPU8.subarray(pointer >>> 0, (pointer >>> 0) + length);
    }

    #room(length) {
        return this.#view(this.#module._ko_web_room(), length);
    }

    /** A copy of what a call left in the room. */
    fromRoom(length) {
        return this.#room(length).slice();
    }

    /** Puts bytes into the room. */
    toRoom(bytes) {
        this.call("make_room", bytes.length);
        this.#room(bytes.length).set(bytes);
    }

    /** Writes a file in the module's memory. */
    write(path, contents) {
        const name = encoder.encode(`${path}\0`);
        const bytes = new Uint8Array(name.length + contents.length);
        bytes.set(name);
        bytes.set(contents, name.length);
        this.toRoom(bytes);
        this.call("write_file");
    }

    /** Fetches the model of red eyes before its first use. */
    async needModel() {
        if (this.#hasModel) {
            return;
        }
        const folder = this.#base === null ? new URL("./redeye/", import.meta.url) : new URL("redeye/", this.#base);
        const contents = await Promise.all(modelFiles.map(async (name) => {
            return new Uint8Array(await (await fetched(new URL(name, folder))).arrayBuffer());
        }));
        modelFiles.forEach((name, i) => this.write(`/redeye/${name}`, contents[i]));
        this.#hasModel = true;
    }

    /** The shape and the entries of the module's curves; null if there are none. */
    curves() {
        const pointer = this.value("entries");
        if (pointer === 0) {
            return null;
        }
        this.call("shape");
        const [columns, rows, entries] = this.numbers();
        const array = new Uint32Array(this.#module.HEAPU8.buffer, pointer >>> 0, columns * rows * entries).slice();
        return {columns, rows, entries, array};
    }

    /** Gives the module curves. */
    setCurves({columns, rows, entries, array}) {
        this.call("make_curves", columns, rows, entries);
        new Uint32Array(this.#module.HEAPU8.buffer, this.value("entries") >>> 0, array.length).set(array);
    }

    /**
     * Passes a picture from the top through a function of bands, band by band through the room. With gives, what the function
     * leaves there replaces the picture's rows.
     */
    pass(picture, name, {takes = true, gives = false, report}) {
        const rowBytes = picture.width * picture.samples;
        const rowsAtOnce = Math.min(Math.max(Math.floor(bandBytes / rowBytes), 1), mostBandRows, picture.height);
        this.call("make_room", rowsAtOnce * rowBytes);
        for (let row = 0; row < picture.height; row += rowsAtOnce) {
            const rows = Math.min(rowsAtOnce, picture.height - row);
            const band = picture.bytes.subarray(row * rowBytes, (row + rows) * rowBytes);
            if (takes) {
                this.#room(band.length).set(band);
            }
            this.call(name, rows);
            if (gives) {
                band.set(this.#room(band.length));
            }
            report((row + rows) / picture.height);
        }
    }

    /** Forgets what the last task left. */
    end() {
        this.#module._ko_web_end();
    }
}
