import type { Progress } from "yvm-client";

import { make } from "./dom";
import { progressText } from "./progressText";

/** More bars than these are not shown, of those that move and of those that have come to their end. */
const maxMoving = 8;
const maxEnded = 3;

interface Bar {
    readonly element: HTMLElement;
    readonly bar: HTMLProgressElement;
    readonly text: HTMLElement;
    last: Progress;
}

/** The progress of one command: bars while it moves, and a line each when it has come to its end. */
export class ProgressBars {
    readonly element = make("div", "bars");
    readonly #more = make("p", "note");
    readonly #moving = new Map<number, Bar>();
    /** What is not shown yet: the latest of each, in the order in which they came. */
    readonly #pending = new Map<number, Progress>();
    /** The lines of those that have ended. */
    #ended: HTMLElement[] = [];
    #endedCount = 0;

    constructor() {
        this.#more.hidden = true;
        this.element.append(this.#more);
    }

    /** Takes in how far something has come; it is shown at the next `render`. */
    update(progress: Progress): void {
        this.#pending.delete(progress.id);
        this.#pending.set(progress.id, progress);
    }

    /** Brings the page up to date. */
    render(): void {
        for (const progress of this.#pending.values()) {
            this.#show(progress);
        }
        this.#pending.clear();
    }

    #show(progress: Progress): void {
        if (progress.finished) {
            this.#end(progress, progressText(progress));
            return;
        }
        let bar = this.#moving.get(progress.id);
        if (!bar) {
            if (this.#moving.size >= maxMoving) {
                return;
            }
            bar = makeBar(progress);
            this.#moving.set(progress.id, bar);
            this.element.append(bar.element);
        }
        bar.last = progress;
        if (progress.total === null || Number.isNaN(progress.done)) {
            bar.bar.removeAttribute("value");
        } else {
            bar.bar.max = progress.total > 0 ? progress.total : 1;
            bar.bar.value = progress.done;
        }
        bar.text.textContent = progressText(progress);
    }

    /** The command has ended, and what it has left unfinished stays so. */
    finish(): void {
        this.render();
        for (const { last } of [...this.#moving.values()]) {
            this.#end(last, progressText({ ...last, finished: true }));
        }
    }

    #end(progress: Progress, text: string): void {
        this.#moving.get(progress.id)?.element.remove();
        this.#moving.delete(progress.id);
        this.#endedCount += 1;
        const line = make("p", "bar-ended", progress.label ? `${progress.label}: ${text}` : text);
        const isWhole = progress.total === null || progress.done >= progress.total;
        line.classList.toggle("is-partial", !isWhole);
        this.#ended.push(line);
        // Below the other lines, and above the bars that move.
        this.element.insertBefore(line, this.#moving.values().next().value?.element ?? null);
        if (this.#ended.length > maxEnded) {
            this.#ended.shift()?.remove();
            this.#more.textContent = `${(this.#endedCount - maxEnded).toLocaleString("en")} more before`;
            this.#more.hidden = false;
        }
    }
}

function makeBar(progress: Progress): Bar {
    const bar = make("progress", "");
    bar.setAttribute("aria-label", progress.label || "Progress");
    const text = make("span", "bar-text");
    const element = make("div", "bar-moving", make("span", "bar-label", progress.label), bar, text);
    return { element, bar, text, last: progress };
}
