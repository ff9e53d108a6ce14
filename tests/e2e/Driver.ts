import type { CheckedTraffic } from "./CheckedTraffic.js";

/** A Bayeux message as it stands on the wire. */
export interface Message {
    readonly channel: string;
    readonly id?: string;
    readonly clientId?: string;
    readonly successful?: boolean;
    readonly error?: string;
    readonly data?: unknown;
    readonly advice?: { readonly reconnect?: string; readonly interval?: number; readonly timeout?: number };
    readonly connectionType?: string;
    readonly subscription?: string | readonly string[];
    readonly ext?: unknown;
}

export type Library = "cometd" | "faye";

export type Transport = "websocket" | "long-polling";

export interface DriverOptions {
    /** The address of the Bayeux endpoint, with a query or without. */
    readonly url: string;
    /** The one transport to use; without it, whatever the library picks. */
    readonly transport?: Transport | undefined;
    /** Headers of requests, where the library can send them. */
    readonly headers?: Readonly<Record<string, string>> | undefined;
}

/** Channel and data of what is published, or of what arrived at a listener. */
export interface Publication {
    readonly channel: string;
    readonly data: unknown;
}

/**
 * One stock Bayeux library behind the verbs that tests use. Every verb resolves to the server's reply, also to an
 * unsuccessful one; a reply that never comes leaves it open, and the test's own time limit ends the wait.
 */
export interface Driver {
    /** Called for each call of a listener, in order. */
    onEvent: (event: Publication) => void;
    /** Shakes hands, with the token, if any, in the message itself. */
    handshake(token?: string): Promise<Message>;
    subscribe(channel: string): Promise<Message>;
    unsubscribe(channel: string): Promise<Message>;
    publish(channel: string, data: unknown): Promise<Message>;
    /** Publishes all of it together, as far as the library and the transport can. */
    batch(publications: readonly Publication[]): Promise<Message[]>;
    /** Resolves when the library considers itself disconnected. */
    disconnect(): Promise<void>;
    /** What the library sent and received so far, and what was wrong with it. */
    traffic(): Promise<Pick<CheckedTraffic, "sent" | "received" | "complaints">>;
}

/** Waits until the client has a connect that the server holds, and returns it. */
export async function heldConnect(driver: Driver): Promise<Message> {
    for (;;) {
        const { sent, received } = await driver.traffic();
        const last = sent.filter(({ channel }) => channel === "/meta/connect").at(-1);
        // One with an advice of its own asks to be answered at once.
        if (
            last &&
            !last.advice &&
            !received.some(({ id, channel }) => id === last.id && channel === last.channel)
        ) {
            return last;
        }
        await new Promise((resolve) => setTimeout(resolve, 5));
    }
}
