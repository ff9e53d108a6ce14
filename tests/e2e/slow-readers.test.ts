import { readFileSync } from "node:fs";

import { afterAll, beforeAll, describe, expect, it } from "vitest";

import type { Message } from "./Driver.js";
import { RawSocket } from "./RawSocket.js";
import { scrape } from "./scrape.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";

/** Clients that do not read what the engine writes for them. */

const MIB = 1024 * 1024;

/** A gigabyte, a line at a time, were there somebody to read it. */
const FLOOD = "line = 'x' * 99 + '\\n'\nfor _ in range(10_000_000):\n    print(line, end='')";

/** The same as displayed values. */
const VALUES = "import yvm\nvalue = 'x' * 9_999\nfor _ in range(100_000):\n    yvm.display(value)";

/** For how many seconds the engine waits for a reader: time enough to ask others something meanwhile. */
const maxOutputWait = "3";

let server: ServerProcess;
let bystander: StockClient;

beforeAll(async () => {
    server = await ServerProcess.start("--max-output-wait", maxOutputWait);
    bystander = await StockClient.attached(server, "bystander");
});

afterAll(async () => {
    await bystander.disconnect();
    expect((await server.stop()).code).toBe(0);
});

/** A client on a bare socket, which reads only what the test asks for. */
class Reader {
    #lastId = 0;

    private constructor(
        readonly id: string,
        readonly socket: RawSocket,
        readonly clientId: string,
    ) {}

    static async attached(id: string, apiVersion = "r24a0"): Promise<Reader> {
        const socket = await RawSocket.open(server.endpoint);
        const reader = new Reader(id, socket, await socket.shakeHands(server.token));
        reader.send("/meta/connect", { connectionType: "websocket", advice: { timeout: 0 } });
        reader.send("/meta/connect", { connectionType: "websocket" });
        reader.send("/meta/subscribe", { subscription: "/yvm/attach/response" });
        reader.request("/yvm/attach", { yvmID: "user-yvm", supportedApiVersions: [apiVersion] }, id);
        await reader.until((message) => message.channel === "/yvm/attach/response");
        reader.send("/meta/subscribe", { subscription: `/yvm/${id}/**` });
        return reader;
    }

    /** Takes over the client-wide text. */
    async install(apiVersion: string): Promise<void> {
        if (apiVersion === "r22a0") {
            this.send("/meta/subscribe", { subscription: "/yvm/sinks/response" });
            this.send("/yvm/sinks/set", { data: {} });
            await this.until(
                ({ channel, successful }) => channel === "/yvm/sinks/set" && successful === true,
            );
        } else {
            this.request(`/yvm/${this.id}/yvmSinks`, {});
            await this.until(({ channel }) => channel === `/yvm/${this.id}/yvmSinks/response`);
        }
    }

    send(channel: string, fields: Record<string, unknown>): void {
        const id = String(++this.#lastId);
        this.socket.send(JSON.stringify([{ channel, id, clientId: this.clientId, ...fields }]));
    }

    request(channel: string, fields: Record<string, unknown>, requestID = String(++this.#lastId)): void {
        this.send(`${channel}/request`, { data: { requestID, ...fields } });
    }

    /** The first message that is wanted, or the code with which the server closed. */
    async until(isWanted: (message: Message) => boolean): Promise<Message | number> {
        for (;;) {
            const next = await this.socket.next();
            if (typeof next === "number") {
                return next;
            }
            const found = next.find(isWanted);
            if (found) {
                return found;
            }
        }
    }
}

function residentBytes(): number {
    const [, kib] =
        /^VmRSS:\s+(\d+) kB$/m.exec(readFileSync(`/proc/${String(server.pid)}/status`, "utf8")) ?? [];
    return Number(kib) * 1024;
}

/** Asks at a pre-emption point what runs. */
async function query(): Promise<void> {
    const response = await bystander.request("/yvm/bystander/feval", {
        requestID: `query-${String(Math.random())}`,
        function: "yvm.state",
        rhsArgs: [],
        numOutputsExpected: 1,
        runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
    });
    expect(response["error"]).toBeUndefined();
}

/**
 * Resolves when the session of a slow reader has been ended. Meanwhile it looks at memory, and counts the queries that
 * are asked while the engine waits, and answered before that.
 */
async function untilSlowReaderHasGone(
    before: Awaited<ReturnType<typeof scrape>>,
): Promise<{ greatest: number; queries: number }> {
    const ended = (metrics: typeof before) => metrics("sessions_ended_total", 'cause="slow_reader"');
    const waits = (metrics: typeof before) => metrics("output_waits_total");
    let greatest = 0;
    let queries = 0;
    for (let isAsked = false; ;) {
        const metrics = await scrape(server);
        if (ended(metrics) > ended(before)) {
            return { greatest, queries };
        }
        queries += isAsked ? 1 : 0;
        greatest = Math.max(greatest, residentBytes());
        isAsked = waits(metrics) > waits(before);
        await query();
    }
}

describe("a client that stops reading in the middle of a gigabyte", () => {
    it.each([
        ["r24a0", "its command's own text", FLOOD, { useNullOutSink: false }, "/text/output"],
        ["r24a0", "client-wide text", FLOOD, {}, "/yvmSinks/output"],
        [
            "r24a0",
            "displayed values",
            VALUES,
            { eventConnections: { values: "ylutil::io::StructuredOutputEvent" } },
            "/event/fireEvent",
        ],
        ["r22a0", "its command's own text", FLOOD, { useNullOutSink: false }, "/output"],
        ["r22a0", "client-wide text", FLOOD, {}, "/yvm/sinks/response"],
    ])(
        "with %s, of %s is ended and told, while others are answered and memory stays bounded",
        async (apiVersion, what, command, runOptions, textChannel) => {
            const reader = await Reader.attached(`slow-${apiVersion}`, apiVersion);
            if (what === "client-wide text") {
                await reader.install(apiVersion);
            }
            reader.request(`/yvm/${reader.id}/eval`, { command, runOptions });
            await reader.until(({ channel, data }) => channel.endsWith(textChannel) && data !== undefined);
            const before = residentBytes();
            reader.socket.pause();

            const { greatest, queries } = await untilSlowReaderHasGone(await scrape(server));
            expect(queries).toBeGreaterThan(0);
            expect(greatest - before).toBeLessThan(100 * MIB);

            // The command went with its client.
            expect(await bystander.print("bystander", "6 * 7")).toBe("42\n");

            reader.socket.resume();
            const told = await reader.until(
                ({ channel, successful }) => channel === "/meta/connect" && successful === false,
            );
            expect(told).toMatchObject({
                error: `413::the engine waited ${maxOutputWait} s for this session to read its text`,
                advice: { reconnect: "none" },
            });
        },
    );
});

describe("a client that reads slowly, but reads", () => {
    it("gets every character", async () => {
        const reader = await Reader.attached("steady");
        const command = "for n in range(400_000):\n    print(f'{n:099}')";
        reader.request(`/yvm/${reader.id}/eval`, { command, runOptions: { useNullOutSink: false } }, "all");
        let text = 0;
        let frames = 0;
        for (let answered = false; !answered;) {
            const next = await reader.socket.next();
            if (typeof next === "number") {
                throw new Error(`closed with ${String(next)} after ${String(text)} characters`);
            }
            for (const { channel, data } of next) {
                const { text: piece, requestID } = (data ?? {}) as { text?: string; requestID?: string };
                if (channel.endsWith("/text/output")) {
                    expect(piece?.length).toBeGreaterThan(0);
                    text += piece?.length ?? 0;
                }
                answered ||= channel.endsWith("/eval/response") && requestID === "all";
            }
            if (++frames % 16 === 0) {
                // Behind by a query: the engine gets ahead.
                reader.socket.pause();
                await query();
                reader.socket.resume();
            }
        }
        expect(text).toBe(40_000_000);
        reader.socket.close();
    });
});
