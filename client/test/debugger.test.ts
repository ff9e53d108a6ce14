import { describe, expect, it } from "vitest";

import {
    UnsupportedError,
    type Breakpoint,
    type Client,
    type ClientDebugger,
    type Connection,
    type EventName,
} from "../src/node.js";
import { failure } from "./failure.js";
import type { FakeServer } from "./FakeServer.js";
import { setUpAttached } from "./setUpAttached.js";

const prefix = "/yvm/c1";

let server: FakeServer;
let yvm: Connection;
let client: Client;

setUpAttached((given) => {
    ({ server, yvm, client } = given);
});

/** The next request on a channel below the prefix: its keys, and what answers it. */
async function asked(name: string): Promise<{
    keys: Record<string, unknown>;
    answer: (body?: Record<string, unknown>) => void;
}> {
    const { requestID, ...keys } = await server.publishOn(`${prefix}/${name}/request`);
    return {
        keys,
        answer: (body = {}) => {
            server.push(`${prefix}/${name}/response`, { requestID, ...body });
        },
    };
}

describe("a breakpoint", () => {
    const line: Breakpoint = { fileName: "a.py", location: { lineNumber: 3 }, expression: "x > 1" };

    it.each<[string, Breakpoint]>([
        ["Line", line],
        ["Line", { fileName: "a.py", location: { lineNumber: 3, anonymousIndex: 0 } }],
        ["Line", { fileName: "a.py", location: { localFunction: "f" } }],
        ["Line", { fileName: "a.py" }],
        ["Global", { type: "ERROR" }],
        ["Global", { type: "WARNING", messageId: "" }],
    ])("is set and cleared on the channels of its kind: %s %j", async (kind, breakpoint) => {
        const set = client.debugger.setBreakpoint(breakpoint);
        const setting = await asked(`set${kind}Breakpoint`);
        expect(setting.keys).toEqual({ breakpoint });
        setting.answer();
        await set;
        const cleared = client.debugger.clearBreakpoint(breakpoint);
        const clearing = await asked(`clear${kind}Breakpoint`);
        expect(clearing.keys).toEqual({ breakpoint });
        clearing.answer();
        await cleared;
    });

    it("is cleared as the engine told it, without the line where it stands", async () => {
        const placed = { fileName: "a.py", location: { lineNumber: 3 }, lineNumber: 4 };
        const cleared = client.debugger.clearBreakpoint(placed);
        const { keys, answer } = await asked("clearLineBreakpoint");
        expect(keys).toEqual({ breakpoint: { fileName: "a.py", location: { lineNumber: 3 } } });
        answer();
        await cleared;
    });

    it("that the engine refuses rejects with what it says", async () => {
        const set = client.debugger.setBreakpoint(line);
        const refused = expect(set).rejects.toMatchObject({ name: "YvmError", message: "no such file" });
        (await asked("setLineBreakpoint")).answer({ error: failure({ message: "no such file" }) });
        await refused;
    });

    it("that is set under an aborted signal sends nothing", async () => {
        const signal = AbortSignal.abort("no");
        await expect(client.debugger.setBreakpoint(line, { signal })).rejects.toMatchObject({
            name: "AbortedError",
            cause: "no",
        });
        expect(server.published.map(({ channel }) => channel)).toEqual(["/yvm/attach/request"]);
    });
});

it.each<[string, (target: ClientDebugger) => Promise<void>]>([
    ["clearAllBreakpoints", (target) => target.clearAllBreakpoints()],
    ["breakInDebugger", (target) => target.breakIn()],
])("%s takes nothing and resolves when it is answered", async (name, call) => {
    const called = call(client.debugger);
    const { keys, answer } = await asked(name);
    expect(keys).toEqual({});
    answer();
    await called;
});

it("has not everything with r22a0, and says so without asking the server", async () => {
    server.apiVersion = "r22a0";
    const old = await yvm.attach({ requestID: "c2" });
    const output = { type: "UNSUPPRESSED_OUTPUT" } as const;
    for (const call of [
        old.debugger.clearAllBreakpoints(),
        old.debugger.setBreakpoint(output),
        old.debugger.clearBreakpoint(output),
    ]) {
        await expect(call).rejects.toBeInstanceOf(UnsupportedError);
    }
    const set = old.debugger.setBreakpoint({ type: "ERROR" });
    const { requestID } = await server.publishOn("/yvm/c2/setGlobalBreakpoint/request");
    server.push("/yvm/c2/setGlobalBreakpoint/response", { requestID });
    await set;
    expect(server.published.filter(({ channel }) => channel.startsWith("/yvm/c2/"))).toHaveLength(1);
});

describe("what moves a stopped command on", () => {
    it.each<[string, (target: ClientDebugger) => Promise<void>]>([
        ["resume", (target) => target.resume()],
        ["step", (target) => target.step()],
        ["step_in", (target) => target.stepIn()],
        ["step_out", (target) => target.stepOut()],
        ["quit", (target) => target.quit()],
    ])("calls yvm.debug.%s at the debug prompt", async (name, call) => {
        const called = call(client.debugger);
        const { keys, answer } = await asked("feval");
        expect(keys).toMatchObject({
            function: `yvm.debug.${name}`,
            rhsArgs: [],
            numOutputsExpected: 0,
            runOptions: { dequeueMode: "DEQUEUE_AT_DEBUG_PROMPT", useNullOutSink: true },
        });
        answer({ result: [] });
        await called;
    });

    it("is taken back by its signal while it waits for a stop", async () => {
        const controller = new AbortController();
        const stepped = client.debugger.step({ signal: controller.signal });
        const { requestID } = await server.publishOn(`${prefix}/feval/request`);
        controller.abort();
        await expect(stepped).rejects.toMatchObject({ name: "AbortedError" });
        expect((await asked("cancel")).keys).toEqual({ requestIDtoCancel: requestID, interrupt: true });
    });
});

describe("the frames of a stop", () => {
    const int = (value: number) => ({ ywtype: "int64", ywsize: [], ywdata: [value] });
    const record = (ywdata: Record<string, unknown>) => ({ ywtype: "record", ywsize: [], ywdata });
    const list = (ywdata: unknown[]) => ({ ywtype: "list", ywsize: [ywdata.length], ywdata });
    const stack = list([
        record({ file: "a.py", function: "<module>", line: int(9), source: "f()", selected: true }),
        record({ file: "a.py", function: "f", line: int(3), source: "x = 1", selected: false }),
    ]);
    const frames = [
        { fileName: "a.py", functionName: "<module>", lineNumber: 9, sourceLine: "f()", selected: true },
        { fileName: "a.py", functionName: "f", lineNumber: 3, sourceLine: "x = 1", selected: false },
    ];

    it("are told at once", async () => {
        const told = client.debugger.stack();
        const { keys, answer } = await asked("feval");
        expect(keys).toMatchObject({
            function: "yvm.debug.stack",
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
        answer({ result: [stack] });
        expect(await told).toEqual(frames);
    });

    it.each<[string, (target: ClientDebugger) => Promise<unknown>]>([
        ["up", (target) => target.up(2)],
        ["down", (target) => target.down(2)],
    ])("are told anew by %s", async (name, call) => {
        const told = call(client.debugger);
        const { keys, answer } = await asked("feval");
        expect(keys).toMatchObject({
            function: `yvm.debug.${name}`,
            rhsArgs: ['{"ywtype":"int64","ywsize":[],"ywdata":[2]}'],
            runOptions: { dequeueMode: "DEQUEUE_AT_DEBUG_PROMPT" },
        });
        answer({ result: [stack] });
        expect(await told).toEqual(frames);
    });

    it("that are none reject with what is wrong", async () => {
        const told = client.debugger.stack();
        const refused = expect(told).rejects.toMatchObject({
            name: "ProtocolError",
            message: "stack[0].file should be a string, but is undefined",
        });
        (await asked("feval")).answer({ result: [list([record({})])] });
        await refused;
    });

    it("have variables", async () => {
        const told = client.debugger.locals();
        const { keys, answer } = await asked("feval");
        expect(keys).toMatchObject({
            function: "yvm.debug.locals",
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
        answer({
            result: [
                list([
                    record({ name: "x", type: "int", shape: list([]), text: "1", bytes: int(28) }),
                    record({ name: "y", type: "ndarray", shape: list([int(2), int(3)]), text: "array(..)" }),
                ]),
            ],
        });
        expect(await told).toEqual([
            { name: "x", type: "int", shape: [], text: "1" },
            { name: "y", type: "ndarray", shape: [2, 3], text: "array(..)" },
        ]);
    });

    it("are evaluated in at the debug prompt, with the text of the command", async () => {
        const evaluated = client.debugger.evaluate("x", { runOptions: { commandWindowColSize: 40 } });
        const { keys, answer } = await asked("eval");
        expect(keys).toMatchObject({
            command: "x",
            runOptions: { dequeueMode: "DEQUEUE_AT_DEBUG_PROMPT", commandWindowColSize: 40 },
        });
        server.push(`${prefix}/text/output`, { requestID: evaluated.requestID, stream: 0, text: "1\n" });
        answer();
        expect((await evaluated).text).toBe("1\n");
    });

    it("lead back to breakpoints, which are told as in their event", async () => {
        const told = client.debugger.breakpoints();
        const { keys, answer } = await asked("feval");
        expect(keys).toMatchObject({
            function: "yvm.debug.breakpoints",
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
        answer({
            result: [
                list([
                    record({ file: "a.py", line: int(4), condition: "x > 1" }),
                    record({ file: "a.py", line: int(4), anonymous_index: int(1) }),
                    record({ file: "a.py", function: "f" }),
                    record({ file: "a.py" }),
                    record({ type: "ERROR", message_id: "ValueError" }),
                    record({ type: "WARNING" }),
                ]),
            ],
        });
        expect(await told).toEqual([
            { fileName: "a.py", location: { lineNumber: 4 }, lineNumber: 4, expression: "x > 1" },
            { fileName: "a.py", location: { lineNumber: 4, anonymousIndex: 1 }, lineNumber: 4 },
            { fileName: "a.py", location: { localFunction: "f" } },
            { fileName: "a.py" },
            { type: "ERROR", messageId: "ValueError" },
            { type: "WARNING" },
        ]);
    });
});

describe("the debugger's events", () => {
    async function eventAs(name: EventName, eventData: unknown): Promise<unknown> {
        const events = client.events(name);
        const { requestID } = await server.publishOn(`${prefix}/subscribeEvent/request`);
        server.push(`${prefix}/subscribeEvent/response`, { requestID });
        server.push(`${prefix}/event/fireEvent`, { requestID, eventData });
        return (await events.next()).value;
    }

    it.each<[EventName, unknown]>([
        [
            "yvm::DebuggerStoppedEvent",
            {
                reason: "breakpoint",
                level: 1,
                message: "",
                fileName: "a.py",
                lineNumber: 3,
                stackFrames: [{ fileName: "a.py", functionName: "f", lineNumber: 3, sourceLine: "x = 1" }],
            },
        ],
        ["yvm::DebuggerResumedEvent", { level: 2 }],
        [
            "yvm::BreakpointsChangedEvent",
            {
                breakpoints: [
                    { fileName: "a.py", location: { lineNumber: 3 }, lineNumber: 4 },
                    {
                        fileName: "a.py",
                        location: { lineNumber: 3, anonymousIndex: 1 },
                        lineNumber: 3,
                        expression: "x > 1",
                    },
                    { fileName: "a.py", location: { localFunction: "f" } },
                    { fileName: "a.py" },
                    { type: "ERROR", messageId: "ValueError" },
                    { type: "NAN_INF" },
                ],
            },
        ],
    ])("say what %s promises", async (name, data) => {
        expect(await eventAs(name, data)).toEqual(data);
    });

    it.each<[EventName, unknown, string]>([
        [
            "yvm::DebuggerStoppedEvent",
            { reason: "step", level: "1" },
            "yvm::DebuggerStoppedEvent.level should be a number, but is string",
        ],
        [
            "yvm::DebuggerResumedEvent",
            {},
            "yvm::DebuggerResumedEvent.level should be a number, but is undefined",
        ],
        [
            "yvm::BreakpointsChangedEvent",
            { breakpoints: [{ fileName: "a.py", location: {} }] },
            "yvm::BreakpointsChangedEvent.breakpoints[0].location.lineNumber should be a number, but is undefined",
        ],
    ])("end the loop where %s says something else", async (name, data, message) => {
        await expect(eventAs(name, data)).rejects.toMatchObject({ name: "ProtocolError", message });
    });
});
