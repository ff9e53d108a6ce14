import { readFileSync } from "node:fs";
import { fileURLToPath } from "node:url";

import { beforeAll, describe, expect, it } from "vitest";

import { AsyncApi, type Passed } from "./AsyncApi.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** The document of all channels and messages, held against a session that uses each of them. */

const api = new AsyncApi();

/** Whatever passed in the session, and the names of the events by the identifiers of their subscriptions. */
let passed: Passed[];
let eventNames: Map<string, string>;

beforeAll(async () => {
    const server = await ServerProcess.start();
    passed = await session(server);
    eventNames = eventNamesOf(passed);
    await server.stop();
});

/** A session in which every channel is used. */
async function session(server: ServerProcess): Promise<Passed[]> {
    const stock = new StockClient(server);
    await stock.begin();
    await stock.attach({ requestID: "none", yvmID: "user-yvm", supportedApiVersions: ["r99"] });
    await stock.attachAs("a");
    const request = (channel: string, data: Data & { requestID: string }) =>
        stock.request(`/yvm/a/${channel}`, data);

    // Events: a subscription to each, and then what causes them.
    for (const name of api.events) {
        await request("subscribeEvent", { requestID: `watch ${name}`, eventName: name });
    }
    await request("subscribeEvent", { requestID: "unknown", eventName: "no::SuchEvent" });
    await stock.eval("a", "import sys\nprint('out')\nprint('oh', file=sys.stderr)\n1");
    await stock.eval("a", "1/0", { isUserEval: true });
    await stock.eval("a", "print('mine')", {
        runOptions: {
            useNullOutSink: false,
            eventConnections: { mine: "ylutil::io::TextBaseEvent" },
            outSinkTraits: { useEcho: true },
        },
    });
    await stock.eval("a", "import yvm\nyvm.home()\nyvm.clc()");
    await stock.eval("a", "import yvm\nfor row in yvm.progress(range(3), label='rows'): pass");
    await stock.eval("a", "import matplotlib.pyplot as plt\nplt.plot([1, 2]);");
    await stock.eval("a", "del row");
    const asking = stock.eval("a", "input('name? ')");
    const { data: question } = await stock.event(
        ({ channel, data }) =>
            channel.endsWith("/fireEvent") &&
            data["requestID"] === "watch services::prompt::InputRequestEvent",
    );
    const { id } = question["eventData"] as { id: string };
    await stock.feval("a", "yvm.answer", [JSON.stringify(id), '"Ada"'], {
        runOptions: { dequeueMode: "DEQUEUE_AT_PAUSE" },
        numOutputsExpected: 0,
    });
    await asking;
    await request("disconnectEvent", { requestID: "free", requestIDtoDisconnect: "mine" });
    await request("disconnectEvent", { requestID: "again", requestIDtoDisconnect: "mine" });

    // Client-wide sinks: installed, written to, put back.
    await request("yvmSinks", {
        requestID: "install",
        outSinkTraits: {},
        errSinkTraits: { useLogging: false },
    });
    await request("eval", { requestID: "sunk", command: "print('to the sinks')" });
    await stock.event(({ channel }) => channel === "/yvm/a/yvmSinks/output");
    await request("yvmSinks", { requestID: "revert", outSinkTraits: null, errSinkTraits: null });

    // Calls.
    await stock.feval("a", "numpy.arange", ["3"]);
    await stock.feval("a", "numpy.arange", ["3"], { ydaOutputFormat: "alwaysYDALong" });
    await stock.feval("a", "no_such_function", []);

    // Stops.
    const endless = request("eval", {
        requestID: "endless",
        command: "while True: pass",
        runOptions: { groupNames: ["group"] },
    });
    await request("cancel", { requestID: "c1", requestIDtoCancel: "endless", interrupt: true });
    await endless;
    await request("cancel", { requestID: "c2", requestIDtoCancel: "nobody" });
    await request("cancelGroup", { requestID: "c3", requestGroupNametoCancel: "group" });
    await request("interrupt", { requestID: "i" });

    // The debugger: breakpoints, and a stop.
    const breakpoint = { fileName: "no-such-file.py", location: { lineNumber: 1 } };
    await request("setGlobalBreakpoint", { requestID: "b1", breakpoint: { type: "WARNING" } });
    await request("clearGlobalBreakpoint", { requestID: "b2", breakpoint: { type: "WARNING" } });
    await request("setLineBreakpoint", { requestID: "b3", breakpoint });
    await request("clearLineBreakpoint", { requestID: "b4", breakpoint });
    const stoppable = "x = 1\nx += 1";
    const { result } = await stock.feval("a", "yvm.debug.name_command", [JSON.stringify(stoppable)]);
    const [fileName] = result as [string];
    await request("setLineBreakpoint", {
        requestID: "b5",
        breakpoint: { fileName, location: { lineNumber: 2 }, expression: "x == 1" },
    });
    const stopped = stock.eval("a", stoppable);
    await stock.event(
        ({ channel, data }) =>
            channel.endsWith("/fireEvent") && data["requestID"] === "watch yvm::DebuggerStoppedEvent",
    );
    await stock.feval("a", "yvm.debug.resume", [], {
        runOptions: { dequeueMode: "DEQUEUE_AT_DEBUG_PROMPT" },
        numOutputsExpected: 0,
    });
    await stopped;
    await request("clearAllBreakpoints", { requestID: "b6" });
    await request("breakInDebugger", { requestID: "b7" });

    await stock.request("/yvm/detach", { requestID: "d", requestIDtoDetach: "a" });
    const { sent, received } = await stock.driver.traffic();
    await stock.disconnect();
    return [
        ...sent
            .filter(({ channel }) => !channel.startsWith("/meta/"))
            .map(({ channel, data }): Passed => ({ sender: "client", channel, data })),
        ...received
            .filter(({ successful }) => successful === undefined)
            .map(({ channel, data }): Passed => ({ sender: "server", channel, data })),
    ];
}

function eventNamesOf(messages: readonly Passed[]): Map<string, string> {
    const names = new Map<string, string>();
    for (const message of messages) {
        const { requestID, eventName, runOptions } = message.data as {
            requestID: string;
            eventName?: string;
            runOptions?: { eventConnections?: Record<string, string> };
        };
        if (eventName !== undefined) {
            names.set(requestID, eventName);
        }
        for (const [id, name] of Object.entries(runOptions?.eventConnections ?? {})) {
            names.set(id, name);
        }
    }
    return names;
}

function identify(message: Passed): ReturnType<AsyncApi["identify"]> {
    return api.identify(message, eventNames.get((message.data as Data | null)?.["requestID"] as string));
}

describe("the AsyncAPI document", () => {
    it("follows the standard", () => {
        expect(api.complaintsOfTheStandard()).toEqual([]);
    });

    it.each(api.messages)("shows an example of %s that is one", (message) => {
        const examples = api.examplesOf(message);
        expect(examples).not.toEqual([]);
        expect(examples.map((example) => api.complaintOf(message, example))).toEqual(
            examples.map(() => undefined),
        );
    });

    it("agrees with the examples of the page on events", () => {
        const page = readFileSync(fileURLToPath(new URL("../../docs/events.md", import.meta.url)), "utf8");
        const sections = page.split(/^### `(.+)`$/m).slice(1);
        const names = sections.filter((_, index) => index % 2 === 0);
        expect([...names].sort()).toEqual([...api.events].sort());
        for (const [index, name] of names.entries()) {
            const example = /```json\n(.*?)```/s.exec(sections[2 * index + 1] ?? "")?.[1] ?? "";
            const data = { requestID: "e", eventData: JSON.parse(example) as unknown };
            const message: Passed = { sender: "server", channel: "/yvm/c/event/fireEvent", data };
            expect(api.identify(message, name)).toEqual({
                pair: `fireEvent ${name.split("::").at(-1) ?? ""}`,
            });
        }
    });

    it("describes each message of a session", () => {
        const complaints = passed.flatMap((message) => {
            const found = identify(message);
            return "complaint" in found ? found.complaint : [];
        });
        expect(complaints).toEqual([]);
    });

    it("describes a session in which a figure was drawn and an error was answered", () => {
        const texts = passed.map(({ data }) => JSON.stringify(data));
        expect(texts.some((text) => /"image\/png":"iVBOR.*"width":640/.test(text))).toBe(true);
        expect(texts.some((text) => text.includes('"identifier":"ZeroDivisionError"'))).toBe(true);
    });

    it("describes nothing that did not pass in it", () => {
        const pairs = new Set(
            passed.map(identify).map((found) => ("pair" in found ? found.pair : found.complaint)),
        );
        expect(api.pairs.filter((pair) => !pairs.has(pair))).toEqual([]);
    });

    it("is not content with less, with more, or with something else", () => {
        const complaintOf = (message: Passed) => {
            const found = identify(message);
            return "complaint" in found ? found.complaint : undefined;
        };
        // One of each kind.
        const kinds = new Map<string, Passed>();
        for (const message of passed) {
            const found = identify(message);
            kinds.set("pair" in found ? found.pair : found.complaint, message);
        }
        for (const message of kinds.values()) {
            const data = message.data as Data;
            const withData = (changed: unknown) => complaintOf({ ...message, data: changed });
            expect(withData(data)).toBeUndefined();
            for (const value of [null, [], "text", 1]) {
                expect(withData(value)).toBeDefined();
            }
            for (const key of Object.keys(data)) {
                expect(withData({ ...data, [key]: [[{}]] })).toBeDefined();
            }
            const other = message.sender === "client" ? "server" : "client";
            expect(complaintOf({ ...message, sender: other })).toContain("not a channel");
            expect(complaintOf({ ...message, channel: `${message.channel}/further` })).toContain(
                "not a channel",
            );
            if (message.sender === "client") {
                expect(withData(without(data, "requestID"))).toBeDefined();
                continue;
            }
            expect(withData({ ...data, further: 1 })).toBeDefined();
            // Without an error, a message may be that of a success.
            for (const key of Object.keys(data).filter((name) => name !== "error")) {
                expect(withData(without(data, key))).toBeDefined();
            }
            const eventData = (data["eventData"] ?? {}) as Data;
            for (const key of Object.keys(eventData)) {
                expect(withData({ ...data, eventData: without(eventData, key) })).toBeDefined();
                expect(withData({ ...data, eventData: { ...eventData, [key]: [[{}]] } })).toBeDefined();
            }
            expect(withData({ ...data, eventData: { ...eventData, further: 1 } })).toBeDefined();
        }
    });
});

function without(data: Data, key: string): Data {
    return Object.fromEntries(Object.entries(data).filter(([name]) => name !== key));
}
