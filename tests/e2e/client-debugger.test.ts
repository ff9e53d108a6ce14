import { mkdtempSync, realpathSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

import { afterEach, beforeEach, describe, expect, it } from "vitest";
import type {
    ApiVersion,
    Breakpoint,
    Breakpoints,
    Client,
    Connection,
    DebuggerResumed,
    DebuggerStopped,
    RequestFuture,
} from "yvm-client";

import { DebuggerWatch } from "./DebuggerWatch.js";
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

describe.each<ApiVersion>(["r24a0", "r22a0"])("with %s", (apiVersion) => {
    let yvm: Connection;
    let client: Client;
    /** Another client, which sees to what the first has stopped in. */
    let other: Client;
    let folder: string;
    let file: string;
    let watch: DebuggerWatch;

    const attachAs = (version: ApiVersion): Promise<Client> => yvm.attach({ apiVersions: [version] });

    setUpClient((given) => {
        ({ yvm } = given);
    });

    beforeEach(async () => {
        client = await attachAs(apiVersion);
        other = await yvm.attach();
        watch = await DebuggerWatch.of(other);
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

    const stopped = (): Promise<DebuggerStopped> => watch.stopped();
    const resumed = (): Promise<DebuggerResumed> => watch.resumed();
    const changed = (): Promise<Breakpoints["breakpoints"]> => watch.changed();

    /** Resolves when the request has ended as interrupted ones do. */
    async function interrupted(request: PromiseLike<unknown>): Promise<void> {
        await expect(request).rejects.toMatchObject({ name: "YvmError", status: 3 });
    }

    /** Resolves when the request, whose text is streamed, has printed that. */
    async function printed(request: RequestFuture<unknown>, wanted: string): Promise<void> {
        for await (const { text } of request.output) {
            if (text.includes(wanted)) {
                return;
            }
        }
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

        it("leaves the anonymous functions of its line out where it is the line's own", async () => {
            await client.debugger.setBreakpoint(onLine(8, { anonymousIndex: 0 }));
            const request = client.eval("sample.total([5])", quiet);
            const { stackFrames, lineNumber } = await stopped();
            expect([stackFrames.at(-1)?.functionName, lineNumber]).toEqual(["total", 8]);
            await other.debugger.resume();
            expect((await request).text).toBe("10\n");
        });

        it("stops where its condition fails, and says why", async () => {
            await client.debugger.setBreakpoint({ ...onLine(9), expression: "sum / 0" });
            const request = client.eval("sample.total([5]);", quiet);
            expect(await stopped()).toMatchObject({
                reason: "breakpoint",
                lineNumber: 9,
                message: "the condition sum / 0 failed: ZeroDivisionError: division by zero",
            });
            await other.debugger.resume();
            await request;
        });

        it.each<[string, () => Breakpoint]>([
            [
                "a file that there is not",
                () => ({ fileName: "/no/such/file.py", location: { lineNumber: 1 } }),
            ],
            ["a line behind all code", () => onLine(1000)],
            [
                "a function that there is not",
                () => ({ fileName: file, location: { localFunction: "nobody" } }),
            ],
            ["an anonymous function that there is not", () => onLine(8, { anonymousIndex: 3 })],
            ["a condition that is none", () => ({ ...onLine(7), expression: "1 +" })],
            ["a type where there is none to name", () => ({ type: "NAN_INF", messageId: "ValueError" })],
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

        it("stops in a function of a command, by its qualified name", async () => {
            const command =
                "class Box:\n    def open(self):\n        return 6 * self.n\nbox = Box()\nbox.n = 7";
            const [name] = await client.feval("yvm.debug.name_command", [command]);
            await client.eval(command);
            await client.debugger.setBreakpoint({
                fileName: name as string,
                location: { localFunction: "Box.open" },
            });
            const request = client.eval("box.open()", quiet);
            expect(await stopped()).toMatchObject({ fileName: name, lineNumber: 3 });
            await other.debugger.resume();
            expect((await request).text).toBe("42\n");
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
                const setter = type === "UNSUPPRESSED_OUTPUT" ? other : client; // r22a0 does not know it
                await setter.debugger.setBreakpoint({
                    type,
                    ...(messageId === undefined ? {} : { messageId }),
                });
                const request = client.eval(command, quiet);
                expect(await stopped()).toMatchObject({ reason, lineNumber });
                await other.debugger.clearAllBreakpoints();
                expect((await other.debugger.evaluate("v")).text).toBe("0\n");
                await other.debugger.resume();
                await (type === "ERROR" ? expect(request).rejects.toThrow("division by zero") : request);
            },
        );
    });

    it.each([
        ["ERROR", "LookupError", "raise ValueError", "{}[1]"],
        [
            "CAUGHT_ERROR",
            "LookupError",
            "try: raise ValueError\nexcept ValueError: pass",
            "try: {}[1]\nexcept KeyError: pass",
        ],
        [
            "WARNING",
            "UserWarning",
            "import warnings; warnings.warn('x', RuntimeWarning)",
            "import warnings; warnings.warn('x')",
        ],
    ] as const)("a breakpoint on %s is narrowed by a type", async (type, messageId, past, into) => {
        const settled = async (command: string) => {
            await client.eval(command, quiet).done.catch(() => undefined);
        };
        await client.debugger.setBreakpoint({ type, messageId });
        await settled(past);
        const request = settled(into);
        expect(await stopped()).toMatchObject({ level: 1, lineNumber: 1 });
        expect((await other.debugger.stack()).at(-1)?.sourceLine).toContain(into.split("\n")[0]);
        // Without a type, all of that condition are cleared.
        await client.debugger.clearBreakpoint({ type });
        await other.debugger.resume();
        await request;
        expect(await client.debugger.breakpoints()).toEqual([]);
        await settled(into);
    });

    describe("a stopped command", () => {
        beforeEach(async () => {
            await client.debugger.setBreakpoint(onLine(6));
            await changed();
        });

        it("says in its text where it is, unless it is not to", async () => {
            const request = client.eval("sample.total([1]);");
            await stopped();
            await other.debugger.clearAllBreakpoints();
            await other.debugger.resume();
            expect((await request).text).toContain(`> ${file}(6)total()`);
        });

        it("is stepped through, into a call and out of it", async () => {
            const request = client.eval("y = sample.total([1])\ny", quiet);
            expect(await stopped()).toMatchObject({ lineNumber: 6 });
            await other.debugger.clearAllBreakpoints();
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
            await other.debugger.clearAllBreakpoints();
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
            if (apiVersion === "r24a0") {
                expect(await request.cancel({ interrupt: true })).toBe("CANCEL_WHILE_RUNNING");
            } else {
                await request.cancel({ interrupt: true, status: false });
            }
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
            await other.debugger.clearAllBreakpoints();
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
            const request = client.eval("import time\nprint('asleep'); time.sleep(600)", {
                output: "stream",
            });
            const ended = interrupted(request);
            await printed(request, "asleep");
            await other.debugger.breakIn();
            expect(await stopped()).toMatchObject({ reason: "break", lineNumber: 2 });
            await other.debugger.quit();
            await ended;
        });

        /** Long enough to break into it on a slow machine. */
        const seconds = "3";

        it.each([
            ["as long as it was to", 0],
            ["that is over by then, no more", 1],
        ])("lets a sleep sleep on %s", async (_what, isOverBy) => {
            const request = client.eval(
                `import time\nbegin = time.monotonic()\nprint('asleep'); time.sleep(${seconds})\n` +
                    `print(time.monotonic() - begin >= ${seconds})`,
                { ...quiet, output: "stream" },
            );
            await printed(request, "asleep");
            await other.debugger.breakIn();
            expect(await stopped()).toMatchObject({ reason: "break", lineNumber: 3 });
            const slept = async () =>
                (await other.debugger.evaluate(`time.monotonic() - begin >= ${seconds}`)).text;
            while (isOverBy === 1 && (await slept()) === "False\n");
            await other.debugger.resume();
            await printed(request, "True");
            await request;
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
            await other.debugger.clearAllBreakpoints();
            expect((await client.eval("sample.total([1])")).text).toBe("2\n");
        });
    });

    describe("a stop that several clients look at", () => {
        /** Runs at the debug prompt until `isDone` is set there. */
        const busy = (of: Client) =>
            of.debugger.evaluate(
                "import __main__\n__main__.isDone = False\nprint('busy')\nwhile not __main__.isDone: pass",
                { output: "stream" },
            );

        it("is told to all, and any may clear what another has set", async () => {
            const own = await DebuggerWatch.of(client);
            await client.debugger.setBreakpoint(onLine(7));
            const placed = [{ fileName: file, location: { lineNumber: 7 }, lineNumber: 7 }];
            expect([await own.changed(), await changed()]).toEqual([placed, placed]);
            const request = client.eval("sample.total([1, 2])", quiet);
            const stop = await own.stopped();
            expect(stop).toMatchObject({ reason: "breakpoint", level: 1, fileName: file, lineNumber: 7 });
            expect(await stopped()).toEqual(stop);
            expect(await client.debugger.stack()).toEqual(await other.debugger.stack());
            await other.debugger.clearBreakpoint(onLine(7));
            expect([await own.changed(), await changed()]).toEqual([[], []]);
            await other.debugger.resume();
            expect([await own.resumed(), await resumed()]).toEqual([{ level: 1 }, { level: 1 }]);
            expect((await request).text).toBe("6\n");
            await other.debugger.setBreakpoint(onLine(9));
            await client.debugger.clearBreakpoint(onLine(9));
            expect(await other.debugger.breakpoints()).toEqual([]);
        });

        it("stands when a client goes whose command runs there", async () => {
            const leaving = await attachAs(apiVersion);
            await client.debugger.setBreakpoint(onLine(9));
            const request = client.eval("sample.total([1])", quiet);
            await stopped();
            const left = busy(leaving);
            left.done.catch(() => undefined);
            await printed(left, "busy");
            await leaving.detach();
            expect((await client.debugger.evaluate("sum")).text).toBe("1\n");
            expect(await client.debugger.stack()).toMatchObject([
                {},
                { functionName: "total", selected: true },
            ]);
            await client.debugger.resume();
            expect((await request).text).toBe("2\n");
            expect(await resumed()).toEqual({ level: 1 });
        });

        it("ends when its client goes, but not before another's command there", async () => {
            const leaving = await attachAs(apiVersion);
            await client.debugger.setBreakpoint(onLine(9));
            leaving.eval("sample.total([1])").done.catch(() => undefined);
            await stopped();
            const request = busy(client);
            await printed(request, "busy");
            await leaving.detach();
            const isResumed = resumed();
            await other.eval("isDone = True", { runOptions: { dequeueMode: "DEQUEUE_AT_PPE" } });
            await request;
            expect(await isResumed).toEqual({ level: 1 });
            expect((await other.eval("2+2")).text).toBe("4\n");
            await expect(other.debugger.stack()).rejects.toMatchObject({ name: "YvmError" });
        });

        it("is not what an interrupt means while a command runs there", async () => {
            await client.debugger.setBreakpoint(onLine(9));
            const request = client.eval("sample.total([1])", quiet);
            await stopped();
            const left = busy(client);
            const ended = interrupted(left);
            await printed(left, "busy");
            await other.interrupt();
            await ended;
            expect(await client.debugger.stack()).toHaveLength(2);
            await client.debugger.resume();
            expect((await request).text).toBe("2\n");
        });

        it("is looked at, stepped through and left by clients of the older protocol", async () => {
            const older = await attachAs("r22a0");
            const oldersWatch = await DebuggerWatch.of(older);
            await client.debugger.setBreakpoint(onLine(7));
            const request = client.eval("sample.total([1])", quiet);
            expect(await oldersWatch.stopped()).toMatchObject({ reason: "breakpoint", lineNumber: 7 });
            expect(await older.debugger.locals()).toEqual(await client.debugger.locals());
            expect((await older.debugger.evaluate("sum + value")).text).toBe("1\n");
            expect((await older.debugger.up()).map(({ selected }) => selected)).toEqual([true, false]);
            expect((await client.debugger.down()).map(({ selected }) => selected)).toEqual([false, true]);
            await older.debugger.clearBreakpoint(onLine(7));
            await older.debugger.step();
            expect(await oldersWatch.stopped()).toMatchObject({ reason: "step", lineNumber: 6 });
            await older.debugger.setBreakpoint({ type: "ERROR" });
            expect(await client.debugger.breakpoints()).toEqual([{ type: "ERROR" }]);
            await older.debugger.resume();
            expect((await request).text).toBe("2\n");
        });
    });
});
