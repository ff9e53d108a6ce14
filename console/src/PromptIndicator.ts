import type { PromptState } from "yvm-client";

type State = PromptState["state"];

/** Milliseconds after which the engine is shown as busy: a short command shall not flicker. */
const busyDelay = 150;

const texts: Readonly<Record<State, string>> = {
    busy: "busy",
    idle: "idle",
    paused: "paused",
    debug: "in the debugger",
};

/** Tells what the engine does. */
export class PromptIndicator {
    readonly #element: HTMLElement;
    #state: State | undefined;
    #timer: ReturnType<typeof setTimeout> | undefined;

    constructor(element: HTMLElement) {
        this.#element = element;
    }

    /** @param state undefined if it is not known, as nobody is there to tell */
    show(state: State | undefined): void {
        this.#state = state;
        clearTimeout(this.#timer);
        if (state === "busy") {
            this.#timer = setTimeout(() => {
                this.#render();
            }, busyDelay);
        } else {
            this.#render();
        }
    }

    #render(): void {
        this.#element.hidden = this.#state === undefined;
        this.#element.textContent = this.#state ? texts[this.#state] : "";
        this.#element.dataset["state"] = this.#state ?? "";
    }
}
