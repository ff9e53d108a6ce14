import { listenForAbort, type AbortOptions } from "./abort.js";
import type { CancelOptions, CancelStatus, PlainCancelOptions } from "./CancelStatus.js";
import type { TextChunk } from "./checks.js";
import type { EventOf } from "./events.js";
import { defaultMaxWaitingEvents } from "./EventSubscription.js";
import { Queue } from "./Queue.js";

/** How a request is driven from the inside; users see the RequestFuture alone. */
export interface RequestDriver {
    /** Where to: the channel below the client's prefix that answers it, e.g. `/eval`. */
    readonly channel: string;
    pushText(chunk: TextChunk): void;
    pushEvent(event: EventOf<string>): void;
    /** The response came. A throw of the reader of the result rejects the request. */
    respond(body: Readonly<Record<string, unknown>>): void;
    fail(reason: Error): void;
}

/** How a request is stopped; given by the client that makes it. */
export interface RequestStopper {
    cancel(options: CancelOptions | PlainCancelOptions): Promise<CancelStatus | undefined>;
    /** The signal was aborted while the request was open: fails it. */
    abort(driver: RequestDriver, reason: unknown): void;
    /** The request has settled, in whatever way. */
    settled(): void;
}

export interface RequestOptions<N extends string = never> extends AbortOptions {
    /**
     * Names of the events that this command itself causes and that are wanted; a name that the server does not
     * know is passed over without a word. With `ylutil::io::TextBaseEvent` the text comes as events only.
     */
    readonly events?: readonly N[] | undefined;
    /**
     * Called with each of these events as it arrives, among the text in its order and before the request is
     * settled. What it throws rejects the request. Without it they wait for a loop over `RequestFuture.events`.
     */
    readonly onEvent?: ((event: EventOf<N>) => void) | undefined;
    /**
     * Called with each piece of text as it arrives, before the request is settled. What it throws
     * rejects the request.
     */
    readonly onText?: ((chunk: TextChunk) => void) | undefined;
    /**
     * Where the text goes:
     *
     * - "keep" (default): it is kept for `text`, the result, and any number of loops over `output`
     * - "stream": to `onText` if that is given, else to one loop over `output`, and is let go when it was read.
     *   What the loop has not read yet waits without bound, until the loop is left
     * - "client": where the client-wide text goes, see `Client.output`
     * - "none": nowhere, the engine drops it
     *
     * Of the run options, `useNullOutSink` and `useNullErrSink` overrule it for their stream.
     */
    readonly output?: OutputTarget | undefined;
}

export type OutputTarget = "keep" | "stream" | "client" | "none";

/**
 * A request in flight: await it for its result, or read its text while it runs.
 *
 * It resolves when the server's response has come, which is when the work has ended and all of its text
 * has arrived. It rejects with
 * - YvmError if the command failed or was not accepted by the engine,
 * - RefusedError if the server did not take the message,
 * - AbortedError if the signal that it was given was aborted,
 * - ConnectionError if the connection was lost, and it is unknown how the command ended,
 * - ClosedError if the client was detached or the connection closed from this side.
 */
export class RequestFuture<T, N extends string = never> implements PromiseLike<T> {
    /** The identifier under which the server knows the request. */
    readonly requestID: string;
    /** The result as an ordinary promise. */
    readonly done: Promise<T>;
    readonly #stopper: RequestStopper;
    /** All text, if it is kept. */
    readonly #chunks: TextChunk[] = [];
    /** The text that nobody has read, if it is not kept. */
    readonly #queue: Queue<TextChunk> | undefined;
    readonly #events = new Queue<EventOf<N>>(defaultMaxWaitingEvents);
    #settled = false;
    /** Wakes the readers of `output`, each of which waits for at most one call. */
    #wake: (() => void)[] = [];

    /**
     * @param requestID identifier of the request
     * @param options what happens to its text and events, and the signal, which is not aborted yet
     * @param stopper what stops it
     * @param readResult makes the result from the response's body and the text, or throws
     * @param expose is given the driver
     */
    constructor(
        requestID: string,
        channel: string,
        options: RequestOptions<N>,
        stopper: RequestStopper,
        readResult: (body: Readonly<Record<string, unknown>>, future: RequestFuture<T, N>) => T,
        expose: (driver: RequestDriver) => void,
    ) {
        this.requestID = requestID;
        this.#stopper = stopper;
        const keepsText = (options.output ?? "keep") === "keep";
        this.#queue = keepsText || options.onText ? undefined : new Queue<TextChunk>();
        this.done = new Promise((resolve, reject) => {
            const stopListening = listenForAbort(options.signal, () => {
                stopper.abort(driver, options.signal?.reason);
            });
            const settle = () => {
                this.#settled = true;
                stopListening();
                this.#queue?.end();
                this.#events.end();
                this.#wakeReaders();
                stopper.settled();
            };
            const fail = (reason: unknown) => {
                settle();
                // eslint-disable-next-line @typescript-eslint/prefer-promise-reject-errors -- passed on as thrown
                reject(reason);
            };
            const driver: RequestDriver = {
                channel,
                pushText: (chunk) => {
                    if (keepsText) {
                        this.#chunks.push(chunk);
                    }
                    this.#queue?.push(chunk);
                    this.#wakeReaders();
                    try {
                        options.onText?.(chunk);
                    } catch (error) {
                        fail(error);
                    }
                },
                pushEvent: (event) => {
                    if (!options.onEvent) {
                        this.#events.push(event as EventOf<N>);
                        return;
                    }
                    try {
                        options.onEvent(event as EventOf<N>);
                    } catch (error) {
                        fail(error);
                    }
                },
                respond: (body) => {
                    settle();
                    // Through a promise, so that what the reader throws becomes the rejection.
                    resolve(Promise.resolve().then(() => readResult(body, this)));
                },
                fail,
            };
            expose(driver);
        });
    }

    // A thenable is what makes `await client.eval(...)` work while the object offers more than a promise.
    then<R1 = T, R2 = never>(
        onFulfilled?: ((value: T) => R1 | PromiseLike<R1>) | null,
        onRejected?: ((reason: unknown) => R2 | PromiseLike<R2>) | null,
    ): Promise<R1 | R2> {
        return this.done.then(onFulfilled, onRejected);
    }

    /**
     * Asks the engine to stop this request; what it says is what became of it. The request settles by its
     * own answer, in either order: if it was stopped, with a YvmError of status 3.
     *
     * May be repeated, for a command that has caught the interrupt and goes on. Also of use when the
     * connection was lost, and with it the answer of a command that still runs.
     *
     * @throws UnsupportedError with r22a0, unless the options say `status: false`
     */
    cancel(options?: CancelOptions): Promise<CancelStatus>;
    /** The same without being told what became of it. */
    cancel(options: PlainCancelOptions): Promise<undefined>;
    cancel(options: CancelOptions | PlainCancelOptions = {}): Promise<CancelStatus | undefined> {
        return this.#stopper.cancel(options);
    }

    /** The text that has come so far, of both streams in the order of arrival; empty if it is not kept. */
    get text(): string {
        return this.#chunks.map((chunk) => chunk.text).join("");
    }

    /** The text that has come so far on one stream: 0 for standard output, 1 for standard error. */
    textOf(stream: 0 | 1): string {
        return this.#chunks
            .filter((chunk) => chunk.stream === stream)
            .map((chunk) => chunk.text)
            .join("");
    }

    /**
     * The text, piece by piece from the first, to be read with `for await`. The loop ends when the
     * request is settled, and throws what the request rejects with. Leaving it does not stop the request.
     */
    get output(): AsyncIterable<TextChunk> {
        // Whoever loops over the text learns of a failure there.
        this.done.catch(() => undefined);
        const queue = this.#queue;
        return { [Symbol.asyncIterator]: () => (queue ? this.#readQueue(queue) : this.#readChunks()) };
    }

    /**
     * The events that were asked for, to be read with one `for await` if there is no `onEvent`. The loop ends
     * when the request is settled, and throws what the request rejects with. Leaving it does not stop the
     * request. Of events that have not been read the last 1000 wait; `droppedEvents` counts the others.
     */
    get events(): AsyncIterable<EventOf<N>> {
        this.done.catch(() => undefined);
        return { [Symbol.asyncIterator]: () => this.#readQueue(this.#events) };
    }

    /** How many events were dropped, since the loop over `events` was too slow for them. */
    get droppedEvents(): number {
        return this.#events.dropped;
    }

    async *#readQueue<Item extends object>(queue: Queue<Item>): AsyncGenerator<Item, void> {
        try {
            for (;;) {
                const item = await queue.next();
                if (!item) {
                    await this.done;
                    return;
                }
                yield item;
            }
        } finally {
            queue.discard();
        }
    }

    async *#readChunks(): AsyncGenerator<TextChunk, void> {
        let next = 0;
        for (;;) {
            const chunk = this.#chunks[next];
            if (chunk) {
                next += 1;
                yield chunk;
            } else if (this.#settled) {
                await this.done;
                return;
            } else {
                await new Promise<void>((resolve) => this.#wake.push(resolve));
            }
        }
    }

    #wakeReaders(): void {
        const readers = this.#wake;
        this.#wake = [];
        for (const wake of readers) {
            wake();
        }
    }
}
