import type { Browser } from "playwright-core";
import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { launchChromium, LibraryPage } from "./Chromium.js";
import { heldConnect, type Driver, type DriverOptions, type Library, type Transport } from "./Driver.js";
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

beforeAll(async () => {
    server = await ServerProcess.start();
    browser = await launchChromium();
});

afterAll(async () => {
    await browser.close();
    expect((await server.stop()).code).toBe(0);
});

interface Attempt {
    readonly name: string;
    readonly relay: Relay;
    readonly driver: Driver;
    readonly messageToken: string | undefined;
}

async function prepare(
    { place, library, transport, way, by }: (typeof cases)[number],
    token: string,
): Promise<Attempt> {
    const relay = await Relay.to(server.url);
    const options: DriverOptions = {
        url: way === "the query" ? `${relay.endpoint}?token=${token}` : relay.endpoint,
        transport,
        headers: way === "a header" ? { Authorization: `Bearer ${token}` } : undefined,
    };
    const driver =
        place === "Node"
            ? nodeDriver(library, options)
            : await (
                  await LibraryPage.open(
                      await (await browser.newContext()).newPage(),
                      `${relay.origin}/healthz`,
                  )
              ).driver(library, options);
    relay.requests = 0;
    return {
        name: `${library} by ${by} in ${place} with the token in ${way}`,
        relay,
        driver,
        messageToken: way === "the message" ? token : undefined,
    };
}

describe("a token", () => {
    it.each(cases)("that is right lets $library by $by in $place in, in $way", async (one) => {
        const { driver, relay, messageToken } = await prepare(one, server.token);
        expect((await driver.handshake(messageToken)).successful).toBe(true);
        // Once it has shaken hands it needs no token for the rest, on whatever transport.
        await heldConnect(driver);
        expect((await driver.subscribe("/yvm/attach/response")).successful).toBe(true);
        expect((await driver.traffic()).complaints).toEqual([]);
        await driver.disconnect();
        await relay.close();
    });

    it("that is wrong is told once, and then there is silence", async () => {
        const attempts = await Promise.all(cases.map((one) => prepare(one, "guess")));
        await Promise.all(
            attempts.map(async ({ name, relay, driver, messageToken }) => {
                const reply = await driver.handshake(messageToken);
                expect(reply, name).toMatchObject({
                    successful: false,
                    error: "401::the token is missing or wrong",
                    advice: { reconnect: "none" },
                });
                await new Promise((resolve) => setTimeout(resolve, silence));
                // A socket that was refused, or that was opened in parallel, and one POST at most.
                expect(relay.requests, name).toBeLessThanOrEqual(1);
                expect(relay.upgrades, name).toBeLessThanOrEqual(2);
                expect((await driver.traffic()).complaints, name).toEqual([]);
                await relay.close();
            }),
        );
    });
});
