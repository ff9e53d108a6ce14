import { AckExtension } from "cometd";
import { afterAll, afterEach, beforeAll, beforeEach, describe, expect, it } from "vitest";
import { connect, ConnectionError } from "yvm-client";

import { CometdDriver } from "./CometdDriver.js";
import { CuttingRelay } from "./CuttingRelay.js";
import type { Message, Transport } from "./Driver.js";
import { poll } from "./poll.js";
import { RawSocket } from "./RawSocket.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";

/** What a client with the acknowledgement extension receives, over connections that are cut. */

let server: ServerProcess;
let relay: CuttingRelay;

beforeAll(async () => {
    server = await ServerProcess.start();
});

afterAll(async () => {
    expect((await server.stop()).code).toBe(0);
});

beforeEach(async () => {
    relay = await CuttingRelay.start(server.url);
});

afterEach(async () => {
    await relay.stop();
});

const transports: Transport[] = ["websocket", "long-polling"];

/** A page between two loads: what it sends is written by hand, with ids from 1 on. */
class RawPage {
    #lastId = 0;

    private constructor(private readonly socket: RawSocket | undefined) {}

    /** `maxPayload` bounds what it takes in one frame of a WebSocket, which it closes above that. */
    static async load(transport: Transport, maxPayload?: number): Promise<RawPage> {
        return new RawPage(
            transport === "websocket" ? await RawSocket.open(server.endpoint, { maxPayload }) : undefined,
        );
    }

    /** Sends a message and returns the frame that brings its reply, or the code of a close. */
    async ask(fields: object): Promise<Message[] | number> {
        const messages = [{ ...fields, id: String(++this.#lastId) }];
        return this.socket
            ? this.socket.ask(JSON.stringify(messages))
            : (await poll(server.endpoint, messages)).replies;
    }

    /** Asks for acknowledgement; returns the client id. */
    async handshake(): Promise<string> {
        const [reply] = (await this.ask({
            channel: "/meta/handshake",
            version: "1.0",
            supportedConnectionTypes: transports,
            ext: { ack: true, token: server.token },
        })) as Message[];
        expect(reply).toMatchObject({ id: "1", successful: true, ext: { ack: true } });
        return reply?.clientId ?? "";
    }

    unload(): void {
        this.socket?.destroy();
    }
}

describe.each(transports)("over %s", (transport) => {
    it("the sequence arrives whole and once, though the connection is cut 200 times", async () => {
        const url = `${relay.origin}/bayeux`;
        const driver = new CometdDriver({ url, transport });
        driver.cometd.configure({ url, backoffIncrement: 1, maxBackoff: 1 });
        driver.cometd.registerExtension("ack", new AckExtension());
        const client = new StockClient(server, driver);
        await client.begin();
        const id = `cut-${transport}`;
        await client.attachAs(id);
        const running = client.eval(
            id,
            "import time\nstopped = False\ncount = 0\n" +
                "while not stopped:\n    print(count)\n    count += 1\n    time.sleep(0.0005)",
        );
        await client.event(({ channel }) => channel === `/yvm/${id}/text/output`);

        // Every other connection is spared until it has brought something, since the server gives up on what
        // is lost three times. After that, too, it is cut at a random place.
        const atOpening: number[] = [];
        relay.lifetime = () => Math.floor(Math.random() * 1500);
        relay.counts = (connection) =>
            connection % 2 === 0 || client.events.length > (atOpening[connection] ??= client.events.length);
        relay.cutAll();
        while (relay.cuts < 200) {
            const { length } = client.events;
            await client.event(() => client.events.length > length);
        }
        relay.counts = () => false;

        const other = await StockClient.attached(server, `stop-${transport}`);
        await other.eval(`stop-${transport}`, "stopped = True", {
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
        const { response, texts } = await running;
        expect(response).toEqual({ requestID: response["requestID"] });
        const count = Number(await other.print(`stop-${transport}`, "count"));
        await Promise.all([client.disconnect(), other.disconnect()]);
        expect(texts.map(({ text }) => text as string).join("")).toBe(
            Array.from({ length: count }, (_, number) => `${String(number)}\n`).join(""),
        );
    });
});

describe("a page that is loaded again", () => {
    it.each(transports)(
        "gets over %s what it had not acknowledged, with ids that start over",
        async (transport) => {
            const id = `reload-${transport}`;
            const page = await RawPage.load(transport);
            const clientId = await page.handshake();
            const connect = (loaded: RawPage, ack: number) =>
                loaded.ask({ channel: "/meta/connect", clientId, ext: { ack } });

            await page.ask({ channel: "/meta/subscribe", clientId, subscription: "/yvm/attach/response" });
            await page.ask({
                channel: "/yvm/attach/request",
                clientId,
                data: { requestID: id, yvmID: "user-yvm", supportedApiVersions: ["r24a0"] },
            });
            const attached = { channel: "/yvm/attach/response", data: { requestID: id } };
            expect(await connect(page, 0)).toMatchObject([{ id: "4", ext: { ack: 1 } }, attached]);
            await page.ask({
                channel: "/meta/subscribe",
                clientId,
                subscription: `/yvm/${id}/eval/response`,
            });
            await page.ask({
                channel: `/yvm/${id}/eval/request`,
                clientId,
                data: { requestID: "e", command: "1" },
            });
            const answered = { channel: `/yvm/${id}/eval/response`, data: { requestID: "e" } };
            expect(await connect(page, 1)).toMatchObject([{ id: "7", ext: { ack: 2 } }, answered]);
            page.unload();

            // The answer may have been on its way when the page went; what it acknowledged does not come again.
            const next = await RawPage.load(transport);
            expect(await connect(next, 0)).toMatchObject([{ id: "1", ext: { ack: 3 } }, answered]);
            await next.ask({
                channel: "/meta/subscribe",
                clientId,
                subscription: `/yvm/${id}/eval/response`,
            });
            const disconnect = [{ channel: "/meta/disconnect", successful: true, id: "3" }];
            expect(await next.ask({ channel: "/meta/disconnect", clientId })).toMatchObject(disconnect);
            next.unload();
        },
    );
});

describe("a frame above the limit of a client", () => {
    it("is sent three times, and then the session ends with an error", async () => {
        let page = await RawPage.load("websocket");
        const clientId = await page.handshake();
        await page.ask({ channel: "/meta/subscribe", clientId, subscription: "/yvm/attach/response" });
        // Its error quotes the whole request.
        const data = { requestID: "big", padding: "x".repeat(10_000) };
        await page.ask({ channel: "/yvm/attach/request", clientId, data });
        const reconnect = async () => {
            page.unload();
            page = await RawPage.load("websocket", 1000);
            return page.ask({ channel: "/meta/connect", clientId, ext: { ack: 0 } });
        };
        for (let times = 0; times < 3; times++) {
            // It closes the socket itself, with 1009, and does not wait for an answer.
            expect(await reconnect()).toBe(1006);
        }
        expect(await reconnect()).toEqual([
            {
                channel: "/meta/connect",
                id: "1",
                successful: false,
                error: "413::the same events were sent 3 times and never acknowledged",
                advice: { reconnect: "none" },
            },
        ]);
        page.unload();
    });
});

describe("a request of yvm-client during a cut", () => {
    it.each([
        ["goes on when the client acknowledges", true],
        ["is rejected when it does not", false],
    ])("%s", async (_what, acknowledge) => {
        const yvm = await connect(`${relay.origin}/?token=${server.token}`, { acknowledge });
        const direct = await connect(server.url.href);
        const [client, other] = await Promise.all([yvm.attach(), direct.attach()]);
        const request = client.eval(
            "import time\ngo = False\nprint('started')\nwhile not go:\n    time.sleep(0.01)\n'done'",
        );
        // Else a rejection would count as unhandled until it is looked at.
        const outcome = request.done.catch((error: unknown) => error);
        for await (const { text } of request.output) {
            expect(text).toMatch(/^started/);
            break;
        }
        relay.cutAll();
        await other.eval("go = True", { runOptions: { dequeueMode: "DEQUEUE_AT_PPE" } });
        if (acknowledge) {
            expect(await outcome).toMatchObject({ stdout: "started\n'done'\n" });
        } else {
            expect(await outcome).toBeInstanceOf(ConnectionError);
        }
        await Promise.all([yvm.disconnect(), direct.disconnect()]);
    });
});
