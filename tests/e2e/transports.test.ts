import type { Browser, BrowserContext } from "playwright-core";
import { afterAll, afterEach, beforeAll, describe, expect, it } from "vitest";

import { launchChromium, LibraryPage } from "./Chromium.js";
import { heldConnect, type Driver, type DriverOptions, type Library, type Message } from "./Driver.js";
import { Gate } from "./Gate.js";
import { nodeDriver } from "./nodeDriver.js";
import { poll } from "./poll.js";
import { RawSocket } from "./RawSocket.js";
import { Relay, type RelayOptions } from "./Relay.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";

/** How a session stays with its transport, changes it, and loses it. */

const libraries: Library[] = ["cometd", "faye"];
const transports = ["websocket", "long-polling"] as const;

let relays: Relay[] = [];

async function relayTo(server: ServerProcess, options?: RelayOptions): Promise<Relay> {
    const relay = await Relay.to(server.url, options);
    relays.push(relay);
    return relay;
}

afterEach(async () => {
    for (const relay of relays) {
        await relay.close();
    }
    relays = [];
});

describe("an idle client", () => {
    // One of the libraries gives up at 1.2 times the time: the machine has the difference to be slow in.
    const holdSeconds = 6;
    const periods = 2;
    let server: ServerProcess;
    let browser: Browser;
    let context: BrowserContext;
    let gate: Gate;

    beforeAll(async () => {
        server = await ServerProcess.start("--connect-timeout", String(holdSeconds));
        browser = await launchChromium();
        context = await browser.newContext();
        gate = new Gate();
    });

    afterAll(async () => {
        await browser.close();
        gate.remove();
        expect((await server.stop()).code).toBe(0);
    });

    async function driverFor(place: string, library: Library, options: DriverOptions): Promise<Driver> {
        if (place === "Node") {
            return nodeDriver(library, options);
        }
        const page = await context.newPage();
        return (await LibraryPage.open(page, new URL("/healthz", options.url).href)).driver(library, options);
    }

    /** How long each of the connects that were held and answered was held, in milliseconds. */
    function held({ sent, received }: Awaited<ReturnType<Driver["traffic"]>>): number[] {
        return sent.flatMap(({ id, channel, advice, at }) => {
            const reply = received.find((one) => one.id === id && one.channel === channel);
            return channel === "/meta/connect" && !advice && reply ? [reply.at - at] : [];
        });
    }

    it("is held for as long as it is told, on one socket, also while the engine is busy", async () => {
        const cases = ["Node", "Chromium"].flatMap((place) =>
            libraries.flatMap((library) =>
                transports.map((transport) => ({
                    place,
                    library,
                    transport,
                    id: `${place}-${library}-${transport}`,
                })),
            ),
        );
        const clients = await Promise.all(
            cases.map(async ({ place, library, transport, id }) => {
                const relay = await relayTo(server);
                const driver = await driverFor(place, library, { url: relay.endpoint, transport });
                return { id, relay, transport, client: await StockClient.attached(server, id, driver) };
            }),
        );

        const blocker = await StockClient.attached(server, "blocker");
        const blocked = blocker.print("blocker", `print('busy'); ${gate.python}.read();`);
        await blocker.event(({ channel }) => channel === "/yvm/blocker/text/output");

        const results = clients.map(async ({ id, relay, transport, client }) => {
            const requestID = `of-${id}`;
            const reply = await client.publish(`/yvm/${id}/eval/request`, { requestID, command: "1;" });
            expect(reply.successful, id).toBe(true);
            const before = held(await client.driver.traffic()).length;
            const { upgrades, abandoned } = relay;
            let durations: number[];
            do {
                await new Promise((resolve) => setTimeout(resolve, 100));
                durations = held(await client.driver.traffic()).slice(before);
                // The first may have been asked for before.
            } while (durations.length <= periods);
            for (const duration of durations.slice(1)) {
                expect(duration, id).toBeGreaterThanOrEqual(1000 * holdSeconds - 100);
            }
            expect((await heldConnect(client.driver)).connectionType, id).toBe(transport);
            expect(relay.upgrades, id).toBe(upgrades);
            expect(relay.abandoned, id).toBe(abandoned);
        });
        // One that fails must not leave the engine blocked, or the end of the test would wait for it.
        await Promise.allSettled(results);
        await gate.open();
        await Promise.all(results);
        await blocked;
        for (const { client, id } of clients) {
            await client.event(({ data }) => data["requestID"] === `of-${id}`);
            expect((await client.driver.traffic()).complaints, id).toEqual([]);
            await client.disconnect();
        }
        await blocker.disconnect();
    });
});

describe("a session", () => {
    let server: ServerProcess;

    beforeAll(async () => {
        server = await ServerProcess.start();
    });

    afterAll(async () => {
        expect((await server.stop()).code).toBe(0);
    });

    it("goes on, in order, when the socket of faye opens late", async () => {
        let openSocket: () => void = () => undefined;
        const delayUpgrades = new Promise<void>((resolve) => (openSocket = resolve));
        const relay = await relayTo(server, { delayUpgrades });
        const driver = nodeDriver("faye", { url: relay.endpoint });
        const client = await StockClient.attached(server, "late", driver);
        expect((await heldConnect(driver)).connectionType).toBe("long-polling");
        const lines = client.print("late", "import time\nfor i in range(300): print(i); time.sleep(0.005)");
        await client.event(({ channel }) => channel === "/yvm/late/text/output");
        openSocket();
        do {
            expect(
                (await client.publish("/yvm/late/eval/request", { requestID: "x", command: "1;" }))
                    .successful,
            ).toBe(true);
        } while ((await heldConnect(driver)).connectionType !== "websocket");
        expect(await lines).toBe(Array.from({ length: 300 }, (_, i) => `${String(i)}\n`).join(""));
        expect(await client.print("late", "'over the socket'")).toBe("'over the socket'\n");
        expect(relay.upgrades).toBe(1);
        expect((await driver.traffic()).complaints).toEqual([]);
        await client.disconnect();
    });

    it.each(libraries)("of %s stays with long-polling where upgrades are refused", async (library) => {
        const relay = await relayTo(server, { refuseUpgrades: true });
        const driver = nodeDriver(library, { url: relay.endpoint });
        const client = await StockClient.attached(server, `polling-${library}`, driver);
        expect(await client.print(`polling-${library}`, "1+1")).toBe("2\n");
        expect((await heldConnect(driver)).connectionType).toBe("long-polling");
        expect(relay.upgrades).toBeGreaterThan(0);
        expect((await driver.traffic()).complaints).toEqual([]);
        await client.disconnect();
        expect(relay.answers.length).toBeGreaterThan(5);
        for (const { status, body } of relay.answers) {
            expect(status).toBe(200);
            expect(JSON.parse(body)).toBeInstanceOf(Array);
        }
    });

    it("may shake hands by one transport, connect by the other, and go back", async () => {
        const { endpoint } = server;
        const { replies } = await poll(endpoint, [
            {
                channel: "/meta/handshake",
                id: "1",
                version: "1.0",
                supportedConnectionTypes: ["long-polling"],
                ext: { token: server.token },
            },
        ]);
        const clientId = replies[0]?.clientId ?? "";
        const connect = (connectionType: string) => ({
            channel: "/meta/connect",
            id: connectionType,
            clientId,
            connectionType,
        });
        const publish = (channel: string, data: object) =>
            poll(endpoint, [{ channel, id: "p", clientId, data }]).then(({ replies: [reply] }) => {
                expect(reply).toMatchObject({ channel, id: "p", successful: true });
            });
        const subscribe = (subscription: string) =>
            poll(endpoint, [{ channel: "/meta/subscribe", id: "s", clientId, subscription }]);

        // What it asks for by long-polling comes over the socket, which has the connect.
        const socket = await RawSocket.open(endpoint);
        socket.send(JSON.stringify([connect("websocket")]));
        // Answered behind the connect, which the server then holds: another connection may overtake this one.
        await socket.ask(
            JSON.stringify([
                { channel: "/meta/subscribe", id: "o", clientId, subscription: "/yvm/detach/response" },
            ]),
        );
        await subscribe("/yvm/attach/response");
        await publish("/yvm/attach/request", {
            requestID: "raw",
            yvmID: "user-yvm",
            supportedApiVersions: ["r24a0"],
        });
        expect(await socket.next()).toMatchObject([{ data: { channelPrefix: "/yvm/raw" } }]);
        await subscribe("/yvm/raw/eval/*");
        await publish("/yvm/raw/eval/request", { requestID: "1", command: "1;" });
        expect(await socket.next()).toMatchObject([
            { channel: "/yvm/raw/eval/response", data: { requestID: "1" } },
        ]);

        // The newer connect wins, and with it its transport.
        const polled = poll(endpoint, [connect("long-polling")]);
        expect(await socket.next()).toBe(1000);
        await publish("/yvm/raw/eval/request", { requestID: "2", command: "2;" });
        expect(await polled).toMatchObject({
            status: 200,
            replies: [
                { channel: "/meta/connect", id: "long-polling", successful: true },
                { channel: "/yvm/raw/eval/response", data: { requestID: "2" } },
            ],
        });
        await poll(endpoint, [{ channel: "/meta/disconnect", id: "d", clientId }]);
    });

    it("that two pages share goes to the newer one, and the older is not sent round in circles", async () => {
        const { endpoint } = server;
        const { replies } = await poll(endpoint, [
            {
                channel: "/meta/handshake",
                id: "1",
                supportedConnectionTypes: ["long-polling"],
                ext: { token: server.token },
            },
        ]);
        const clientId = replies[0]?.clientId ?? "";
        const connect = { channel: "/meta/connect", id: "c", clientId, connectionType: "long-polling" };
        const older = poll(endpoint, [connect]);
        // By then the older one may not have arrived yet; whichever is second ends the first.
        const newer = poll(endpoint, [connect]);
        const first = await Promise.race([older, newer]);
        expect(first).toEqual({ status: 408, replies: [] });
        await poll(endpoint, [{ channel: "/meta/disconnect", id: "d", clientId }]);
        const statuses = (await Promise.all([older, newer])).map(({ status }) => status).sort();
        expect(statuses).toEqual([200, 408]);
    });
});

describe("a client that has lost its connection", () => {
    const all = libraries.flatMap((library) => transports.map((transport) => ({ library, transport })));

    /** Waits for a handshake later than those that are in `before`, and takes up work again as a page does. */
    async function comeBack(client: StockClient, id: string, before: number): Promise<void> {
        const handshakes = async (): Promise<Message[]> =>
            (await client.driver.traffic()).received.filter(
                ({ channel, successful }) => channel === "/meta/handshake" && successful === true,
            );
        await expect.poll(async () => (await handshakes()).length).toBeGreaterThan(before);
        await client.subscribe("/yvm/attach/response");
        await client.attachAs(id);
        expect(await client.print(id, "'back'")).toBe("'back'\n");
    }

    it("shakes hands again when its session has expired, which has left nothing behind", async () => {
        const server = await ServerProcess.start("--grace-time", "1");
        const clients = await Promise.all(
            all.map(async ({ library, transport }) => {
                const relay = await relayTo(server);
                const id = `${library}-${transport}`;
                const driver = nodeDriver(library, { url: relay.endpoint, transport });
                return { id, relay, client: await StockClient.attached(server, id, driver) };
            }),
        );
        for (const { relay } of clients) {
            relay.cut();
        }
        // Its identifier is free when the session has expired and its client has been detached.
        const visitor = new StockClient(server);
        await visitor.begin();
        for (const { id } of clients) {
            const data = { requestID: id, yvmID: "user-yvm", supportedApiVersions: ["r24a0"] };
            await expect
                .poll(async () => (await visitor.publish("/yvm/attach/request", data)).successful)
                .toBe(true);
            await visitor.event(({ data: { channelPrefix } }) => channelPrefix === `/yvm/${id}`);
        }
        await visitor.disconnect();
        for (const { relay } of clients) {
            relay.mend();
        }
        await Promise.all(clients.map(({ client, id }) => comeBack(client, `${id}-again`, 1)));
        for (const { client, id } of clients) {
            expect((await client.driver.traffic()).complaints, id).toEqual([]);
            await client.disconnect();
        }
        expect((await server.stop()).code).toBe(0);
    });

    it("shakes hands with a server that has been started again", async () => {
        const first = await ServerProcess.start("--token", "same");
        const clients = await Promise.all(
            all.map(async ({ library, transport }) => {
                const id = `${library}-${transport}`;
                const driver = nodeDriver(library, { url: first.endpoint, transport });
                return { id, client: await StockClient.attached(first, id, driver) };
            }),
        );
        expect((await first.stop()).code).toBe(0);
        const second = await ServerProcess.start("--token", "same", "--port", first.url.port);
        await Promise.all(clients.map(({ client, id }) => comeBack(client, `${id}-again`, 1)));
        for (const { client, id } of clients) {
            expect((await client.driver.traffic()).complaints, id).toEqual([]);
            await client.disconnect();
        }
        expect((await second.stop()).code).toBe(0);
    });
});
