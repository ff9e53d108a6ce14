import type { Browser, BrowserContext } from "playwright-core";
import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { launchChromium, LibraryPage } from "./Chromium.js";
import { heldConnect, type DriverOptions, type Library, type Transport } from "./Driver.js";
import { nodeDriver } from "./nodeDriver.js";
import { Relay } from "./Relay.js";
import { ServerProcess } from "./ServerProcess.js";

/** Each way in which a stock library can show a token, right and wrong. */

type Way = "the query" | "a header" | "the message";

const ways: Way[] = ["the query", "a header", "the message"];
const libraries: Library[] = ["cometd", "faye"];
// The first is what the library picks by itself.
const transports: (Transport | undefined)[] = [undefined, "long-polling"];

const cases = ["Node", "Chromium"].flatMap((place) =>
    libraries.flatMap((library) =>
        transports.flatMap((transport) =>
            ways
                // No header goes with the socket of cometd, and with none of a browser's.
                .filter((way) => way !== "a header" || library === "faye" || transport === "long-polling")
                .map((way) => ({ place, library, transport, way, by: transport ?? "what it picks" })),
        ),
    ),
);

/** Longer than the five seconds after which one of the libraries tries again, and much longer than the other. */
const silence = 7000;

let server: ServerProcess;
let browser: Browser;
let context: BrowserContext;

beforeAll(async () => {
    server = await ServerProcess.start("--max-failed-handshakes", "1000");
    browser = await launchChromium();
    context = await browser.newContext();
});

afterAll(async () => {
    await browser.close();
    expect((await server.stop()).code).toBe(0);
});

type Case = (typeof cases)[number];

function nameOf({ library, by, place, way }: Case): string {
    return `${library} by ${by} in ${place} with the token in ${way}`;
}

function optionsOf({ way, transport }: Case, endpoint: string, token: string): DriverOptions {
    return {
        url: way === "the query" ? `${endpoint}?token=${token}` : endpoint,
        transport,
        headers: way === "a header" ? { Authorization: `Bearer ${token}` } : undefined,
    };
}

describe("a token", () => {
    it("that is right lets everyone in", async () => {
        const page = await LibraryPage.open(await context.newPage(), `${server.url.origin}/healthz`);
        for (const one of cases) {
            const options = optionsOf(one, server.endpoint, server.token);
            const home = one.place === "Node" ? { driver: nodeDriver } : page;
            const driver = await home.driver(one.library, options);
            const reply = await driver.handshake(one.way === "the message" ? server.token : undefined);
            expect(reply.successful, nameOf(one)).toBe(true);
            // From then on it needs no token, on whatever transport.
            await heldConnect(driver);
            expect((await driver.subscribe("/yvm/attach/response")).successful, nameOf(one)).toBe(true);
            expect((await driver.traffic()).complaints, nameOf(one)).toEqual([]);
            await driver.disconnect();
        }
    });

    it("that is wrong is told once, and then there is silence", async () => {
        const attempts = await Promise.all(
            cases.map(async (one) => {
                const relay = await Relay.to(server.url);
                const options = optionsOf(one, relay.endpoint, "guess");
                const home =
                    one.place === "Node"
                        ? { driver: nodeDriver }
                        : await LibraryPage.open(await context.newPage(), `${relay.origin}/healthz`);
                const driver = await home.driver(one.library, options);
                relay.requests = 0;
                return { one, relay, driver };
            }),
        );
        await Promise.all(
            attempts.map(async ({ one, relay, driver }) => {
                const reply = await driver.handshake(one.way === "the message" ? "guess" : undefined);
                expect(reply, nameOf(one)).toMatchObject({
                    successful: false,
                    error: "401::the token is missing or wrong",
                    advice: { reconnect: "none" },
                });
                await new Promise((resolve) => setTimeout(resolve, silence));
                // A socket that was refused, or that was opened in parallel, and one POST at most.
                expect(relay.requests, nameOf(one)).toBeLessThanOrEqual(1);
                expect(relay.upgrades, nameOf(one)).toBeLessThanOrEqual(2);
                expect((await driver.traffic()).complaints, nameOf(one)).toEqual([]);
                await relay.close();
            }),
        );
    });
});
