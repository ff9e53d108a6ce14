import { AckExtension, CometD, type Message } from "cometd";

import type { Address } from "./address.js";
import type { JsonObject } from "./checks.js";
import { isObject } from "./checks.js";
import { ClosedError, ConnectionError, RefusedError } from "./errors.js";
import type { Subscription, Transport, TransportEvents } from "./transport.js";

/**
 * The library's own limit is 8192 characters a message, which a matrix of 30 by 30 exceeds. This is
 * the server's default limit in bytes; it checks for itself and answers what is too long.
 */
const maxMessageSize = 64 * 1024 * 1024;

export interface CometdOptions {
    /** Run timers in a worker, so that a page in the background keeps its connection. Default true. */
    readonly useWorkerScheduler?: boolean;
    /**
     * Have what the server sends redelivered until it has arrived, so that requests outlive a lost
     * connection. Everything then waits for a round trip that acknowledges what came before. Default false.
     */
    readonly acknowledge?: boolean;
}

/**
 * Bayeux by the `cometd` library. Life of one object: `open` once, then `publish` and `subscribe`,
 * then `close`.
 *
 * While the server can't be reached the library keeps trying by itself. Before the first success it is
 * stopped when each of its transports has failed once, since nobody waits for a wrong address.
 */
export class CometdTransport implements Transport {
    readonly #cometd = new CometD();
    readonly #address: Address;
    readonly #events: TransportEvents;
    #state: "connecting" | "connected" | "lost" | "closed" = "connecting";
    #redelivers = false;

    constructor(address: Address, events: TransportEvents, options: CometdOptions = {}) {
        this.#address = address;
        this.#events = events;
        // The server offers no JSONP, and trying it would only delay the error.
        this.#cometd.unregisterTransport("callback-polling");
        if (options.acknowledge === true) {
            this.#cometd.registerExtension("ack", new AckExtension());
        }
        this.#cometd.configure({
            url: address.endpoint,
            logLevel: "warn",
            maxSendBayeuxMessageSize: maxMessageSize,
            useWorkerScheduler: options.useWorkerScheduler ?? true,
        });
        this.#cometd.addListener("/meta/connect", (message) => {
            this.#onConnect(message);
        });
        this.#cometd.addListener("/meta/disconnect", (message) => {
            if (message.successful === true) {
                this.#endedByServer(new ConnectionError("The server ended the session"));
            }
        });
    }

    get redelivers(): boolean {
        return this.#redelivers;
    }

    open(): Promise<void> {
        return new Promise((resolve, reject) => {
            let attemptsLeft = this.#cometd.getTransportTypes().length;
            const giveUp = (reason: Error) => {
                this.#state = "closed";
                this.#cometd.disconnect();
                reject(reason);
            };
            this.#cometd.addListener("/meta/handshake", (message) => {
                if (this.#state !== "connecting") {
                    this.#onHandshakeAgain(message);
                } else if (message.successful === true) {
                    this.#state = "connected";
                    this.#readAcknowledgement(message);
                    resolve();
                } else if (message.advice?.reconnect === "none") {
                    giveUp(refusal("handshake", message));
                } else if (hasFailed(message) && --attemptsLeft === 0) {
                    giveUp(new ConnectionError(`No server answers at ${this.#address.endpoint}`));
                }
            });
            const { token } = this.#address;
            this.#cometd.handshake(token === undefined ? {} : { ext: { token } });
        });
    }

    publish(channel: string, data: JsonObject): Promise<void> {
        return new Promise((resolve, reject) => {
            this.#requireOpen();
            this.#cometd.publish(channel, data, (reply) => {
                if (reply.successful === true) {
                    resolve();
                } else {
                    reject(replyError(`publish on ${channel}`, reply));
                }
            });
        });
    }

    subscribe(channel: string): Promise<Subscription> {
        return new Promise((resolve, reject) => {
            this.#requireOpen();
            const handle = this.#cometd.subscribe(
                channel,
                (message) => {
                    this.#events.onMessage(message.channel, message.data);
                },
                (reply) => {
                    if (reply.successful === true) {
                        resolve({
                            unsubscribe: () => {
                                if (!this.#cometd.isDisconnected()) {
                                    this.#cometd.unsubscribe(handle);
                                }
                            },
                        });
                    } else {
                        reject(replyError(`subscription to ${channel}`, reply));
                    }
                },
            );
        });
    }

    close(): Promise<void> {
        if (this.#state === "closed") {
            return Promise.resolve();
        }
        this.#state = "closed";
        return new Promise((resolve) => {
            // Called with the server's answer, and also when it could not be sent.
            this.#cometd.disconnect(() => {
                resolve();
            });
        });
    }

    #requireOpen(): void {
        if (this.#state === "closed") {
            throw new ClosedError("The connection is closed");
        }
    }

    #readAcknowledgement(handshake: Message): void {
        const ack: unknown = isObject(handshake.ext) ? handshake.ext["ack"] : undefined;
        this.#redelivers = ack === true || (isObject(ack) && ack["enabled"] === true);
    }

    /** The library handshakes again when the server says that it doesn't know the session any more. */
    #onHandshakeAgain(message: Message): void {
        if (this.#state === "closed") {
            return;
        }
        if (message.successful === true) {
            this.#state = "connected";
            this.#readAcknowledgement(message);
            this.#events.onRestored("new");
        } else if (message.advice?.reconnect === "none") {
            this.#endedByServer(refusal("handshake", message));
        }
    }

    #onConnect(message: Message): void {
        if (message.successful === true) {
            if (this.#state === "lost") {
                this.#state = "connected";
                this.#events.onRestored("kept");
            }
        } else if (message.advice?.reconnect === "none") {
            this.#endedByServer(refusal("connection", message));
        } else if (this.#state === "connected") {
            this.#state = "lost";
            this.#events.onLost(new ConnectionError("The connection to the server was lost"));
        }
    }

    #endedByServer(reason: Error): void {
        if (this.#state !== "closed") {
            this.#state = "closed";
            this.#events.onClosed(reason);
        }
    }
}

/** Whether this "reply" was made by the library because no reply came; then it tells the failure. */
function hasFailed(message: Message): message is Message & { readonly failure: unknown } {
    return "failure" in message;
}

function refusal(what: string, message: Message): RefusedError {
    return new RefusedError(what, message.error ?? "");
}

function replyError(what: string, reply: Message): Error {
    if (!hasFailed(reply)) {
        return refusal(what, reply);
    }
    const exception = isObject(reply.failure) ? reply.failure["exception"] : undefined;
    if (exception instanceof Error) {
        // For one, the message is too long.
        return new ConnectionError(`The ${what} could not be sent: ${exception.message}`, {
            cause: exception,
        });
    }
    return new ConnectionError(`The connection was lost before the server answered the ${what}`);
}
