import { afterEach, describe, expect, it } from "vitest";
import {
    AbortedError,
    connect,
    ConnectionError,
    ndarray,
    UnsupportedError,
    type ApiVersion,
    type Client,
    type ClientOutput,
    type ConnectOptions,
    type Connection,
} from "yvm-client";

import { CuttingRelay } from "./CuttingRelay.js";
import { Gate } from "./Gate.js";
import { readUntil } from "./readUntil.js";
import { ServerProcess } from "./ServerProcess.js";
import { setUpClient } from "./setUpClient.js";

/** The same calls of the client package with both versions of the protocol, on the real server. */

let yvm: Connection;

setUpClient((given) => {
    ({ yvm } = given);
});

async function rejection(promise: PromiseLike<unknown>): Promise<unknown> {
    return promise.then(
        () => {
            throw new Error("it did not reject");
        },
        (error: unknown) => error,
    );
}

it("settles on the newest version", async () => {
    expect((await yvm.attach()).apiVersion).toBe("r24a0");
    expect((await yvm.attach({ apiVersions: ["r22a0", "r24a0"] })).apiVersion).toBe("r24a0");
});

describe.each<ApiVersion>(["r24a0", "r22a0"])("with %s", (apiVersion) => {
    const attach = async (): Promise<Client> => {
        const client = await yvm.attach({ apiVersions: [apiVersion] });
        expect(client.apiVersion).toBe(apiVersion);
        return client;
    };

    it("a command's text is its own, on both streams", async () => {
        const client = await attach();
        const result = await client.eval("import sys; print('out'); print('err', file=sys.stderr); 1+1");
        expect(result).toEqual({ text: "out\nerr\n2\n", stdout: "out\n2\n", stderr: "err\n" });
    });

    it("values of all kinds go there and back", async () => {
        const client = await attach();
        const values = [
            null,
            true,
            -1.5,
            "[1] \u{1F600}",
            7n,
            ndarray(
                [
                    [1, 2],
                    [3, 4],
                ],
                [2, 2],
                "int32",
            ),
            ndarray([NaN, Infinity, -Infinity], [3], "float32"),
            { kind: "complex128", shape: [1], data: new Float64Array([1, -2]) },
            { kind: "bool", shape: [2], data: new Uint8Array([1, 0]) },
            ["a", [1n]],
            { b: 1, a: "x" },
            { ywtype: "text", ywdata: [1] },
        ] as const;
        for (const value of values) {
            const identity = "yvm_identity";
            await client.eval(`def ${identity}(x): return x`, { output: "none" });
            expect(await client.feval(identity, [value])).toEqual([value]);
        }
    });

    it("the window has the size of the run options", async () => {
        const client = await attach();
        const { text } = await client.eval("import shutil; print(*shutil.get_terminal_size())", {
            runOptions: { commandWindowColSize: 33, commandWindowRowSize: 10 },
        });
        expect(text).toBe("33 10\n");
    });

    it("the traits of the run options hold", async () => {
        const client = await attach();
        const { text } = await client.eval("print(1)", {
            runOptions: { outSinkTraits: { useEcho: true } },
        });
        expect(text).toBe(">>> print(1)\n1\n");
    });

    it("what is aborted stops", async () => {
        const client = await attach();
        const gate = new Gate();
        const controller = new AbortController();
        const request = client.eval(`${gate.python}.read()\nwhile True: pass`, {
            signal: controller.signal,
        });
        const aborted = rejection(request);
        await gate.open();
        controller.abort();
        const error = await aborted;
        expect(error).toBeInstanceOf(AbortedError);
        const { cancelStatus } = error as AbortedError;
        expect(await cancelStatus).toBe(apiVersion === "r24a0" ? "CANCEL_WHILE_RUNNING" : undefined);
        expect((await client.eval("'free'")).text).toBe("'free'\n");
        gate.remove();
    });

    it("a cancel that asks for no status stops the request", async () => {
        const client = await attach();
        const gate = new Gate();
        const request = client.eval(`${gate.python}.read()\nwhile True: pass`);
        const stopped = rejection(request);
        await gate.open();
        await expect(request.cancel({ interrupt: true, status: false })).resolves.toBeUndefined();
        expect(await stopped).toMatchObject({ name: "YvmError", status: 3 });
        gate.remove();
    });

    it("the client-wide text comes, and other clients' too", async () => {
        const [client, other] = [await attach(), await attach()];
        const output = client.output({ revert: false, traits: { out: { useEcho: true } } });
        await output.installed;
        await client.eval("print('mine')", { output: "client" });
        await other.eval("print('yours')", { output: "client" });
        expect(await readUntil(output, "\nyours\n")).toBe(
            ">>> print('mine')\nmine\n>>> print('yours')\nyours\n",
        );
        await output.close();
    });

    it("a stop is told, looked at and moved on from", async () => {
        const client = await attach();
        const stops = client.events("yvm::DebuggerStoppedEvent");
        await stops.subscribed;
        const command = `def halve(x):\n    half = x / 2\n    return half\nhalve(3)  # ${apiVersion}`;
        const [fileName] = await client.feval("yvm.debug.name_command", [command]);
        const breakpoint = {
            fileName: fileName as string,
            location: { lineNumber: 2 },
            expression: "x == 3",
        };
        await client.debugger.setBreakpoint(breakpoint);
        const request = client.eval(command, { runOptions: { suppressDebugControlOutput: true } });
        expect(await stops.next()).toMatchObject({ value: { reason: "breakpoint", lineNumber: 2 } });
        await client.debugger.step();
        expect(await stops.next()).toMatchObject({ value: { reason: "step", lineNumber: 3 } });
        expect((await client.debugger.locals()).map(({ name, text }) => [name, text])).toEqual([
            ["half", "1.5"],
            ["x", "3"],
        ]);
        expect((await client.debugger.evaluate("half + 1")).text).toBe("2.5\n");
        const outer = await client.debugger.up();
        expect(outer.find(({ selected }) => selected)).toMatchObject({ lineNumber: 4 });
        await client.debugger.clearBreakpoint(breakpoint);
        expect(await client.debugger.breakpoints()).toEqual([]);
        await client.debugger.resume();
        expect((await request).text).toBe("1.5\n");
        await stops.close();
    });

    it("a line that a command asks for is answered, and the end of the input too", async () => {
        const client = await attach();
        const asked: unknown[] = [];
        const request = client.eval("print(input('name? '))\ntry: input()\nexcept EOFError: print('end')", {
            events: ["services::prompt::InputRequestEvent"],
            onEvent: ({ data: { id, prompt } }) => {
                asked.push(prompt);
                void client.answer(id, asked.length === 1 ? "[1]" : null);
            },
        });
        expect((await request).text).toContain("[1]\nend\n");
        expect(asked).toEqual(["name? ", ""]);
    });

    it("text of a thread that outlives its command is told apart", async () => {
        const client = await attach();
        const gate = new Gate();
        let late = "";
        const isThere = new Promise<void>((resolve) => {
            client.onLateText(({ requestID, stream, text }) => {
                expect([requestID, stream]).toEqual([request.requestID, 0]);
                late += text;
                if (text.endsWith("\n")) {
                    resolve();
                }
            });
        });
        const request = client.eval(
            `import threading\ndef wait(): ${gate.python}.read(); print('late')\nthreading.Thread(target=wait).start()`,
        );
        await request;
        await gate.open();
        await isThere;
        expect(late).toBe("late\n");
        gate.remove();
    });

    it("events of one command and of all come", async () => {
        const client = await attach();
        const events = client.events("ylutil::io::TextBaseEvent");
        const request = client.eval("print('told')", { events: ["ylutil::prompt::PromptEvent"] });
        await request;
        const { value } = await events.next();
        expect(value).toMatchObject({ stream: 0, text: "told\n" });
        await events.close();
    });
});

describe("with r22a0", () => {
    afterEach(async () => {
        // Leave the console in force for others.
        const client = await yvm.attach();
        await client.output().close();
    });

    it("what the version lacks rejects", async () => {
        const client: Client = await yvm.attach({ apiVersions: ["r22a0" as ApiVersion] });
        for (const promise of [
            client.cancelGroup("g"),
            client.interrupt(),
            client.cancel("1"),
            client.output().installed,
            client.debugger.clearAllBreakpoints(),
            client.debugger.setBreakpoint({ type: "UNSUPPRESSED_OUTPUT" }),
            client.debugger.clearBreakpoint({ type: "UNSUPPRESSED_OUTPUT" }),
        ]) {
            expect(await rejection(promise)).toBeInstanceOf(UnsupportedError);
        }
        for (const argument of [2n ** 53n, { ywtype: 5 }, { ywtype: "int8", ywdata: "x" }]) {
            expect(() => client.feval("str", [argument])).toThrow(UnsupportedError);
            expect(await (await yvm.attach()).feval("repr", [argument])).toHaveLength(1);
        }
        expect((await client.eval("'unharmed'")).text).toBe("'unharmed'\n");
    });

    it("each client that reads has all of the text, and a reader that comes back too", async () => {
        const clients = await Promise.all(
            [1, 2, 3].map(() => yvm.attach({ apiVersions: ["r22a0" as ApiVersion] })),
        );
        const outputs = clients.slice(0, 2).map((client) => client.output({ revert: false }));
        await Promise.all(outputs.map((output) => output.installed));
        await clients[2]?.eval("print('all')", { output: "client" });
        for (const output of outputs) {
            expect(await readUntil(output, "all\n")).toBe("all\n");
            await output.close();
        }
        const again = clients[0]?.output({ revert: false }) as ClientOutput;
        await again.installed;
        await clients[2]?.eval("print('again')", { output: "client" });
        expect(await readUntil(again, "again\n")).toBe("again\n");
        await again.close();
    });
});

describe("with r22a0, over connections that are cut", () => {
    let server: ServerProcess;
    let relay: CuttingRelay;

    /** Only where a session is to end has the grace time to be short: a slow machine takes longer to come back. */
    async function start(...options: string[]): Promise<void> {
        server = await ServerProcess.start(...options);
        relay = await CuttingRelay.start(server.url);
    }

    afterEach(async () => {
        await relay.stop();
        expect((await server.stop()).code).toBe(0);
    });

    const connectByRelay = (options: ConnectOptions = {}) =>
        connect(`${relay.origin}/${server.url.search}`, options);

    async function until(connection: Connection, state: "lost" | "connected"): Promise<void> {
        while (connection.status.state !== state) {
            await new Promise<void>((resolve) => {
                const listening = connection.onStatus(() => {
                    listening.dispose();
                    resolve();
                });
            });
        }
    }

    it("a client goes on in its session, and the text can be had again", async () => {
        await start();
        const connection = await connectByRelay();
        const client = await connection.attach({ apiVersions: ["r22a0"] });
        const output = client.output({ revert: false });
        await output.installed;
        relay.cutAll();
        await until(connection, "lost");
        await until(connection, "connected");
        expect(await rejection(readUntil(output, "never"))).toBeInstanceOf(ConnectionError);
        const again = client.output({ revert: false });
        await client.eval("print('again')", { output: "client" });
        expect(await readUntil(again, "again\n")).toBe("again\n");
        await connection.disconnect();
    });

    it("acknowledged text goes on where it was, once", async () => {
        await start();
        const connection = await connectByRelay({ acknowledge: true });
        const client = await connection.attach({ apiVersions: ["r22a0"] });
        const output = client.output({ revert: false });
        await output.installed;
        const gate = new Gate();
        const request = client.eval(`print('before')\n${gate.python}.read()\nprint('after')`, {
            output: "client",
        });
        expect(await readUntil(output, "before\n")).toBe("before\n");
        relay.cutAll();
        await gate.open();
        expect(await readUntil(output, "after\n")).toBe("after\n");
        await request;
        gate.remove();
        await connection.disconnect();
    });

    it("a client that the server has forgotten is attached again with its version", async () => {
        await start("--grace-time", "1");
        const connection = await connectByRelay();
        const client = await connection.attach({ apiVersions: ["r22a0"] });
        const output = client.output({ revert: false });
        await output.installed;
        const running = rejection(client.eval("while True: pass"));
        // Until the server has let the session go, nothing gets through.
        relay.lifetime = () => 0;
        relay.cutAll();
        const bystander = await connect(server.url.href);
        const other = await bystander.attach();
        // The end of the session stops its command, and the engine is free for others.
        await other.eval("'free'");
        relay.lifetime = () => Infinity;
        expect(await running).toBeInstanceOf(ConnectionError);
        expect(await rejection(readUntil(output, "never"))).toBeInstanceOf(ConnectionError);
        await until(connection, "connected");
        expect(client.apiVersion).toBe("r22a0");
        expect(await rejection((client as Client).cancel("1"))).toBeInstanceOf(UnsupportedError);
        expect(await client.feval("numpy.dot", [[1], [2]])).toEqual([2]);
        // The sinks have stayed.
        const again = client.output({ revert: false });
        await again.installed;
        await other.eval("print('still')", { output: "client" });
        expect(await readUntil(again, "still\n")).toBe("still\n");
        await Promise.all([connection.disconnect(), bystander.disconnect()]);
    });
});
