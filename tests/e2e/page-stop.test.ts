import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

import type { Locator, Page } from "playwright-core";
import { afterEach, beforeEach, describe, expect, it } from "vitest";
import { connect, type Client, type Connection } from "yvm-client";

import { collectComplaints } from "./collectComplaints.js";
import type { ServerProcess } from "./ServerProcess.js";
import { screenshots, setUpPage } from "./setUpPage.js";

/** Stopping commands in the web console: a real browser, the real server. */

const busy = "print('runs', flush=True)\nwhile True: pass";

let server: ServerProcess;
let page: Page;
let complaints: string[];
/** Another user of the same engine. */
let yvm: Connection;
let other: Client;

setUpPage({ width: 900, height: 700 }, (given) => {
    ({ server, page, complaints } = given);
});

beforeEach(async () => {
    await open(page);
    yvm = await connect(server.url.href);
    other = await yvm.attach();
});

afterEach(async () => {
    await yvm.disconnect();
});

async function open(opened: Page): Promise<void> {
    await opened.goto(server.url.href);
    await opened.locator('#status[data-state="attached"]').waitFor();
}

/** Types a command and runs it; its cell. */
async function start(command: string): Promise<Locator> {
    const count = await page.locator(".cell").count();
    await page.locator("#command").fill(command);
    await page.keyboard.press("Enter");
    return page.locator(".cell").nth(count);
}

async function untilStopped(cell: Locator): Promise<void> {
    await cell.locator(".failure").waitFor();
    expect(await cell.getAttribute("class")).not.toContain("running");
    expect(await cell.getByRole("button").count()).toBe(0);
}

function rows(of: Page = page): Locator {
    return of.locator("#activity li");
}

/** Waits until these are listed, and no others: each row changes by itself while the page learns of its command. */
async function untilRows(of: Page, texts: readonly RegExp[]): Promise<void> {
    await expect
        .poll(() => rows(of).allInnerTexts())
        .toEqual(texts.map((text) => expect.stringMatching(text) as string));
}

describe("the page", () => {
    it("stops a running command by its button, and is ready for the next", async () => {
        const cell = await start(busy);
        await cell.locator(".stdout", { hasText: "runs" }).waitFor();
        await cell.getByRole("button", { name: "Stop" }).click();
        await untilStopped(cell);
        const next = await start("1+1");
        await next.locator(".stdout", { hasText: "2" }).waitFor();
    });

    it("stops a running command by Ctrl+C in the editor", async () => {
        const cell = await start(busy);
        await cell.locator(".stdout", { hasText: "runs" }).waitFor();
        await page.keyboard.press("Control+c");
        await untilStopped(cell);
    });

    it("leaves Ctrl+C to the copying of what is selected", async () => {
        const cell = await start(busy);
        await cell.locator(".stdout", { hasText: "runs" }).waitFor();
        await page.locator("#command").fill("to be copied");
        await page.keyboard.press("Control+a");
        await page.keyboard.press("Control+c");
        await page.keyboard.press("ArrowRight");
        // The next one does stop it, so the first one has not.
        expect(await cell.locator(".progress").textContent()).not.toContain("requested");
        await page.keyboard.press("Control+c");
        await untilStopped(cell);
    });

    it("says that a stop was requested until the command has really ended, and can repeat it", async () => {
        const cell = await start(
            "try:\n    print('runs', flush=True)\n    while True: pass\nexcept KeyboardInterrupt:\n" +
                "    print('caught', flush=True)\nwhile True: pass",
        );
        await cell.locator(".stdout", { hasText: "runs" }).waitFor();
        await cell.getByRole("button", { name: "Stop" }).click();
        await cell.locator(".stdout", { hasText: "caught" }).waitFor();
        expect(await cell.locator(".progress").textContent()).toContain("stop requested");
        await cell.getByRole("button", { name: "Stop again" }).click();
        await untilStopped(cell);
    });

    it("lists what runs and what waits by its text, and stops each from there", async () => {
        const running = await start(busy);
        const waiting = await start("'never'");
        await untilRows(page, [
            /^running\s+print\('runs', flush=True\) …\s+Stop$/,
            /^waiting\s+'never'\s+Stop$/,
        ]);
        await waiting.locator(".progress").getByText("waiting").waitFor();
        await rows().nth(1).getByRole("button").click();
        await untilStopped(waiting);
        expect(await waiting.locator(".stdout").count()).toBe(0);
        await rows().nth(0).getByRole("button").click();
        await untilStopped(running);
        await rows().first().waitFor({ state: "detached" });
        await page.locator("#activity").waitFor({ state: "hidden" });
    });

    it("shows, opened late, what another page runs, and interrupts it", async () => {
        const cell = await start(busy);
        await cell.locator(".stdout", { hasText: "runs" }).waitFor();
        const late = await page.context().newPage();
        collectComplaints(late, complaints);
        await open(late);
        await untilRows(late, [/^running\s+#\d+, from elsewhere\s+Interrupt$/]);
        await rows(late).getByRole("button", { name: "Interrupt" }).click();
        await untilStopped(cell);
        await late.locator("#activity").waitFor({ state: "hidden" });
    });

    it("tells its own waiting command from the running one of another client", async () => {
        const rejected = expect(other.eval("while True: pass").done).rejects.toMatchObject({ status: 3 });
        await rows().getByText("from elsewhere").waitFor();
        const mine = await start("'mine'");
        await untilRows(page, [/^running\s+#\d+, from elsewhere\s+Interrupt$/, /^waiting\s+'mine'\s+Stop$/]);
        await rows().getByRole("button", { name: "Interrupt" }).click();
        await rejected;
        await mine.locator(".stdout", { hasText: "mine" }).waitFor();
    });

    it("says, opened late, that the engine is inside one long call", async () => {
        const folder = mkdtempSync(join(tmpdir(), "yvm-"));
        const fifo = join(folder, "release");
        const done = other.eval(
            `
import ctypes, os, signal
os.mkfifo("${fifo}")
release = os.open("${fifo}", os.O_RDWR)
print("runs", flush=True)
mask = signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())
ctypes.PyDLL(None).read(release, ctypes.create_string_buffer(1), 1)  # holds on to the interpreter
signal.pthread_sigmask(signal.SIG_SETMASK, mask)
os.close(release)`,
        );
        for await (const { text } of done.output) {
            expect(text).toContain("runs");
            break;
        }
        await page.reload();
        await page.locator('#status[data-state="attached"]').waitFor();
        await rows().getByText("does not answer").waitFor();
        writeFileSync(fifo, "x");
        await done;
        rmSync(folder, { recursive: true });
        await page.locator("#activity").waitFor({ state: "hidden" });
    });

    it("lists a command no longer than it lasts, and queries nothing into the history", async () => {
        const cell = await start("1+1");
        await cell.locator(".stdout", { hasText: "2" }).waitFor();
        // A quick one is not listed at all, which the tests of `ActivityMonitor` tell by a clock of their own.
        await page.locator("#activity").waitFor({ state: "hidden" });
        const [history] = await other.feval("yvm.history", [1]);
        expect(history).toEqual(["1+1"]);
    });

    it.each(["light", "dark"] as const)("looks well while commands run, in %s", async (colorScheme) => {
        await page.emulateMedia({ colorScheme });
        await start("import numpy as np; np.arange(12).reshape(3, 4)");
        const running = await start(
            "import time\nfor i in range(600):\n    print(i, end=' ', flush=True)\n    time.sleep(0.1)",
        );
        // The other client has a connection of its own, on which its command could come first.
        await running.locator(".stdout", { hasText: "0 1" }).waitFor();
        const waiting = await start("np.linalg.svd(np.eye(2))");
        const elsewhere = other.eval("'elsewhere'");
        await rows().nth(2).waitFor();
        await page.screenshot({ path: `${screenshots}stop-${colorScheme}.png` });
        await page.keyboard.press("Control+c");
        await untilStopped(running);
        await waiting.locator(".stdout").waitFor();
        await elsewhere;
        await page.screenshot({ path: `${screenshots}stopped-${colorScheme}.png` });
        expect(await running.locator(".failure-title").textContent()).toBe(
            "yvm.Interrupt: the command was interrupted",
        );
    });
});
