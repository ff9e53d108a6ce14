import type { Locator, Page } from "playwright-core";
import { expect } from "vitest";

/** A page of the web console, as somebody sees it who debugs. */
export class DebuggerPage {
    readonly page: Page;
    readonly panel: Locator;
    /** Says why a command has stopped. */
    readonly title: Locator;
    /** The frames of the stop, innermost first. */
    readonly frames: Locator;
    /** What asks for a breakpoint, folded away or not. */
    readonly form: Locator;
    /** The line of a command on the page at which the selected frame stands. */
    readonly stoppedLine: Locator;
    readonly #url: string;

    constructor(page: Page, url: string) {
        this.page = page;
        this.#url = url;
        this.panel = page.getByRole("complementary", { name: "Debugger" });
        this.title = this.panel.locator(".stop-title");
        this.frames = this.panel.locator(".stop-frame");
        this.form = this.panel.locator(".breakpoint-form");
        this.stoppedLine = page.locator(".cell .stopped-line");
    }

    /** Opens the page, or loads it anew. */
    async open(): Promise<void> {
        await this.page.goto(this.#url);
        await this.page.locator('#status[data-state="attached"]').waitFor();
        // Told by what the page asks first; the breakpoints, which it asks for with it, would untick boxes.
        await this.page.locator("#engine-state").waitFor();
    }

    async showPanel(): Promise<void> {
        await this.page.getByRole("button", { name: "Debugger" }).click();
    }

    lineNumber(line: number): Locator {
        return this.page.getByRole("button", { name: `Breakpoint on line ${String(line)}`, exact: true });
    }

    async write(command: string): Promise<void> {
        await this.page.locator("#command").fill(command);
    }

    /** Runs a command, or what is in the editor; its cell. */
    async run(command?: string): Promise<Locator> {
        if (command !== undefined) {
            await this.write(command);
        }
        const count = await this.page.locator(".cell").count();
        await this.page.locator("#command").press("Enter");
        const cell = this.page.locator(".cell").nth(count);
        await cell.waitFor();
        return cell;
    }

    async ended(cell: Locator): Promise<void> {
        await cell.and(this.page.locator(":not(.running)")).waitFor();
    }

    /** Waits until the panel shows the innermost frame at this line, and its variables by name. */
    async stoppedAt(line: number, variables: Record<string, string>): Promise<void> {
        await this.frames
            .first()
            .locator(".frame-place")
            .getByText(new RegExp(`:${String(line)}$`))
            .waitFor();
        await expect
            .poll(async () => {
                const names = await this.panel.locator("dt").allTextContents();
                const values = await this.panel.locator("dd").allTextContents();
                return Object.fromEntries(names.map((name, index) => [name, values[index]]));
            })
            .toEqual(variables);
    }

    /** What the form proposes as files, best first. */
    async proposedFiles(): Promise<string[]> {
        await this.unfold();
        await this.form.getByLabel("File").focus();
        return Promise.all(
            (await this.form.locator("datalist option").all()).map(
                async (option) => (await option.getAttribute("value")) ?? "",
            ),
        );
    }

    async unfold(): Promise<void> {
        if ((await this.form.getAttribute("open")) === null) {
            await this.form.getByText("Add a breakpoint").click();
        }
    }

    /** Fills in the form, by the labels of its fields, and asks for the breakpoint. */
    async fillIn(stop: string, fields: Record<string, string>): Promise<void> {
        await this.unfold();
        await this.form.getByLabel("Stop").selectOption(stop);
        for (const [label, text] of Object.entries(fields)) {
            await this.form.getByLabel(label, { exact: true }).fill(text);
        }
        await this.form.getByRole("button", { name: "Add" }).click();
    }

    /** As `fillIn`; waits until the breakpoint is listed as this. */
    async add(stop: string, fields: Record<string, string>, listed: string): Promise<void> {
        await this.fillIn(stop, fields);
        await this.clearButton(listed).waitFor();
        await this.form.getByText("Set.", { exact: true }).waitFor();
    }

    clearButton(listed: string): Locator {
        return this.panel.getByRole("button", { name: `Clear the breakpoint ${listed}`, exact: true });
    }
}
