import { readFileSync } from "node:fs";
import { fileURLToPath } from "node:url";

import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { AsyncApi, type Passed } from "./AsyncApi.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** The documents of all channels and messages, held against sessions that use each of them. */

const id = "a";

/** A client that is attached with one version of the protocol, and what passes in its session. */
class Session {
    private constructor(
        readonly stock: StockClient,
        readonly version: string,
        readonly events: readonly string[],
    ) {}

    static async begin(server: ServerProcess, version: string, events: readonly string[]): Promise<Session> {
        const stock = new StockClient(server);
        await stock.begin();
        await stock.attach({ requestID: "none", yvmID: "user-yvm", supportedApiVersions: ["r99"] });
        await stock.attach({ requestID: id, yvmID: "user-yvm", supportedApiVersions: [version] });
        await stock.subscribe(`/yvm/${id}/**`);
        return new Session(stock, version, events);
    }

    /** Detaches; returns whatever passed. */
    async end(): Promise<Passed[]> {
        await this.stock.request("/yvm/detach", { requestID: "d", requestIDtoDetach: id });
        const { sent, received } = await this.stock.driver.traffic();
        await this.stock.disconnect();
        return [
            ...sent
                .filter(({ channel }) => !channel.startsWith("/meta/"))
                .map(({ channel, data }): Passed => ({ sender: "client", channel, data })),
            ...received
                .filter(({ successful }) => successful === undefined)
                .map(({ channel, data }): Passed => ({ sender: "server", channel, data })),
        ];
    }

    request(channel: string, data: Data & { requestID: string }): Promise<Data> {
        return this.stock.request(`/yvm/${id}/${channel}`, data);
    }

    async eval(command: string, keys: Data = {}): Promise<void> {
        await this.stock.eval(id, command, keys);
    }

    feval(name: string, args: unknown[], keys: Data = {}): Promise<Data> {
        // The older version has the values themselves.
        const rhsArgs = this.version === "r24a0" ? args.map((arg) => JSON.stringify(arg)) : args;
        return this.stock.feval(id, name, [], { rhsArgs, ...keys });
    }

    /** Waits for an event of the subscription to all of that name. */
    async event(name: string): Promise<Data> {
        const { data } = await this.stock.event(
            ({ channel, data: { requestID } }) =>
                channel.endsWith("/fireEvent") && requestID === `watch ${name}`,
        );
        return data["eventData"] as Data;
    }
}

/** Uses each channel that all versions have, and lets the engine fire each of its events. */
async function useAll(session: Session): Promise<void> {
    for (const name of session.events) {
        await session.request("subscribeEvent", { requestID: `watch ${name}`, eventName: name });
    }
    await session.request("subscribeEvent", { requestID: "unknown", eventName: "no::SuchEvent" });
    await session.eval("import sys\nprint('out')\nprint('oh', file=sys.stderr)\n1");
    await session.eval("1/0", { isUserEval: true });
    await session.eval("print('mine')", {
        runOptions: {
            useNullOutSink: false,
            eventConnections: { mine: "ylutil::io::TextBaseEvent" },
            outSinkTraits: {},
        },
    });
    await session.eval("import yvm\nyvm.home()\nyvm.clc()");
    await session.eval("for row in yvm.progress(range(3), label='rows'): pass");
    await session.eval("import matplotlib.pyplot as plt\nplt.plot([1, 2]);");
    await session.eval("del row");
    const asking = session.eval("input('name? ')");
    const question = await session.event("services::prompt::InputRequestEvent");
    await session.feval("yvm.answer", [question["id"], "Ada"], {
        runOptions: { dequeueMode: "DEQUEUE_AT_PAUSE" },
        numOutputsExpected: 0,
    });
    await asking;
    await session.request("disconnectEvent", { requestID: "free", requestIDtoDisconnect: "mine" });
    await session.request("disconnectEvent", { requestID: "again", requestIDtoDisconnect: "mine" });

    // Calls.
    await session.feval("numpy.arange", [3]);
    await session.feval("numpy.add", [{ ywtype: "int8", ywsize: [2], ywdata: [1, 2] }, [1, 2]]);
    await session.feval("no_such_function", []);

    // Stops.
    const endless = session.request("eval", {
        requestID: "endless",
        command: "while True: pass",
        runOptions: { groupNames: ["group"] },
    });
    await session.request("cancel", { requestID: "c1", requestIDtoCancel: "endless", interrupt: true });
    await endless;
    await session.request("cancel", { requestID: "c2", requestIDtoCancel: "nobody" });

    // The debugger: breakpoints, and a stop.
    const breakpoint = { fileName: "no-such-file.py", location: { lineNumber: 1 } };
    await session.request("setGlobalBreakpoint", { requestID: "b1", breakpoint: { type: "WARNING" } });
    await session.request("clearGlobalBreakpoint", { requestID: "b2", breakpoint: { type: "WARNING" } });
    await session.request("setLineBreakpoint", { requestID: "b3", breakpoint });
    await session.request("clearLineBreakpoint", { requestID: "b4", breakpoint });
    const stoppable = "x = 1\nx += 1";
    const { result } = await session.feval("yvm.debug.name_command", [stoppable]);
    const [fileName] = result as [string];
    const inCommand = { fileName, location: { lineNumber: 2 }, expression: "x == 1" };
    await session.request("setLineBreakpoint", { requestID: "b5", breakpoint: inCommand });
    const stopped = session.eval(stoppable);
    await session.event("yvm::DebuggerStoppedEvent");
    await session.feval("yvm.debug.resume", [], {
        runOptions: { dequeueMode: "DEQUEUE_AT_DEBUG_PROMPT" },
        numOutputsExpected: 0,
    });
    await stopped;
    await session.request("clearLineBreakpoint", { requestID: "b6", breakpoint: inCommand });
    await session.request("breakInDebugger", { requestID: "b7" });
}

async function useWhatR24a0Has(session: Session): Promise<void> {
    await session.request("yvmSinks", {
        requestID: "s1",
        outSinkTraits: {},
        errSinkTraits: { useEcho: false },
    });
    await session.request("eval", { requestID: "sunk", command: "print('to the sinks')" });
    await session.stock.event(({ channel }) => channel === `/yvm/${id}/yvmSinks/output`);
    await session.request("yvmSinks", { requestID: "s2", outSinkTraits: null, errSinkTraits: null });
    await session.feval("numpy.arange", [3], { ydaOutputFormat: "alwaysYDALong" });
    await session.request("cancelGroup", { requestID: "c3", requestGroupNametoCancel: "group" });
    await session.request("interrupt", { requestID: "c4" });
    await session.request("clearAllBreakpoints", { requestID: "b8" });
}

async function useWhatR22a0Has(session: Session): Promise<void> {
    await session.stock.subscribe("/yvm/sinks/response");
    await session.stock.publish("/yvm/sinks/set", { outSinkTraits: {}, errSinkTraits: { _useEcho: false } });
    const isThere = () => session.stock.events.some(({ channel }) => channel === "/yvm/sinks/response");
    // Not answered: the first text that comes tells that they are there.
    for (let attempt = 1; !isThere(); attempt++) {
        const requestID = `sunk ${String(attempt)}`;
        await session.request("eval", { requestID, command: "print('to the sinks')" });
    }
}

/** The names of events by the identifiers under which they come. */
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
        for (const [identifier, name] of Object.entries(runOptions?.eventConnections ?? {})) {
            names.set(identifier, name);
        }
    }
    return names;
}

describe.each([
    { fileName: "asyncapi.yaml", version: "r24a0", useTheRest: useWhatR24a0Has },
    { fileName: "asyncapi-r22a0.yaml", version: "r22a0", useTheRest: useWhatR22a0Has },
])("the document $fileName", ({ fileName, version, useTheRest }) => {
    const api = new AsyncApi(fileName);
    let passed: Passed[];
    let eventNames: Map<string, string>;

    beforeAll(async () => {
        const server = await ServerProcess.start();
        const session = await Session.begin(server, version, api.events);
        await useAll(session);
        await useTheRest(session);
        passed = await session.end();
        eventNames = eventNamesOf(passed);
        await server.stop();
    });

    function identify(message: Passed): ReturnType<AsyncApi["identify"]> {
        return api.identify(message, eventNames.get((message.data as Data | null)?.["requestID"] as string));
    }

    it("follows the standard", () => {
        expect(api.complaintsOfTheStandard()).toEqual([]);
    });

    it.each(api.messages)("shows an example of %s that is one", (message) => {
        expect(api.complaintsOfExamples(message)).toEqual([]);
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
                // One channel has requests without an identifier.
                expect(withData(without(data, "requestID")) === undefined).toBe(
                    data["requestID"] === undefined,
                );
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

describe("arguments of r22a0", () => {
    const api = new AsyncApi("asyncapi-r22a0.yaml");
    let server: ServerProcess;
    let stock: StockClient;

    beforeAll(async () => {
        server = await ServerProcess.start();
        stock = new StockClient(server);
        await stock.begin();
        await stock.attachAs(id, "r22a0");
    });

    afterAll(async () => {
        await stock.disconnect();
        await server.stop();
    });

    const long = (ywtype: unknown, ywdata: unknown, ywsize: unknown = [1]) => ({ ywtype, ywsize, ywdata });

    it.each([
        [1.5, true],
        ["text", true],
        [true, true],
        [null, true],
        [[1, 2.5], true],
        [[], true],
        [[1, "a"], false],
        [[[1]], false],
        [{}, false],
        [{ a: 1 }, false],
        [long("float64", [1.5]), true],
        [long("float32", ["NaN"]), true],
        [long("float64", ["nan"]), false],
        [long("float64", 1), false],
        [long("complex64", [1, "-Inf"]), true],
        [long("int8", [-1]), true],
        [long("uint64", [2 ** 53]), true],
        [long("uint64", ["9007199254740993"]), false],
        [long("int16", [1.5]), false],
        [long("int16", [null]), false],
        [long("int16", 1), false],
        [long("bool", [false]), true],
        [long("bool", [0]), false],
        [long("float16", [1]), false],
        [long(5, [1]), false],
        [long("float64", [1], "1"), false],
        [{ ywtype: "float64", ywdata: [1] }, false],
        [{ ywtype: "float64", ywsize: [1] }, false],
        [{ ...long("float64", [1]), further: 1 }, false],
        [{ ywtype: "text", ywdata: "a" }, true],
        [{ ywtype: "text", ywdata: 1 }, false],
        [{ ywtype: "list", ywdata: [1, "a", long("int8", [1])] }, true],
        [{ ywtype: "list", ywdata: [long("int8", ["1"])] }, false],
        [{ ywtype: "list", ywdata: {} }, false],
        [{ ywtype: "record", ywdata: { a: 1, b: { ywtype: "list", ywdata: [] } } }, true],
        [{ ywtype: "record", ywdata: { a: {} } }, false],
        [{ ywtype: "record", ywdata: { ywtype: 5 } }, false],
        [{ ywtype: "record", ywdata: { ywtype: "a" } }, true],
        [{ ywtype: "record", ywdata: [] }, false],
    ])("are described as the server takes them: %j", async (argument, isTaken) => {
        const keys = { requestID: "f", function: "repr", numOutputsExpected: 1, rhsArgs: [argument] };
        const channel = `/yvm/${id}/feval/request`;
        expect("pair" in api.identify({ sender: "client", channel, data: keys })).toBe(isTaken);
        const before = stock.events.length;
        const reply = await stock.publish(channel, keys);
        const answer = reply.successful
            ? await stock.event((event) => stock.events.indexOf(event) >= before && "requestID" in event.data)
            : undefined;
        expect(answer !== undefined && "result" in answer.data).toBe(isTaken);
    });
});

function without(data: Data, key: string): Data {
    return Object.fromEntries(Object.entries(data).filter(([name]) => name !== key));
}
