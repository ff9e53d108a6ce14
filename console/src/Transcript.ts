import type { TextChunk } from "yvm-client";

import { Cell } from "./Cell";

/** Older cells than these leave the page. */
const maxCells = 500;

/** How near to the end, in pixels, counts as being there. */
const followDistance = 40;

/** The list of cells. Text that arrives is rendered once a frame, however much it is. */
export class Transcript {
    readonly #list: HTMLElement;
    readonly #scroller: HTMLElement;
    readonly #dirty = new Set<Cell>();
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
        this.#list.append(cell.element);
        while (this.#list.childElementCount > maxCells) {
            this.#list.firstElementChild?.remove();
        }
        this.#follows = true;
        this.#follow();
        return cell;
    }

    append(cell: Cell, chunk: TextChunk): void {
        cell.append(chunk);
        this.#dirty.add(cell);
        if (!this.#frameIsDue) {
            this.#frameIsDue = true;
            requestAnimationFrame(() => {
                this.#renderDirty();
            });
        }
    }

    finish(cell: Cell, error?: Error): void {
        this.#dirty.delete(cell);
        cell.finish(error);
        this.#follow();
    }

    /** Removes all cells but the running ones. */
    clear(): void {
        for (const cell of [...this.#list.children]) {
            if (!cell.classList.contains("running")) {
                cell.remove();
            }
        }
    }

    #renderDirty(): void {
        this.#frameIsDue = false;
        for (const cell of this.#dirty) {
            cell.render();
        }
        this.#dirty.clear();
        this.#follow();
    }

    #follow(): void {
        if (this.#follows) {
            this.#scroller.scrollTop = this.#scroller.scrollHeight;
        }
    }
}
