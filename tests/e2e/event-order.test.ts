import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** Text and events in one order: what a command printed before it caused an event precedes that event. */

const SUBSCRIPTIONS = {
    clear: "services::io::CLCEvent",
    home: "services::io::HomeEvent",
    prompt: "ylutil::prompt::PromptEvent",
    error: "ylutil::io::PrintableErrorEvent",
    input: "services::prompt::InputRequestEvent",
};
const SINK_TEXT = "ylutil::io::SinkTextEvent";

let clientCount = 0;

/** A client that subscribed to events, with its own view of what came, in order. */
class Reader {
    readonly id = `order-${String(++clientCount)}`;
    readonly #server: ServerProcess;
    #stock: StockClient | undefined;
    #requestCount = 0;

    constructor(server: ServerProcess) {
        this.#server = server;
    }

    get stock(): StockClient {
        if (!this.#stock) {
            throw new Error("not attached");
        }
        return this.#stock;
    }

    async attach(subscriptions: Readonly<Record<string, string>>): Promise<void> {
        this.#stock = await StockClient.attached(this.#server, this.id);
        for (const [requestID, eventName] of Object.entries(subscriptions)) {
            const answer = await this.request("subscribeEvent", { requestID, eventName });
            expect(answer["error"]).toBeUndefined();
        }
    }

    request(channel: string, data: Data): Promise<Data> {
        const requestID = `request-${String(++this.#requestCount)}`;
        return this.stock.request(`/yvm/${this.id}/${channel}`, { requestID, ...data });
    }

    /** Runs a command that may fail. */
    eval(command: string, runOptions: Data): Promise<Data> {
        return this.request("eval", { command, runOptions });
    }

    async answer(id: string, text: string): Promise<void> {
        const answer = await this.request("feval", {
            function: "yvm.answer",
            numOutputsExpected: 0,
            rhsArgs: [JSON.stringify(id), JSON.stringify(text)],
            runOptions: { dequeueMode: "DEQUEUE_AT_PAUSE" },
        });
        expect(answer["error"]).toBeUndefined();
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

/** Causes each event, with text of either stream and no end of line before it, of which the last is never alone. */
const COMMAND = `
import sys, yvm
def say(text, file):
    for character in text: print(character, end="", file=file)
say("one ", sys.stdout)
yvm.clc()
say("two ", sys.stderr)
yvm.home()
say("three ", sys.stdout)
yvm.pause(0)
say("four ", sys.stdout)
line = input("name")
say(line, sys.stderr)
raise ValueError
`;
const ORDER =
    "<busy>one <clear>two <home>three <paused><busy>four name<paused><name><busy>Bob<ValueError><idle>";

const FLOOD = `
import yvm
for i in range(300):
    print(i)
    yvm.clc()
`;
const FLOOD_ORDER = Array.from({ length: 300 }, (_, i) => `${String(i)}\n<clear>`).join("");

const servers = [
    { batching: "on", options: [] },
    { batching: "off", options: ["--feature", "webui=off"] },
];

describe.each(servers)("with batching of client-wide text $batching", ({ options }) => {
    let server: ServerProcess;

    beforeAll(async () => {
        server = await ServerProcess.start(...options);
    });

    afterAll(async () => {
        await server.stop();
    });

    async function reader(subscriptions: Readonly<Record<string, string>>): Promise<Reader> {
        const client = new Reader(server);
        await client.attach(subscriptions);
        return client;
    }

    async function runAndAnswer(client: Reader, runOptions: Data): Promise<void> {
        const response = client.eval(COMMAND, runOptions);
        const { id } = await client.event("input");
        await client.answer(id as string, "Bob");
        expect(await response).toMatchObject({ error: { identifier: "ValueError" } });
        await client.untilIdle();
    }

    it("a command's own text precedes the events that follow it", async () => {
        const client = await reader(SUBSCRIPTIONS);
        await runAndAnswer(client, { useNullOutSink: false, useNullErrSink: false });
        expect(client.trace).toBe(ORDER);
        await client.stock.disconnect();
    });

    it("so it does for the event connections of the command itself", async () => {
        const client = await reader({ input: SUBSCRIPTIONS.input, prompt: SUBSCRIPTIONS.prompt });
        const { clear, home, error } = SUBSCRIPTIONS;
        await runAndAnswer(client, {
            useNullOutSink: false,
            useNullErrSink: false,
            eventConnections: { clear, home, error },
        });
        expect(client.trace).toBe(ORDER);
        await client.stock.disconnect();
    });

    it("client-wide text precedes the events that follow it", async () => {
        const client = await reader(SUBSCRIPTIONS);
        await client.request("yvmSinks", {});
        await runAndAnswer(client, {});
        expect(client.trace).toBe(ORDER);
        await client.stock.disconnect();
    });

    it("in a flood each event has the text before it, and no more", async () => {
        const client = await reader({ clear: SUBSCRIPTIONS.clear });
        await client.eval(FLOOD, { useNullOutSink: false });
        expect(client.trace).toBe(FLOOD_ORDER);
        await client.stock.disconnect();

        const sinkClient = await reader({ clear: SUBSCRIPTIONS.clear });
        await sinkClient.request("yvmSinks", {});
        await sinkClient.eval(FLOOD, {});
        expect(sinkClient.trace).toBe(FLOOD_ORDER);
        await sinkClient.stock.disconnect();
    });

    it("client-wide text precedes the events that tell it, also for a client that has no sinks", async () => {
        const owner = await reader({ told: SINK_TEXT });
        await owner.request("yvmSinks", {});
        const watcher = await reader({ told: SINK_TEXT, clear: SUBSCRIPTIONS.clear });
        await owner.eval("import yvm\nprint('one', flush=True)\nyvm.clc()\nprint('two')\nyvm.clc()", {});
        await watcher.event("clear", 2);
        expect(owner.trace).toBe("one\n<one\n>two\n<two\n>");
        expect(watcher.trace).toBe("<one\n><clear><two\n><clear>");
        await owner.stock.disconnect();
        await watcher.stock.disconnect();
    });
});
