import { CometD, type SubscriptionHandle } from "cometd";

import { CheckedTraffic } from "./CheckedTraffic.js";
import type { Driver, DriverOptions, Message, Publication } from "./Driver.js";

/** The stock `cometd` package, in Node or in a page. */
export class CometdDriver implements Driver {
    readonly cometd = new CometD();
    onEvent: Driver["onEvent"] = () => undefined;
    readonly #traffic = new CheckedTraffic();
    readonly #subscriptions = new Map<string, SubscriptionHandle[]>();

    constructor(options: DriverOptions) {
        this.cometd.configure({
            url: options.url,
            logLevel: "warn",
            // The library would refuse to send anything above 8192 characters.
            maxSendBayeuxMessageSize: 64 * 1024 * 1024,
            requestHeaders: options.headers ?? {},
        });
        if (options.transport !== undefined) {
            for (const type of this.cometd.getTransportTypes()) {
                if (type !== options.transport) {
                    this.cometd.unregisterTransport(type);
                }
            }
        }
        this.cometd.registerExtension("traffic", {
            outgoing: (message) => {
                this.#traffic.send(message as Message);
                return message;
            },
            incoming: (message) => {
                this.#traffic.receive(message as Message);
                return message;
            },
        });
    }

    handshake(token?: string): Promise<Message> {
        return new Promise((resolve) => {
            this.cometd.handshake(token === undefined ? {} : { ext: { token } }, (reply) => {
                // Where one transport fails it tries the next, and tells of both.
                if (!("failure" in reply)) {
                    resolve(reply as Message);
                }
            });
        });
    }

    subscribe(channel: string): Promise<Message> {
        return new Promise((resolve) => {
            const handle = this.cometd.subscribe(
                channel,
                (message) => {
                    this.onEvent({ channel: message.channel, data: message.data as unknown });
                },
                (reply) => {
                    resolve(reply as Message);
                },
            );
            this.#subscriptions.set(channel, [...(this.#subscriptions.get(channel) ?? []), handle]);
        });
    }

    unsubscribe(channel: string): Promise<Message> {
        const handle = this.#subscriptions.get(channel)?.pop();
        if (!handle) {
            throw new Error(`there is no subscription to ${channel}`);
        }
        return new Promise((resolve) => {
            this.cometd.unsubscribe(handle, (reply) => {
                resolve(reply as Message);
            });
        });
    }

    publish(channel: string, data: unknown): Promise<Message> {
        return new Promise((resolve) => {
            this.cometd.publish(channel, data, (reply) => {
                resolve(reply as Message);
            });
        });
    }

    batch(publications: readonly Publication[]): Promise<Message[]> {
        const replies: Promise<Message>[] = [];
        this.cometd.batch(() => {
            replies.push(...publications.map(({ channel, data }) => this.publish(channel, data)));
        });
        return Promise.all(replies);
    }

    disconnect(): Promise<void> {
        if (this.cometd.isDisconnected()) {
            return Promise.resolve();
        }
        return new Promise((resolve) => {
            this.cometd.disconnect(() => {
                resolve();
            });
        });
    }

    traffic(): Promise<CheckedTraffic> {
        return Promise.resolve(this.#traffic);
    }
}
