import type { Locator, Page } from "playwright-core";
import { afterEach, beforeEach, describe, expect, it } from "vitest";
import { connect, type Client, type Connection } from "yvm-client";

import type { ServerProcess } from "./ServerProcess.js";
import { screenshots, setUpPage } from "./setUpPage.js";

/** What the web console makes of the engine's events: a real browser, the real server, the real engine. */

let server: ServerProcess;
let page: Page;
/** Another user of the same engine. */
let yvm: Connection;
let other: Client;

setUpPage({ width: 900, height: 700 }, (given) => {
    ({ server, page } = given);
});

beforeEach(async () => {
    await page.goto(server.url.href);
    await page.locator('#status[data-state="attached"]').waitFor();
    yvm = await connect(server.url.href);
    other = await yvm.attach();
    await other.feval("yvm.reset");
});

afterEach(async () => {
    // What a test that has failed left running would keep the next one waiting.
    await other.interrupt();
    await yvm.disconnect();
});

/** Types a command and runs it; its cell. */
async function start(command: string): Promise<Locator> {
    const count = await page.locator(".cell").count();
    await page.locator("#command").fill(command);
    await page.locator("#command").press("Enter");
    const cell = page.locator(".cell").nth(count);
    await cell.waitFor();
    return cell;
}

/** Runs a command to its end. */
async function run(command: string): Promise<Locator> {
    const cell = await start(command);
    await ended(cell);
    return cell;
}

async function ended(cell: Locator): Promise<void> {
    await cell.and(page.locator(":not(.running)")).waitFor();
}

function engineState(state: string): Promise<void> {
    return page.locator(`#engine-state[data-state="${state}"]`).waitFor();
}

describe("the state of the engine", () => {
    it("is shown as it changes, whoever has sent the command", async () => {
        await engineState("idle");
        const running = other.eval("while True: pass").done.catch((error: unknown) => error);
        await engineState("busy");
        expect(await page.locator("#engine-state").textContent()).toBe("busy");
        await other.interrupt();
        await running;
        await engineState("idle");
        const pausing = other.eval("import yvm; yvm.pause(1000)").done.catch((error: unknown) => error);
        await engineState("paused");
        await other.interrupt();
        await pausing;
        await engineState("idle");
    });

    it("is known to a page that is opened while a command runs, and after a reload", async () => {
        const running = other.eval("while True: pass").done.catch((error: unknown) => error);
        await engineState("busy");
        await page.reload();
        await engineState("busy");
        await other.interrupt();
        await running;
        await engineState("idle");
    });
});

describe("the panel of variables", () => {
    function names(): Promise<string[]> {
        return page.locator("#variables code").allTextContents();
    }

    function variable(name: string): Locator {
        return page.locator("#variables button", { has: page.getByText(name, { exact: true }) });
    }

    it("lists them, and shows each one's value, by mouse or keyboard", async () => {
        await run(
            "import numpy as np; grid = np.zeros((3, 4)); text = 'hello'; _hidden = 1\ndef area(r): pass",
        );
        const toggle = page.getByRole("button", { name: "Variables" });
        expect(await toggle.getAttribute("aria-expanded")).toBe("false");
        await toggle.press("Enter");
        expect(await toggle.getAttribute("aria-expanded")).toBe("true");
        await variable("grid").waitFor();
        expect(await names()).toEqual(["grid", "text", "area"]);
        expect(await variable("grid").locator(".variable-size").textContent()).toBe("3×4");
        expect(await variable("grid").locator(".variable-type").textContent()).toBe("ndarray");
        await variable("text").press("Enter");
        await page.locator(".variable-value", { hasText: "'hello'" }).waitFor();
        expect(await variable("text").getAttribute("aria-expanded")).toBe("true");
        await page.screenshot({ path: `${screenshots}variables.png` });
        await variable("text").press("Enter");
        expect(await page.locator(".variable-value").count()).toBe(0);
    });

    it("stays alive while a command runs, and shows what that changes", async () => {
        await page.getByRole("button", { name: "Variables" }).click();
        const cell = await start("counter = 0\nwhile True: counter += 1");
        await variable("counter").waitFor();
        await variable("counter").click();
        const value = page.locator(".variable-value");
        await value.getByText(/^\d+$/).waitFor();
        const first = Number(await value.textContent());
        await expect.poll(async () => Number(await value.textContent())).toBeGreaterThan(first);
        await cell.getByRole("button", { name: "Stop" }).click();
        await ended(cell);
        await run("del counter");
        await variable("counter").waitFor({ state: "detached" });
        expect(await page.locator("#variables").innerText()).toBe("No variables yet.");
    });

    it("shows what a command has changed within a value", async () => {
        await page.getByRole("button", { name: "Variables" }).click();
        await run("items = [1]");
        await variable("items").click();
        await page.locator(".variable-value", { hasText: "[1]" }).waitFor();
        await run("items.append(2)");
        await page.locator(".variable-value", { hasText: "[1, 2]" }).waitFor();
    });

    it("is remembered over a reload, and asks for nothing while it is closed", async () => {
        await page.getByRole("button", { name: "Variables" }).click();
        await page.locator("#variables-panel").waitFor();
        await page.reload();
        await page.locator("#variables-panel").waitFor();
        await page.getByRole("button", { name: "Variables" }).click();
        await page.locator("#variables-panel").waitFor({ state: "hidden" });
        await page.reload();
        await page.locator('#status[data-state="attached"]').waitFor();
        expect(await page.locator("#variables-panel").isVisible()).toBe(false);
    });
});

describe("a question of a command", () => {
    /** The requests for input that wait, as the engine lists them. */
    async function questions(): Promise<readonly { id: string; prompt: string }[]> {
        const [state] = await other.feval("yvm.state", [], {
            runOptions: { dequeueMode: "DEQUEUE_AT_PPE" },
        });
        return (state as unknown as { inputs: readonly { id: string; prompt: string }[] }).inputs;
    }

    it("is answered by Enter, in a field that has the focus and says the question", async () => {
        const cell = await start("name = input('name? ')\nprint('hello', name)");
        await engineState("paused");
        await cell.getByLabel("name?").and(page.locator(":focus")).waitFor();
        expect(await cell.locator(".progress").textContent()).toContain("waits for an answer");
        await page.keyboard.type("Ada");
        await page.screenshot({ path: `${screenshots}input.png` });
        await page.keyboard.press("Enter");
        await ended(cell);
        expect(await cell.locator(".stdout").innerText()).toBe("name? Ada\nhello Ada\n");
        expect(await cell.locator("input").count()).toBe(0);
        // The next command can be typed at once.
        await page.keyboard.type("name");
        expect(await page.locator("#command").inputValue()).toBe("name");
    });

    it("leaves whoever writes something where he is", async () => {
        const cell = await start(
            "import threading\ngo = threading.Event()\nprint('waits', flush=True)\n" +
                "while not go.wait(0.05): pass\ninput()",
        );
        await cell.locator(".stdout", { hasText: "waits" }).waitFor();
        const editor = page.locator("#command");
        await editor.fill("a draft");
        await other.eval("go.set()", { runOptions: { dequeueMode: "DEQUEUE_AT_PPE" } });
        await cell.locator(".input-field").waitFor();
        await page.keyboard.type("!");
        expect(await editor.inputValue()).toBe("a draft!");
        await cell.locator("input").press("Enter");
        await ended(cell);
    });

    it("is seen in a low window above its progress, and what follows too", async () => {
        await page.setViewportSize({ width: 420, height: 480 });
        const cell = await start(
            "import yvm\nbars = [yvm.progress('a', f'bar {i} ' + 'x' * 99) for i in range(6)]\n" +
                "for bar in bars: bar.__enter__()\nprint('\\n' * 30)\nname = input('who? ')\n" +
                "for i in range(40): print(i)\nwhile name: yvm.pause(0.01)",
        );
        const field = cell.locator("input");
        await field.waitFor();
        const place = async (element: Locator) => {
            const box = await element.boundingBox();
            return { top: box?.y ?? NaN, bottom: (box?.y ?? NaN) + (box?.height ?? NaN) };
        };
        const isSeen = async (element: Locator) => {
            const [inner, outer] = [await place(element), await place(page.locator(".scroller"))];
            return inner.top >= outer.top && inner.bottom <= outer.bottom;
        };
        await expect.poll(() => isSeen(field)).toBe(true);
        await field.fill("Ada");
        await field.press("Enter");
        await expect.poll(() => cell.locator(".outputs").innerText()).toContain("\n39\n");
        await expect.poll(() => isSeen(cell.getByRole("button", { name: "Stop" }))).toBe(true);
        for (const part of await cell.locator(".bar-moving > *").all()) {
            const box = await part.boundingBox();
            expect((box?.x ?? NaN) + (box?.width ?? NaN)).toBeLessThanOrEqual(420);
        }
        await page.screenshot({ path: `${screenshots}question-low.png` });
        await cell.getByRole("button", { name: "Stop" }).click();
        await ended(cell);
    });

    it("that is secret shows nothing of its answer", async () => {
        const cell = await start("import getpass\nlen(getpass.getpass('password: '))");
        const field = cell.getByLabel("password:");
        expect(await field.getAttribute("type")).toBe("password");
        await field.fill("s3cret");
        await field.press("Enter");
        await ended(cell);
        expect(await cell.innerText()).toContain("password: ••••••\n6");
    });

    it("is asked again and again, in the order of its text", async () => {
        const cell = await start("for i in range(3): print('got', input(f'{i}: '))");
        for (const answer of ["a", "b", "c"]) {
            await cell.locator("input:not(:read-only)").fill(answer);
            await cell.locator("input").press("Enter");
            await cell.locator(".stdout", { hasText: `got ${answer}` }).waitFor();
        }
        await ended(cell);
        expect(await cell.locator(".stdout").innerText()).toBe("0: a\ngot a\n1: b\ngot b\n2: c\ngot c\n");
    });

    it("may be answered by the end of the input", async () => {
        const cell = await start("input('more? ')");
        await cell.locator("input").press("Control+d");
        await ended(cell);
        expect(await cell.locator(".failure-title").textContent()).toContain("EOFError");
    });

    it("ends with the command that is stopped by its button", async () => {
        const cell = await start("input('name? ')");
        await cell.locator("input").waitFor();
        await cell.getByRole("button", { name: "Stop" }).click();
        await ended(cell);
        expect(await cell.locator("input").count()).toBe(0);
    });

    it("ends with the command that is stopped by Ctrl+C in its field", async () => {
        const cell = await start("input('name? ')");
        await cell.locator("input").fill("draft");
        await cell.locator("input").press("Control+c");
        await ended(cell);
        expect(await cell.locator("input").count()).toBe(0);
    });

    it("goes when another client has answered", async () => {
        const cell = await start("name = input('name? ')\nprint('hello', name)\nwhile True: pass");
        await cell.locator("input").waitFor();
        const [question] = await questions();
        expect(question?.prompt).toBe("name? ");
        await other.answer(question?.id ?? "", "Bob");
        await cell.locator(".stdout", { hasText: "hello Bob" }).waitFor();
        expect(await cell.locator("input").count()).toBe(0);
        await cell.getByRole("button", { name: "Stop" }).click();
        await ended(cell);
        await expect(other.answer(question?.id ?? "", "Eve")).rejects.toMatchObject({ name: "YvmError" });
    });
});

describe("a command that clears the console", () => {
    it("leaves nothing but itself and what it prints then", async () => {
        await run("print('earlier')");
        await page.locator("#command").fill("print('gone')\nimport yvm\nyvm.clc()\nprint('stays')");
        await page.locator("#command").press("Enter");
        await page.locator(".cell:not(.running) .stdout", { hasText: "stays" }).waitFor();
        expect(await page.locator(".stdout").allInnerTexts()).toEqual(["stays\n"]);
    });

    it("by going home leaves the rest above what is seen", async () => {
        await run("for i in range(60): print('earlier', i)");
        await run("import yvm\nprint('above')\nyvm.home()\nprint('at the top')");
        const top = page.locator(".stdout", { hasText: "at the top" });
        const yOf = async (element: Locator) => (await element.boundingBox())?.y ?? NaN;
        await expect
            .poll(async () => Math.abs((await yOf(top)) - (await yOf(page.locator("#scroller")))))
            .toBeLessThan(3);
        expect(await page.locator(".cell").count()).toBe(2);
    });
});

describe("a figure", () => {
    const plot = "import matplotlib.pyplot as plt\nplt.plot([1, 3, 2])\n";

    it("is shown in its size and place, with a text for those who do not see it", async () => {
        const cell = await run(`print('before')\n${plot}plt.show()\nprint('after')`);
        const image = cell.locator("img");
        await image.waitFor();
        expect(await image.getAttribute("alt")).toContain("Figure");
        await expect.poll(() => image.boundingBox()).toMatchObject({ width: 640, height: 480 });
        expect(await image.getAttribute("src")).toMatch(/^data:image\/png;base64,/);
        const places = [
            cell.getByText("before", { exact: true }),
            image,
            cell.getByText("after", { exact: true }),
        ];
        const [before = NaN, figure = NaN, after = NaN] = await Promise.all(
            places.map(async (place) => (await place.boundingBox())?.y),
        );
        expect(before).toBeLessThan(figure);
        expect(figure + 480).toBeLessThanOrEqual(after);
        await page.screenshot({ path: `${screenshots}figure.png` });
    });

    it("comes by itself at the end of the command, and fits into a narrow window", async () => {
        await page.setViewportSize({ width: 420, height: 700 });
        const cell = await run(`${plot}pass`);
        const box = await cell.locator("img").boundingBox();
        expect(box?.width).toBeLessThan(420);
        expect((box?.width ?? 0) / (box?.height ?? 1)).toBeCloseTo(640 / 480, 1);
    });

    it("as a drawing is an image, whose scripts do not run", async () => {
        const cell = await run(
            "class Drawing:\n    def _repr_svg_(self):\n        return (" +
                `'<svg xmlns="http://www.w3.org/2000/svg" width="90" height="40"><rect width="90" height="40"/>'` +
                ` '<script>document.title = "owned"; parent.document.title = "owned"</script></svg>')\nDrawing()`,
        );
        const image = cell.locator("img");
        await image.waitFor();
        await expect.poll(() => image.boundingBox()).toMatchObject({ width: 90, height: 40 });
        expect(await cell.locator("svg, script").count()).toBe(0);
        expect(await page.title()).toBe("YVM console");
    });

    it("that is none is told as that", async () => {
        const cell = await run("class Broken:\n    def _repr_png_(self): return b'no image'\nBroken()");
        await cell.getByText("The image cannot be shown").waitFor();
    });
});

describe("a displayed value", () => {
    it("is shown once, as text where it is nothing else", async () => {
        const cell = await run("import numpy as np; np.arange(3)");
        expect(await cell.locator(".outputs").innerText()).toBe("array([0, 1, 2])\n");
    });

    it("that is a table is one, and what else is in its HTML does nothing", async () => {
        const html = [
            "<style>* { display: none }</style>",
            '<table class="failure" id="status" onclick="document.title = 1"><thead><tr style="color: red">',
            "<th></th><th>city</th></tr></thead><tbody><tr><th>0</th><td>Rome &lt;b&gt; style=x</td></tr></tbody></table>",
            '<script>document.title = "owned"</script><img src=x onerror="document.title = 1">',
            '<a href="javascript:document.title = 1">bad</a> <a href="https://example.org/">good</a>',
            '<form action="/"><input name="token"><button>Log in</button></form><iframe src="/"></iframe>',
            '<svg><style><img src=x onerror="document.title = 1"></style></svg><math><mtext></mtext></math>',
            "<b/onmouseover='document.title = 1'title='t'onclick=\n'document.title = 1'>no</b>",
        ].join("");
        const cell = await run(
            `class Table:\n    def _repr_html_(self): return ${JSON.stringify(html)}\nTable()`,
        );
        const table = cell.getByRole("table");
        await table.waitFor();
        expect(await table.getByRole("cell").allInnerTexts()).toEqual(["Rome <b> style=x"]);
        const shown = cell.locator(".markup");
        expect(await shown.getAttribute("aria-label")).toBe("Table");
        expect(
            await shown.locator("script, style, img, form, input, button, iframe, svg, math").count(),
        ).toBe(0);
        expect(await shown.locator("[class], [id], [style], [onclick], [name]").count()).toBe(0);
        expect(await shown.getByText("bad").getAttribute("href")).toBeNull();
        expect(await shown.getByText("good").getAttribute("href")).toBe("https://example.org/");
        expect(await shown.getByText("good").getAttribute("rel")).toBe("noopener noreferrer");
        await shown.getByText("Rome").click();
        expect(await page.title()).toBe("YVM console");
    });

    it("of pandas is a table", async () => {
        const cell = await run(
            "import pandas; pandas.DataFrame({'city': ['Rome', 'Oslo'], 'area': [1285, 454]})",
        );
        expect(await cell.getByRole("columnheader").allInnerTexts()).toEqual(["", "city", "area"]);
        expect(await cell.getByRole("cell").allInnerTexts()).toEqual(["Rome", "1285", "Oslo", "454"]);
    });

    it("is one of 200 that a cell keeps, and the others are counted", async () => {
        const cell = await run(
            "import yvm\nclass Table:\n    def __init__(self, n): self.n = n\n" +
                "    def _repr_html_(self): return f'<table><tr><td>{self.n}</table>'\nfor n in range(230): yvm.display(Table(n))",
        );
        await expect.poll(() => cell.locator(".display").count()).toBe(200);
        expect(await cell.getByRole("cell").first().innerText()).toBe("30");
        expect(await cell.locator(".outputs > .note").innerText()).toBe("30 earlier outputs are not kept");
    });

    it("that is gone before its turn is never made", async () => {
        // No frame is shown while the command runs, and every table that comes to the page is noted.
        await page.evaluate(`(() => {
            const show = window.requestAnimationFrame.bind(window);
            const held = [];
            window.requestAnimationFrame = (render) => held.push(render);
            window.showFrames = () => {
                window.requestAnimationFrame = show;
                held.forEach((render) => show(render));
            };
            window.tables = [];
            new MutationObserver((records) => {
                for (const { addedNodes } of records) {
                    window.tables.push(...[...addedNodes].filter((node) => node.matches?.(".display")).map((node) => node.textContent));
                }
            }).observe(document, { childList: true, subtree: true });
        })()`);
        const cell = await run(
            "import yvm\nclass Table:\n    def __init__(self, n): self.n = n\n" +
                "    def _repr_html_(self): return f'<table><tr><td>{self.n}</table>'\nfor n in range(230): yvm.display(Table(n))",
        );
        await page.evaluate("window.showFrames()");
        await cell.getByRole("cell", { name: "229", exact: true }).waitFor();
        expect(await page.evaluate("window.tables")).toEqual(
            Array.from({ length: 200 }, (_, n) => String(n + 30)),
        );
    });

    it("whose HTML shows nothing is shown as text", async () => {
        const cell = await run(
            "class Empty:\n    def _repr_html_(self): return '<script>1</script>'\n    def __repr__(self): return 'nothing'\nEmpty()",
        );
        expect(await cell.locator(".outputs").innerText()).toBe("nothing\n");
    });

    it("whose HTML would keep the page busy for minutes is shown as text", async () => {
        const cell = await run(
            "class Deep:\n    def _repr_html_(self): return '<b>' * 60_000\n    def __repr__(self): return 'deep'\nDeep()",
        );
        expect(await cell.locator(".outputs").innerText()).toBe("deep\n");
    });

    it.each(["light", "dark"] as const)("looks well beside figures, in %s", async (colorScheme) => {
        await page.emulateMedia({ colorScheme });
        await page.setViewportSize({ width: 1200, height: 900 });
        await page.getByRole("button", { name: "Variables" }).click();
        await run(
            "import matplotlib.pyplot as plt, numpy as np\nx = np.linspace(0, 10, 400)\n" +
                "plt.figure(figsize=(5, 3))\nplt.plot(x, np.sin(x), x, np.cos(x))\nplt.title('waves')\npass",
        );
        await run(
            "rows = [('Rome', 2.8, 1285), ('Oslo', 0.7, 454), ('Lima', 10.7, 2672)]\n" +
                "class Table:\n    def _repr_html_(self):\n        return ('<table><thead><tr><th>city<th>millions<th>km²</thead>' +\n" +
                "            ''.join(f'<tr><th>{a}<td>{b}<td>{c}' for a, b, c in rows) + '</table>')\nTable()",
        );
        await page.locator("#variables").getByText("rows").click();
        await page.screenshot({ path: `${screenshots}display-${colorScheme}.png` });
        expect(await page.locator(".display").count()).toBe(2);
    });
});

describe("progress", () => {
    it("is a bar while it moves, and a line when it has come to its end", async () => {
        const cell = await start(
            "import threading, yvm\ngo = threading.Event()\n" +
                "for i in yvm.progress(range(4), 'fitting'):\n    if i == 2:\n        while not go.wait(0.06): pass\n",
        );
        const bar = cell.getByRole("progressbar", { name: "fitting" });
        await bar.waitFor();
        await page.screenshot({ path: `${screenshots}progress.png` });
        await other.eval("go.set()", { runOptions: { dequeueMode: "DEQUEUE_AT_PPE" } });
        await ended(cell);
        expect(await bar.count()).toBe(0);
        expect(await cell.locator(".bars").innerText()).toMatch(/^✓? ?fitting: 4 of 4 · /);
        await page.screenshot({ path: `${screenshots}progress-ended.png` });
    });

    it("that is stopped says how far it has come", async () => {
        const cell = await start(
            "import time, yvm\nwith yvm.progress(total=10, label='slow') as bar:\n" +
                "    bar.update(4)\n    time.sleep(0.1)\n    bar.update(0)\n    while True: pass",
        );
        await cell.locator(".bar-text", { hasText: "4 of 10" }).waitFor();
        await cell.getByRole("button", { name: "Stop" }).click();
        await ended(cell);
        expect(await cell.locator(".bar-ended").innerText()).toContain("slow: ended at 4 of 10");
    });

    it("of very many loops leaves a few lines", async () => {
        const cell = await run(
            "import yvm\nfor i in range(200):\n    for j in yvm.progress(range(2), f'loop {i}'): pass",
        );
        expect(await cell.locator(".bar-ended").count()).toBe(3);
        expect(await cell.locator(".bars").innerText()).toContain("197 more before");
    });
});
