import { afterAll, afterEach, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { Gate } from "./Gate.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";
import { SocketVisitor } from "./Visitor.js";

/** Stopping work by request, by group, by interrupt, and by leaving. */

let server: ServerProcess;
let client: StockClient;
let id: string;
let lastId = 0;
let gate: Gate;

beforeAll(async () => {
    server = await ServerProcess.start("--grace-time", "1");
    gate = new Gate();
});

afterAll(async () => {
    gate.remove();
    expect((await server.stop()).code).toBe(0);
});

beforeEach(async () => {
    lastId += 1;
    id = `c${String(lastId)}`;
    client = await StockClient.attached(server, id);
});

afterEach(async () => {
    await client.disconnect();
});

const streams = { useNullOutSink: false, useNullErrSink: false };

/** Publishes a command and does not wait for its response. */
async function submit(requestID: string, command: string, runOptions: Data = {}): Promise<void> {
    const data = { requestID, command, runOptions: { ...streams, ...runOptions } };
    expect((await client.publish(`/yvm/${id}/eval/request`, data)).successful).toBe(true);
}

/** Waits until a command has printed `text`. */
async function printed(requestID: string, text: string): Promise<void> {
    await client.event(({ data }) => data["requestID"] === requestID && String(data["text"]).includes(text));
}

/** Publishes a command and waits until it runs. */
async function start(requestID: string, body: string, runOptions: Data = {}): Promise<void> {
    await submit(requestID, `print('started', flush=True)\n${body}`, runOptions);
    await printed(requestID, "started");
}

async function response(requestID: string): Promise<Data> {
    const { data } = await client.event(
        (event) => event.channel === `/yvm/${id}/eval/response` && event.data["requestID"] === requestID,
    );
    return data;
}

function cancel(requestID: string, target: string, interrupt?: boolean): Promise<Data> {
    return client.request(`/yvm/${id}/cancel`, {
        requestID,
        requestIDtoCancel: target,
        ...(interrupt === undefined ? {} : { interrupt }),
    });
}

function interrupt(requestID: string): Promise<Data> {
    return client.request(`/yvm/${id}/interrupt`, { requestID });
}

/** What the workspace says to an expression, by a command that waits for nobody. */
function ask(expression: string): Promise<string> {
    return client.print(id, expression);
}

/** Releases a loop over `released` while it runs. */
async function release(): Promise<void> {
    await client.eval(id, "released = True", { runOptions: { dequeueMode: "DEQUEUE_AT_PPE" } });
}

const untilReleased = "released = False\nwhile not released: pass";
const swallowing = "try:\n    print('trying', flush=True)\n    while True: pass\nexcept KeyboardInterrupt:\n";
const cancelled = { error: { status: 3, identifier: "yvm:cancelled" } };
const stopped = { error: { status: 3, identifier: "yvm.Interrupt" } };

describe("a cancel", () => {
    it("takes a waiting command out of the queue, which then never runs", async () => {
        await start("busy", untilReleased);
        await submit("waiting", "ran = True");
        expect(await cancel("c", "waiting")).toEqual({
            requestID: "c",
            cancelStatus: "CANCEL_BEFORE_RUNNING",
        });
        expect(await response("waiting")).toMatchObject(cancelled);
        await release();
        expect(await response("busy")).toEqual({ requestID: "busy" });
        expect(await ask("'ran' in globals()")).toBe("False\n");
    });

    it("with interrupt stops a running command and leaves the engine usable", async () => {
        await start("busy", "while True: pass");
        expect(await cancel("c", "busy", true)).toEqual({
            requestID: "c",
            cancelStatus: "CANCEL_WHILE_RUNNING",
        });
        expect(await response("busy")).toMatchObject(stopped);
        expect(await ask("1+1")).toBe("2\n");
    });

    it("without interrupt leaves a running command alone", async () => {
        await start("busy", untilReleased);
        for (const explicit of [undefined, false]) {
            expect(await cancel(`c-${String(explicit)}`, "busy", explicit)).toHaveProperty(
                "cancelStatus",
                "UNABLE_TO_CANCEL_OTHER",
            );
        }
        await release();
        expect(await response("busy")).toEqual({ requestID: "busy" });
    });

    it("stops a running feval as it does an eval", async () => {
        const request = { requestID: "f", function: "time.sleep", numOutputsExpected: 1, rhsArgs: ["1000"] };
        await client.publish(`/yvm/${id}/feval/request`, request);
        const status = await cancel("c", "f", true);
        // It may not have begun.
        expect(["CANCEL_WHILE_RUNNING", "CANCEL_BEFORE_RUNNING"]).toContain(status["cancelStatus"]);
        const { data } = await client.event(({ channel }) => channel === `/yvm/${id}/feval/response`);
        expect(data).toMatchObject({ requestID: "f", error: { status: 3 } });
        expect(data).not.toHaveProperty("result");
    });

    it("of what has finished, and of what never was, finds it done", async () => {
        await submit("short", "1;");
        await response("short");
        for (const target of ["short", "never"]) {
            expect(await cancel(`c-${target}`, target, true)).toEqual({
                requestID: `c-${target}`,
                cancelStatus: "UNABLE_TO_CANCEL_ALREADY_DONE",
            });
        }
    });

    it("reaches no command of another client", async () => {
        await start("busy", untilReleased);
        const other = await StockClient.attached(server, "other");
        expect(
            await other.request("/yvm/other/cancel", {
                requestID: "c",
                requestIDtoCancel: "busy",
                interrupt: true,
            }),
        ).toHaveProperty("cancelStatus", "UNABLE_TO_CANCEL_ALREADY_DONE");
        await other.disconnect();
        await release();
        expect(await response("busy")).toEqual({ requestID: "busy" });
    });

    it("that is repeated stops a waiting command once", async () => {
        await start("busy", untilReleased);
        await submit("waiting", "1");
        expect(await cancel("c1", "waiting")).toHaveProperty("cancelStatus", "CANCEL_BEFORE_RUNNING");
        expect(await cancel("c2", "waiting")).toHaveProperty("cancelStatus", "UNABLE_TO_CANCEL_ALREADY_DONE");
        await release();
        await response("busy");
    });

    it("that is repeated interrupts again what swallowed the first", async () => {
        await submit("busy", `${swallowing}    print('swallowed', flush=True)\nwhile True: pass`);
        await printed("busy", "trying");
        const first = cancel("c1", "busy", true);
        await printed("busy", "swallowed");
        const second = cancel("c2", "busy", true);
        expect(await first).toHaveProperty("cancelStatus", "CANCEL_WHILE_RUNNING");
        expect(await second).toHaveProperty("cancelStatus", "CANCEL_WHILE_RUNNING");
        expect(await response("busy")).toMatchObject(stopped);
    });

    it("of one that swallowed the interrupt and ended well finds it done", async () => {
        await submit("busy", `${swallowing}    pass`);
        await printed("busy", "trying");
        expect(await cancel("c", "busy", true)).toHaveProperty(
            "cancelStatus",
            "UNABLE_TO_CANCEL_ALREADY_DONE",
        );
        expect(await response("busy")).toEqual({ requestID: "busy" });
    });

    it("reaches the first of those that share an identifier", async () => {
        await start("twin", untilReleased);
        await submit("twin", "second = True");
        expect(await cancel("c", "twin")).toHaveProperty("cancelStatus", "UNABLE_TO_CANCEL_OTHER");
        await release();
        await response("twin");
        expect(await ask("second")).toBe("True\n");
    });

    it("that lacks what to cancel is told so", async () => {
        expect(await client.request(`/yvm/${id}/cancel`, { requestID: "c", interrupt: true })).toMatchObject({
            requestID: "c",
            error: {
                status: 2,
                message:
                    'key: requestIDtoCancel is missing from {\n  "interrupt": true,\n  "requestID": "c"\n}',
            },
        });
        expect(
            await client.request(`/yvm/${id}/cancel`, {
                requestID: "d",
                requestIDtoCancel: "x",
                interrupt: 1,
            }),
        ).toMatchObject({ error: { status: 2, message: "invalid conversion: double to boolean" } });
        expect(await client.request(`/yvm/${id}/cancelGroup`, { requestID: "e" })).toMatchObject({
            error: {
                status: 2,
                message: 'key: requestGroupNametoCancel is missing from {\n  "requestID": "e"\n}',
            },
        });
    });
});

describe("a group cancel", () => {
    const cancelGroup = (requestID: string, name: string, withInterrupt: boolean) =>
        client.request(`/yvm/${id}/cancelGroup`, {
            requestID,
            requestGroupNametoCancel: name,
            interrupt: withInterrupt,
        });

    it("hits its group and nothing else", async () => {
        await start("busy", untilReleased, { groupNames: ["plots"] });
        await submit("a", "a = 1", { groupNames: ["plots"] });
        await submit("b", "b = 1", { groupNames: ["Plots"] });
        await submit("c", "c = 1", { groupNames: ["tables", "plots"] });
        await submit("d", "d = 1");
        expect(await cancelGroup("g", "plots", false)).toEqual({ requestID: "g" });
        expect(await response("a")).toMatchObject(cancelled);
        expect(await response("c")).toMatchObject(cancelled);
        await release();
        for (const name of ["busy", "b", "d"]) {
            expect(await response(name)).toEqual({ requestID: name });
        }
        expect(await ask("[name for name in 'abcd' if name in globals()]")).toBe("['b', 'd']\n");
    });

    it("with interrupt stops the one that runs, too", async () => {
        await start("busy", "while True: pass", { groupNames: ["plots"] });
        expect(await cancelGroup("g", "plots", true)).toEqual({ requestID: "g" });
        expect(await response("busy")).toMatchObject(stopped);
    });

    it("of a name that nobody carries answers as a hit does", async () => {
        expect(await cancelGroup("g", "nobody", true)).toEqual({ requestID: "g" });
    });
});

describe("an interrupt", () => {
    it.each([
        ["a busy loop", "while True: pass"],
        ["a sleep", "import time; time.sleep(1000)"],
        ["a blocking read", "import os; os.read(os.pipe()[0], 1)"],
        ["the opening of a pipe", "GATE"],
        ["a pause", "import yvm; yvm.pause(1000)"],
    ])("stops %s and not the command behind it", async (_, body) => {
        await start("busy", body.replace("GATE", gate.python));
        await submit("next", "sum(range(1_000_000));");
        expect(await interrupt("i")).toEqual({ requestID: "i" });
        expect(await response("busy")).toMatchObject(stopped);
        expect(await response("next")).toEqual({ requestID: "next" });
    });

    it("with nothing running is answered and hits nothing later", async () => {
        for (let round = 0; round < 20; ++round) {
            expect(await interrupt(`i${String(round)}`)).toEqual({ requestID: `i${String(round)}` });
            expect(await ask("sum(range(100_000))")).toBe("4999950000\n");
        }
    });

    it("reaches a command of another client", async () => {
        await start("busy", "while True: pass");
        const other = await StockClient.attached(server, "interrupter");
        await other.request("/yvm/interrupter/interrupt", { requestID: "i" });
        expect(await response("busy")).toMatchObject(stopped);
        await other.disconnect();
    });

    it("in a flood stops one command, once", async () => {
        await start("busy", "while True: pass");
        const channel = `/yvm/${id}/interrupt/request`;
        const flood = Array.from({ length: 500 }, (_, index) => ({
            channel,
            data: { requestID: `i${String(index)}` },
        }));
        await client.driver.batch(flood);
        expect(await response("busy")).toMatchObject(stopped);
        await interrupt("last");
        const answers = client.events.filter(({ channel: from }) => from === `/yvm/${id}/interrupt/response`);
        expect(new Set(answers.map(({ data }) => data["requestID"])).size).toBe(501);
        expect(answers).toHaveLength(501);
        expect(await ask("1+1")).toBe("2\n");
    });
});

describe("leaving", () => {
    it("by a detach stops what runs, and what waits never runs", async () => {
        const observer = await StockClient.attached(server, `watch-${id}`);
        await start("busy", "while True: pass");
        const channel = `/yvm/${id}/eval/request`;
        await client.driver.batch(
            Array.from({ length: 900 }, (_, index) => ({
                channel,
                data: { requestID: `waiting-${String(index)}`, command: "detached_ran = True" },
            })),
        );
        const bye = await client.request("/yvm/detach", { requestID: "bye", requestIDtoDetach: id });
        expect(bye).toEqual({ requestID: "bye" });
        expect(await observer.print(`watch-${id}`, "'detached_ran' in globals()")).toBe("False\n");
        expect(client.events.filter(({ channel }) => channel === `/yvm/${id}/eval/response`)).toEqual([]);
        await observer.disconnect();
    });

    it("without a word does so when the grace time is over", async () => {
        const prefix = "/yvm/vanishing";
        const visitor = await SocketVisitor.open(server.endpoint);
        await visitor.handshake(server.token);
        visitor.connect();
        await visitor.ask("/meta/subscribe", { subscription: ["/yvm/attach/response"] });
        await visitor.request("/yvm/attach", {
            requestID: "vanishing",
            yvmID: "user-yvm",
            supportedApiVersions: ["r24a0"],
        });
        for (const [requestID, command] of [
            ["1", "began = True\nwhile True: pass"],
            ["2", "vanished_ran = True"],
        ]) {
            await visitor.ask(`${prefix}/eval/request`, { data: { requestID, command } });
        }
        // Answered while the first command runs, once it does.
        const atPreemption = { runOptions: { ...streams, dequeueMode: "DEQUEUE_AT_PPE" } };
        for (;;) {
            const { texts } = await client.eval(id, "'began' in globals()", atPreemption);
            if (texts[0]?.["text"] === "True\n") {
                break;
            }
        }
        visitor.destroy();
        expect(await ask("'vanished_ran' in globals()")).toBe("False\n");
    });
});
