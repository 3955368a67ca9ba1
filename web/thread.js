// One worker, which does one call after the other. A call that is aborted ends the worker, and the next one gets a new worker:
// WebAssembly cannot be interrupted.
import {KoError, restored, status} from "./errors.js";

/** Memory of a module never shrinks: a worker that has more bytes than this after a call is ended. */
const mostIdleBytes = 2 ** 28;

const inNode = typeof process === "object" && Boolean(process.versions?.node) && process.type !== "renderer";

let settings = {base: null, simd: null};
let thread = null; // the worker, or null
let current = null; // the call that it works on
const waiting = [];

/** Where the module's files lie and which module is used, from the next call on. */
export function configure({base, simd} = {}) {
    if (simd !== undefined && typeof simd !== "boolean") {
        throw new TypeError(`simd is a boolean, not ${typeof simd}`);
    }
    if (base !== undefined) {
        const url = new URL(base, globalThis.location?.href ?? import.meta.url);
        settings = {...settings, base: url.href.endsWith("/") ? url.href : `${url.href}/`};
    }
    settings = simd === undefined ? settings : {...settings, simd};
    if (current === null) {
        end();
    } else {
        current.isLast = true;
    }
}

/** The class of workers of Node.js, which a page cannot import. */
let nodeThreads = null;

async function loadNodeThreads() {
    nodeThreads ??= await import(/* webpackIgnore: true */ /* @vite-ignore */ "node:worker_threads");
}

/** The worker of Node.js, with the interface of one of a browser as far as it is used. */
function makeNodeThread() {
    const worker = new nodeThreads.Worker(new URL("./worker.js", import.meta.url));
    return {
        post: (message, transfer) => worker.postMessage(message, transfer),
        listen(onMessage, onError) {
            worker.on("message", onMessage);
            worker.on("error", onError);
        },
        terminate: () => worker.terminate(),
        // A worker that waits for calls does not keep the process alive.
        hold: () => worker.ref(),
        release: () => worker.unref(),
    };
}

function makePageThread() {
    const worker = new Worker(new URL("./worker.js", import.meta.url), {type: "module"});
    return {
        post: (message, transfer) => worker.postMessage(message, transfer),
        listen(onMessage, onError) {
            worker.addEventListener("message", (event) => onMessage(event.data));
            worker.addEventListener("error", (event) => onError(new Error(event.message ?? "the worker cannot be loaded")));
        },
        terminate: () => worker.terminate(),
        hold() {},
        release() {},
    };
}

function start() {
    const made = inNode ? makeNodeThread() : makePageThread();
    // What a worker sends after it was given up is of no interest.
    made.listen((message) => made === thread && receive(message),
                (error) => made === thread && finish({error: {kind: "Error", message: error.message}}, true));
    return made;
}

function end() {
    thread?.terminate();
    thread = null;
}

/** Ends the current call with an outcome, and its worker as well if it may not go on. */
function finish(outcome, isLost) {
    const call = current;
    current = null;
    if (isLost || call.isLast) {
        end();
    } else {
        thread.release();
    }
    call.settle(outcome);
    next();
}

function receive(message) {
    if (message.stage === undefined) {
        finish(message, message.bytes > mostIdleBytes || message.error?.kind === "Error");
        return;
    }
    try {
        current.onProgress(message.stage, message.fraction);
    } catch (reason) {
        finish({reason}, true);
    }
}

async function next() {
    if (current !== null || waiting.length === 0) {
        return;
    }
    const call = waiting.shift();
    current = call;
    if (inNode) {
        await loadNodeThreads();
    }
    if (current !== call) { // aborted meanwhile
        return;
    }
    try {
        thread ??= start();
    } catch (error) {
        finish({error: {kind: "Error", message: error.message}}, true);
        return;
    }
    thread.hold();
    thread.post({...settings, task: call.task, values: call.values, reports: call.onProgress !== null}, call.transfer);
}

function abort(call, reason) {
    const at = waiting.indexOf(call);
    if (at >= 0) {
        waiting.splice(at, 1);
        call.settle({reason});
    } else if (current === call) {
        finish({reason}, true);
    }
}

/** Runs a task of the worker. Values are copied but for the buffers of transfer, which are given away. */
export function run(task, values, transfer, {signal = null, onProgress = null} = {}) {
    return new Promise((resolve, reject) => {
        if (signal?.aborted) {
            reject(signal.reason);
            return;
        }
        const onAbort = () => abort(call, signal.reason);
        const call = {
            task,
            values,
            transfer,
            onProgress,
            isLast: false,
            settle(outcome) {
                signal?.removeEventListener("abort", onAbort);
                if ("result" in outcome) {
                    resolve(outcome.result);
                } else {
                    reject("reason" in outcome ? outcome.reason : restored(outcome.error));
                }
            },
        };
        signal?.addEventListener("abort", onAbort);
        waiting.push(call);
        next();
    });
}

/** An allocation on the caller's side that fails is a failure like one in the module. */
export function allocated(make) {
    try {
        return make();
    } catch (error) {
        if (error instanceof RangeError) {
            throw new KoError("not enough memory", "", status.alloc);
        }
        throw error;
    }
}
