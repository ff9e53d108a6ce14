import type { Driver, Message } from "./Driver.js";
import { nodeDriver } from "./nodeDriver.js";
import type { ServerProcess } from "./ServerProcess.js";

export type Data = Record<string, unknown>;

export interface Event {
    readonly channel: string;
    readonly data: Data;
}

/** A stock Bayeux library, used by hand, with what it receives recorded in order. */
export class StockClient {
    /** Every event of every subscription, in the order of arrival. */
    readonly events: Event[] = [];
    readonly driver: Driver;
    readonly #server: ServerProcess;
    #waiting: (() => void)[] = [];
    #requestCount = 0;

    /** Uses the `cometd` package in this process, unless it is given another driver. */
    constructor(server: ServerProcess, driver: Driver = nodeDriver("cometd", { url: server.endpoint })) {
        this.#server = server;
        this.driver = driver;
        driver.onEvent = ({ channel, data }) => {
            this.events.push({ channel, data: data as Data });
            const waiting = this.#waiting;
            this.#waiting = [];
            for (const wake of waiting) {
                wake();
            }
        };
    }

    /** A client that has shaken hands, subscribed to the two public responses and attached as `id`. */
    static async attached(server: ServerProcess, id: string, driver?: Driver): Promise<StockClient> {
        const client = new StockClient(server, driver);
        await client.begin();
        await client.attachAs(id);
        return client;
    }

    /** Shakes hands with the server's token and subscribes to the two public responses. */
    async begin(): Promise<void> {
        const reply = await this.handshake(this.#server.token);
        if (!reply.successful) {
            throw new Error(`the handshake failed: ${JSON.stringify(reply)}`);
        }
        await this.subscribe("/yvm/attach/response");
        await this.subscribe("/yvm/detach/response");
    }

    /** Attaches as `id` with this version alone, and subscribes to everything below its prefix. */
    async attachAs(id: string, apiVersion = "r24a0"): Promise<void> {
        const response = await this.attach({
            requestID: id,
            yvmID: "user-yvm",
            supportedApiVersions: [apiVersion],
        });
        if (response["channelPrefix"] !== `/yvm/${id}` || response["apiVersion"] !== apiVersion) {
            throw new Error(`the attach failed: ${JSON.stringify(response)}`);
        }
        await this.subscribe(`/yvm/${id}/**`);
    }

    /** Resolves to the reply, also to an unsuccessful one. */
    handshake(token?: string): Promise<Message> {
        return this.driver.handshake(token);
    }

    subscribe(channel: string): Promise<Message> {
        return this.driver.subscribe(channel);
    }

    /** Resolves to the reply of the server, which says no more than that it took the message. */
    publish(channel: string, data: unknown): Promise<Message> {
        return this.driver.publish(channel, data);
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
            .filter(({ data }) => typeof data["text"] === "string" && data["requestID"] === requestID)
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

    /** `rhsArgs` are texts for a client of r24a0, and the values themselves for one of r22a0. */
    async feval(id: string, name: string, rhsArgs: unknown[], keys: Data = {}): Promise<Data> {
        return this.request(`/yvm/${id}/feval`, {
            requestID: `feval-${String(++this.#requestCount)}`,
            function: name,
            numOutputsExpected: 1,
            rhsArgs,
            ...keys,
        });
    }

    disconnect(): Promise<void> {
        return this.driver.disconnect();
    }
}
