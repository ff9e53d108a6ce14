import type { Browser, Page } from "playwright-core";
import { afterAll, beforeAll, describe, expect, it } from "vitest";

import { bundle, launchChromium, waitTimeout } from "./Chromium.js";
import type { Transport } from "./Driver.js";
import { ServerProcess } from "./ServerProcess.js";
import { StockClient } from "./StockClient.js";

/** A page with the stock client's extensions for acknowledgement and reload, loaded again and again. */

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

/** Loads the page and starts its client; tells whether that went on with the session of the page before. */
async function load(page: Page, transport: Transport, id: string): Promise<boolean> {
    await page.goto(`${server.url.origin}/healthz`);
    await page.addScriptTag({ content: await bundle("reloadingPage.ts") });
    const { endpoint, token } = server;
    return page.evaluate(([url, secret, type, name]) => reloading.start(url, secret, type, name), [
        endpoint,
        token,
        transport,
        id,
    ] as const);
}

describe.each<Transport>(["websocket", "long-polling"])("over %s", (transport) => {
    it("no text is lost between one load of a page and the next", async () => {
        const id = `page-${transport}`;
        const page = await browser.newPage();
        page.setDefaultTimeout(waitTimeout);
        expect(await load(page, transport, id)).toBe(false);
        const command =
            "import time\nstopped = False\ncount = 0\n" +
            "while not stopped:\n    print(count)\n    count += 1\n    time.sleep(0.001)";
        const data = { requestID: "e", command, runOptions: { useNullOutSink: false } };
        expect(
            await page.evaluate(([channel, fields]) => reloading.publish(channel, fields), [
                `/yvm/${id}/eval/request`,
                data,
            ] as const),
        ).toBe(true);

        const texts: string[] = [];
        const ids: string[][] = [];
        for (let loads = 0; loads < 5; loads++) {
            await page.waitForFunction(() => reloading.text.length > 200);
            texts.push(await page.evaluate(() => reloading.leave()));
            ids.push(await page.evaluate(() => reloading.ids));
            expect(await load(page, transport, id)).toBe(true);
        }
        const other = await StockClient.attached(server, `stop-${transport}`);
        await other.eval(`stop-${transport}`, "stopped = True", {
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
        const count = Number(await other.print(`stop-${transport}`, "count"));
        const last = `\n${String(count - 1)}\n`;
        await page.waitForFunction((end) => reloading.text.endsWith(end), last);
        texts.push(await page.evaluate(() => reloading.text));
        await Promise.all([page.close(), other.disconnect()]);

        // What a page had received and not acknowledged when it went comes again in the next.
        const whole = Array.from({ length: count }, (_, number) => `${String(number)}\n`).join("");
        let known = 0;
        for (const text of texts) {
            const from = whole.indexOf(text);
            expect(from).toBeGreaterThanOrEqual(0);
            expect(from).toBeLessThanOrEqual(known);
            known = from + text.length;
        }
        expect(known).toBe(whole.length);
        expect(ids.every(([first]) => first === "1")).toBe(true);
    });
});
