import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** The engine's events, as a client reads them. */

const TEXT_EVENT = "ylutil::io::TextBaseEvent";

let server: ServerProcess;
let clientCount = 0;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    await server.stop();
});

class EventClient {
    #disconnectCount = 0;

    private constructor(
        readonly id: string,
        readonly stock: StockClient,
    ) {}

    static async attached(): Promise<EventClient> {
        const id = `events-${String(++clientCount)}`;
        return new EventClient(id, await StockClient.attached(server, id));
    }

    subscribe(requestID: string, eventName: string): Promise<Data> {
        return this.stock.request(`/yvm/${this.id}/subscribeEvent`, { requestID, eventName });
    }

    disconnect(requestIDtoDisconnect: string): Promise<Data> {
        const requestID = `disconnect-${String(++this.#disconnectCount)}`;
        return this.stock.request(`/yvm/${this.id}/disconnectEvent`, { requestID, requestIDtoDisconnect });
    }

    /** What came under an identifier, in order. */
    received(requestID: string): unknown[] {
        return this.stock.events
            .filter(
                ({ channel, data }) =>
                    channel === `/yvm/${this.id}/event/fireEvent` && data["requestID"] === requestID,
            )
            .map(({ data }) => data["eventData"]);
    }

    /** Runs a command and returns its texts; its events have come when it is answered. */
    async run(command: string, runOptions: Data): Promise<Data[]> {
        const { response, texts } = await this.stock.eval(this.id, command, { runOptions });
        expect(response["error"]).toBeUndefined();
        return texts;
    }
}

/** Pieces of text joined by stream, as nobody promises where text is cut. */
function joined(pieces: unknown[]): Record<number, string> {
    const streams: Record<number, string> = {};
    for (const piece of pieces as { stream: number; text: string }[]) {
        streams[piece.stream] = (streams[piece.stream] ?? "") + piece.text;
    }
    return streams;
}

describe("a subscription", () => {
    it("brings the events of every client's commands beside their own text, until it is ended", async () => {
        const watcher = await EventClient.attached();
        const other = await EventClient.attached();
        expect(await watcher.subscribe("w", TEXT_EVENT)).toEqual({ requestID: "w" });

        const streams = { useNullOutSink: false, useNullErrSink: false };
        const texts = await other.run("import sys\nprint('out')\nprint('é😀', file=sys.stderr)", streams);
        expect(joined(texts)).toEqual({ 0: "out\n", 1: "é😀\n" });
        await watcher.stock.event(
            ({ data }) => (data["eventData"] as { stream?: number } | undefined)?.stream === 1,
        );
        expect(joined(watcher.received("w"))).toEqual({ 0: "out\n", 1: "é😀\n" });

        expect(await watcher.disconnect("w")).toEqual({ requestID: "disconnect-1" });
        await other.run("print('unseen')", streams);
        // Its own command, behind that of the other: had an event come, it would be there.
        await watcher.run("1", {});
        expect(joined(watcher.received("w"))).toEqual({ 0: "out\n", 1: "é😀\n" });
        expect(await watcher.disconnect("w")).toMatchObject({
            error: { message: "No subscription for w", status: 5 },
        });
    });

    it("to a name that nobody knows is refused, whatever the name", async () => {
        const client = await EventClient.attached();
        for (const name of ["nobody::Knows", "*", "", "(|(a=b))", "ylutil::io::textbaseevent"]) {
            expect(await client.subscribe(`to ${name}`, name)).toMatchObject({
                error: { message: `No converter for ${name}`, status: 5 },
            });
        }
    });

    it("under an identifier in use is refused, and lives", async () => {
        const client = await EventClient.attached();
        await client.subscribe("twice", TEXT_EVENT);
        void client.subscribe("twice", TEXT_EVENT);
        const refusal = await client.stock.event(({ data }) => data["error"] !== undefined);
        expect(refusal.data).toMatchObject({
            requestID: "twice",
            error: { message: `Unable to emplaceConnection for ${TEXT_EVENT}`, status: 5 },
        });
        await client.run("print('once')", { useNullOutSink: false });
        expect(joined(client.received("twice"))).toEqual({ 0: "once\n" });
    });

    it("without its keys is told what is missing", async () => {
        const client = await EventClient.attached();
        const answer = await client.stock.request(`/yvm/${client.id}/subscribeEvent`, { requestID: "k" });
        expect(answer).toMatchObject({
            error: { message: 'key: eventName is missing from {\n  "requestID": "k"\n}' },
        });
    });
});

describe("the event connections of a command", () => {
    it("turn its text into events, all of which precede its response", async () => {
        const client = await EventClient.attached();
        const texts = await client.run("import sys\nprint('a')\nprint('b', file=sys.stderr)\nprint('c')", {
            useNullOutSink: false,
            eventConnections: { mine: TEXT_EVENT },
        });
        expect(texts).toEqual([]);
        expect(joined(client.received("mine"))).toEqual({ 0: "a\nc\n", 1: "b\n" });
    });

    it("end with the command, and keep their identifier until it is freed", async () => {
        const client = await EventClient.attached();
        const options = { useNullOutSink: false, eventConnections: { mine: TEXT_EVENT } };
        await client.run("print('first')", options);
        // Passed over without a word: the text takes its other way.
        expect(joined(await client.run("print('second')", options))).toEqual({ 0: "second\n" });
        expect(await client.disconnect("mine")).toEqual({ requestID: "disconnect-1" });
        expect(await client.run("print('third')", options)).toEqual([]);
        expect(joined(client.received("mine"))).toEqual({ 0: "first\nthird\n" });
    });
});
