import { mkdtempSync, realpathSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

import { afterEach, beforeEach, describe, expect, it } from "vitest";
import type {
    Breakpoint,
    Breakpoints,
    Client,
    Connection,
    DebuggerResumed,
    DebuggerStopped,
    EventSubscription,
} from "yvm-client";

import { setUpClient } from "./setUpClient.js";

/** The debugger as the client package offers it: the real client, the real server, the real engine. */

/** Line 5 has no code; line 8 has two lambdas. */
const source = `import math

def total(values):
    sum = 0
    # adds up
    for value in values:
        sum += value
    pick = [lambda x: x + 1, lambda x: x * 2]
    return pick[1](sum)

def root(x):
    return math.sqrt(x)
`;

let yvm: Connection;
let client: Client;
/** Another client, which sees to what the first has stopped in. */
let other: Client;
let folder: string;
let file: string;
let stops: EventSubscription<"yvm::DebuggerStoppedEvent">;
let resumes: EventSubscription<"yvm::DebuggerResumedEvent">;
let changes: EventSubscription<"yvm::BreakpointsChangedEvent">;

setUpClient((given) => {
    ({ yvm, client } = given);
});

beforeEach(async () => {
    other = await yvm.attach();
    stops = other.events("yvm::DebuggerStoppedEvent");
    resumes = other.events("yvm::DebuggerResumedEvent");
    changes = other.events("yvm::BreakpointsChangedEvent");
    await Promise.all([stops, resumes, changes].map(({ subscribed }) => subscribed));
    folder = realpathSync(mkdtempSync(join(tmpdir(), "yvm-debugger-")));
    file = join(folder, "sample.py");
    writeFileSync(file, source);
    await client.eval(`import sys, importlib\nsys.path.insert(0, ${JSON.stringify(folder)})`);
    await client.eval("sys.modules.pop('sample', None)\nimport sample");
});

afterEach(async () => {
    await other.debugger.clearAllBreakpoints();
    await other.interrupt(); // a test that failed may have left a stop
    await client.eval("sys.path.pop(0); sys.dont_write_bytecode = True");
    rmSync(folder, { recursive: true });
});

async function nextOf<T>(events: AsyncIterator<T, undefined>): Promise<T> {
    const { value } = await events.next();
    if (value === undefined) {
        throw new Error("the events have ended");
    }
    return value;
}

const stopped = (): Promise<DebuggerStopped> => nextOf(stops);
const resumed = (): Promise<DebuggerResumed> => nextOf(resumes);
const changed = async (): Promise<Breakpoints["breakpoints"]> => (await nextOf(changes)).breakpoints;

/** Resolves when the request has ended as interrupted ones do. */
async function interrupted(request: PromiseLike<unknown>): Promise<void> {
    await expect(request).rejects.toMatchObject({ name: "YvmError", status: 3 });
}

/** What a command prints, and nothing of where it has stopped. */
const quiet = { runOptions: { suppressDebugControlOutput: true } } as const;

function onLine(lineNumber: number, rest: object = {}): Breakpoint {
    return { fileName: file, location: { lineNumber, ...rest } };
}

describe("a breakpoint on a line", () => {
    it("stops there, where variables are looked at and changed, and the command goes on", async () => {
        await client.debugger.setBreakpoint(onLine(7));
        const request = client.eval("sample.total([1, 2])", quiet);
        const stop = await stopped();
        expect(stop).toMatchObject({ reason: "breakpoint", level: 1, fileName: file, lineNumber: 7 });
        expect(stop.stackFrames.at(-1)).toEqual({
            fileName: file,
            functionName: "total",
            lineNumber: 7,
            sourceLine: "sum += value",
        });
        const locals = await other.debugger.locals();
        expect(locals.map(({ name, text }) => [name, text])).toEqual([
            ["sum", "0"],
            ["value", "1"],
            ["values", "[1, 2]"],
        ]);
        expect((await other.debugger.evaluate("sum = 100\nsum + value")).text).toBe("101\n");
        await other.debugger.resume();
        expect(await resumed()).toEqual({ level: 1 });
        expect(await stopped()).toMatchObject({ lineNumber: 7 });
        await client.debugger.clearBreakpoint(onLine(7));
        await other.debugger.resume();
        expect((await request).text).toBe("206\n");
    });

    it("moves to the next line with code, which is told ahead of the answer, and goes by either line", async () => {
        await client.debugger.setBreakpoint(onLine(5));
        const placed = [{ fileName: file, location: { lineNumber: 5 }, lineNumber: 6 }];
        expect(await changed()).toEqual(placed);
        expect(await client.debugger.breakpoints()).toMatchObject([{ fileName: file, lineNumber: 6 }]);
        await client.debugger.clearBreakpoint(onLine(5));
        expect(await changed()).toEqual([]);
        await client.debugger.setBreakpoint(onLine(5));
        expect(await changed()).toEqual(placed);
        await client.debugger.clearBreakpoint(onLine(6));
        expect(await changed()).toEqual([]);
        expect(await client.debugger.breakpoints()).toEqual([]);
    });

    it("stops only if its condition holds", async () => {
        await client.debugger.setBreakpoint({ ...onLine(7), expression: "value == 3" });
        const request = client.eval("sample.total([1, 2, 3, 4]);");
        await stopped();
        expect(await other.debugger.locals()).toContainEqual(
            expect.objectContaining({ name: "value", text: "3" }),
        );
        await other.debugger.resume();
        await request;
    });

    it("may mean one of its anonymous functions", async () => {
        await client.debugger.setBreakpoint(onLine(8, { anonymousIndex: 2 }));
        const request = client.eval("sample.total([5])", quiet);
        const { stackFrames } = await stopped();
        expect(stackFrames.at(-1)?.functionName).toContain("<lambda>");
        expect(await other.debugger.locals()).toMatchObject([{ name: "x", text: "5" }]);
        await other.debugger.resume();
        expect((await request).text).toBe("10\n");
    });

    it.each<[string, () => Breakpoint]>([
        ["a file that there is not", () => ({ fileName: "/no/such/file.py", location: { lineNumber: 1 } })],
        ["a line behind all code", () => onLine(1000)],
        ["a function that there is not", () => ({ fileName: file, location: { localFunction: "nobody" } })],
        ["a condition that is none", () => ({ ...onLine(7), expression: "1 +" })],
    ])("is refused for %s", async (_what, breakpoint) => {
        await expect(client.debugger.setBreakpoint(breakpoint())).rejects.toMatchObject({
            name: "YvmError",
            message: expect.stringMatching(/./) as string,
        });
        expect(await client.debugger.breakpoints()).toEqual([]);
    });
});

describe("a breakpoint elsewhere", () => {
    it("stops where a function begins", async () => {
        await client.debugger.setBreakpoint({ fileName: file, location: { localFunction: "root" } });
        const request = client.eval("sample.root(4.0)", quiet);
        expect(await stopped()).toMatchObject({ fileName: file, lineNumber: 12 });
        await other.debugger.resume();
        expect((await request).text).toBe("2.0\n");
    });

    it("stops where a file is entered", async () => {
        await client.debugger.setBreakpoint({ fileName: file });
        const request = client.eval("sample.root(4.0);");
        expect(await stopped()).toMatchObject({ fileName: file, lineNumber: 12 });
        await other.debugger.resume();
        await request;
    });

    it("stops in a command that was named beforehand", async () => {
        const command = "a = 1\nb = a + 1\nb";
        const [name] = await client.feval("yvm.debug.name_command", [command]);
        await client.debugger.setBreakpoint({ fileName: name as string, location: { lineNumber: 2 } });
        const request = client.eval(command, quiet);
        expect(await stopped()).toMatchObject({ fileName: name, lineNumber: 2 });
        expect((await other.debugger.evaluate("a = 41")).text).toBe("");
        await other.debugger.resume();
        expect((await request).text).toBe("42\n");
    });
});

describe("a breakpoint on a condition", () => {
    it.each([
        ["ERROR", undefined, "def f(v):\n    return 1 / v\nf(0)", "error", 2],
        [
            "CAUGHT_ERROR",
            "ArithmeticError",
            "def f(v):\n    return 1 / v\ntry: f(0)\nexcept ZeroDivisionError: pass",
            "caughtError",
            2,
        ],
        ["WARNING", "UserWarning", "import warnings\nv = 0\nwarnings.warn('mind')", "warning", 3],
        ["NAN_INF", undefined, "import numpy\nv = 0\nnumpy.float64(1) / v;", "nanInf", 3],
        ["UNSUPPRESSED_OUTPUT", undefined, "v = 0\nv", "output", 2],
    ] as const)(
        "stops on %s, with the variables there",
        async (type, messageId, command, reason, lineNumber) => {
            await client.debugger.setBreakpoint({ type, ...(messageId === undefined ? {} : { messageId }) });
            const request = client.eval(command, quiet);
            expect(await stopped()).toMatchObject({ reason, lineNumber });
            await client.debugger.clearAllBreakpoints();
            expect((await other.debugger.evaluate("v")).text).toBe("0\n");
            await other.debugger.resume();
            await (type === "ERROR" ? expect(request).rejects.toThrow("division by zero") : request);
        },
    );
});

describe("a stopped command", () => {
    beforeEach(async () => {
        await client.debugger.setBreakpoint(onLine(6));
        await changed();
    });

    it("says in its text where it is, unless it is not to", async () => {
        const request = client.eval("sample.total([1]);");
        await stopped();
        await client.debugger.clearAllBreakpoints();
        await other.debugger.resume();
        expect((await request).text).toContain(`> ${file}(6)total()`);
    });

    it("is stepped through, into a call and out of it", async () => {
        const request = client.eval("y = sample.total([1])\ny", quiet);
        expect(await stopped()).toMatchObject({ lineNumber: 6 });
        await client.debugger.clearAllBreakpoints();
        await other.debugger.step();
        expect(await stopped()).toMatchObject({ reason: "step", lineNumber: 7 });
        await other.debugger.step();
        expect(await stopped()).toMatchObject({ reason: "step", lineNumber: 6 });
        await other.debugger.step();
        expect(await stopped()).toMatchObject({ reason: "step", lineNumber: 8 });
        await other.debugger.step();
        expect(await stopped()).toMatchObject({ reason: "step", lineNumber: 9 });
        await other.debugger.stepIn();
        const inner = await stopped();
        expect(inner.stackFrames.at(-1)?.functionName).toContain("<lambda>");
        await other.debugger.stepOut(); // line 9 has no further line
        expect(await stopped()).toMatchObject({
            reason: "step",
            fileName: expect.stringMatching(/^<command /) as string,
            lineNumber: 2,
        });
        await other.debugger.resume();
        expect((await request).text).toBe("2\n");
    });

    it("has frames, of which any may be looked at", async () => {
        const request = client.eval("def call():\n    mine = 7\n    return sample.total([1])\ncall();");
        await stopped();
        const innermost = await other.debugger.stack();
        expect(innermost.map(({ functionName }) => functionName)).toEqual(["<module>", "call", "total"]);
        expect(innermost.map(({ selected }) => selected)).toEqual([false, false, true]);
        const above = await other.debugger.up();
        expect(above.map(({ selected }) => selected)).toEqual([false, true, false]);
        expect(await other.debugger.locals()).toMatchObject([{ name: "mine", text: "7" }]);
        expect((await other.debugger.evaluate("mine")).text).toBe("7\n");
        expect(await other.debugger.down()).toEqual(innermost);
        await client.debugger.clearAllBreakpoints();
        await other.debugger.resume();
        await request;
    });

    it("ends like an interrupted one when it is quit", async () => {
        const ended = interrupted(client.eval("sample.total([1])"));
        await stopped();
        await other.debugger.quit();
        await ended;
        expect(await resumed()).toEqual({ level: 1 });
        expect((await client.eval("1+1")).text).toBe("2\n");
    });

    it("is left by an interrupt, and by a cancel", async () => {
        const first = interrupted(client.eval("sample.total([1])"));
        await stopped();
        await other.interrupt();
        await first;
        await resumed();
        const request = client.eval("sample.total([1])");
        const second = interrupted(request);
        await stopped();
        expect(await request.cancel({ interrupt: true })).toBe("CANCEL_WHILE_RUNNING");
        await second;
        await resumed();
    });

    it("is left when its client goes, and the engine is there for the others", async () => {
        const leaving = await yvm.attach();
        const request = leaving.eval("sample.total([1])");
        request.done.catch(() => undefined);
        await stopped();
        await leaving.detach();
        expect(await resumed()).toEqual({ level: 1 });
        expect((await other.eval("2+2")).text).toBe("4\n");
        await expect(other.debugger.stack()).rejects.toMatchObject({ name: "YvmError" });
    });

    it("may hold a command that stops in its turn", async () => {
        const request = client.eval("sample.total([1]);");
        await stopped();
        const inner = other.debugger.evaluate("total([5])", quiet); // as the frame knows it
        expect(await stopped()).toMatchObject({ level: 2, lineNumber: 6 });
        await client.debugger.clearAllBreakpoints();
        await other.debugger.resume();
        expect(await resumed()).toEqual({ level: 2 });
        expect((await inner).text).toBe("10\n");
        await other.debugger.resume();
        expect(await resumed()).toEqual({ level: 1 });
        await request;
    });
});

describe("a break-in", () => {
    it("stops what runs, also where it sleeps", async () => {
        const request = client.eval("import time\nprint('asleep'); time.sleep(600)", { output: "stream" });
        const ended = interrupted(request);
        for await (const { text } of request.output) {
            if (text.includes("asleep")) {
                break;
            }
        }
        await other.debugger.breakIn();
        expect(await stopped()).toMatchObject({ reason: "break", lineNumber: 2 });
        await other.debugger.quit();
        await ended;
    });

    it("is answered where nothing runs, and stops nothing later", async () => {
        await client.debugger.breakIn();
        expect((await client.eval("1+1")).text).toBe("2\n");
        await expect(client.debugger.stack()).rejects.toMatchObject({ name: "YvmError" });
    });
});

describe("an operation that outlives its client", () => {
    it("leaves the server well", async () => {
        const leaving = await yvm.attach();
        const busy = client.eval("import time\ntime.sleep(0.2)");
        const set = leaving.debugger.setBreakpoint(onLine(7));
        set.catch(() => undefined);
        await leaving.detach();
        await busy;
        // It was set, or the server had let the client go before: both are told the truth of.
        expect([[], [file]]).toContainEqual(
            (await client.debugger.breakpoints()).map((breakpoint) =>
                "fileName" in breakpoint ? breakpoint.fileName : "",
            ),
        );
        await client.debugger.clearAllBreakpoints();
        expect((await client.eval("sample.total([1])")).text).toBe("2\n");
    });
});
