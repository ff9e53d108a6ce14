import { readFileSync } from "node:fs";

import type { Locator, Page } from "playwright-core";
import { afterEach, beforeEach, describe, expect, it } from "vitest";
import { connect, type Client, type Connection } from "yvm-client";

import { waitTimeout } from "./Chromium.js";
import { ServerProcess } from "./ServerProcess.js";
import { screenshots, setUpPage } from "./setUpPage.js";

/** Output in the web console: much of it, of all kinds, and from elsewhere. A real browser, the real server. */

/** Elements of a page that shows one output, however long; without output it has about 50. */
const maxElements = 400;

/** How long a hundred megabytes are waited for, in milliseconds: a bound on failure. */
const longWait = 150_000;

const distanceToEnd = "element.scrollHeight - element.scrollTop - element.clientHeight";

let server: ServerProcess;
let page: Page;
let complaints: string[];

setUpPage({ width: 900, height: 700 }, (given) => {
    ({ server, page, complaints } = given);
});

beforeEach(async () => {
    await page.goto(server.url.href);
    await attached();
});

async function attached(): Promise<void> {
    await page.locator('#status[data-state="attached"]').waitFor();
}

/** Types a command and runs it; its cell. */
async function start(command: string): Promise<Locator> {
    const count = await page.locator(".cell").count();
    await page.locator("#command").fill(command);
    await page.keyboard.press("Enter");
    const cell = page.locator(".cell").nth(count);
    await cell.waitFor();
    return cell;
}

/** Runs a command to its end. */
async function run(command: string, timeout = waitTimeout): Promise<Locator> {
    const cell = await start(command);
    await page
        .locator(".cell:not(.running)")
        .nth((await page.locator(".cell").count()) - 1)
        .waitFor({ timeout });
    return cell;
}

/** Has the page measure itself from now on; what it has found is then told by `measured`. */
async function measure(): Promise<void> {
    await page.evaluate(`
        globalThis.measured = { longestTask: 0, tasks: 0, elements: 0, frames: 0 };
        new PerformanceObserver((list) => {
            for (const { duration } of list.getEntries()) {
                measured.longestTask = Math.max(measured.longestTask, duration);
                measured.tasks += 1;
            }
        }).observe({ type: "longtask" });
        const count = () => {
            measured.frames += 1;
            measured.elements = Math.max(measured.elements, document.querySelectorAll("*").length);
            requestAnimationFrame(count);
        };
        count();
    `);
}

/** The value of an expression of the page about `element`, the scrolled view. */
function inViewport<T>(expression: string): Promise<T> {
    return page.evaluate(`(() => {
        const element = document.querySelector(".viewport");
        return ${expression};
    })()`);
}

interface Measured {
    readonly longestTask: number;
    readonly tasks: number;
    readonly elements: number;
    readonly frames: number;
    readonly heap: number;
}

function measured(): Promise<Measured> {
    return page.evaluate("({ ...measured, heap: performance.memory.usedJSHeapSize })");
}

function report(what: string, seconds: number, found: Measured): void {
    console.log(
        `${what}: ${seconds.toFixed(1)} s, longest task ${found.longestTask.toFixed(0)} ms, ` +
            `${String(found.tasks)} tasks over 50 ms, ${String(found.frames)} frames, ` +
            `${String(found.elements)} elements, heap ${(found.heap / 1e6).toFixed(0)} MB`,
    );
}

describe("long output", () => {
    it.each([
        [
            "100 MB in lines of 100 characters",
            "for i in range(1_000_000): print(f'{i:099}')",
            "0".repeat(93) + "999999",
        ],
        [
            "20 MB in colours",
            "for i in range(250_000): print(f'\\x1b[3{i % 8}m{i:069}\\x1b[0m')",
            "0".repeat(63) + "249999",
        ],
    ])("of %s leaves the page alive, and ends with the last line", async (what, command, last) => {
        await measure();
        const begin = performance.now();
        const cell = await start(command);
        await cell.locator(".dropped").waitFor();
        // A page that is alive takes what is typed.
        await page.locator("#command").fill("typed meanwhile");
        const end = cell.locator(".window", { hasText: last });
        await end.or(cell.locator(".failure")).first().waitFor({ timeout: longWait });
        expect(await cell.locator(".failure").allTextContents()).toEqual([]);
        await end.waitFor();
        const found = await measured();
        report(what, (performance.now() - begin) / 1000, found);
        expect(found.elements).toBeLessThan(maxElements);
        expect(await page.locator("#command").inputValue()).toBe("typed meanwhile");
        await expect.poll(() => inViewport(distanceToEnd)).toBeLessThan(1);
    });

    it("of 20 MB in a single line is shown in parts, with its end", async () => {
        await measure();
        const begin = performance.now();
        const cell = await run("print('x' * 20_000_000 + 'end')", longWait);
        await cell.locator(".window", { hasText: "end" }).waitFor();
        const found = await measured();
        report("20 MB in one line", (performance.now() - begin) / 1000, found);
        expect(found.elements).toBeLessThan(maxElements);
        expect((await cell.locator(".window").textContent())?.length).toBeLessThan(100_000);
        expect(await cell.locator(".dropped").textContent()).toMatch(/^1\d,\d{3},\d{3} earlier characters/);
    });

    it("shows every row at its place when it is scrolled", async () => {
        const cell = await run("for i in range(5000): print(i)");
        await cell.locator(".window", { hasText: "4999" }).waitFor();
        // The row that is really to be seen at the top.
        const rowAtTop = async () => {
            const { text, offset } = await inViewport<{ text: string; offset: number }>(`(() => {
                const { left, top } = element.getBoundingClientRect();
                const { startContainer, startOffset } = document.caretRangeFromPoint(left + 20, top + 12);
                return { text: startContainer.textContent, offset: startOffset };
            })()`);
            return text.slice(text.lastIndexOf("\n", offset - 1) + 1).split("\n")[0];
        };
        for (const row of [0, 1234, 2500, 4960]) {
            await inViewport(`(element.scrollTop = ${String(row * 21)})`);
            await expect.poll(rowAtTop).toBe(String(row));
        }
        expect(await cell.locator(".output-notes").textContent()).toBe("5,000 lines");
        expect(await cell.locator(".viewport *").count()).toBeLessThan(10);
    });

    it("leaves a reader who has scrolled up in peace, and follows again at the end", async () => {
        const cell = await start(
            "import time\nfor i in range(100_000):\n    print(i)\n    if i > 1000: time.sleep(0.005)",
        );
        await cell.locator(".viewport").waitFor();
        await expect
            .poll(() => inViewport(`element.scrollHeight - element.clientHeight`))
            .toBeGreaterThan(4200);
        await inViewport("(element.scrollTop = 2100)");
        await expect.poll(() => cell.locator(".window").textContent()).toContain("\n105\n");
        const lines = async () => (await cell.locator(".output-notes").textContent()) ?? "";
        const before = await lines();
        await expect.poll(lines).not.toBe(before);
        expect(await inViewport("element.scrollTop")).toBe(2100);
        expect(await cell.locator(".window").textContent()).toContain("\n105\n");
        await inViewport("(element.scrollTop = element.scrollHeight)");
        const isAtEnd = () => inViewport(`element.scrollTop > 2100 && ${distanceToEnd} < 1`);
        await expect.poll(isAtEnd).toBe(true);
        const then = await lines();
        await expect.poll(lines).not.toBe(then);
        await expect.poll(isAtEnd).toBe(true);
        await page.keyboard.press("Control+c");
        await cell.locator(".failure").waitFor();
    });

    it("is saved whole, as far as it is kept", async () => {
        const cell = await run("for i in range(30_000): print('é😀', i)");
        await cell.locator(".window", { hasText: "29999" }).waitFor();
        const download = page.waitForEvent("download");
        await cell.getByRole("button", { name: "Save" }).click();
        const text = readFileSync(await (await download).path(), "utf8");
        expect(text).toBe(Array.from({ length: 30_000 }, (_, i) => `é😀 ${String(i)}\n`).join(""));
    });

    it("is copied whole, as far as it is kept", async () => {
        await page.context().grantPermissions(["clipboard-read", "clipboard-write"]);
        const cell = await run("for i in range(3000): print(i)");
        await cell.locator(".output-bar").waitFor();
        // What the button says of it does not stay.
        await page.evaluate(`
            globalThis.said = [];
            new MutationObserver((records) => {
                said.push(...records.map(({ target }) => target.textContent));
            }).observe(document.querySelector(".output-bar"), { childList: true, subtree: true });
        `);
        await cell.getByRole("button", { name: "Copy" }).click();
        await expect.poll(() => page.evaluate("said")).toContain("Copied");
        const text = await page.evaluate("navigator.clipboard.readText()");
        expect(text).toBe(Array.from({ length: 3000 }, (_, i) => `${String(i)}\n`).join(""));
    });
});

describe("output", () => {
    it("of a progress bar stays one line", async () => {
        const cell = await run(
            "import sys\nfor i in range(101): print(f'\\r{i:3}% ' + '#' * (i // 10), end='', file=sys.stderr, flush=True)",
        );
        // Much text may be shown some frames behind the end of its command.
        await expect.poll(() => cell.locator(".stderr").textContent()).toBe("100% ##########");
    });

    it("on standard error is told apart by more than its colour", async () => {
        const cell = await run("import sys; print('fine'); print('careful', file=sys.stderr)");
        await cell.getByRole("group", { name: "Standard error" }).getByText("careful").waitFor();
        expect(await cell.locator(".stdout").textContent()).toBe("fine\n");
    });

    it("of arrays is as wide as the page", async () => {
        const width = async () => {
            const cell = await run("import numpy as np; print(np.arange(1000)); print('0' * 999)");
            const lines = (await cell.locator(".stdout").textContent())?.split("\n") ?? [];
            const [longest] = lines
                .slice(0, -2)
                .map(({ length }) => length)
                .sort((a, b) => b - a);
            // An array that is wrapped by the page, too, would be unreadable.
            const rectangles = await page.evaluate(`(() => {
                const pre = [...document.querySelectorAll(".stdout")].at(-1);
                const end = document.createRange();
                end.setStart(pre.firstChild, 0);
                end.setEnd(pre.firstChild, pre.textContent.indexOf("\\n"));
                return end.getClientRects().length;
            })()`);
            expect(rectangles).toBe(1);
            return longest ?? 0;
        };
        const wide = await width();
        await page.setViewportSize({ width: 450, height: 700 });
        const narrow = await width();
        expect(wide).toBeGreaterThan(80);
        expect(narrow).toBeLessThan(60);
        expect(narrow).toBeGreaterThan(20);
    });

    it("is selected and copied as it was printed", async () => {
        const cell = await run("print('a'); print(); print('b' * 2500); print('c')");
        expect(await cell.locator(".stdout").innerText()).toBe(`a\n\n${"b".repeat(2500)}\nc\n`);
    });

    it("of a thread that outlives its command goes to the command's cell", async () => {
        const first = await run(
            "import threading\ngo = threading.Event()\n" +
                "def work():\n    go.wait()\n    print('from the thread', flush=True)\nthreading.Thread(target=work).start()",
        );
        await run("go.set()");
        await first.locator(".stdout", { hasText: "from the thread" }).waitFor();
    });
});

describe("the engine's output", () => {
    const box = () => page.getByLabel("Engine output");
    const elsewhere = () => page.locator(".cell.engine");
    let yvm: Connection;
    let other: Client;

    beforeEach(async () => {
        yvm = await connect(server.url.href);
        other = await yvm.attach();
    });

    afterEach(async () => {
        await yvm.disconnect();
    });

    const print = (what: string) => other.eval(`print(${what})`, { output: "client" });

    it("is shown while it is asked for, between the cells in the order of the page", async () => {
        await print("'before'");
        await box().check();
        await run("1+1");
        await print("'one'");
        await elsewhere().getByText("one").waitFor();
        await run("2+2");
        await print("'two'");
        await elsewhere().getByText("two").waitFor();
        expect(await page.locator(".cell .stdout").allTextContents()).toEqual([
            "2\n",
            "one\n",
            "4\n",
            "two\n",
        ]);
        expect(await page.locator(".cell").nth(1).locator(".cell-title").textContent()).toBe("Engine output");
        await box().uncheck();
        await run("3+3"); // comes after the end of the showing
        await print("'after'");
        await run("4+4");
        expect(await elsewhere().allInnerTexts()).toHaveLength(2);
    });

    it("is shown of both streams, with what a command prints in its own cell", async () => {
        await box().check();
        const cell = await run("import sys; print('mine')");
        await other.eval("import sys; print('careful', file=sys.stderr)", { output: "client" });
        await elsewhere().locator(".stderr", { hasText: "careful" }).waitFor();
        expect(await cell.locator(".stdout").textContent()).toBe("mine\n");
        expect(await elsewhere().locator(".stdout").count()).toBe(0);
    });

    it("is left to whoever has it, unless the reader asks; then a reload keeps the choice", async () => {
        const output = other.output();
        await output.installed;
        await page.reload();
        await attached();
        await run("1+1");
        await print("'for the other'");
        expect((await output.next()).value?.text).toBe("for the other\n");
        await box().check();
        await run("2+2"); // comes after the asking
        await page.reload();
        await attached();
        expect(await box().isChecked()).toBe(true);
        await run("3+3");
        await print("'for the page'");
        await elsewhere().getByText("for the page").waitFor();
        await output.close();
    });

    it("is asked for again when the connection was lost", async () => {
        const first = await ServerProcess.start("--token", "same");
        await page.goto(first.url.href);
        await attached();
        await box().check();
        expect((await first.stop()).code).toBe(0);
        await page.locator('#status[data-state="lost"]').waitFor();
        const second = await ServerProcess.start("--token", "same", "--port", first.url.port);
        await attached();
        await run("1+1");
        const again = await connect(second.url.href);
        await (await again.attach()).eval("print('still here')", { output: "client" });
        await elsewhere().getByText("still here").waitFor();
        await again.disconnect();
        await page.goto("about:blank"); // or it would try to connect again, and complain
        expect((await second.stop()).code).toBe(0);
        const expected = complaints.filter((complaint) => complaint.includes("WebSocket connection"));
        expected.forEach((complaint) => complaints.splice(complaints.indexOf(complaint), 1));
    });

    it("of 100 MB leaves the page alive", async () => {
        await box().check();
        await run("1+1");
        await measure();
        const begin = performance.now();
        await other.eval("for i in range(1_000_000): print(f'{i:099}')", { output: "client" });
        await elsewhere()
            .locator(".window", { hasText: "0".repeat(93) + "999999" })
            .waitFor({ timeout: longWait });
        const found = await measured();
        report("100 MB of the engine's", (performance.now() - begin) / 1000, found);
        expect(found.elements).toBeLessThan(maxElements);
    });

    it.each(["light", "dark"] as const)("and all other kinds look well in %s", async (colorScheme) => {
        await page.emulateMedia({ colorScheme });
        await page.setViewportSize({ width: 900, height: 1100 });
        await other.eval(
            [
                "import sys",
                "def show():",
                "    print('plain text, then a warning')",
                "    print('careful: something is odd', file=sys.stderr)",
                "    names = 'red green yellow blue magenta cyan'.split()",
                "    print(' '.join(f'\\x1b[{31 + i}m{name}\\x1b[0m' for i, name in enumerate(names)), end=' ')",
                "    print('\\x1b[1mbold\\x1b[0m \\x1b[3mitalic\\x1b[0m \\x1b[4munderlined\\x1b[0m \\x1b[7minverse\\x1b[0m')",
                "    print('\\x1b[38;5;208morange of 256\\x1b[0m and \\x1b[48;2;90;60;160;97m true colour \\x1b[0m')",
                "    print('emoji 😀 👩‍👩‍👧, combining e\\u0301 a\\u0308, 日本語')",
                "    print('שלום עולם')",
                "    print('مرحبا بالعالم 123')",
                "    print('bell \\a, null \\0, delete \\x7f')",
                "    for i in range(101): print(f'\\r{i:3}%|' + '█' * (i // 5), end='', file=sys.stderr)",
            ].join("\n"),
        );
        await box().check();
        await run("for i in range(200_000): print(f'{i:6}  ' + '—' * (i % 40) + ' ' * 90 + '.' * (i % 60))");
        await run("show()");
        await print("'from elsewhere'");
        await elsewhere().getByText("from elsewhere").waitFor();
        await page.screenshot({ path: `${screenshots}output-${colorScheme}.png` });
        expect(await page.locator(".front-1").textContent()).toBe("red");
    });
});
