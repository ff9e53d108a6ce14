import { mkdtempSync, realpathSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

import { afterEach, beforeEach, describe, expect, it } from "vitest";
import { connect, type Client, type Connection } from "yvm-client";

import { DebuggerPage } from "./DebuggerPage.js";
import { screenshots, setUpPage, type Given } from "./setUpPage.js";

/** Each kind of breakpoint, set on the web console's page: a real browser, the real server, the real engine. */

/** Line 3 has no code; line 7 has two lambdas. */
const source = `def total(values):
    result = 0
    # adds up
    for value in values:
        result += value
    return result
pick = [lambda x: x + 1, lambda x: x * 2]

class Box:
    def open(self, key):
        return key == 7

def risky(text):
    try:
        return int(text)
    except ValueError:
        return 0
`;

let page: Given["page"];
let url: string;
let view: DebuggerPage;
/** Another user of the same engine. */
let yvm: Connection;
let other: Client;
let folder: string;
let file: string;

setUpPage({ width: 1100, height: 760 }, (given) => {
    ({ page } = given);
    url = given.server.url.href;
    view = new DebuggerPage(page, url);
});

beforeEach(async () => {
    folder = realpathSync(mkdtempSync(join(tmpdir(), "yvm-page-")));
    file = join(folder, "sample.py");
    writeFileSync(file, source);
    yvm = await connect(url);
    other = await yvm.attach();
    await other.feval("yvm.reset");
    await other.debugger.clearAllBreakpoints();
    await other.eval(
        `import sys\nsys.path.insert(0, ${JSON.stringify(folder)})\nsys.modules.pop('sample', None)`,
    );
    await other.eval("import sample");
    await view.open();
    await view.showPanel();
});

afterEach(async () => {
    await other.debugger.clearAllBreakpoints();
    await other.interrupt(); // a test that failed may have left a stop
    await other.eval("sys.path.pop(0)");
    await yvm.disconnect();
    rmSync(folder, { recursive: true });
});

async function goOn(): Promise<void> {
    await page.keyboard.press("F8");
}

/** Keeps a picture of the page. */
async function picture(name: string): Promise<void> {
    await page.screenshot({ path: `${screenshots}breakpoint-${name}.png` });
}

describe("a breakpoint in a file", () => {
    it("on a line stops there", async () => {
        await view.add("At a line", { File: file, Line: "5" }, `${file}:5`);
        const cell = await view.run("sample.total([4, 5])");
        await view.stoppedAt(5, { result: "0", value: "4", values: "[4, 5]" });
        expect(await view.title.textContent()).toBe("Stopped at a breakpoint");
        expect(await view.stoppedLine.count()).toBe(0); // no command has this line
        await picture("line");
        await view.clearButton(`${file}:5`).click();
        await view.panel.getByText("None. Click on").waitFor();
        await goOn();
        await view.ended(cell);
        expect(await cell.locator(".stdout").allTextContents()).toEqual(["9\n"]);
    });

    it("on a line without code is listed where it stands, and cleared from there", async () => {
        const listed = `${file}:4, set on line 3`;
        await view.add("At a line", { File: file, Line: "3" }, listed);
        await view.clearButton(listed).click();
        await expect.poll(() => other.debugger.breakpoints()).toEqual([]);
    });

    it("with a condition stops where that holds", async () => {
        const fields = { File: file, Line: "5", "Only if": "value > 4" };
        await view.add("At a line", fields, `${file}:5 if value > 4`);
        const cell = await view.run("sample.total([4, 5])");
        await view.stoppedAt(5, { result: "4", value: "5", values: "[4, 5]" });
        await picture("condition");
        await goOn();
        await view.ended(cell);
    });

    it("in a function by its name stops at each call", async () => {
        const fields = { File: file, Function: "Box.open" };
        await view.add("In a function", fields, `${file}, function Box.open`);
        const cell = await view.run("sample.Box().open(7)");
        await view.stoppedAt(11, { key: "7", self: expect.stringContaining("Box object") as string });
        await picture("function");
        await goOn();
        await view.ended(cell);
        expect(await cell.locator(".stdout").allTextContents()).toEqual(["True\n"]);
    });

    it("in the n-th lambda of a line stops in that one", async () => {
        await view.add("At a line", { File: file, Line: "7", Lambda: "2" }, `${file}:7, lambda 2`);
        const cell = await view.run("sample.pick[0](20), sample.pick[1](21)");
        await view.stoppedAt(7, { x: "21" });
        await picture("lambda");
        await goOn();
        await view.ended(cell);
        expect(await cell.locator(".stdout").allTextContents()).toEqual(["(21, 42)\n"]);
    });

    it("anywhere in it stops at the first line of each call into it", async () => {
        await view.add("Anywhere in a file", { File: file }, `${file}, any line`);
        const cell = await view.run("sample.risky('3') + sample.total([4])");
        await view.stoppedAt(14, { text: "'3'" });
        await picture("file");
        await goOn();
        await view.stoppedAt(2, { values: "[4]" });
        await goOn();
        await view.ended(cell);
    });
});

describe("a breakpoint in a command that has run", () => {
    it("is set by its name, which is proposed, and marks the line where it stops", async () => {
        const definition = await view.run("def double(x):\n    y = 2 * x\n    return y");
        await view.ended(definition);
        const [name = ""] = await view.proposedFiles();
        expect(name).toMatch(/^<command \d+>$/);
        const [label] = await view.form.locator("datalist option").all();
        expect(await label?.getAttribute("label")).toBe("def double(x): …");
        await view.add("At a line", { File: name, Line: "3" }, `${name}:3`);
        const cell = await view.run("double(4)");
        await view.stoppedAt(3, { x: "4", y: "8" });
        expect(await definition.locator(".stopped-line").allTextContents()).toEqual(["    return y"]);
        expect(await definition.locator(".input").textContent()).toBe(
            "def double(x):\n    y = 2 * x\n    return y",
        );
        await picture("command");
        // The mark goes with the selected frame.
        await view.frames.nth(1).click();
        await cell.locator(".stopped-line").getByText("double(4)").waitFor();
        expect(await view.stoppedLine.count()).toBe(1);
        await goOn();
        await view.ended(cell);
        await view.stoppedLine.waitFor({ state: "detached" });
        expect(await cell.locator(".stdout").allTextContents()).toEqual(["8\n"]);
    });
});

describe("a breakpoint on a condition", () => {
    /** Ticks a box, runs a command, and waits until the box is why it has stopped. */
    async function stopBy(box: string, command: string, reason: string) {
        await view.panel.getByRole("checkbox", { name: box }).check();
        await expect.poll(async () => (await other.debugger.breakpoints()).length).toBe(1);
        const cell = await view.run(command);
        await view.title.getByText(reason, { exact: true }).waitFor();
        return cell;
    }

    it("of an error that nobody catches", async () => {
        const cell = await stopBy(
            "Errors that nobody catches",
            "def f(x):\n    return 1 / x\nf(0)",
            "Stopped by an error that nobody catches",
        );
        await view.stoppedAt(2, { x: "0" });
        expect(await view.panel.locator(".stop-message").textContent()).toContain("division by zero");
        expect(await view.stoppedLine.allTextContents()).toEqual(["    return 1 / x\n"]);
        await picture("error");
        await goOn();
        await view.ended(cell);
        expect(await cell.locator(".failure").textContent()).toContain("ZeroDivisionError");
    });

    it("of one type of error passes over the others", async () => {
        const listed = "Errors that nobody catches: KeyError";
        await view.add("At one type of error that nobody catches", { Type: "KeyError" }, listed);
        await expect
            .poll(() => other.debugger.breakpoints())
            .toEqual([{ type: "ERROR", messageId: "KeyError" }]);
        expect(
            await view.panel.getByRole("checkbox", { name: "Errors that nobody catches" }).isChecked(),
        ).toBe(false);
        const passed = await view.run("1 / 0");
        await view.ended(passed);
        expect(await passed.locator(".failure").textContent()).toContain("ZeroDivisionError");
        const cell = await view.run("def f(d):\n    return d['b']\nf({'a': 1})");
        await view.stoppedAt(2, { d: "{'a': 1}" });
        await picture("error-type");
        await view.clearButton(listed).click();
        await goOn();
        await view.ended(cell);
        await expect.poll(() => other.debugger.breakpoints()).toEqual([]);
    });

    it("of a warning, also of one type", async () => {
        const warn = "import warnings\ndef f(n):\n    warnings.warn('old', FutureWarning)\nf(1)";
        let cell = await stopBy("Warnings", warn, "Stopped by a warning");
        await view.stoppedAt(3, { n: "1" });
        await picture("warning");
        await view.panel.getByLabel("Warnings").uncheck();
        await goOn();
        await view.ended(cell);
        const listed = "Warnings: UserWarning";
        await view.add("At one type of warning", { Type: "UserWarning" }, listed);
        await view.ended(await view.run(warn));
        cell = await view.run("def g(n):\n    warnings.warn('mine')\ng(2)");
        await view.stoppedAt(2, { n: "2" });
        await picture("warning-type");
        await goOn();
        await view.ended(cell);
    });

    it("of an error that is caught, also of one type", async () => {
        const reason = "Stopped by an error that is caught";
        let cell = await stopBy("Errors that are caught", "sample.risky('x')", reason);
        await view.stoppedAt(15, { text: "'x'" });
        await picture("caught-error");
        await view.panel.getByLabel("Errors that are caught").uncheck();
        await goOn();
        await view.ended(cell);
        expect(await cell.locator(".stdout").allTextContents()).toEqual(["0\n"]);
        const listed = "Errors that are caught: ValueError";
        await view.add("At one type of error that is caught", { Type: "ValueError" }, listed);
        await view.ended(await view.run("try:\n    {}['a']\nexcept KeyError:\n    pass"));
        cell = await view.run("sample.risky('y')");
        await view.stoppedAt(15, { text: "'y'" });
        await picture("caught-error-type");
        await goOn();
        await view.ended(cell);
    });

    it("of NaN and infinity", async () => {
        const cell = await stopBy(
            "NaN and infinity",
            "import numpy as np\ndef f(x):\n    return x / 0\nf(np.ones(2))",
            "Stopped by a NaN or an infinity",
        );
        await view.stoppedAt(3, { x: "array([1., 1.])" });
        await picture("nan");
        await goOn();
        await view.ended(cell);
    });

    it("of a value about to be displayed", async () => {
        const cell = await stopBy(
            "Values about to be displayed",
            "a = 20\na + 1",
            "Stopped before a value is displayed",
        );
        await view.stoppedAt(2, { a: "20" });
        expect(await view.stoppedLine.allTextContents()).toEqual(["a + 1"]);
        expect(await cell.locator(".stdout").count()).toBe(0);
        await picture("output");
        await goOn();
        await view.ended(cell);
        expect(await cell.locator(".stdout").allTextContents()).toEqual(["21\n"]);
    });
});

describe("a breakpoint that cannot be set", () => {
    it("is refused in the engine's words, and what was written stays", async () => {
        const refusal = view.form.getByRole("alert");
        const missing = join(folder, "missing.py");
        await view.fillIn("At a line", { File: missing, Line: "5", "Only if": "x > 1" });
        await refusal.getByText(`no such file: ${missing}`).waitFor();
        expect(await view.form.getByLabel("File").inputValue()).toBe(missing);
        expect(await view.form.getByLabel("Line").inputValue()).toBe("5");
        expect(await view.form.getByLabel("Only if").inputValue()).toBe("x > 1");
        await picture("refused");
        await view.fillIn("At a line", { File: file, Line: "500" });
        await refusal.getByText("500").waitFor();
        await view.fillIn("At a line", { Line: "5", "Only if": "x >" });
        await refusal.getByText("the condition 'x >' is no expression").waitFor();
        await view.fillIn("At a line", { Line: "7", Lambda: "3", "Only if": "" });
        await expect.poll(() => refusal.textContent()).toContain("no anonymous function 3");
        await view.fillIn("In a function", { Function: "Box.shut" });
        await refusal.getByText("Box.shut").waitFor();
        await view.fillIn("At a line", { File: "<command 999999>", Line: "1" });
        await refusal.getByText("no such command: <command 999999>").waitFor();
        expect(await other.debugger.breakpoints()).toEqual([]);
    });

    it("is not asked for where the page can tell, which leads to the field", async () => {
        const refusal = view.form.getByRole("alert");
        await view.fillIn("At a line", {});
        await refusal.getByText("Which file?").waitFor();
        await view.form.getByLabel("File").and(page.locator(":focus")).waitFor();
        await view.fillIn("At a line", { File: file, Line: "0" });
        await refusal.getByText("0 is no line. A whole number from 1 is accepted.").waitFor();
        expect(await view.form.getByLabel("Line").getAttribute("aria-invalid")).toBe("true");
        await view.fillIn("At a line", { Line: "two" });
        await refusal.getByText("two is no line. A whole number from 1 is accepted.").waitFor();
        await view.fillIn("At a line", { Line: "7", Lambda: "-1" });
        await refusal.getByText("-1 is no lambda. A whole number from 0 is accepted.").waitFor();
        await view.fillIn("At one type of warning", {});
        await refusal.getByText("Which type?").waitFor();
        // By the keyboard alone, with what was meant.
        await view.form.getByLabel("Type").focus();
        await page.keyboard.type("UserWarning");
        await page.keyboard.press("Enter");
        await view.clearButton("Warnings: UserWarning").waitFor();
        expect(await refusal.textContent()).toBe("");
    });
});
