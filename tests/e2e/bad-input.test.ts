import { afterAll, beforeAll, describe, expect, it } from "vitest";

import type { Message } from "./Driver.js";
import { RawSocket } from "./RawSocket.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";

/** What comes from outside and is wrong: each gets a clear refusal, and nobody else notices anything. */

const maxMessageBytes = 100_000;

let server: ServerProcess;
let bystander: StockClient;

beforeAll(async () => {
    server = await ServerProcess.start("--max-message-bytes", String(maxMessageBytes));
    bystander = await StockClient.attached(server, "bystander");
});

afterAll(async () => {
    await bystander.disconnect();
    expect((await server.stop()).code).toBe(0);
});

async function session(): Promise<{ socket: RawSocket; clientId: string }> {
    const socket = await RawSocket.open(server.endpoint);
    return { socket, clientId: await socket.shakeHands(server.token) };
}

async function nobodyNoticed(): Promise<void> {
    expect(await bystander.print("bystander", "1+1")).toBe("2\n");
}

describe("a handshake", () => {
    it.each([
        ["with a wrong token", "guess"],
        ["without a token", undefined],
    ])("%s is refused for good", async (_what, token) => {
        const client = new StockClient(server);
        const reply = await client.handshake(token);
        expect(reply).toMatchObject({
            successful: false,
            error: "401::the token is missing or wrong",
            advice: { reconnect: "none" },
        });
        expect(reply.clientId).toBeUndefined();
        await nobodyNoticed();
    });

    it("with a wrong token in the query is refused at the upgrade", async () => {
        await expect(RawSocket.open(`${server.endpoint}?token=guess`)).rejects.toThrow("401");
        await nobodyNoticed();
    });
});

describe("a frame", () => {
    it.each([
        ["no JSON", "hello"],
        ["a number", "5"],
        ["an array of no messages", "[5]"],
        ["a message without a channel", "[{}]"],
        ["JSON that breaks off", '[{"channel":"/meta/handshake"'],
        ["nothing", ""],
    ])("of %s gets an unsuccessful reply with a reason", async (_what, text) => {
        const socket = await RawSocket.open(server.endpoint);
        const replies = (await socket.ask(text)) as Message[];
        expect(replies).toHaveLength(1);
        expect(replies[0]).toMatchObject({ successful: false });
        expect(replies[0]?.error).toMatch(/^400::[A-Za-z0-9 \-_!~()$@/*.]+$/);
        socket.close();
        await nobodyNoticed();
    });

    it("of a hundred thousand brackets gets an unsuccessful reply", async () => {
        const { socket } = await session();
        const replies = (await socket.ask("[".repeat(100_000))) as Message[];
        expect(replies[0]).toMatchObject({ successful: false });
        socket.close();
        await nobodyNoticed();
    });

    it("far beyond the longest message ends its own connection, and no other", async () => {
        const socket = await RawSocket.open(server.endpoint);
        const closeCode = await socket.ask(`[${" ".repeat(100 * maxMessageBytes)}]`);
        expect(closeCode).toBeTypeOf("number");
        await nobodyNoticed();
    });

    it("that is not UTF-8 ends its own connection with 1007", async () => {
        const socket = await RawSocket.open(server.endpoint);
        expect(await socket.ask(Buffer.from([0x5b, 0xff, 0x5d]))).toBe(1007);
        await nobodyNoticed();
    });

    it("that claims another's session gets 402", async () => {
        const socket = await RawSocket.open(server.endpoint);
        const [reply] = (await socket.ask(
            JSON.stringify([
                { channel: "/meta/connect", id: "1", clientId: "nobody", connectionType: "websocket" },
            ]),
        )) as Message[];
        expect(reply).toMatchObject({ id: "1", successful: false, error: "402::Unknown client" });
        socket.close();
    });
});

describe("a request", () => {
    const deep = (levels: number) => `{"requestID":${"[".repeat(levels - 1)}${"]".repeat(levels - 1)}}`;

    it.each([
        ["an empty object", "{}", "400::the data must not be an empty object"],
        ["a spaced empty object", "{ }", "400::the data must not be an empty object"],
        ["a number", "5", "400::the data must be an object"],
        ["a string", '"x"', "400::the data must be an object"],
        ["null", "null", "400::the data must be an object"],
        ["an array", "[{}]", "400::the data must be an object"],
        ["513 levels", deep(513), "413::the data is nested more than 512 levels deep"],
        [
            "too many bytes",
            `{"requestID":"${"x".repeat(maxMessageBytes)}"}`,
            `413::the data has ${String(maxMessageBytes + 16)} bytes - at most ${String(maxMessageBytes)} are accepted`,
        ],
    ])("of %s is refused with the reason", async (_what, data, error) => {
        const { socket, clientId } = await session();
        const [reply] = (await socket.ask(
            `[{"channel":"/yvm/attach/request","id":"7","clientId":"${clientId}","data":${data}}]`,
        )) as Message[];
        expect(reply).toEqual({ channel: "/yvm/attach/request", id: "7", successful: false, error });
        socket.close();
        await nobodyNoticed();
    });

    it("that is no strict JSON never reaches the engine", async () => {
        const { socket, clientId } = await session();
        for (const data of ["{'a':1}", '{"a":1,}', '{"a":01}', '{"a":"\\x"}', '{"a":1']) {
            const replies = (await socket.ask(
                `[{"channel":"/yvm/attach/request","id":"7","clientId":"${clientId}","data":${data}}]`,
            )) as Message[];
            expect(replies[0]).toMatchObject({ successful: false });
            expect(replies[0]?.error).toMatch(/^400::/);
        }
        socket.close();
        await nobodyNoticed();
    });

    it.each([
        "/yvm/bystander/eval/request",
        "/yvm/attach/response",
        "/yvm/other",
        "/yvm/*",
        "/anything",
        "/meta/other",
        "no slash",
    ])("on %s is refused", async (channel) => {
        const { socket, clientId } = await session();
        const [reply] = (await socket.ask(
            JSON.stringify([{ channel, id: "7", clientId, data: { requestID: "x", command: "1" } }]),
        )) as Message[];
        expect(reply).toMatchObject({ id: "7", successful: false });
        expect(reply?.error).toMatch(/^40[0345]::/);
        socket.close();
        await nobodyNoticed();
    });
});

describe("over HTTP", () => {
    it("tells health and readiness", async () => {
        expect((await fetch(new URL("/healthz", server.url))).status).toBe(200);
        expect((await fetch(new URL("/readyz", server.url))).status).toBe(200);
    });

    it("answers 404 for what is not there, and never leaves the page's folder", async () => {
        expect((await fetch(new URL("/nothing.js", server.url))).status).toBe(404);
        expect((await fetch(new URL("/..%2f..%2fpackage.json", server.url))).status).toBeGreaterThanOrEqual(
            400,
        );
    });

    it("does not execute a message in a query", async () => {
        const message = encodeURIComponent('[{"channel":"/meta/handshake"}]');
        const response = await fetch(`${server.endpoint}?message=${message}&jsonp=f`);
        expect(response.status).toBe(400);
        expect(await response.text()).not.toContain("clientId");
    });
});
