import type { JsonObject } from "./checks.js";

/**
 * What a transport reports. All calls come from the event loop, never from inside a call of the
 * transport's own methods.
 */
export interface TransportEvents {
    /** A message arrived on a subscribed channel. `data` is unchecked. */
    onMessage(channel: string, data: unknown): void;
    /** The link is down, and the transport is trying to come back. */
    onLost(reason: Error): void;
    /**
     * The link is up again. With `session` "kept" the server still knows this client and its
     * subscriptions; with "new" it does not, and all subscriptions have to be made again.
     */
    onRestored(session: "kept" | "new"): void;
    /** The server ended it for good; no further call follows. */
    onClosed(reason: Error): void;
}

/** A subscription at the server. */
export interface Subscription {
    /** Ends it, without waiting for the server's answer. */
    unsubscribe(): void;
}

/** Publish and subscribe, and nothing of what is said over it. */
export interface Transport {
    /**
     * Whether messages survive a lost link, so that what is open may stay open. Without it, a
     * response may have been written into the dead link, and would be waited for in vain.
     */
    readonly redelivers: boolean;
    /** Resolves once the server has let us in; rejects with RefusedError or ConnectionError. */
    open(): Promise<void>;
    /** Resolves when the server took the message; rejects with RefusedError or ConnectionError. */
    publish(channel: string, data: JsonObject): Promise<void>;
    /** Resolves when the server confirmed it. Messages go to `TransportEvents.onMessage`. */
    subscribe(channel: string): Promise<Subscription>;
    /** Says goodbye and ends. Resolves also if the server could not be told. Idempotent. */
    close(): Promise<void>;
}
