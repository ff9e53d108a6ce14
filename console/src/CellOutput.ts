import type { StructuredOutput, TextChunk } from "yvm-client";

import { DisplayPart } from "./DisplayPart";
import { formOf, textOf } from "./displayForm";
import { make } from "./dom";
import { OutputView } from "./OutputView";

/** More parts than these are not kept: each is an element of the page. */
const maxParts = 200;

type Part = OutputView | DisplayPart;

/** What a command printed and what it displayed, in its order. */
export class CellOutput {
    readonly element = make("div", "outputs");
    readonly #note = make("p", "note");
    #parts: Part[] = [];
    /** Parts of which something is not shown yet. */
    readonly #pending = new Set<Part>();
    #removed = 0;

    constructor() {
        this.#note.hidden = true;
        this.element.append(this.#note);
        this.#add(new OutputView());
    }

    /** How many UTF-16 units it keeps. */
    get length(): number {
        return this.#parts.reduce((sum, { length }) => sum + length, 0);
    }

    /** How many characters fit into a line. */
    get columns(): number {
        return this.#lastText().columns;
    }

    /** Takes text in; it is shown at the next `render`. */
    append(chunk: TextChunk): void {
        const part = this.#lastText();
        part.append(chunk);
        this.#pending.add(part);
    }

    /** Takes a value in that goes behind what came before it; it is shown at the next `render`. */
    display(output: StructuredOutput): void {
        const form = formOf(output);
        const text = textOf(output.data);
        if (form.kind !== "text") {
            const length = Object.values(output.data).reduce<number>(
                (sum, content) => sum + (typeof content === "string" ? content.length : 0),
                0,
            );
            const part = new DisplayPart(form, text, length);
            this.#pending.add(part);
            this.#add(part);
        } else {
            this.append({ stream: 0, text: `${text}\n` });
        }
    }

    /** Removes everything. */
    clear(): void {
        this.#remove(this.#parts.length);
        this.#removed = 0;
        this.#note.hidden = true;
    }

    /** What comes from now on begins with the element that is returned. */
    begin(): HTMLElement {
        const part = new OutputView();
        this.#add(part);
        return part.element;
    }

    /** Keeps no more than so many UTF-16 units; what is oldest goes first. */
    limitTo(units: number): void {
        let excess = this.length - units;
        let count = 0;
        for (const part of this.#parts) {
            if (excess <= 0) {
                break;
            }
            const { length } = part;
            if (part instanceof OutputView && length > excess) {
                part.limitTo(length - excess);
                break;
            }
            excess -= length;
            count += 1;
        }
        this.#remove(count);
    }

    /**
     * Brings the page up to date, with one part at least. What is gone before its turn was never shown.
     *
     * @param deadline on the clock of `performance.now()`; what is not done by then waits for the next call
     * @returns whether all is done
     */
    render(deadline: number): boolean {
        for (const part of this.#pending) {
            if (part.render(deadline)) {
                this.#pending.delete(part);
            }
            if (performance.now() >= deadline) {
                break;
            }
        }
        return this.#pending.size === 0;
    }

    #lastText(): OutputView {
        const last = this.#parts.at(-1);
        if (last instanceof OutputView) {
            return last;
        }
        const part = new OutputView();
        this.#add(part);
        return part;
    }

    #add(part: Part): void {
        this.#parts.push(part);
        this.element.append(part.element);
        this.#remove(this.#parts.length - maxParts);
    }

    /** Removes so many of the oldest. */
    #remove(count: number): void {
        if (count <= 0) {
            return;
        }
        for (const part of this.#parts.splice(0, count)) {
            part.element.remove();
            this.#pending.delete(part);
            this.#removed += part.length > 0 ? 1 : 0;
        }
        this.#note.textContent = `${this.#removed.toLocaleString("en")} earlier outputs are not kept`;
        this.#note.hidden = this.#removed === 0;
    }
}
