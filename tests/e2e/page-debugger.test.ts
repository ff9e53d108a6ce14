import type { Locator } from "playwright-core";
import { afterEach, beforeEach, describe, expect, it } from "vitest";
import { connect, type Client, type Connection } from "yvm-client";

import { DebuggerPage } from "./DebuggerPage.js";
import { Gate } from "./Gate.js";
import { screenshots, setUpPage, type Given } from "./setUpPage.js";

/** The debugger of the web console: a real browser, the real server, the real engine. */

const sumUp = `def total(values):
    result = 0
    for value in values:
        result += value
    return result

total([1, 2, 3])`;

let page: Given["page"];
let url: string;
let view: DebuggerPage;
/** Another user of the same engine. */
let yvm: Connection;
let other: Client;

setUpPage({ width: 1100, height: 760 }, (given) => {
    ({ page } = given);
    url = given.server.url.href;
    view = new DebuggerPage(page, url);
});

beforeEach(async () => {
    yvm = await connect(url);
    other = await yvm.attach();
    await other.feval("yvm.reset");
    await other.debugger.clearAllBreakpoints();
    await view.open();
});

afterEach(async () => {
    await yvm.disconnect();
});

/** Whether all of it can be seen in what scrolls it. */
async function isWithin(element: Locator, scroller: Locator): Promise<boolean> {
    const [box, around] = await Promise.all([element.boundingBox(), scroller.boundingBox()]);
    return (
        box !== null && around !== null && box.y >= around.y && box.y + box.height <= around.y + around.height
    );
}

describe("a click on the number of a line", () => {
    it("stops the command there, which is looked at, stepped through and let go on", async () => {
        await view.write(sumUp);
        await view.lineNumber(4).click();
        expect(await view.lineNumber(4).getAttribute("aria-pressed")).toBe("true");
        await page.screenshot({ path: `${screenshots}debugger-editor.png` });
        const cell = await view.run();
        await view.stoppedAt(4, { result: "0", value: "1", values: "[1, 2, 3]" });
        expect(await view.title.textContent()).toBe("Stopped at a breakpoint");
        await page.screenshot({ path: `${screenshots}debugger-stopped.png` });
        // The keys work wherever the cursor is.
        await page.keyboard.press("F10");
        await view.stoppedAt(3, { result: "1", value: "1", values: "[1, 2, 3]" });
        expect(await view.title.textContent()).toBe("Stopped behind a step");
        await page.keyboard.press("F8");
        await view.stoppedAt(4, { result: "1", value: "2", values: "[1, 2, 3]" });
        await view.panel.getByRole("button", { name: /^Clear the breakpoint <command/ }).click();
        await view.panel.getByText("None. Click on").waitFor();
        await page.keyboard.press("F8");
        await view.ended(cell);
        expect(await cell.locator(".stdout").allTextContents()).toEqual(["6\n"]);
        await view.title.waitFor({ state: "hidden" });
    });

    it("sets and clears, also by the keyboard, and stays with its line", async () => {
        await view.write("a = 1\nb = 2");
        await page.locator("#command").press("F9");
        expect(await view.lineNumber(2).getAttribute("aria-pressed")).toBe("true");
        // A new line above it.
        await page.locator("#command").press("Control+Home");
        await page.locator("#command").press("Shift+Enter");
        expect(await view.lineNumber(2).getAttribute("aria-pressed")).toBe("false");
        expect(await view.lineNumber(3).getAttribute("aria-pressed")).toBe("true");
        await view.lineNumber(3).click();
        expect(await view.lineNumber(3).getAttribute("aria-pressed")).toBe("false");
        const cell = await view.run();
        await view.ended(cell);
        expect(await view.panel.isHidden()).toBe(true);
    });

    it("by the other button asks for a condition", async () => {
        await view.write(sumUp);
        await view.lineNumber(4).click({ button: "right" });
        await page.getByLabel("Stop in line 4 only if").fill("value == 3");
        await page.screenshot({ path: `${screenshots}debugger-condition.png` });
        await page.keyboard.press("Enter");
        expect(await view.lineNumber(4).getAttribute("title")).toBe("Stops here if value == 3");
        const cell = await view.run();
        await view.stoppedAt(4, { result: "3", value: "3", values: "[1, 2, 3]" });
        await page.keyboard.press("F8");
        await view.ended(cell);
    });

    it("with a condition that is none is told in the cell, and nothing runs", async () => {
        await view.write("a = 1\na = 2");
        await view.lineNumber(2).click({ button: "right" });
        await page.getByLabel("Stop in line 2 only if").fill("1 +");
        await page.keyboard.press("Enter");
        const cell = await view.run();
        await view.ended(cell);
        expect(await cell.locator(".failure").textContent()).toContain("is no expression");
        await expect(other.eval("a")).rejects.toMatchObject({ identifier: "NameError" });
    });
});

describe("a stopped command", () => {
    it("has frames, in any of which a command is evaluated", async () => {
        await view.write(sumUp);
        await view.lineNumber(4).click();
        const cell = await view.run();
        await view.stoppedAt(4, { result: "0", value: "1", values: "[1, 2, 3]" });
        await view.write("result = 100; value + 1");
        const inner = await view.run();
        await view.ended(inner);
        expect(await inner.locator(".stdout").allTextContents()).toEqual(["2\n"]);
        await view.stoppedAt(4, { result: "100", value: "1", values: "[1, 2, 3]" });
        const frames = view.frames;
        await frames.nth(1).click();
        await expect.poll(() => frames.nth(1).getAttribute("aria-current")).toBe("true");
        await page.screenshot({ path: `${screenshots}debugger-frames.png` });
        await other.debugger.clearAllBreakpoints();
        await view.panel.getByRole("button", { name: "Continue" }).click();
        await view.ended(cell);
        expect(await cell.locator(".stdout").allTextContents()).toEqual(["106\n"]);
    });

    it("is stepped into a call and out of it, and is quit", async () => {
        await view.write("def f(x):\n    return x + 1\n\na = f(1)\nb = f(2)");
        await view.lineNumber(4).click();
        const cell = await view.run();
        await view.frames.first().getByText(":4").waitFor();
        await page.keyboard.press("F11");
        await view.stoppedAt(2, { x: "1" });
        await page.keyboard.press("Shift+F11");
        await view.frames.first().getByText(":5").waitFor();
        await page.keyboard.press("Shift+F8");
        await view.ended(cell);
        expect(await cell.locator(".failure").textContent()).toContain("Interrupt");
    });

    it("is shown to whoever comes later, and to other pages", async () => {
        const [named] = await other.feval("yvm.debug.name_command", ["x = 5\nx += 1"]);
        const name = named as string;
        await other.debugger.setBreakpoint({ fileName: name, location: { lineNumber: 2 } });
        const request = other.eval("x = 5\nx += 1");
        request.done.catch(() => undefined); // the test that fails before has said why
        await view.title.waitFor();
        await view.open();
        await view.frames.first().getByText(":2").waitFor();
        await view.panel
            .getByRole("button", { name: `Clear the breakpoint ${name}:2`, exact: true })
            .waitFor();
        await page.keyboard.press("F8");
        await request;
    });
});

describe("two pages", () => {
    it("see the stop of either, and either moves it on", async () => {
        const second = new DebuggerPage(await page.context().newPage(), url);
        await second.open();
        await view.write(sumUp);
        await view.lineNumber(4).click();
        const cell = await view.run();
        const first = { result: "0", value: "1", values: "[1, 2, 3]" };
        await Promise.all([view.stoppedAt(4, first), second.stoppedAt(4, first)]);
        expect(await view.stoppedLine.textContent()).toBe("        result += value\n");
        expect(await second.stoppedLine.count()).toBe(0); // the command is of the other page
        await second.page.keyboard.press("F10");
        const stepped = { result: "1", value: "1", values: "[1, 2, 3]" };
        await Promise.all([view.stoppedAt(3, stepped), second.stoppedAt(3, stepped)]);
        await second.page.screenshot({ path: `${screenshots}debugger-second-page.png` });
        await view.page.keyboard.press("F8");
        const next = { result: "1", value: "2", values: "[1, 2, 3]" };
        await Promise.all([view.stoppedAt(4, next), second.stoppedAt(4, next)]);
        await second.panel.getByRole("button", { name: /^Clear the breakpoint <command/ }).click();
        await view.panel.getByText("None. Click on").waitFor();
        await second.panel.getByRole("button", { name: "Continue" }).click();
        await view.ended(cell);
        await Promise.all([view.title, second.title].map((title) => title.waitFor({ state: "hidden" })));
    });
});

describe("by the keyboard alone", () => {
    it("a button steps again and again, and nothing that is pressed twice passes a stop over", async () => {
        await view.write(sumUp);
        await view.lineNumber(2).click();
        await view.run();
        await view.stoppedAt(2, { values: "[1, 2, 3]" });
        const step = view.panel.getByRole("button", { name: "Step", exact: true });
        await step.focus();
        await page.keyboard.press("Enter");
        await view.stoppedAt(3, { result: "0", values: "[1, 2, 3]" });
        await page.keyboard.press("Enter");
        await view.stoppedAt(4, { result: "0", value: "1", values: "[1, 2, 3]" });
        await step.and(page.locator(":focus")).waitFor();
        // While a command runs in the frame, a move waits: the second is not for the stop behind it.
        const gate = new Gate();
        await view.write(`values[:] = [1]; ${gate.python}.read();`);
        await other.debugger.setBreakpoint({ type: "UNSUPPRESSED_OUTPUT" });
        const inner = await view.run();
        await page.keyboard.press("F8");
        await page.keyboard.press("F8");
        await gate.open();
        await view.ended(inner);
        gate.remove();
        await view.title.getByText("Stopped before a value is displayed").waitFor();
        await other.debugger.clearAllBreakpoints();
        await page.keyboard.press("F8");
        await view.title.waitFor({ state: "hidden" });
    });

    it("a step that takes long gives the place back to its button", async () => {
        const gate = new Gate();
        await view.write(`a = 1\n${gate.python}.read()\nb = 2`);
        await view.lineNumber(2).click();
        const cell = await view.run();
        await view.frames.first().getByText(":2").waitFor();
        const step = view.panel.getByRole("button", { name: "Step", exact: true });
        await step.focus();
        await page.keyboard.press("Enter");
        await view.title.waitFor({ state: "hidden" });
        await gate.open();
        await view.frames.first().getByText(":3").waitFor();
        await step.and(page.locator(":focus")).waitFor();
        await page.keyboard.press("F8");
        await view.ended(cell);
        gate.remove();
    });

    it("a frame that is selected and a breakpoint that is cleared keep the place", async () => {
        await view.write(sumUp);
        await view.lineNumber(2).click();
        await view.lineNumber(4).click();
        const cell = await view.run();
        await view.stoppedAt(2, { values: "[1, 2, 3]" });
        await view.frames.nth(1).focus();
        await page.keyboard.press("Enter");
        await expect.poll(() => view.frames.nth(1).getAttribute("aria-current")).toBe("true");
        await view.frames.nth(1).and(page.locator(":focus")).waitFor();
        const clear = view.panel.getByRole("button", { name: /^Clear the breakpoint/ });
        await clear.first().focus();
        await page.keyboard.press("Enter");
        await expect.poll(() => clear.count()).toBe(1);
        await clear.and(page.locator(":focus")).waitFor();
        await page.keyboard.press("Enter");
        await expect.poll(() => clear.count()).toBe(0);
        await view.form.locator("summary:focus").waitFor();
        await page.keyboard.press("F8");
        await view.ended(cell);
    });
});

describe("the marked line", () => {
    it("is scrolled to, and afterwards whoever was at the end is there again", async () => {
        const definition = await view.run("def f(x):\n    return x");
        await view.ended(definition);
        await view.showPanel();
        await view.ended(await view.run("print('line\\n' * 60)"));
        const [, name = ""] = await view.proposedFiles();
        await view.add("In a function", { File: name, Function: "f" }, `${name}, function f`);
        const cell = await view.run("f(1); print('the end')");
        await view.stoppedAt(2, { x: "1" });
        const transcript = page.locator("#scroller");
        await expect.poll(() => isWithin(view.stoppedLine, transcript)).toBe(true);
        // What runs meanwhile is looked at, and not the line again.
        const inner = await view.run("x + 41");
        await inner.getByText("42").waitFor();
        await expect.poll(() => isWithin(inner, transcript)).toBe(true);
        await page.keyboard.press("F8");
        await view.ended(cell);
        await view.stoppedLine.waitFor({ state: "detached" });
        await expect.poll(() => isWithin(inner, transcript)).toBe(true);
    });
});

describe("of equal commands", () => {
    it("the one that has stopped is marked, and not one that never began", async () => {
        const text = "a = 20\na + 1";
        const first = await view.run("import time\nprint('asleep'); time.sleep(600)");
        await first.locator(".stdout").getByText("asleep", { exact: true }).waitFor();
        const cancelled = await view.run(text);
        await cancelled.getByRole("button", { name: "Stop" }).click();
        await view.ended(cancelled);
        await first.getByRole("button", { name: "Stop" }).click();
        await view.ended(first);
        await other.debugger.setBreakpoint({ type: "UNSUPPRESSED_OUTPUT" });
        const cell = await view.run(text);
        await cell.locator(".stopped-line").getByText("a + 1").waitFor();
        expect(await view.stoppedLine.count()).toBe(1);
        await page.keyboard.press("F8");
        await view.ended(cell);
    });
});

describe("on a narrow page", () => {
    it("a stop is in sight, wherever the panel was scrolled to", async () => {
        await page.setViewportSize({ width: 420, height: 800 });
        await page.emulateMedia({ colorScheme: "dark" });
        await view.showPanel();
        await view.unfold();
        await view.fillIn("At a line", { File: "/no/such/file.py", Line: "1" });
        const refusal = view.form.getByRole("alert");
        await refusal.getByText("no such file").waitFor();
        await expect.poll(() => isWithin(refusal, view.panel)).toBe(true);
        await page.screenshot({ path: `${screenshots}debugger-narrow-form.png` });
        await view.write(sumUp);
        await view.lineNumber(4).click();
        const cell = await view.run();
        await view.stoppedAt(4, { result: "0", value: "1", values: "[1, 2, 3]" });
        await expect.poll(() => isWithin(view.title, view.panel)).toBe(true);
        await expect.poll(() => isWithin(view.stoppedLine, page.locator("#scroller"))).toBe(true);
        await page.screenshot({ path: `${screenshots}debugger-narrow.png` });
        await other.debugger.clearAllBreakpoints();
        await page.keyboard.press("F8");
        await view.ended(cell);
    });
});

describe("the panel", () => {
    it("stops on conditions", async () => {
        await page.getByRole("button", { name: "Debugger" }).click();
        await view.panel.getByLabel("Errors that nobody catches").check();
        await expect.poll(() => other.debugger.breakpoints()).toEqual([{ type: "ERROR" }]);
        await view.write("def f(x):\n    return 1 / x\nf(0)");
        const cell = await view.run();
        await view.stoppedAt(2, { x: "0" });
        expect(await view.title.textContent()).toBe("Stopped by an error that nobody catches");
        expect(await view.panel.locator(".stop-message").textContent()).toContain("division by zero");
        await page.screenshot({ path: `${screenshots}debugger-error.png` });
        await page.keyboard.press("F8");
        await view.ended(cell);
        expect(await cell.locator(".failure").textContent()).toContain("ZeroDivisionError");
        await view.panel.getByLabel("Errors that nobody catches").uncheck();
        await expect.poll(() => other.debugger.breakpoints()).toEqual([]);
    });

    it("breaks into what runs", async () => {
        await page.getByRole("button", { name: "Debugger" }).click();
        await view.write("import time\nprint('asleep'); time.sleep(600)");
        const cell = await view.run();
        await cell.getByText("asleep", { exact: true }).and(page.locator(".stdout")).waitFor();
        await view.panel.getByRole("button", { name: "Break" }).click();
        await view.frames.first().getByText(":2").waitFor();
        expect(await view.title.textContent()).toBe("Stopped as asked");
        await view.panel.getByRole("button", { name: "Quit" }).click();
        await view.ended(cell);
    });
});
