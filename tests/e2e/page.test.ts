import { mkdirSync } from "node:fs";
import { fileURLToPath } from "node:url";

import type { Browser, Page } from "playwright-core";
import { afterAll, afterEach, beforeAll, beforeEach, describe, expect, it } from "vitest";

import { launchChromium, waitTimeout } from "./Chromium.js";
import { collectComplaints } from "./collectComplaints.js";
import { Gate } from "./Gate.js";
import { ServerProcess } from "./ServerProcess.js";

/** The web console in a real browser, served by the real server under its own policy. */

const screenshots = fileURLToPath(new URL("../../build/screenshots/", import.meta.url));

let server: ServerProcess;
let browser: Browser;
let page: Page;
let complaints: string[];

beforeAll(async () => {
    mkdirSync(screenshots, { recursive: true });
    server = await ServerProcess.start();
    browser = await launchChromium();
});

afterAll(async () => {
    await browser.close();
    expect((await server.stop()).code).toBe(0);
});

beforeEach(async () => {
    complaints = [];
    const context = await browser.newContext({ viewport: { width: 900, height: 700 } });
    context.setDefaultTimeout(waitTimeout);
    page = await context.newPage();
    collectComplaints(page, complaints);
});

afterEach(async () => {
    await page.context().close();
});

async function open(): Promise<void> {
    await page.goto(server.url.href);
    await page.locator('#status[data-state="attached"]').waitFor();
}

/** Types a command, runs it, and waits for its end. */
async function run(command: string): Promise<void> {
    const count = await page.locator(".cell").count();
    await page.getByLabel("Command", { exact: true }).last().fill(command);
    await page.keyboard.press("Enter");
    await page.locator(".cell:not(.running)").nth(count).waitFor();
}

function lastCell() {
    return page.locator(".cell").last();
}

describe("the page", () => {
    it("shows 2 for 1+1, under the server's security policy, without a complaint", async () => {
        await open();
        await run("1+1");
        expect(await lastCell().locator(".stdout").textContent()).toBe("2\n");
        expect(await lastCell().locator(".failure").count()).toBe(0);
        expect(complaints).toEqual([]);
    });

    it("takes the token out of the address and survives a reload", async () => {
        await open();
        expect(page.url()).toBe(`${server.url.origin}/`);
        await page.reload();
        await page.locator('#status[data-state="attached"]').waitFor();
        expect(complaints).toEqual([]);
    });

    it("shows text as text, and the two streams apart", async () => {
        await open();
        await run("import sys; print('<b>bold</b>'); print('careful', file=sys.stderr)");
        expect(await lastCell().locator(".stdout").textContent()).toBe("<b>bold</b>\n");
        expect(await lastCell().locator(".stderr").textContent()).toBe("careful\n");
        expect(await lastCell().locator("b").count()).toBe(0);
    });

    it("shows an error once, with the command's own lines", async () => {
        await open();
        await run("def half(x):\n    return 1 / x\n\nhalf(0)");
        const cell = lastCell();
        expect(await cell.locator(".failure-title").allTextContents()).toEqual([
            "ZeroDivisionError: division by zero",
        ]);
        expect(await cell.locator(".frame-source").allTextContents()).toEqual(["half(0)", "return 1 / x"]);
        const shown = (await cell.innerText()).split("ZeroDivisionError");
        expect(shown).toHaveLength(2);
    });

    it("folds the middle of a deep stack", async () => {
        await open();
        await run("def deep(n):\n    return deep(n - 1) if n else 1 / 0\n\ndeep(50)");
        const failure = lastCell().locator(".failure");
        expect(await failure.locator("summary").textContent()).toBe("42 more frames");
        expect(await failure.locator(".frame-place:visible").count()).toBe(10);
        await failure.locator("summary").click();
        expect(await failure.locator(".frame-place:visible").count()).toBe(52);
    });

    it("shows text while the command runs, and that it runs", async () => {
        await open();
        const editor = page.locator("#command");
        const gate = new Gate();
        await editor.fill(`import time\nprint('begun', flush=True)\ntime.sleep(1.2); ${gate.python}.read();`);
        await editor.press("Enter");
        const running = page.locator(".cell.running");
        await running.locator(".stdout", { hasText: "begun" }).waitFor();
        await running.locator(".progress").waitFor({ state: "visible" });
        await gate.open();
        await page.locator(".cell:not(.running) .duration").waitFor();
        gate.remove();
    });

    it("breaks lines on Shift+Enter, keeps the indentation, and finds earlier commands", async () => {
        await open();
        const editor = page.locator("#command");
        await editor.focus();
        await page.keyboard.type("for i in range(2):");
        await page.keyboard.press("Shift+Enter");
        await page.keyboard.type("print(i)");
        await page.keyboard.press("Enter");
        await page.locator(".cell:not(.running)").waitFor();
        expect(await lastCell().locator(".stdout").textContent()).toBe("0\n1\n");
        await page.keyboard.type("draft");
        await page.keyboard.press("ArrowUp");
        expect(await editor.inputValue()).toBe("for i in range(2):\n    print(i)");
        await page.keyboard.press("ArrowDown");
        expect(await editor.inputValue()).toBe("draft");
    });

    it("says why it is refused, and connects with the right token", async () => {
        await page.goto(`${server.url.origin}/?token=guess`);
        await page.locator('#status[data-state="ended"]').waitFor();
        expect(await page.locator("#notice").textContent()).toBe(
            "The server refused the connection: the token is missing or wrong",
        );
        await page.screenshot({ path: `${screenshots}refused.png` });
        await page.locator("#token").fill(server.token);
        await page.keyboard.press("Enter");
        await page.locator('#status[data-state="attached"]').waitFor();
        await run("1+1");
    });

    it("reports a lost connection, and comes back when the server does", async () => {
        const first = await ServerProcess.start("--token", "same");
        await page.goto(first.url.href);
        await page.locator('#status[data-state="attached"]').waitFor();
        expect((await first.stop()).code).toBe(0);
        await page.locator('#status[data-state="lost"]').waitFor();
        const second = await ServerProcess.start("--token", "same", "--port", first.url.port);
        await page.locator('#status[data-state="attached"]').waitFor();
        await run("1+1");
        expect(await lastCell().locator(".stdout").textContent()).toBe("2\n");
        expect((await second.stop()).code).toBe(0);
    });

    it.each(["light", "dark"] as const)("looks well in %s", async (colorScheme) => {
        await page.emulateMedia({ colorScheme });
        await open();
        await run("1+1");
        await run("import numpy as np; np.arange(12).reshape(3, 4)");
        await run("import sys; print('progress goes here', file=sys.stderr); 'done'");
        await run("def half(x):\n    return 1 / x\n\nhalf(0)");
        await page.locator("#command").fill("np.linalg.svd(np.eye(2))");
        await page.screenshot({ path: `${screenshots}console-${colorScheme}.png` });
        const ground = await page.evaluate(
            "getComputedStyle(document.querySelector('#scroller')).backgroundColor",
        );
        expect(ground).toBe(colorScheme === "light" ? "rgb(255, 255, 255)" : "rgb(23, 28, 35)");
    });
});
