import type { InputRequest, Progress } from "yvm-client";

import { CellOutput } from "./CellOutput";
import { make } from "./dom";
import { failureView } from "./failureView";
import { InputField, type InputActions } from "./InputField";
import { ProgressBars } from "./ProgressBars";

/** One command and what came of it. */
export class Cell {
    readonly element: HTMLElement;
    readonly command: string;
    /** The file name under which the engine runs it, once it is known. */
    fileName: string | undefined;
    readonly output = new CellOutput();
    readonly #input: HTMLElement;
    readonly #stage = make("span", "", "running");
    readonly #stop = make("button", "quiet", "Stop");
    readonly #progress = make("p", "progress", make("span", "spinner"), this.#stage, this.#stop);
    #bars: ProgressBars | undefined;
    /** What the command asks for, where nobody has answered yet. */
    readonly #fields = new Set<InputField>();
    #isStopRequested = false;
    readonly #start = performance.now();

    /**
     * @param command its text
     * @param onStop called when somebody presses the button that stops it, each time
     */
    constructor(command: string, onStop: (cell: Cell) => void) {
        this.command = command;
        this.#stop.type = "button";
        this.#stop.title = "Stop this command (Ctrl+C)";
        this.#stop.addEventListener("click", () => {
            onStop(this);
        });
        this.#input = make("pre", "input", command);
        this.#input.setAttribute("aria-label", "Command");
        this.element = make("article", "cell running", this.#input, this.output.element, this.#progress);
        // Screen readers wait until the command has ended.
        this.element.setAttribute("aria-busy", "true");
    }

    /** Whether the command has not ended. */
    get isRunning(): boolean {
        return this.element.classList.contains("running");
    }

    /**
     * Marks the line of the command where a frame stands still.
     *
     * @param line counted from 1; undefined for none any more
     * @returns the element that marks it; undefined if there is no such line
     */
    markLine(line: number | undefined): HTMLElement | undefined {
        const lines = this.command.split("\n");
        const index = (line ?? 0) - 1;
        if (lines[index] === undefined) {
            this.#input.replaceChildren(this.command);
            return undefined;
        }
        const isLast = index === lines.length - 1;
        const before = lines.slice(0, index).map((text) => `${text}\n`);
        const mark = make("mark", "stopped-line", lines[index], isLast ? "" : "\n");
        this.#input.replaceChildren(before.join(""), mark, lines.slice(index + 1).join("\n"));
        return mark;
    }

    /** The engine has begun with the command, or has not. */
    showStage(stage: "waiting" | "running"): void {
        if (!this.#isStopRequested) {
            this.#stage.textContent = this.#fields.size > 0 ? "waits for an answer" : stage;
        }
    }

    /** Says that it was asked to stop, which lasts until it has ended: it may take its time. */
    showStopRequested(): void {
        this.#isStopRequested = true;
        this.#stage.textContent = "stop requested";
        this.#stop.textContent = "Stop again";
    }

    /** The request to stop did not get through. */
    showStopFailed(error: Error): void {
        this.#stage.textContent = `not stopped: ${error.message}`;
    }

    /** Something that the command does has moved on; it is shown at the next `renderProgress`. */
    updateProgress(progress: Progress): void {
        if (!this.#bars) {
            this.#bars = new ProgressBars();
            this.#progress.before(this.#bars.element);
        }
        this.#bars.update(progress);
    }

    renderProgress(): void {
        this.#bars?.render();
    }

    /**
     * The command waits for a line of text.
     *
     * @param answer hands it on, see `InputActions`
     * @param onDone called with what stays of the field on the page, when it has gone
     */
    ask(request: InputRequest, answer: InputActions["answer"], onDone: (echo: string) => void): InputField {
        const field = new InputField(request, {
            answer,
            done: (done, echo) => {
                this.#removeField(done);
                onDone(echo);
            },
        });
        this.#fields.add(field);
        // Below the question, which is the last line of the text.
        this.output.element.after(field.element);
        this.showStage("running");
        // It is to be read now, though the command has not ended.
        this.element.removeAttribute("aria-busy");
        return field;
    }

    /** The command waits for no line any more. */
    goOn(): void {
        for (const field of [...this.#fields]) {
            field.goOn();
        }
    }

    #removeField(field: InputField): void {
        this.#fields.delete(field);
        field.element.remove();
        this.showStage("running");
        if (this.#fields.size === 0 && this.isRunning) {
            this.element.setAttribute("aria-busy", "true");
        }
    }

    /** The command has ended, with or without a failure. */
    finish(error: Error | undefined): void {
        this.#fields.forEach((field) => {
            this.#removeField(field);
        });
        this.#bars?.finish();
        if (error) {
            this.element.classList.add("failed");
            this.element.append(failureView(error));
        }
        const seconds = (performance.now() - this.#start) / 1000;
        this.#progress.remove();
        if (seconds >= 1) {
            this.element.append(make("p", "duration", `${seconds.toFixed(1)} s`));
        }
        this.element.classList.remove("running");
        this.element.removeAttribute("aria-busy");
    }
}
