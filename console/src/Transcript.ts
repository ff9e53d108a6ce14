import type { TextChunk } from "yvm-client";

import { Cell } from "./Cell";
import { EngineCell } from "./EngineCell";

/** Older cells than these leave the page. */
const maxCells = 500;

/** UTF-16 units that all cells together keep; beyond, the oldest give up theirs, but for a rest. */
const maxUnits = 32 * 1024 * 1024;
const maxRestUnits = 64 * 1024;

/** Milliseconds of a frame that are spent on text. */
const timeOfFrame = 8;

/** How near to the end, in pixels, counts as being there. */
const followDistance = 40;

type AnyCell = Cell | EngineCell;

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

    /**
     * @param list where the cells go
     * @param scroller what scrolls them
     */
    constructor(list: HTMLElement, scroller: HTMLElement) {
        this.#list = list;
        this.#scroller = scroller;
        scroller.addEventListener("scroll", () => {
            const { scrollHeight, scrollTop, clientHeight } = scroller;
            this.#follows = scrollHeight - scrollTop - clientHeight < followDistance;
        });
        // The editor below grows with its text.
        new ResizeObserver(() => {
            this.#follow();
        }).observe(scroller);
    }

    /** Adds a cell at the end and shows it. */
    add(command: string, onStop: (cell: Cell) => void): Cell {
        const cell = new Cell(command, onStop);
        this.#add(cell);
        this.#follows = true;
        this.#follow();
        return cell;
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

    #follow(): void {
        if (this.#follows) {
            this.#scroller.scrollTop = this.#scroller.scrollHeight;
        }
    }
}
