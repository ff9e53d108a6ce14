import type { AbortOptions } from "./abort.js";
import type { TextChunk } from "./checks.js";
import type { SinkTraits } from "./RunOptions.js";
import type { Queue } from "./Queue.js";

export interface ClientOutputOptions extends AbortOptions {
    /**
     * What the reader can do with the text; what is left out has the engine's default. All that read at the
     * same time share one installation, so that traits other than those that hold are a TypeError. With r22a0
     * they hold until another client asks, since all of its clients share the sinks.
     */
    readonly traits?: { readonly out?: SinkTraits; readonly err?: SinkTraits };
    /**
     * Whether the last reader puts the engine's own sinks back, which r22a0 cannot do. Default true. Otherwise
     * they stay until somebody installs others or, but for r22a0, the client is detached.
     */
    readonly revert?: boolean;
}

/**
 * The engine's client-wide text, made by `Client.output`: an iterable for one `for await`.
 *
 * It ends without an error when it is closed, or when the client is detached or the connection closed from
 * this side. It throws
 * - YvmError or RefusedError if the text could not be had,
 * - UnsupportedError with r22a0, unless the options say `revert: false`,
 * - AbortedError if the signal was aborted,
 * - ConnectionError if the connection was lost, and text may be lost with it.
 */
export class ClientOutput implements AsyncIterableIterator<TextChunk, undefined> {
    /** Resolves when the text comes here. Rejects with what the loop throws; nobody has to wait for it. */
    readonly installed: Promise<void>;
    readonly #queue: Queue<TextChunk>;
    readonly #onClose: () => Promise<void>;

    /**
     * @internal Use `Client.output`.
     * @param onClose called at each close; resolves when the engine has the sinks that it had before
     */
    constructor(installed: Promise<void>, queue: Queue<TextChunk>, onClose: () => Promise<void>) {
        this.installed = installed;
        this.#queue = queue;
        this.#onClose = onClose;
    }

    [Symbol.asyncIterator](): this {
        return this;
    }

    async next(): Promise<IteratorResult<TextChunk, undefined>> {
        const value = await this.#queue.next();
        return value ? { done: false, value } : { done: true, value };
    }

    /** What leaving the loop calls; the same as `close`. */
    async return(): Promise<IteratorResult<TextChunk, undefined>> {
        await this.close();
        return { done: true, value: undefined };
    }

    /**
     * Ends the reading; what has not been read is let go. The last reader puts the engine's own sinks back,
     * unless nobody asked for it: then it resolves when the engine has done so, or when that has to wait for a lost connection. Idempotent.
     *
     * @throws YvmError if the engine could not put its sinks back
     */
    async close(): Promise<void> {
        this.#queue.discard();
        await this.#onClose();
    }
}
