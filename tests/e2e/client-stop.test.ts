import { describe, expect, it } from "vitest";
import { AbortedError, connect, type Client, type Connection, type RequestFuture } from "yvm-client";

import type { ServerProcess } from "./ServerProcess.js";
import { setUpClient } from "./setUpClient.js";

/** Stopping commands by the package as users install it, with the real server. */

let server: ServerProcess;
let yvm: Connection;
let client: Client;

setUpClient((given) => {
    ({ server, yvm, client } = given);
});

const busy = "while True: pass";
const asleep = "import time; time.sleep(600)";

/** Prints a line first, so that a test can wait until it runs. */
function startsWithALine(command: string): string {
    return `print("runs", flush=True)\n${command}`;
}

async function untilItRuns(request: RequestFuture<unknown>): Promise<void> {
    for await (const { text } of request.output) {
        expect(text).toContain("runs");
        return;
    }
}

async function abortionOf(request: PromiseLike<unknown>): Promise<AbortedError> {
    const error: unknown = await Promise.resolve(request).then(
        () => "it did not reject",
        (reason: unknown) => reason,
    );
    expect(error).toBeInstanceOf(AbortedError);
    return error as AbortedError;
}

describe("an abort", () => {
    it.each([
        ["a busy loop", busy],
        ["a sleep", asleep],
        ["a pause", "import yvm; yvm.pause(600)"],
        ["a read", "import os; r, w = os.pipe(); os.read(r, 1)"],
    ])("stops %s, and the engine stays usable", async (_what, command) => {
        const controller = new AbortController();
        const request = client.eval(startsWithALine(command), { signal: controller.signal });
        await untilItRuns(request);
        controller.abort();
        const { cancelStatus } = await abortionOf(request);
        expect(await cancelStatus).toBe("CANCEL_WHILE_RUNNING");
        expect((await client.eval("1+1")).text).toBe("2\n");
    });

    it("stops a call of a function", async () => {
        const controller = new AbortController();
        await client.eval('import time\ndef wait():\n    print("runs", flush=True)\n    time.sleep(600)');
        const request = client.feval("wait", [], { signal: controller.signal });
        await untilItRuns(request);
        controller.abort();
        expect(await (await abortionOf(request)).cancelStatus).toBe("CANCEL_WHILE_RUNNING");
    });

    it("takes out what waits, which then never runs", async () => {
        const running = client.eval(startsWithALine(asleep));
        await untilItRuns(running);
        const controller = new AbortController();
        await client.feval("exec", ["touched = []"], {
            numOutputs: 0,
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
        const waiting = client.eval("touched.append(1)", { signal: controller.signal });
        controller.abort();
        expect(await (await abortionOf(waiting)).cancelStatus).toBe("CANCEL_BEFORE_RUNNING");
        expect(await running.cancel({ interrupt: true })).toBe("CANCEL_WHILE_RUNNING");
        await expect(running.done).rejects.toMatchObject({ name: "YvmError", status: 3 });
        expect((await client.eval("touched")).text).toBe("[]\n");
    });

    it("in the same turn as the call stops it wherever it is by then", async () => {
        const controller = new AbortController();
        const request = client.eval(asleep, { signal: controller.signal });
        controller.abort();
        const { cancelStatus } = await abortionOf(request);
        expect(["CANCEL_BEFORE_RUNNING", "CANCEL_WHILE_RUNNING"]).toContain(await cancelStatus);
        expect((await client.eval("1+1")).text).toBe("2\n");
    });

    it("by a timeout tells so", async () => {
        const request = client.eval(busy, { signal: AbortSignal.timeout(50) });
        const error = await abortionOf(request);
        expect(error.cause).toMatchObject({ name: "TimeoutError" });
        // It may not have begun.
        expect(["CANCEL_BEFORE_RUNNING", "CANCEL_WHILE_RUNNING"]).toContain(await error.cancelStatus);
        expect((await client.eval("1+1")).text).toBe("2\n");
    });

    it("stops its own request and no other", async () => {
        const controller = new AbortController();
        const request = client.eval(startsWithALine(busy), { signal: controller.signal });
        const next = client.eval("'next'");
        await untilItRuns(request);
        controller.abort();
        await abortionOf(request);
        expect((await next).text).toBe("'next'\n");
    });

    it("of an attach leaves no client behind", async () => {
        const controller = new AbortController();
        const attach = yvm.attach({ requestID: "left-early", signal: controller.signal });
        controller.abort();
        await abortionOf(attach);
        const other = await connect(server.url.href);
        // The identifier is free for another session once the client is detached.
        await expect
            .poll(() => other.attach({ requestID: "left-early" }).then(() => true, String))
            .toBe(true);
        await other.disconnect();
    });
});

describe("cancel", () => {
    it("without interrupt leaves alone what runs", async () => {
        const request = client.eval(startsWithALine(busy));
        await untilItRuns(request);
        expect(await request.cancel()).toBe("UNABLE_TO_CANCEL_OTHER");
        expect(await request.cancel({ interrupt: true })).toBe("CANCEL_WHILE_RUNNING");
        await expect(request.done).rejects.toMatchObject({ name: "YvmError", status: 3 });
    });

    it("finds what has ended, and what never was, already done", async () => {
        const request = client.eval("1");
        await request;
        expect(await request.cancel({ interrupt: true })).toBe("UNABLE_TO_CANCEL_ALREADY_DONE");
        expect(await client.cancel("never used")).toBe("UNABLE_TO_CANCEL_ALREADY_DONE");
    });

    it("may be repeated for a command that catches the interrupt", async () => {
        const request = client.eval(
            `
try:
    print("runs", flush=True)
    while True: pass
except KeyboardInterrupt:
    print("caught", flush=True)
while True: pass`,
        );
        await untilItRuns(request);
        const first = request.cancel({ interrupt: true });
        for await (const { text } of request.output) {
            if (text.includes("caught")) {
                break;
            }
        }
        const second = request.cancel({ interrupt: true });
        expect(await first).toBe("CANCEL_WHILE_RUNNING");
        expect(await second).toBe("CANCEL_WHILE_RUNNING");
        await expect(request.done).rejects.toMatchObject({ status: 3 });
    });
});

describe("cancelGroup", () => {
    it("stops all that carry the name, of other clients too, and nothing else", async () => {
        const other = await yvm.attach();
        const runOptions = { groupNames: ["first", "plots"] };
        const running = client.eval(startsWithALine(busy), { runOptions });
        await untilItRuns(running);
        const waiting = other.eval("'never'", { runOptions });
        const free = client.eval("'free'");
        const stopped = Promise.all([
            expect(running.done).rejects.toMatchObject({ status: 3 }),
            expect(waiting.done).rejects.toMatchObject({ status: 3 }),
        ]);
        await client.cancelGroup("nobody's", { interrupt: true });
        await client.cancelGroup("plots", { interrupt: true });
        await stopped;
        expect((await free).text).toBe("'free'\n");
        await other.detach();
    });

    it("without interrupt stops only what waits", async () => {
        const runOptions = { groupNames: ["plots"] };
        const running = client.eval(startsWithALine(busy), { runOptions });
        await untilItRuns(running);
        const waiting = client.eval("'never'", { runOptions });
        const rejected = expect(waiting.done).rejects.toMatchObject({ status: 3 });
        await client.cancelGroup("plots");
        await rejected;
        expect(await running.cancel()).toBe("UNABLE_TO_CANCEL_OTHER");
        await client.interrupt();
        await expect(running.done).rejects.toMatchObject({ status: 3 });
    });
});

describe("interrupt", () => {
    it("stops what another client runs", async () => {
        const request = client.eval(startsWithALine(busy));
        await untilItRuns(request);
        const other = await yvm.attach();
        const rejected = expect(request.done).rejects.toMatchObject({
            identifier: "yvm.Interrupt",
            status: 3,
        });
        await other.interrupt();
        await rejected;
        await other.detach();
    });

    it("that finds nothing running stops nothing later", async () => {
        await client.interrupt();
        expect((await client.eval("sum(range(1_000_000))")).text).toBe("499999500000\n");
    });
});
