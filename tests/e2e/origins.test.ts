import { createServer, type Server } from "node:http";
import type { AddressInfo } from "node:net";

import type { Browser, BrowserContext, Page } from "playwright-core";
import { afterAll, afterEach, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { launchChromium, LibraryPage, waitTimeout } from "./Chromium.js";
import type { Transport } from "./Driver.js";
import { poll } from "./poll.js";
import { Relay } from "./Relay.js";
import { scrape } from "./scrape.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";

/** Which pages may connect, and what a browser lets them do. */

let site: Server;
let foreign: string;
let server: ServerProcess;
let browser: Browser;
let context: BrowserContext;
let page: Page;
let relay: Relay;

beforeAll(async () => {
    // A site of somebody else, with an empty page.
    site = createServer((_request, response) => {
        response.setHeader("Content-Type", "text/html").end("<!doctype html><title>elsewhere</title>");
    });
    await new Promise<void>((resolve) => site.listen(0, "127.0.0.1", resolve));
    foreign = `http://127.0.0.1:${String((site.address() as AddressInfo).port)}`;
    server = await ServerProcess.start("--allow-origin", foreign);
    browser = await launchChromium();
});

afterAll(async () => {
    await browser.close();
    await new Promise((resolve) => site.close(resolve));
    expect((await server.stop()).code).toBe(0);
});

beforeEach(async () => {
    context = await browser.newContext();
    context.setDefaultTimeout(waitTimeout);
    page = await context.newPage();
});

afterEach(async () => {
    await context.close();
    await relay.close();
});

describe("a page of an allowed origin", () => {
    it.each<[Transport, Record<string, string>]>([
        ["websocket", {}],
        ["long-polling", {}],
        ["long-polling", { "X-Requested-With": "a page" }],
    ])("uses cometd by %s with headers %j", async (transport, headers) => {
        relay = await Relay.to(server.url);
        const library = await LibraryPage.open(page, foreign);
        const driver = await library.driver("cometd", { url: relay.endpoint, transport, headers });
        const client = await StockClient.attached(server, "guest", driver);
        expect(await client.print("guest", "1+1")).toBe("2\n");
        await client.driver.disconnect();
        expect((await driver.traffic()).complaints).toEqual([]);
        const preflights = relay.answers.filter(({ request }) => request.startsWith("OPTIONS"));
        if (transport === "websocket") {
            expect(relay.upgrades).toBe(1);
        } else {
            expect(new Set(preflights.map(({ request }) => request))).toEqual(
                new Set(
                    ["", "handshake", "connect", "disconnect"].map((suffix) => `OPTIONS /bayeux/${suffix}`),
                ),
            );
        }
        for (const { headers: answered } of relay.answers) {
            expect(answered).toMatchObject({
                "access-control-allow-origin": foreign,
                "access-control-allow-credentials": "true",
                vary: "Origin",
            });
        }
    });

    it.each(["", "/", "/handshake", "/connect", "/disconnect", "?any=query"])(
        "may ask before it posts to /bayeux%s, without a token",
        async (suffix) => {
            relay = await Relay.to(server.url);
            const response = await fetch(`${relay.endpoint}${suffix}`, {
                method: "OPTIONS",
                headers: {
                    Origin: foreign,
                    "Access-Control-Request-Method": "POST",
                    "Access-Control-Request-Headers": "authorization,content-type",
                },
            });
            expect(response.status).toBe(204);
            expect(response.headers.get("Access-Control-Allow-Origin")).toBe(foreign);
            expect(response.headers.get("Access-Control-Allow-Headers")).toContain("authorization");
            expect(Number(response.headers.get("Access-Control-Max-Age"))).toBeGreaterThan(0);
        },
    );
});

describe("a page of another origin", () => {
    it("gets nothing, whatever cometd tries", async () => {
        const strict = await ServerProcess.start();
        relay = await Relay.to(strict.url);
        const library = await LibraryPage.open(page, foreign);
        const driver = await library.driver("cometd", { url: relay.endpoint });
        const outcome = driver.handshake(strict.token).then(
            () => "answered",
            () => "never answered",
        );
        // By WebSocket, by long-polling, which stops at the preflight, and by a script element.
        await expect.poll(() => relay.upgrades).toBeGreaterThan(0);
        const statuses = (method: string) => [
            ...new Set(
                relay.answers.filter(({ request }) => request.startsWith(method)).map(({ status }) => status),
            ),
        ];
        await expect.poll(() => statuses("GET")).toEqual([400]);
        expect(statuses("OPTIONS")).toEqual([403]);
        expect(statuses("POST")).toEqual([]);
        for (const { headers } of relay.answers) {
            expect(Object.keys(headers).filter((name) => name.startsWith("access-control"))).toEqual([]);
        }
        expect((await driver.traffic()).received).toEqual([]);
        expect((await scrape(strict))("refusals_total", 'reason="origin"')).toBeGreaterThanOrEqual(2);
        await context.close();
        expect(await outcome).toBe("never answered");
        expect((await strict.stop()).code).toBe(0);
    });
});

describe("what is no request of a stock client", () => {
    it.each([
        [
            "a form",
            "POST",
            "application/x-www-form-urlencoded",
            (message: string) => `message=${encodeURIComponent(message)}`,
        ],
        ["plain text", "POST", "text/plain", (message: string) => message],
        ["a script element", "GET", undefined, (message: string) => message],
    ])("such as %s is not carried out", async (_what, method, contentType, encode) => {
        relay = await Relay.to(server.url);
        const { replies } = await poll(relay.endpoint, [
            {
                channel: "/meta/handshake",
                supportedConnectionTypes: ["long-polling"],
                ext: { token: server.token },
            },
        ]);
        const clientId = replies[0]?.clientId ?? "";
        const message = JSON.stringify([{ channel: "/meta/disconnect", id: "1", clientId }]);
        const response = await (method === "GET"
            ? fetch(`${relay.endpoint}?jsonp=f&message=${encodeURIComponent(encode(message))}`)
            : fetch(relay.endpoint, {
                  method,
                  body: encode(message),
                  headers: { "Content-Type": contentType ?? "" },
              }));
        expect([400, 415]).toContain(response.status);
        expect(response.headers.get("Content-Type")).toMatch(/^text\/plain/);
        // The session is still there.
        const again = await poll(relay.endpoint, [{ channel: "/meta/disconnect", id: "2", clientId }]);
        expect(again.replies).toEqual([{ channel: "/meta/disconnect", id: "2", successful: true }]);
    });
});

describe("the console under its own security policy", () => {
    it.each<[Transport, boolean]>([
        ["websocket", false],
        ["long-polling", true],
    ])("works by %s", async (transport, refuseUpgrades) => {
        relay = await Relay.to(server.url, { refuseUpgrades });
        const complaints: string[] = [];
        page.on("console", (message) => complaints.push(message.text()));
        page.on("pageerror", ({ message }) => complaints.push(message));
        await page.goto(`${relay.origin}/?token=${server.token}`);
        await page.locator('#status[data-state="attached"]').waitFor();
        await page.getByLabel("Command", { exact: true }).last().fill("1+1");
        await page.keyboard.press("Enter");
        await page.locator(".cell:not(.running)").waitFor();
        expect(await page.locator(".cell .stdout").textContent()).toBe("2\n");
        const hasPolled = relay.answers.some(({ request }) => request.startsWith("POST"));
        expect(hasPolled ? "long-polling" : "websocket").toBe(transport);
        expect(relay.answers.find(({ request }) => request === "GET /")?.headers).toHaveProperty(
            "content-security-policy",
        );
        expect(complaints.filter((text) => /policy|refused to/i.test(text))).toEqual([]);
    });
});
