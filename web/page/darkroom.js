// The page's side of the worker. Jobs run one after the other, since each may need most of the memory; what a person waits for
// goes before what is only pending.

export class Darkroom {
    #worker = null;
    #waiting = [];
    #current = null;
    #count = 0;

    // Runs an operation of the worker. Options: signal, urgent, report(stage, fraction). A job that is aborted rejects with the
    // signal's reason.
    run(operation, job = {}, {signal, urgent = false, report = () => {}} = {}) {
        return new Promise((resolve, reject) => {
            const task = {id: ++this.#count, operation, job, signal, report, resolve, reject};
            signal?.addEventListener("abort", () => this.#abort(task));
            if (urgent) {
                this.#waiting.unshift(task);
            } else {
                this.#waiting.push(task);
            }
            this.#next();
        });
    }

    #abort(task) {
        if (task === this.#current) {
            this.#worker.postMessage({abort: task.id});
            return;
        }
        const place = this.#waiting.indexOf(task);
        if (place >= 0) {
            this.#waiting.splice(place, 1);
            task.reject(task.signal.reason);
        }
    }

    #next() {
        if (this.#current || this.#waiting.length === 0) {
            return;
        }
        this.#current = this.#waiting.shift();
        const {id, operation, job} = this.#current;
        this.#worker ??= this.#start();
        this.#worker.postMessage({id, operation, job});
    }

    #start() {
        const worker = new Worker(new URL("./worker.js", import.meta.url), {type: "module"});
        worker.addEventListener("message", ({data}) => this.#receive(data));
        worker.addEventListener("error", (event) => {
            event.preventDefault();
            worker.terminate();
            this.#worker = null;
            this.#finish((task) =>
                task.reject(new Error("The part of this page that works on pictures has stopped. Try again.")),
            );
        });
        return worker;
    }

    #receive(message) {
        const task = this.#current;
        if (message.id !== task?.id) {
            return;
        }
        if (message.stage !== undefined) {
            task.report(message.stage, message.fraction);
        } else if (message.aborted) {
            this.#finish(() => task.reject(task.signal.reason));
        } else if (message.error !== undefined) {
            this.#finish(() => task.reject(new Error(message.error)));
        } else {
            this.#finish(() => task.resolve(message.result));
        }
    }

    #finish(answer) {
        const task = this.#current;
        this.#current = null;
        if (task) {
            answer(task);
        }
        this.#next();
    }
}
