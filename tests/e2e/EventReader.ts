import { expect } from "vitest";

import type { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

let clientCount = 0;

/** A client that subscribed to events, with its own view of what came, in order. */
export class EventReader {
    #requestCount = 0;

    private constructor(
        readonly id: string,
        readonly stock: StockClient,
    ) {}

    /** `subscriptions` are names of events under the identifiers of their subscriptions. */
    static async attached(
        server: ServerProcess,
        subscriptions: Readonly<Record<string, string>> = {},
    ): Promise<EventReader> {
        const id = `reader-${String(++clientCount)}`;
        const reader = new EventReader(id, await StockClient.attached(server, id));
        for (const [requestID, eventName] of Object.entries(subscriptions)) {
            const answer = await reader.request("subscribeEvent", { requestID, eventName });
            expect(answer["error"]).toBeUndefined();
        }
        return reader;
    }

    request(channel: string, data: Data): Promise<Data> {
        const requestID = `request-${String(++this.#requestCount)}`;
        return this.stock.request(`/yvm/${this.id}/${channel}`, { requestID, ...data });
    }

    /** Runs a command that may fail. */
    eval(command: string, runOptions: Data): Promise<Data> {
        return this.request("eval", { command, runOptions });
    }

    /** Calls a function beside the command that runs, and resolves to its response. */
    query(name: string, ...args: readonly unknown[]): Promise<Data> {
        return this.request("feval", {
            function: name,
            numOutputsExpected: 1,
            rhsArgs: args.map((arg) => JSON.stringify(arg)),
            runOptions: { dequeueMode: "DEQUEUE_AT_PAUSE" },
        });
    }

    /** Answers a request for input, as the first. */
    async answer(id: unknown, text: string): Promise<void> {
        expect((await this.query("yvm.answer", id, text))["error"]).toBeUndefined();
    }

    /** What came so far: text as it is, events in angle brackets. */
    get trace(): string {
        return this.stock.events.map(({ channel, data }) => this.#describe(channel, data)).join("");
    }

    #describe(channel: string, data: Data): string {
        if (channel !== `/yvm/${this.id}/event/fireEvent`) {
            return typeof data["text"] === "string" ? data["text"] : "";
        }
        const { state, identifier, prompt, text } = data["eventData"] as Record<string, string | undefined>;
        return `<${state ?? identifier ?? prompt ?? text ?? String(data["requestID"])}>`;
    }

    /** Waits for the `count`th event that came under an identifier, and returns its data. */
    async event(requestID: string, count = 1): Promise<Data> {
        const isOf = (data: Data) => data["requestID"] === requestID && data["eventData"] !== undefined;
        const all = () => this.stock.events.filter(({ data }) => isOf(data));
        await this.stock.event(() => all().length >= count);
        return all()[count - 1]?.data["eventData"] as Data;
    }

    /** Waits until the prompt is idle, for the first time since the subscription. */
    async untilIdle(): Promise<void> {
        await this.stock.event(({ data }) => (data["eventData"] as Data | undefined)?.["state"] === "idle");
    }
}
