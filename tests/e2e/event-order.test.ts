import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { EventReader } from "./EventReader.js";
import { ServerProcess } from "./ServerProcess.js";
import type { Data } from "./StockClient.js";

/** Text and events in one order: what a command printed before it caused an event precedes that event. */

const SUBSCRIPTIONS = {
    clear: "services::io::CLCEvent",
    home: "services::io::HomeEvent",
    prompt: "ylutil::prompt::PromptEvent",
    error: "ylutil::io::PrintableErrorEvent",
    input: "services::prompt::InputRequestEvent",
    value: "ylutil::io::StructuredOutputEvent",
};
const SINK_TEXT = "ylutil::io::SinkTextEvent";

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
yvm.display(6 * 7)
say("five", sys.stdout)
raise ValueError
`;
const ORDER =
    "<busy>one <clear>two <home>three <paused><busy>four name<paused><name><busy>Bob42\n<value>five<ValueError><idle>";

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

    async function runAndAnswer(client: EventReader, runOptions: Data): Promise<void> {
        const response = client.eval(COMMAND, runOptions);
        const { id } = await client.event("input");
        await client.answer(id, "Bob");
        expect(await response).toMatchObject({ error: { identifier: "ValueError" } });
        await client.untilIdle();
    }

    it("a command's own text precedes the events that follow it", async () => {
        const client = await EventReader.attached(server, SUBSCRIPTIONS);
        await runAndAnswer(client, { useNullOutSink: false, useNullErrSink: false });
        expect(client.trace).toBe(ORDER);
        await client.stock.disconnect();
    });

    it("so it does for the event connections of the command itself", async () => {
        const client = await EventReader.attached(server, {
            input: SUBSCRIPTIONS.input,
            prompt: SUBSCRIPTIONS.prompt,
        });
        const { clear, home, error, value } = SUBSCRIPTIONS;
        await runAndAnswer(client, {
            useNullOutSink: false,
            useNullErrSink: false,
            eventConnections: { clear, home, error, value },
        });
        // A command that takes its values by events does not print them.
        expect(client.trace).toBe(ORDER.replace("42\n", ""));
        await client.stock.disconnect();
    });

    it("client-wide text precedes the events that follow it", async () => {
        const client = await EventReader.attached(server, SUBSCRIPTIONS);
        await client.request("yvmSinks", {});
        await runAndAnswer(client, {});
        expect(client.trace).toBe(ORDER);
        await client.stock.disconnect();
    });

    it("in a flood each event has the text before it, and no more", async () => {
        const client = await EventReader.attached(server, { clear: SUBSCRIPTIONS.clear });
        await client.eval(FLOOD, { useNullOutSink: false });
        expect(client.trace).toBe(FLOOD_ORDER);
        await client.stock.disconnect();

        const sinkClient = await EventReader.attached(server, { clear: SUBSCRIPTIONS.clear });
        await sinkClient.request("yvmSinks", {});
        await sinkClient.eval(FLOOD, {});
        expect(sinkClient.trace).toBe(FLOOD_ORDER);
        await sinkClient.stock.disconnect();
    });

    it("client-wide text precedes the events that tell it, also for a client that has no sinks", async () => {
        const owner = await EventReader.attached(server, { told: SINK_TEXT });
        await owner.request("yvmSinks", {});
        const watcher = await EventReader.attached(server, { told: SINK_TEXT, clear: SUBSCRIPTIONS.clear });
        await owner.eval("import yvm\nprint('one', flush=True)\nyvm.clc()\nprint('two')\nyvm.clc()", {});
        await watcher.event("clear", 2);
        expect(owner.trace).toBe("one\n<one\n>two\n<two\n>");
        expect(watcher.trace).toBe("<one\n><clear><two\n><clear>");
        await owner.stock.disconnect();
        await watcher.stock.disconnect();
    });
});
