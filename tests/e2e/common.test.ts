import type { Browser, BrowserContext } from "playwright-core";
import { afterAll, afterEach, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { launchChromium, LibraryPage } from "./Chromium.js";
import { heldConnect, type Library, type Transport } from "./Driver.js";
import { Gate } from "./Gate.js";
import { nodeDriver } from "./nodeDriver.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient, type Data } from "./StockClient.js";

/** What a user may expect of every stock library, by every transport, in Node and in a page. */

const cases = (["Node", "Chromium"] as const).flatMap((place) =>
    (["cometd", "faye"] as Library[]).flatMap((library) =>
        (["websocket", "long-polling"] as Transport[]).map((transport) => ({ place, library, transport })),
    ),
);

let server: ServerProcess;
let browser: Browser;
let lastId = 0;

/** An identifier that no other test uses. */
function freshId(): string {
    return `id-${String(++lastId)}`;
}

beforeAll(async () => {
    server = await ServerProcess.start("--connect-timeout", "10");
    browser = await launchChromium();
});

afterAll(async () => {
    await browser.close();
    expect((await server.stop()).code).toBe(0);
});

describe.each(cases)("$library by $transport in $place", ({ place, library, transport }) => {
    const options = () => ({ url: server.endpoint, transport });
    let context: BrowserContext;
    let pages: LibraryPage[];
    let clients: StockClient[];

    async function openPage(): Promise<LibraryPage> {
        const page = await LibraryPage.open(await context.newPage(), `${server.url.origin}/healthz`);
        pages.push(page);
        return page;
    }

    /** A client that has done nothing yet; in Chromium in the first page, or in the one that is named. */
    async function newClient(page = pages[0]): Promise<StockClient> {
        const driver = await (page ? page.driver(library, options()) : nodeDriver(library, options()));
        const client = new StockClient(server, driver);
        clients.push(client);
        return client;
    }

    async function attached(id: string, page = pages[0]): Promise<StockClient> {
        const client = await newClient(page);
        await client.begin();
        await client.attachAs(id);
        return client;
    }

    beforeAll(async () => {
        pages = [];
        if (place === "Chromium") {
            context = await browser.newContext();
            await openPage();
        }
    });

    afterAll(async () => {
        if (place === "Chromium") {
            await context.close();
        }
    });

    beforeEach(() => {
        clients = [];
    });

    afterEach(async () => {
        for (const { driver } of clients) {
            expect((await driver.traffic()).complaints).toEqual([]);
            await driver.disconnect();
        }
        for (const { page } of pages.splice(1)) {
            await page.close();
        }
    });

    it("shakes hands with the right token, and connects by its transport", async () => {
        const client = await newClient();
        expect((await client.handshake(server.token)).successful).toBe(true);
        // What goes over another transport until the own one is open is done within a connect's time.
        await expect.poll(async () => (await heldConnect(client.driver)).connectionType).toBe(transport);
    });

    it("is refused with a wrong token", async () => {
        const client = await newClient();
        expect(await client.handshake("guess")).toMatchObject({
            successful: false,
            error: "401::the token is missing or wrong",
            advice: { reconnect: "none" },
        });
        // It never had a session to disconnect from.
        clients = [];
    });

    it("attaches", async () => {
        const client = await newClient();
        await client.begin();
        const id = freshId();
        expect(
            await client.attach({ requestID: id, yvmID: "user-yvm", supportedApiVersions: ["r24a0"] }),
        ).toEqual({ requestID: id, apiVersion: "r24a0", channelPrefix: `/yvm/${id}` });
    });

    it("reads the text of a command in order, and before the response", async () => {
        const id = freshId();
        const client = await attached(id);
        const { response, texts } = await client.eval(
            id,
            "import sys\nfor i in range(300): print(i, flush=i % 100 == 0)\nprint('end', file=sys.stderr)",
        );
        expect(Object.keys(response)).toEqual(["requestID"]);
        const joined = (stream: number) =>
            texts
                .filter((text) => text["stream"] === stream)
                .map(({ text }) => text)
                .join("");
        expect(joined(0)).toBe(Array.from({ length: 300 }, (_, i) => `${String(i)}\n`).join(""));
        expect(joined(1)).toBe("end\n");
    });

    it("calls a function with an array, and gets arrays back", async () => {
        const id = freshId();
        const client = await attached(id);
        const { result } = await client.feval(
            id,
            "numpy.linalg.qr",
            ['{"ywtype":"float64","ywsize":[2,2],"ywdata":[0,1,1,0]}'],
            { numOutputsExpected: 2 },
        );
        expect(result).toMatchObject([
            { ywtype: "float64", ywsize: [2, 2] },
            { ywtype: "float64", ywsize: [2, 2] },
        ]);
        const magnitudes = (result as { ywdata: number[] }[]).map(({ ywdata }) => ywdata.map(Math.abs));
        expect(magnitudes).toEqual([
            [0, 1, 1, 0],
            [1, 0, 0, 1],
        ]);
    });

    it("gets the error of a command", async () => {
        const id = freshId();
        const client = await attached(id);
        const { response } = await client.eval(id, "1/0");
        expect(response["error"]).toMatchObject({ identifier: "ZeroDivisionError", status: 1 });
    });

    it("is refused every channel that is not its session's", async () => {
        const id = freshId();
        const [owner, other] = [freshId(), await newClient()];
        await attached(owner);
        await other.begin();
        await other.attachAs(id);
        const refusal = { successful: false, error: expect.stringMatching(/^403::/) as string };
        for (const channel of [`/yvm/${owner}/**`, `/yvm/${owner}/eval/response`, "/yvm/*", "/yvm/**"]) {
            expect(await other.subscribe(channel)).toMatchObject({ ...refusal, subscription: channel });
        }
        for (const channel of [`/yvm/${owner}/eval/request`, `/yvm/${id}/eval/response`, "/elsewhere"]) {
            expect(await other.publish(channel, { requestID: "x", command: "1" })).toMatchObject(refusal);
        }
        expect(await other.print(id, "'unharmed'")).toBe("'unharmed'\n");
    });

    it("has two clients in one session, each with its own text", async () => {
        const [left, right] = [freshId(), freshId()];
        const client = await attached(left);
        await client.attachAs(right);
        const [ofLeft, ofRight] = await Promise.all([
            client.print(left, "print('left')"),
            client.print(right, "print('right')"),
        ]);
        expect([ofLeft, ofRight]).toEqual(["left\n", "right\n"]);
        for (const [id, text] of [
            [left, "left\n"],
            [right, "right\n"],
        ]) {
            const texts = client.events.filter(({ channel }) => channel === `/yvm/${String(id)}/text/output`);
            expect(texts.map(({ data }) => data["text"]).join("")).toBe(text);
        }
    });

    it("has several sessions side by side", async () => {
        // Two in one place, and in Chromium two more in another page; each page that polls takes up
        // connections of the six that a browser has for a host.
        const other = place === "Chromium" ? await openPage() : undefined;
        const homes = [pages[0], pages[0], ...(other ? [other, other] : [])];
        const ids = homes.map(freshId);
        const sessions = await Promise.all(homes.map((page, index) => attached(ids[index] ?? "", page)));
        for (let round = 0; round < 3; ++round) {
            const printed = sessions.map((client, index) =>
                client.print(ids[index] ?? "", `print(${String(index)})`),
            );
            expect(await Promise.all(printed)).toEqual(ids.map((_, index) => `${String(index)}\n`));
        }
        sessions.forEach((client, index) => {
            const foreign = client.events.filter(
                ({ channel, data }) =>
                    !channel.startsWith(`/yvm/${ids[index] ?? ""}/`) && data["requestID"] !== ids[index],
            );
            expect(foreign).toEqual([]);
        });
    });

    it("sends several requests together, and they are carried out in order", async () => {
        const id = freshId();
        const client = await attached(id);
        const requestIDs = ["a", "b", "c", "d"];
        const replies = await client.driver.batch(
            requestIDs.map((requestID) => ({
                channel: `/yvm/${id}/eval/request`,
                data: { requestID, command: `order = [*globals().get('order', []), '${requestID}'];` },
            })),
        );
        expect(replies.map(({ successful }) => successful)).toEqual([true, true, true, true]);
        await client.event(({ data }) => data["requestID"] === "d");
        const responses = client.events.filter(({ channel }) => channel.endsWith("/eval/response"));
        expect(responses.map(({ data }) => data["requestID"])).toEqual(requestIDs);
        expect(await client.print(id, "print(*order[-4:]); del order")).toBe("a b c d\n");
    });

    it("gets an event once, however many of its patterns match", async () => {
        const id = freshId();
        const client = await attached(id);
        for (const channel of [
            `/yvm/${id}/eval/response`,
            `/yvm/${id}/eval/*`,
            `/yvm/${id}/eval/**`,
            `/yvm/${id}/eval/response`,
        ]) {
            expect((await client.subscribe(channel)).successful).toBe(true);
        }
        await client.eval(id, "1;");
        const { received } = await client.driver.traffic();
        expect(received.filter(({ channel }) => channel === `/yvm/${id}/eval/response`)).toHaveLength(1);
    });

    it("gets nothing more of what it unsubscribed from", async () => {
        const id = freshId();
        const client = await attached(id);
        await client.subscribe(`/yvm/${id}/eval/response`);
        expect((await client.driver.unsubscribe(`/yvm/${id}/**`)).successful).toBe(true);
        // Its text would come before the response.
        await client.eval(id, "print('unheard')");
        const { received } = await client.driver.traffic();
        expect(received.filter(({ channel }) => channel.includes("/text/"))).toEqual([]);
    });

    it("reads text of all planes, two megabytes of it in one piece", async () => {
        const id = freshId();
        const client = await attached(id);
        const text = "grüße \u{1f600} 日本 \u2028";
        expect(await client.print(id, `print(${JSON.stringify(text)})`)).toBe(`${text}\n`);
        // Characters of two, three and four bytes.
        const long = "ü日\u{1f600}".repeat(230_000);
        const received = await client.print(id, "print('ü日\\U0001f600' * 230_000)");
        // A comparison that fails would print it all.
        expect(received.length).toBe(long.length + 1);
        expect(received === `${long}\n`).toBe(true);
    });

    it("is answered while its connect is held", async () => {
        const id = freshId();
        const client = await attached(id);
        const held = await heldConnect(client.driver);
        for (const channel of [`/yvm/${id}/eval/*`, `/yvm/${id}/text/*`]) {
            expect((await client.subscribe(channel)).successful).toBe(true);
        }
        expect(await heldConnect(client.driver)).toEqual(held);
    });

    describe("while a command blocks the engine", () => {
        let gate: Gate;

        beforeAll(() => {
            gate = new Gate();
        });

        afterAll(() => {
            gate.remove();
        });

        it("has its requests acknowledged, and carried out afterwards", async () => {
            const id = freshId();
            const client = await attached(id);
            const busy = client.print(id, `print('busy', flush=True); print(${gate.python}.read())`);
            await client.event(({ data }) => data["text"] === "busy\n");
            const requestIDs = Array.from({ length: 10 }, (_, index) => `waiting-${String(index)}`);
            for (const requestID of requestIDs) {
                const reply = await client.publish(`/yvm/${id}/eval/request`, { requestID, command: "1;" });
                expect(reply.successful).toBe(true);
            }
            expect(client.events.filter(({ channel }) => channel.endsWith("/eval/response"))).toEqual([]);
            await gate.open();
            expect(await busy).toBe("busy\nfree\n");
            await client.event(({ data }) => data["requestID"] === requestIDs.at(-1));
            const answered = client.events
                .filter(({ channel }) => channel.endsWith("/eval/response"))
                .map(({ data }) => data["requestID"] as string);
            expect(answered.slice(1)).toEqual(requestIDs);
        });
    });

    it("leaves nothing behind when it disconnects", async () => {
        const id = freshId();
        const client = await attached(id);
        await client.disconnect();
        // The identifier is free once the server's own detach has been answered.
        const next = await newClient();
        await next.begin();
        const data: Data = { requestID: id, yvmID: "user-yvm", supportedApiVersions: ["r24a0"] };
        while (!(await next.publish("/yvm/attach/request", data)).successful);
        await next.event(
            ({ channel, data: { requestID } }) => channel.startsWith("/yvm/attach") && requestID === id,
        );
        expect((await next.subscribe(`/yvm/${id}/**`)).successful).toBe(true);
        expect(await next.print(id, "'mine now'")).toBe("'mine now'\n");
    });
});
