import { describe, expect, it } from "vitest";
import { connect, type Client, type Connection, type EngineEvents, type TextChunk } from "yvm-client";

import { CuttingRelay } from "./CuttingRelay.js";
import type { ServerProcess } from "./ServerProcess.js";
import { setUpClient } from "./setUpClient.js";

/** The engine's events, as the client package reads them: the real client, the real server. */

const textEvent = "ylutil::io::TextBaseEvent";

let server: ServerProcess;
let yvm: Connection;
let client: Client;

setUpClient((given) => {
    ({ server, yvm, client } = given);
});

/** Reads pieces of text until they end with `end`, as nobody promises where text is cut. */
async function readUntil(pieces: AsyncIterator<TextChunk, unknown>, end: string): Promise<string> {
    let text = "";
    while (!text.endsWith(end)) {
        const next = await pieces.next();
        if (next.done === true) {
            throw new Error(`the events ended after ${JSON.stringify(text)}`);
        }
        text += next.value.text;
    }
    return text;
}

describe("a subscription", () => {
    it("brings the events of every client's commands, until its loop is left", async () => {
        const other = await yvm.attach();
        const events = client.events(textEvent);
        await events.subscribed;
        expect((await other.eval("print('é😀')")).text).toBe("é😀\n");
        let seen = "";
        for await (const { stream, text } of events) {
            expect(stream).toBe(0);
            seen += text;
            if (seen.endsWith("\n")) {
                break;
            }
        }
        expect(seen).toBe("é😀\n");
        await other.eval("print('unseen')");
        expect(await events.next()).toEqual({ done: true, value: undefined });
    });

    it("to an event that nobody knows rejects with the server's words", async () => {
        const events = client.events("no::SuchEvent");
        await expect(events.next()).rejects.toMatchObject({
            name: "YvmError",
            status: 5,
            message: "No converter for no::SuchEvent",
        });
    });

    it("goes on when the connection was lost and came back", async () => {
        const relay = await CuttingRelay.start(server.url);
        const connection = await connect(relay.origin, { token: server.token });
        const watcher = await connection.attach();
        const events = watcher.events(textEvent);
        await events.subscribed;
        const restored = new Promise<void>((resolve) => {
            connection.onStatus(({ state }) => {
                if (state === "connected") {
                    resolve();
                }
            });
        });
        relay.cutAll();
        await restored;
        await client.eval("print('after')");
        expect(await readUntil(events, "\n")).toBe("after\n");
        await connection.disconnect();
        expect(await events.next()).toEqual({ done: true, value: undefined });
        await relay.stop();
    });
});

describe("the events of a run", () => {
    it("are its own, and all of them come before its end", async () => {
        const seen: string[][] = [[], []];
        const runs = seen.map((own, number) =>
            client.eval(`for i in range(100): print(${String(number)})`, {
                events: [textEvent],
                onEvent: ({ data }) => own.push(data.text),
            }),
        );
        for (const [number, run] of runs.entries()) {
            expect((await run).text).toBe(""); // it takes the text off its other way
            expect(seen[number]?.join("")).toBe(`${String(number)}\n`.repeat(100));
        }
    });

    it("are those of hundreds of runs, one after the other", async () => {
        for (let round = 0; round < 300; round++) {
            const run = client.eval(`print(${String(round)})`, { events: [textEvent] });
            let text = "";
            for await (const { data } of run.events) {
                text += data.text;
            }
            expect(text).toBe(`${String(round)}\n`);
        }
    });

    it("that nobody knows leave the run as it is", async () => {
        const run = client.eval("print(1)", { events: ["no::SuchEvent"] });
        expect((await run).text).toBe("1\n");
    });
});

describe("each event of the engine", () => {
    /** What one event said, of those that a command causes itself. */
    async function ofRun<N extends keyof EngineEvents>(name: N, command: string): Promise<EngineEvents[N][]> {
        const seen: EngineEvents[N][] = [];
        const run = client.eval(command, {
            events: [name],
            onEvent: ({ data }) => seen.push(data as EngineEvents[N]),
        });
        await run.then(undefined, () => undefined); // a command that fails tells of it
        return seen;
    }

    it("is understood, with what it says", async () => {
        expect(await ofRun("ylutil::prompt::PromptEvent", "import yvm; yvm.pause(0)")).toEqual([
            { state: "busy" },
            { state: "paused" },
            { state: "busy" },
        ]);
        expect(await ofRun("ylutil::io::StructuredOutputEvent", "[1, 2]")).toEqual([
            { data: { "text/plain": "[1, 2]" }, metadata: {} },
        ]);
        const [figure] = await ofRun(
            "ylutil::io::StructuredOutputEvent",
            "import matplotlib.pyplot as plt; plt.plot([1, 2]); pass",
        );
        expect(figure?.data["image/png"]).toMatch(/^iVBOR/);
        expect(figure?.metadata).toEqual({ "image/png": { width: 640, height: 480 } });
        expect(await ofRun("ylutil::io::PrintableErrorEvent", "1/0")).toMatchObject([
            {
                identifier: "ZeroDivisionError",
                message: "division by zero",
                stackFrames: [{ functionName: "<module>", lineNumber: 1, sourceLine: "1/0" }],
            },
        ]);
        expect(await ofRun("services::io::CLCEvent", "yvm.clc()")).toEqual([{}]);
        expect(await ofRun("services::io::HomeEvent", "yvm.home()")).toEqual([{}]);
        const steps = await ofRun("yvm::ProgressEvent", "for i in yvm.progress(range(3), 'fit'): pass");
        expect(steps[0]).toMatchObject({ label: "fit", done: 0, total: 3, rate: null, finished: false });
        expect(steps.at(-1)).toMatchObject({ label: "fit", done: 3, total: 3, remaining: 0, finished: true });
    });

    it("of the workspace tells of all clients' commands", async () => {
        const other = await yvm.attach();
        const changes = client.events("yvm::WorkspaceEvent");
        await changes.subscribed;
        await other.eval("first = 1; second = 2");
        expect((await changes.next()).value).toEqual({
            appeared: ["first", "second"],
            changed: [],
            gone: [],
        });
        await other.eval("first = 'x'; del second");
        expect((await changes.next()).value).toEqual({ appeared: [], changed: ["first"], gone: ["second"] });
        await changes.close();
    });

    it("that asks for a line is answered, by whoever comes first", async () => {
        const other = await yvm.attach();
        const request = client.eval("input('name? ') + '!'", {
            events: ["services::prompt::InputRequestEvent"],
            output: "stream",
        });
        for await (const { data } of request.events) {
            expect(data).toMatchObject({ prompt: "name? ", password: false });
            await other.answer(data.id, "Ada");
            await expect(client.answer(data.id, "Eve")).rejects.toMatchObject({ identifier: "ValueError" });
        }
        await request;
    });

    it("that asks in a thread is answered, though its command waits for the thread and for no input", async () => {
        const command = [
            "import threading; lines = []",
            "thread = threading.Thread(target=lambda: lines.append(input('name? ')))",
            "thread.start(); thread.join(); print(lines)",
        ];
        const request = client.eval(command.join("\n"), {
            events: ["services::prompt::InputRequestEvent"],
            onEvent: ({ data }) => void client.answer(data.id, "Ada"),
        });
        expect((await request).text).toBe("name? ['Ada']\n");
    });

    it("that asks for a line may be answered by the end of the input", async () => {
        const request = client.eval("input()", {
            events: ["services::prompt::InputRequestEvent"],
            onEvent: ({ data }) => {
                void client.answer(data.id, null);
            },
        });
        await expect(request).rejects.toMatchObject({ identifier: "EOFError" });
    });

    it("goes on to be told to a client of r22a0", async () => {
        const older = await yvm.attach({ apiVersions: ["r22a0"] });
        const prompts: string[] = [];
        await older.eval("1", {
            events: ["ylutil::prompt::PromptEvent"],
            onEvent: ({ data }) => prompts.push(data.state),
        });
        expect(prompts).toEqual(["busy"]);
    });
});
