import { make } from "./dom";
import { failureView } from "./failureView";
import { OutputView } from "./OutputView";

/** One command and what came of it. */
export class Cell {
    readonly element: HTMLElement;
    readonly command: string;
    readonly output = new OutputView();
    readonly #stage = make("span", "", "running");
    readonly #stop = make("button", "quiet", "Stop");
    readonly #progress = make("p", "progress", make("span", "spinner"), this.#stage, this.#stop);
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
        const input = make("pre", "input", command);
        input.setAttribute("aria-label", "Command");
        this.element = make("article", "cell running", input, this.output.element, this.#progress);
        // Screen readers wait until the command has ended.
        this.element.setAttribute("aria-busy", "true");
    }

    /** The engine has begun with the command, or has not. */
    showStage(stage: "waiting" | "running"): void {
        if (!this.#isStopRequested) {
            this.#stage.textContent = stage;
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

    /** The command has ended, with or without a failure. */
    finish(error: Error | undefined): void {
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
