import { listenForAbort } from "./abort.js";
import { asObject, asString, type JsonObject } from "./checks.js";
import { AbortedError, ClosedError, ConnectionError } from "./errors.js";
import { readEvent, type EventOf } from "./events.js";
import { defaultMaxWaitingEvents, EventSubscription, type EventOptions } from "./EventSubscription.js";
import { handled } from "./handled.js";
import { Queue } from "./Queue.js";
import type { RequestDriver } from "./RequestFuture.js";

/** What the events need of their client. */
export interface EventsHost {
    /** An identifier that the client has not used yet. */
    newIdentifier(): string;
    /** Sends a request; `answered` settles as its answer says. */
    request(
        channel: string,
        keys: JsonObject,
    ): { readonly requestID: string; readonly answered: Promise<unknown> };
    /** See `ClientHost`. */
    untilLinkIsBack(): Promise<void>;
}

/** Whoever is given the events that come under an identifier. */
interface Receiver {
    onEvent(data: unknown): void;
    /** None will come any more; undefined as the reason if it was this side that ended it. */
    onEnd(reason: Error | undefined): void;
}

/** The events of one run. */
export interface RunConnections {
    /** For its run options. */
    readonly eventConnections: Readonly<Record<string, string>>;
    /** The run has ended, or nobody listens any more. Idempotent. */
    free(): void;
}

/**
 * The client's subscriptions to events, and the connections of its runs. An event says only under which
 * identifier it was asked for, so each has one of its own, and none is used again: the engine answers a
 * second use with an error and keeps it all the same.
 */
export class ClientEvents {
    readonly #host: EventsHost;
    readonly #receivers = new Map<string, Receiver>();

    constructor(host: EventsHost) {
        this.#host = host;
    }

    subscribe<N extends string>(
        name: N,
        { signal, maxWaiting = defaultMaxWaitingEvents }: EventOptions,
    ): EventSubscription<N> {
        const queue = new Queue<EventOf<N>>(maxWaiting);
        if (signal?.aborted === true) {
            const error = new AbortedError(signal.reason);
            queue.end({ error });
            return new EventSubscription(handled(Promise.reject(error)), queue, () => Promise.resolve());
        }
        const { requestID, answered } = this.#host.request("/subscribeEvent", { eventName: name });
        let abandon: (reason: Error) => void = () => undefined;
        const stopListening = listenForAbort(signal, () => {
            fail(new AbortedError(signal?.reason));
            this.#disconnect(requestID).catch(() => undefined); // nobody is left to be told
        });
        const end = (error: Error | undefined) => {
            this.#receivers.delete(requestID);
            stopListening();
            queue.end({ error });
        };
        const fail = (error: Error) => {
            end(error);
            abandon(error);
        };
        this.#receivers.set(requestID, {
            onEvent: (data) => {
                try {
                    queue.push(readEvent(name, data));
                } catch (error) {
                    end(error as Error);
                    this.#disconnect(requestID).catch(() => undefined); // the loop throws the greater trouble
                }
            },
            onEnd: end,
        });
        const subscribed = new Promise<void>((resolve, reject) => {
            abandon = reject;
            answered.then(
                () => {
                    resolve();
                },
                (error: unknown) => {
                    if (this.#receivers.has(requestID)) {
                        end(error instanceof ClosedError ? undefined : (error as Error));
                        if (error instanceof ConnectionError) {
                            this.#disconnectLater(requestID);
                        }
                    }
                    reject(error as Error);
                },
            );
        });
        return new EventSubscription(handled(subscribed), queue, async () => {
            if (this.#receivers.has(requestID)) {
                end(undefined);
                await this.#disconnect(requestID);
            }
        });
    }

    /**
     * Makes identifiers for the events of a run that is about to be sent.
     *
     * @param driver of the run, which is given its events, and fails with one that does not say what its name
     * promises
     */
    openRun(names: readonly string[], driver: Pick<RequestDriver, "pushEvent" | "fail">): RunConnections {
        const eventConnections: Record<string, string> = {};
        for (const name of new Set(names)) {
            const identifier = this.#host.newIdentifier();
            eventConnections[identifier] = name;
            this.#receivers.set(identifier, {
                onEvent: (data) => {
                    let event;
                    try {
                        event = readEvent(name, data);
                    } catch (error) {
                        driver.fail(error as Error);
                        return;
                    }
                    driver.pushEvent(event);
                },
                onEnd: () => undefined, // the run itself is told
            });
        }
        return {
            eventConnections,
            free: () => {
                for (const identifier of Object.keys(eventConnections)) {
                    if (this.#receivers.delete(identifier)) {
                        // One that the engine has passed over, or has never been told of, is refused.
                        this.#disconnect(identifier).catch(() => undefined);
                    }
                }
            },
        };
    }

    /** An event came. Those that nobody waits for any more were on their way when their connection ended. */
    onEvent(data: unknown, path: string): void {
        const message = asObject(data, path);
        const identifier = asString(message["requestID"], `${path}.requestID`);
        this.#receivers.get(identifier)?.onEvent(message["eventData"]);
    }

    /** The server has no subscriptions of this client any more. */
    end(reason: Error): void {
        const receivers = [...this.#receivers.values()];
        this.#receivers.clear();
        for (const receiver of receivers) {
            receiver.onEnd(reason instanceof ClosedError ? undefined : reason);
        }
    }

    async #disconnect(identifier: string): Promise<void> {
        try {
            await this.#host.request("/disconnectEvent", { requestIDtoDisconnect: identifier }).answered;
        } catch (error) {
            if (error instanceof ConnectionError) {
                this.#disconnectLater(identifier);
            } else if (!(error instanceof ClosedError)) {
                throw error;
            }
        }
    }

    /** Frees an identifier of which nobody knows whether the server still has it, when the link is back. */
    #disconnectLater(identifier: string): void {
        this.#host
            .untilLinkIsBack()
            .then(() => this.#disconnect(identifier))
            .catch(() => undefined); // it was free already, or the session is gone, and it with it
    }
}
