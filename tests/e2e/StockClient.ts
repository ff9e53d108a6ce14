import { CometD, type Message } from "cometd";
import { adapt } from "cometd-nodejs-client";

import type { ServerProcess } from "./ServerProcess.js";

// It also redirects console.debug to console.log, for everybody.
const { debug } = console;
adapt();
console.debug = debug;

export type Data = Record<string, unknown>;

export interface Event {
    readonly channel: string;
    readonly data: Data;
}

/** The stock `cometd` package, used by hand, with what it receives recorded in order. */
export class StockClient {
    readonly cometd = new CometD();
    /** Every event of every subscription, in the order of arrival. */
    readonly events: Event[] = [];
    #waiting: (() => void)[] = [];
    #requestCount = 0;

    constructor(server: ServerProcess) {
        this.cometd.configure({
            url: server.endpoint,
            logLevel: "warn",
            // The library would refuse to send anything above 8192 characters.
            maxSendBayeuxMessageSize: 64 * 1024 * 1024,
        });
    }

    /** A client that has shaken hands, subscribed to the two public responses and attached as `id`. */
    static async attached(server: ServerProcess, id: string): Promise<StockClient> {
        const client = new StockClient(server);
        await client.handshake(server.token);
        await client.subscribe("/yvm/attach/response");
        await client.subscribe("/yvm/detach/response");
        const response = await client.attach({
            requestID: id,
            yvmID: "user-yvm",
            supportedApiVersions: ["r24a0"],
        });
        if (response["channelPrefix"] !== `/yvm/${id}`) {
            throw new Error(`the attach failed: ${JSON.stringify(response)}`);
        }
        await client.subscribe(`/yvm/${id}/**`);
        return client;
    }

    /** Resolves to the reply, also to an unsuccessful one. */
    handshake(token?: string): Promise<Message> {
        return new Promise((resolve) => {
            this.cometd.handshake(token === undefined ? {} : { ext: { token } }, resolve);
        });
    }

    subscribe(channel: string): Promise<Message> {
        return new Promise((resolve) => {
            this.cometd.subscribe(
                channel,
                (message) => {
                    this.events.push({ channel: message.channel, data: message.data as Data });
                    const waiting = this.#waiting;
                    this.#waiting = [];
                    for (const wake of waiting) {
                        wake();
                    }
                },
                resolve,
            );
        });
    }

    /** Resolves to the reply of the server, which says no more than that it took the message. */
    publish(channel: string, data: unknown): Promise<Message> {
        return new Promise((resolve) => {
            this.cometd.publish(channel, data, resolve);
        });
    }

    /** Waits for an event. Only the test's own time limit bounds the wait. */
    async event(isWanted: (event: Event) => boolean): Promise<Event> {
        for (;;) {
            const found = this.events.find(isWanted);
            if (found) {
                return found;
            }
            await new Promise<void>((resolve) => this.#waiting.push(resolve));
        }
    }

    /** Publishes a request and waits for the response with its `requestID`. */
    async request(channel: string, data: Data & { requestID: string }): Promise<Data> {
        const reply = await this.publish(`${channel}/request`, data);
        if (reply.successful !== true) {
            throw new Error(`the server refused the request: ${reply.error ?? "without a reason"}`);
        }
        const { data: response } = await this.event(
            (event) => event.channel === `${channel}/response` && event.data["requestID"] === data.requestID,
        );
        return response;
    }

    attach(data: Data & { requestID: string }): Promise<Data> {
        return this.request("/yvm/attach", data);
    }

    /** Evaluates a command with its text connected; returns the response and the texts, in order. */
    async eval(id: string, command: string, keys: Data = {}): Promise<{ response: Data; texts: Data[] }> {
        const requestID = `eval-${String(++this.#requestCount)}`;
        const response = await this.request(`/yvm/${id}/eval`, {
            requestID,
            command,
            runOptions: { useNullOutSink: false, useNullErrSink: false },
            ...keys,
        });
        const end = this.events.findIndex(
            ({ channel, data }) => channel.endsWith("/response") && data["requestID"] === requestID,
        );
        // Whatever came behind the response is not counted: text has to precede it.
        const texts = this.events
            .slice(0, end)
            .filter(({ channel, data }) => channel.includes("/text/") && data["requestID"] === requestID)
            .map(({ data }) => data);
        return { response, texts };
    }

    /** The text of one stream of a command, joined. */
    async print(id: string, command: string, stream = 0): Promise<string> {
        const { response, texts } = await this.eval(id, command);
        if (response["error"] !== undefined) {
            throw new Error(`the command failed: ${JSON.stringify(response["error"])}`);
        }
        return texts
            .filter((text) => text["stream"] === stream)
            .map((text) => text["text"] as string)
            .join("");
    }

    async feval(id: string, name: string, rhsArgs: string[], keys: Data = {}): Promise<Data> {
        return this.request(`/yvm/${id}/feval`, {
            requestID: `feval-${String(++this.#requestCount)}`,
            function: name,
            numOutputsExpected: 1,
            rhsArgs,
            ...keys,
        });
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
}
