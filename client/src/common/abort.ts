import { AbortedError } from "./errors.js";

/** Options of every call that can be called off. */
export interface AbortOptions {
    /**
     * Calls it off: it rejects with AbortedError at once, and what it started at the server is stopped.
     * With a signal that is aborted already, nothing is sent. Once the call has settled the signal means
     * nothing to it, and is no longer listened to.
     */
    readonly signal?: AbortSignal | undefined;
}

/**
 * Calls the listener when the signal is aborted, which it must not be yet.
 *
 * @returns ends the listening
 */
export function listenForAbort(signal: AbortSignal | undefined, listener: () => void): () => void {
    signal?.addEventListener("abort", listener, { once: true });
    return () => {
        signal?.removeEventListener("abort", listener);
    };
}

/**
 * Starts something that settles as it does, or rejects with AbortedError when the signal is aborted first.
 *
 * @param start is not called if the signal is aborted already
 * @param onAbort takes care of what was started, given its promise
 */
export function startAbortable<T>(
    signal: AbortSignal | undefined,
    start: () => Promise<T>,
    onAbort: (started: Promise<T>) => void,
): Promise<T> {
    return new Promise((resolve, reject) => {
        if (signal?.aborted === true) {
            reject(new AbortedError(signal.reason));
            return;
        }
        const started = start();
        const stopListening = listenForAbort(signal, () => {
            reject(new AbortedError(signal?.reason));
            onAbort(started);
        });
        started.finally(stopListening).then(resolve, reject);
    });
}
