import { describe, expect, it } from "vitest";
import { connect, type Client, type Connection, type TextChunk } from "yvm-client";

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
