import type { TextChunk } from "yvm-client";

import { make } from "./dom";
import { OutputText, type Row } from "./OutputText";
import { applyStyle, type TextStyle } from "./TextStyle";

/** Beyond these the output gets a scrolled view of its own, which holds the rows that can be seen. */
const maxInlineRows = 150;
const maxInlineUnits = 20_000;

/** Rows above and below those that can be seen. */
const overscan = 10;

/** Milliseconds for which a button says what it has done. */
const noticeTime = 2000;

/** The scrolled view of an output that is too long to be shown whole. */
interface Viewport {
    readonly element: HTMLElement;
    /** As high as all rows. */
    readonly sizer: HTMLElement;
    readonly window: HTMLElement;
    readonly notes: HTMLElement;
    readonly rowHeight: number;
}

/** What was printed, shown as text and never as markup. However much it is, the page holds few elements of it. */
export class OutputView {
    readonly element = make("div", "output");
    readonly #text = new OutputText();
    #viewport: Viewport | undefined;
    /** Whether the reader is at the end. Whoever has scrolled up is left in peace. */
    #follows = true;
    /** Where the view was scrolled to by the last rendering; anywhere else, it was the reader. */
    #scrollTop = -1;
    /** The first row at the last rendering. */
    #firstRow = 0;
    /** What was rendered last: nothing is touched that need not be, so that a selection stays. */
    #shown = "";

    /** How many UTF-16 units it keeps. */
    get length(): number {
        return this.#text.length;
    }

    /** How many characters fit into a line. */
    get columns(): number {
        const count = 100;
        const probe = make("span", "probe", "0".repeat(count));
        const line = make("pre", "stdout", probe);
        this.element.append(line);
        const columns = Math.floor((count * line.clientWidth) / probe.getBoundingClientRect().width);
        line.remove();
        return columns;
    }

    /** Takes text in; it is shown at the next `render`. */
    append({ stream, text }: TextChunk): void {
        this.#text.append(stream, text);
    }

    /** Keeps no more than so many UTF-16 units from now on. */
    limitTo(units: number): void {
        this.#text.limitTo(units);
        this.render(0);
    }

    /**
     * Brings the page up to date with the text.
     *
     * @param deadline on the clock of `performance.now()`; what is not done by then waits for the next call
     * @returns whether all is done
     */
    render(deadline: number): boolean {
        const isDone = this.#text.process(deadline);
        const { firstRow, endRow, length } = this.#text;
        const isLong = firstRow > 0 || endRow - firstRow > maxInlineRows || length > maxInlineUnits;
        if (this.#viewport || (isLong && this.element.isConnected)) {
            this.#viewport ??= this.#openViewport();
            this.#renderViewport(this.#viewport);
        } else if (!isLong) {
            this.element.replaceChildren(...this.#viewsOf(firstRow, endRow, false));
        }
        return isDone;
    }

    #openViewport(): Viewport {
        const element = make("div", "viewport");
        element.tabIndex = 0;
        element.setAttribute("role", "group");
        // What scrolls into view is not news.
        element.setAttribute("aria-live", "off");
        const sizer = make("div", "sizer");
        const window = make("div", "window");
        sizer.append(window);
        element.append(sizer);
        const notes = make("p", "output-notes");
        this.element.replaceChildren(make("div", "output-bar", notes, ...this.#makeButtons()), element);
        element.addEventListener("scroll", () => {
            const { scrollHeight, scrollTop, clientHeight } = element;
            if (scrollTop !== this.#scrollTop) {
                this.#follows = scrollHeight - scrollTop - clientHeight < viewport.rowHeight;
            }
            requestAnimationFrame(() => {
                this.#renderViewport(viewport);
            });
        });
        const rowHeight = parseFloat(getComputedStyle(window).lineHeight);
        const viewport = { element, sizer, window, notes, rowHeight };
        return viewport;
    }

    #makeButtons(): HTMLElement[] {
        const save = make("button", "quiet", "Save");
        save.type = "button";
        save.title = "Save all text that is kept";
        save.addEventListener("click", () => {
            this.#save();
        });
        if (!("clipboard" in navigator)) {
            return [save]; // a page that came unencrypted from another machine has none
        }
        const copy = make("button", "quiet", "Copy");
        copy.type = "button";
        copy.title = "Copy all text that is kept";
        copy.addEventListener("click", () => {
            void this.#copy(copy);
        });
        return [copy, save];
    }

    async #copy(button: HTMLElement): Promise<void> {
        this.#text.process();
        try {
            await navigator.clipboard.writeText([...this.#text.parts()].join(""));
            button.textContent = "Copied";
        } catch (error) {
            button.textContent = `Not copied: ${String(error)}`;
        }
        setTimeout(() => {
            button.textContent = "Copy";
        }, noticeTime);
    }

    #save(): void {
        this.#text.process();
        const link = make("a", "");
        link.href = URL.createObjectURL(new Blob([...this.#text.parts()], { type: "text/plain" }));
        link.download = "output.txt";
        link.click();
        // The browser has taken the text by the next turn.
        setTimeout(() => {
            URL.revokeObjectURL(link.href);
        });
    }

    #renderViewport({ element, sizer, window, notes, rowHeight }: Viewport): void {
        const { firstRow, endRow, dropped } = this.#text;
        sizer.style.height = `${String((endRow - firstRow) * rowHeight)}px`;
        if (this.#follows) {
            element.scrollTop = element.scrollHeight;
        } else if (firstRow > this.#firstRow) {
            element.scrollTop -= (firstRow - this.#firstRow) * rowHeight;
        }
        this.#firstRow = firstRow;
        this.#scrollTop = element.scrollTop;

        const top = Math.floor(element.scrollTop / rowHeight);
        const from = Math.max(firstRow, firstRow + top - overscan);
        const visible = Math.ceil(element.clientHeight / rowHeight);
        const to = Math.min(endRow, firstRow + top + visible + overscan);
        const last = to > from ? this.#text.row(to - 1) : undefined;
        // Rows do not change any more, but for the very last.
        const shown = `${String(from)} ${String(to)} ${to === endRow ? String(last?.text) : ""}`;
        if (shown !== this.#shown) {
            this.#shown = shown;
            window.replaceChildren(...this.#viewsOf(from, to, true));
        }
        window.style.top = `${String((from - firstRow) * rowHeight)}px`;

        const lines = `${(endRow - firstRow).toLocaleString("en")} lines`;
        const label = dropped > 0 ? `the last ${lines}` : lines;
        if (notes.dataset["dropped"] !== String(dropped) || notes.dataset["lines"] !== lines) {
            notes.dataset["dropped"] = String(dropped);
            notes.dataset["lines"] = lines;
            notes.replaceChildren(
                label,
                ...(dropped > 0
                    ? [
                          "; ",
                          make(
                              "span",
                              "dropped",
                              `${dropped.toLocaleString("en")} earlier characters are not kept`,
                          ),
                      ]
                    : []),
            );
            element.setAttribute("aria-label", `Output, ${label}`);
        }
    }

    /**
     * Elements for the rows, one for each stretch of one stream.
     *
     * @param breaksLines whether each row gets a line of its own, also where it goes on with a longer one
     */
    #viewsOf(from: number, to: number, breaksLines: boolean): HTMLElement[] {
        const views: HTMLElement[] = [];
        let plain = "";
        let view: HTMLElement | undefined;
        let stream: Row["stream"] | undefined;
        const flush = () => {
            if (plain !== "") {
                view?.append(plain);
                plain = "";
            }
        };
        for (let number = from; number < to; number++) {
            const row = this.#text.row(number);
            if (row.stream !== stream || !view) {
                flush();
                ({ stream } = row);
                view = makeStreamView(stream);
                views.push(view);
            }
            if (row.runs) {
                for (const { text, style } of row.runs) {
                    if (style) {
                        flush();
                        view.append(makeRun(text, style));
                    } else {
                        plain += text;
                    }
                }
            } else {
                plain += row.text;
            }
            if (row.hasEnd) {
                plain += "\n";
            } else if (breaksLines && number + 1 < to && this.#text.row(number + 1).stream === stream) {
                flush();
                view.append(make("span", "fold", "\n"));
            }
        }
        flush();
        return views;
    }
}

function makeStreamView(stream: Row["stream"]): HTMLElement {
    if (stream === 0) {
        return make("pre", "stdout");
    }
    const view = make("pre", "stderr");
    view.setAttribute("role", "group");
    view.setAttribute("aria-label", "Standard error");
    view.title = "Standard error";
    return view;
}

function makeRun(text: string, style: TextStyle): HTMLElement {
    const run = make("span", "", text);
    applyStyle(run, style);
    return run;
}
