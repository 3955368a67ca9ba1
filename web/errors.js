// Failures of the library. What a caller passes wrongly is a TypeError or a RangeError instead.

/** A call of the library failed, memory is exhausted, or a file of the package cannot be fetched. */
export class KoError extends Error {
    /** The library's messages, newest first; "" for a failure elsewhere. */
    chain;
    /** The library's status, a number of ko/error.h. */
    status;

    constructor(message, chain = "", status = 0) {
        super(message);
        this.name = "KoError";
        this.chain = chain;
        this.status = status;
    }
}

/** Statuses of ko/error.h that failures outside the library have as well. */
export const status = {fatal: 13, alloc: 20, openRead: 30};

/** A failure as it passes from the worker. */
export function described(error) {
    const kind = error instanceof KoError ? "KoError" : error instanceof RangeError ? "RangeError" : "Error";
    return {kind, message: error.message, chain: error.chain, status: error.status};
}

/** The failure that a description is of. Whatever else went wrong in the worker is a failure of the module. */
export function restored({kind, message, chain, status: number}) {
    switch (kind) {
    case "KoError":
        return new KoError(message, chain, number);
    case "RangeError":
        return new RangeError(message);
    default:
        return new KoError(`the module failed: ${message}`, "", status.fatal);
    }
}
