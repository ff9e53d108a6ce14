import type { AbortOptions } from "./abort.js";
import type { EventData, EventOf } from "./events.js";
import type { Queue } from "./Queue.js";

/** How many events wait for their reader, unless told otherwise. */
export const defaultMaxWaitingEvents = 1000;

export interface EventOptions extends AbortOptions {
    /**
     * How many events may wait for the loop; beyond it the oldest are dropped, and counted in `dropped`.
     * Default 1000.
     */
    readonly maxWaiting?: number | undefined;
}

/**
 * The engine's events of one type, made by `Client.events`: an iterable for one `for await`.
 *
 * It ends without an error when it is closed, or when the client is detached or the connection closed from
 * this side. It throws
 * - YvmError or RefusedError if there is no such event, or the server does not take the subscription,
 * - ProtocolError if an event does not say what its name promises,
 * - AbortedError if the signal was aborted,
 * - ConnectionError if the server no longer knows the session, and with it the subscription, or if the
 *   connection was lost before the subscription was confirmed.
 *
 * A connection that is lost and comes back within the session does not end it.
 */
export class EventSubscription<N extends string> implements AsyncIterableIterator<EventData<N>, undefined> {
    /** Resolves when the server has confirmed it. Rejects with what the loop throws; nobody has to wait for it. */
    readonly subscribed: Promise<void>;
    readonly #queue: Queue<EventOf<N>>;
    readonly #onClose: () => Promise<void>;

    /**
     * @internal Use `Client.events`.
     * @param onClose called at each close; resolves when the engine has ended the subscription
     */
    constructor(subscribed: Promise<void>, queue: Queue<EventOf<N>>, onClose: () => Promise<void>) {
        this.subscribed = subscribed;
        this.#queue = queue;
        this.#onClose = onClose;
    }

    /** How many events were dropped, since the loop was too slow for them. */
    get dropped(): number {
        return this.#queue.dropped;
    }

    [Symbol.asyncIterator](): this {
        return this;
    }

    async next(): Promise<IteratorResult<EventData<N>, undefined>> {
        const event = await this.#queue.next();
        return event ? { done: false, value: event.data as EventData<N> } : { done: true, value: undefined };
    }

    /** What leaving the loop calls; the same as `close`. */
    async return(): Promise<IteratorResult<EventData<N>, undefined>> {
        await this.close();
        return { done: true, value: undefined };
    }

    /**
     * Ends the subscription; what has not been read is let go. Resolves when the engine has ended it, or when
     * that has to wait for a lost connection. Idempotent.
     */
    async close(): Promise<void> {
        this.#queue.discard();
        await this.#onClose();
    }
}
