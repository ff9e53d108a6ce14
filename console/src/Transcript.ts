import type { InputRequest, Progress, StructuredOutput, TextChunk } from "yvm-client";

import { Cell } from "./Cell";
import { EngineCell } from "./EngineCell";
import type { InputActions, InputField } from "./InputField";

/** Older cells than these leave the page. */
const maxCells = 500;

/** UTF-16 units that all cells together keep; beyond, the oldest give up theirs, but for a rest. */
const maxUnits = 32 * 1024 * 1024;
const maxRestUnits = 64 * 1024;

/** Milliseconds of a frame that are spent on text. */
const timeOfFrame = 8;

/** How near to the end, in pixels, counts as being there. */
const followDistance = 40;

/** Pixels above a field that are shown with it: the question. */
const questionHeight = 48;

type AnyCell = Cell | EngineCell;

type NamedCell = Cell & { readonly fileName: string };

/** A line of a file, or of a command. */
export interface Place {
    readonly fileName: string;
    /** Counted from 1. */
    readonly lineNumber: number;
}

/** The list of cells. Text that arrives is taken in at once and shown once a frame, however much it is. */
export class Transcript {
    readonly #list: HTMLElement;
    readonly #scroller: HTMLElement;
    /** In their order on the page. */
    #cells: AnyCell[] = [];
    readonly #dirty = new Set<AnyCell>();
    /** Whether the reader is at the end. Whoever has scrolled up is left in peace. */
    #follows = true;
    #frameIsDue = false;
    /** The line that is to be marked. */
    #place: Place | undefined;
    /** The line that is marked. */
    #marked: { readonly cell: Cell; readonly lineNumber: number } | undefined;
    /** Where the page was scrolled to for it, away from the end. */
    #leftEndFor: number | undefined;

    /**
     * @param list where the cells go
     * @param scroller what scrolls them
     */
    constructor(list: HTMLElement, scroller: HTMLElement) {
        this.#list = list;
        this.#scroller = scroller;
        scroller.addEventListener("scroll", () => {
            this.#follows = this.#end() - scroller.scrollTop < followDistance;
        });
        const observer = new ResizeObserver(() => {
            this.#follow();
        });
        observer.observe(scroller); // the editor below grows with its text
        observer.observe(list);
    }

    /** Adds a cell at the end and shows it. */
    add(command: string, onStop: (cell: Cell) => void): Cell {
        const cell = new Cell(command, onStop);
        this.#add(cell);
        this.#follows = true;
        this.#follow();
        return cell;
    }

    /** The commands that the engine has named, newest first. */
    get namedCells(): readonly NamedCell[] {
        return this.#cells.filter(isNamed).reverse();
    }

    /**
     * The engine has named the cell's command. Of two equal ones that wait, the first is the one that is meant; one
     * that has ended before it began leaves its name to the next.
     */
    nameCell(cell: Cell, fileName: string): void {
        const other: Cell | undefined = this.namedCells.find((named) => named.fileName === fileName);
        if (other?.isRunning !== true) {
            if (other) {
                other.fileName = undefined;
            }
            cell.fileName = fileName;
            this.markLine(this.#place); // it may have stopped already
        }
    }

    /** The engine may give the same names to other commands. */
    forgetNames(): void {
        for (const cell of this.#cells) {
            if (cell instanceof Cell) {
                cell.fileName = undefined;
            }
        }
    }

    /** Marks a line and shows it, if it is one of a command on the page; the one before is not marked any more. */
    markLine(place: Place | undefined): void {
        this.#place = place;
        const cell = this.namedCells.find(({ fileName }) => fileName === place?.fileName);
        if (this.#marked && this.#marked.cell !== cell) {
            this.#marked.cell.markLine(undefined);
        }
        const line = cell?.markLine(place?.lineNumber);
        if (cell && place && line) {
            // Shown once: what is run meanwhile prints below.
            if (this.#marked?.cell !== cell || this.#marked.lineNumber !== place.lineNumber) {
                this.#reveal(line);
            }
            this.#marked = { cell, lineNumber: place.lineNumber };
        } else {
            this.#marked = undefined;
            // Whoever has scrolled since is left in peace.
            if (this.#leftEndFor === this.#scroller.scrollTop) {
                this.#follows = true;
                this.#follow();
            }
            this.#leftEndFor = undefined;
        }
    }

    /** Whether the cell is still on the page. */
    has(cell: Cell): boolean {
        return cell.element.isConnected;
    }

    append(cell: AnyCell, chunk: TextChunk): void {
        cell.output.append(chunk);
        this.#dirty.add(cell);
        this.#renderSoon();
    }

    /** Shows a figure, a table or another value that the cell's command displays. */
    display(cell: Cell, output: StructuredOutput): void {
        cell.output.display(output);
        this.#dirty.add(cell);
        this.#renderSoon();
    }

    showProgress(cell: Cell, progress: Progress): void {
        cell.updateProgress(progress);
        this.#dirty.add(cell);
        this.#renderSoon();
    }

    /**
     * Shows a field for the line that the cell's command asks for.
     *
     * @param answer hands it on, see `InputActions`
     * @param onDone called when the field has gone
     */
    ask(cell: Cell, request: InputRequest, answer: InputActions["answer"], onDone: () => void): InputField {
        const field = cell.ask(request, answer, (echo) => {
            this.append(cell, { stream: 0, text: echo });
            onDone();
        });
        this.#follow();
        return field;
    }

    /** Shows text that belongs to no cell, in the order of the page. */
    appendEngineText(chunk: TextChunk): void {
        this.append(this.#engineCell(), chunk);
    }

    /** Says why text that belongs to no cell comes no more. */
    failEngineText(error: Error): void {
        this.#engineCell().fail(error);
        this.#follow();
    }

    /** The cell's command has ended, with or without a failure. */
    finish(cell: Cell, error?: Error): void {
        this.#dirty.add(cell);
        this.#renderDirty();
        cell.finish(error);
        this.#follow();
    }

    /** Removes all cells but the running ones. */
    clear(): void {
        const isRunning = ({ element }: AnyCell) => element.classList.contains("running");
        this.#remove(this.#cells.filter((cell) => !isRunning(cell)));
        this.#list.style.minHeight = "";
    }

    /** Removes all that a running command finds on the page, what it has printed itself included. */
    clearFor(cell: Cell): void {
        this.clear();
        cell.output.clear();
    }

    /** Scrolls so that what the cell's command prints next comes first of what is seen; nothing is removed. */
    goHome(cell: Cell): void {
        this.#renderDirty();
        const { top } = cell.output.begin().getBoundingClientRect();
        const offset = top - this.#list.getBoundingClientRect().top;
        this.#list.style.minHeight = `${String(offset + this.#scroller.clientHeight)}px`;
        this.#follows = true;
        this.#follow();
    }

    #reveal(line: HTMLElement): void {
        const { scrollTop } = this.#scroller;
        line.scrollIntoView({ block: "nearest" });
        if (this.#scroller.scrollTop !== scrollTop && (this.#follows || this.#leftEndFor === scrollTop)) {
            this.#follows = false;
            this.#leftEndFor = this.#scroller.scrollTop;
        }
    }

    #add(cell: AnyCell): void {
        this.#cells.push(cell);
        this.#list.append(cell.element);
        this.#remove(this.#cells.slice(0, -maxCells));
    }

    #remove(cells: readonly AnyCell[]): void {
        for (const cell of cells) {
            cell.element.remove();
            this.#dirty.delete(cell);
        }
        this.#cells = this.#cells.filter(({ element }) => element.isConnected);
    }

    #engineCell(): EngineCell {
        const last = this.#cells.at(-1);
        if (last instanceof EngineCell) {
            return last;
        }
        const cell = new EngineCell();
        this.#add(cell);
        return cell;
    }

    #renderSoon(): void {
        if (!this.#frameIsDue) {
            this.#frameIsDue = true;
            requestAnimationFrame(() => {
                this.#frameIsDue = false;
                this.#renderDirty();
            });
        }
    }

    #renderDirty(): void {
        const deadline = performance.now() + timeOfFrame;
        for (const cell of this.#dirty) {
            if (cell instanceof Cell) {
                cell.renderProgress();
            }
            if (cell.output.render(deadline)) {
                this.#dirty.delete(cell);
            }
        }
        if (this.#dirty.size > 0) {
            this.#renderSoon();
        }
        this.#bound();
        this.#follow();
    }

    #bound(): void {
        let excess = this.#cells.reduce((sum, { output }) => sum + output.length, -maxUnits);
        for (const { output } of this.#cells) {
            if (excess <= 0) {
                return;
            }
            const { length } = output;
            if (length > maxRestUnits) {
                output.limitTo(Math.max(maxRestUnits, length - excess));
                excess -= length - output.length;
            }
        }
    }

    /** How far down the end is; that of what is to be read now, where a field waits above many bars. */
    #end(): number {
        const { scrollHeight, scrollTop, clientHeight } = this.#scroller;
        const end = scrollHeight - clientHeight;
        const field = this.#list.querySelector(".cell:last-child .input-field");
        if (!field) {
            return end;
        }
        const above = field.getBoundingClientRect().top - this.#scroller.getBoundingClientRect().top;
        return Math.min(end, scrollTop + above - questionHeight);
    }

    #follow(): void {
        if (this.#follows) {
            this.#scroller.scrollTop = this.#end();
        }
    }
}

function isNamed(cell: AnyCell): cell is NamedCell {
    return cell instanceof Cell && cell.fileName !== undefined;
}
