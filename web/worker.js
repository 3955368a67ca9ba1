// The worker: it loads the module for the first task and runs one task after the other.
import {Engine} from "./engine.js";
import {described} from "./errors.js";
import {tasks} from "./tasks.js";

let engine = null;

async function run(post, {base, simd, task, values, reports}) {
    const report = reports ? (stage, fraction) => post({stage, fraction}, []) : () => {};
    try {
        engine ??= await Engine.load(base, simd);
        const {result, transfer} = await tasks[task](engine, values, report);
        engine.end();
        post({result, bytes: engine.bytes}, transfer);
    } catch (error) {
        post({error: described(error), bytes: engine?.bytes ?? 0}, []);
        engine?.end();
    }
}

if (typeof WorkerGlobalScope !== "undefined") {
    const post = (message, transfer) => globalThis.postMessage(message, transfer);
    globalThis.addEventListener("message", (event) => run(post, event.data));
} else {
    const {parentPort} = await import(/* webpackIgnore: true */ /* @vite-ignore */ "node:worker_threads");
    const post = (message, transfer) => parentPort.postMessage(message, transfer);
    parentPort.on("message", (message) => run(post, message));
}
